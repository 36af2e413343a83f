#include "hash_files.h"

#include "failure.h"
#include "interrupt.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <system_error>
#include <thread>

namespace Tal {
namespace {

constexpr std::size_t kFilesOfThread = 64;  // from which a thread is worth starting
constexpr std::size_t kMostThreads = 8;

/// Returns false if the file has gone or became something else.
bool IsStillThere(const Folder& folder, const std::string& path) {
  try {
    return folder.Examine(path).type == EntryType::File;
  } catch (const Failure&) {
    return true;
  }
}

}  // namespace

// A blob that was read needs no repository to know its id, and no two threads see the same one.
std::vector<std::optional<HashedFile>> HashFiles(const Folder& folder,
                                                 const std::vector<std::string>& paths) {
  std::vector<std::optional<HashedFile>> hashed(paths.size());
  std::vector<std::exception_ptr> failures(paths.size());
  std::atomic<std::size_t> next = 0;
  const auto work = [&] {
    for (std::size_t at = next++; at < paths.size() && !IsInterrupted(); at = next++) {
      try {
        const FileContent content = folder.Read(paths[at]);
        hashed[at] = HashedFile{TalVcs::Blob(content.bytes).GetId(), content.stat};
      } catch (const Failure&) {
        if (IsStillThere(folder, paths[at])) failures[at] = std::current_exception();
      }
    }
  };
  std::vector<std::thread> threads;
  const std::size_t wanted =
      std::min({kMostThreads, paths.size() / kFilesOfThread + 1,
                static_cast<std::size_t>(std::max(1U, std::thread::hardware_concurrency()))});
  try {
    while (threads.size() + 1 < wanted) threads.emplace_back(work);
  } catch (const std::system_error&) {
    // The threads that started, and this one, do it.
  }
  work();
  for (std::thread& thread : threads) thread.join();
  StopIfInterrupted();
  for (const std::exception_ptr& failure : failures) {
    if (failure) std::rethrow_exception(failure);
  }
  return hashed;
}

}  // namespace Tal
