// Two files in the store's folder:
//
//     tal-remotes := (name TAB place LF)*
//     tal-lazy    := place LF              the store in the folder is a cache of that place

#include "remotes.h"

#include "failure.h"
#include "folder.h"
#include "server_store.h"
#include "store_files.h"
#include "terminal.h"

#include <kit/store/cache_store.h>
#include <kit/store/memory_object_store.h>
#include <kit/store/passing_store.h>
#include <kit/text/result.h>

#include <algorithm>
#include <sstream>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace Tal {
namespace {

constexpr const char* kRemotesFile = "tal-remotes";
constexpr const char* kLazyFile = "tal-lazy";

bool IsServer(const std::string& place) {
  return place.starts_with("postgresql://") || place.starts_with("postgres://");
}

/// Takes the place of a store that can't be reached: every call fails.
class UnreachableStore final : public TalVcs::Kit::PassingStore {
 public:
  explicit UnreachableStore(std::string reason)
      : PassingStore(std::make_shared<TalVcs::Kit::MemoryObjectStore>()),
        m_reason(std::move(reason)) {}

 protected:
  TalVcs::Kit::Status Before(const TalVcs::Kit::StoreCall&) override {
    TalVcs::Kit::Error error;
    error.code = TalVcs::Kit::ErrorCode::Unavailable;
    error.message = m_reason;
    return error;
  }

 private:
  std::string m_reason;
};

/// A store that keeps values in another one.
class LazyStore final : public TalVcs::Kit::PassingStore {
 public:
  LazyStore(std::shared_ptr<TalVcs::Kit::IObjectStore> store,
            std::shared_ptr<TalVcs::Kit::IObjectStore> values)
      : PassingStore(std::move(store)), m_values(std::move(values)) {}

  TalVcs::Kit::Result<std::optional<std::string>> Value(std::string_view name) override {
    return m_values->Value(name);
  }
  TalVcs::Kit::Status SetValue(std::string_view name,
                               std::optional<std::string_view> value) override {
    return m_values->SetValue(name, value);
  }

 private:
  std::shared_ptr<TalVcs::Kit::IObjectStore> m_values;
};

}  // namespace

std::vector<RemotePlace> ReadRemotes(const fs::path& storePath) {
  std::vector<RemotePlace> remotes;
  std::istringstream text(ReadSmallFile(storePath / kRemotesFile));
  for (std::string line; std::getline(text, line);) {
    const std::size_t tab = line.find('\t');
    if (tab != line.npos) remotes.push_back({line.substr(0, tab), line.substr(tab + 1)});
  }
  return remotes;
}

void WriteRemotes(const fs::path& storePath, const std::vector<RemotePlace>& remotes) {
  std::string text;
  for (const RemotePlace& remote : remotes) text += remote.name + '\t' + remote.place + '\n';
  WriteSmallFile(storePath / kRemotesFile, text);
}

RemotePlace FindRemote(const fs::path& storePath, const std::string& name) {
  const std::vector<RemotePlace> remotes = ReadRemotes(storePath);
  if (remotes.empty()) throw Failure("there is no remote; tal remote PLACE sets one");
  if (name.empty() && remotes.size() == 1) return remotes.front();
  for (const RemotePlace& remote : remotes) {
    if (remote.name == name) return remote;
  }
  throw Failure(name.empty() ? "there are several remotes; name one with --remote"
                             : "there is no remote \"" + Printable(name) + "\"",
                ExitCode::Usage);
}

std::string CompletePlace(const std::string& place, const fs::path& start) {
  if (place.find_first_of("\n\t") != place.npos) {
    throw Failure("a place can't have a line break or a tab in it", ExitCode::Usage);
  }
  if (IsServer(place)) return place;
  const fs::path path = fs::absolute(start / place);
  if (std::find(path.begin(), path.end(), "..") == path.end())
    return path.lexically_normal().string();
  // As the system resolves it: ".." after a symbolic link leads above the link's target.
  std::error_code error;
  const fs::path resolved = fs::weakly_canonical(path, error);
  if (error) throw Failure("cannot find \"" + Printable(place) + "\": " + error.message());
  return resolved.string();
}

std::shared_ptr<TalVcs::Kit::IObjectStore> OpenPlace(const std::string& place) {
  if (IsServer(place)) return OpenServer(place);
  std::error_code error;
  if (fs::is_directory(place, error)) return OpenStore(place);
  if (fs::is_regular_file(place, error)) return OpenStoreFile(place);
  throw Failure("there is no store at \"" + Printable(place) + "\"");
}

void MakeLazy(const fs::path& top, const std::string& place) {
  WriteSmallFile(top / Folder::kStoreName / kLazyFile, place + '\n');
}

std::string LazyPlace(const fs::path& top) {
  std::string place = ReadSmallFile(top / Folder::kStoreName / kLazyFile);
  if (place.ends_with('\n')) place.pop_back();
  return place;
}

std::shared_ptr<TalVcs::Kit::IObjectStore> OpenLazy(
    std::shared_ptr<TalVcs::Kit::IObjectStore> cache, const std::string& place) {
  std::shared_ptr<TalVcs::Kit::IObjectStore> far;
  try {
    far = OpenPlace(place);
  } catch (const Failure& failure) {
    far = std::make_shared<UnreachableStore>(failure.what());
  }
  auto store = std::make_shared<TalVcs::Kit::CacheStore>(
      cache, std::move(far), TalVcs::Kit::CacheOptions{.keepsHeads = true});
  return std::make_shared<LazyStore>(std::move(store), std::move(cache));
}

}  // namespace Tal
