// The journal, as docs/formats.md describes it, with one record:
//
//     "TalVcs store 2" LF "requires packs" LF  "\nREC" size:4 link:8 payload digest:32
//     payload := "r" zeros:8 ("p" number:4 size:8)*

#include "bare_store.h"

#include "failure.h"
#include "folder.h"
#include "folder_index.h"
#include "store_files.h"
#include "terminal.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <map>
#include <string>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace Tal {
namespace {

constexpr const char* kPacks = "packs";
constexpr const char* kObjects = "objects";

std::string LittleEndian(std::uint64_t value, std::size_t size) {
  std::string bytes;
  for (std::size_t i = 0; i < size; ++i) bytes += static_cast<char>(value >> (8 * i));
  return bytes;
}

/// Returns the sizes of the packs by their numbers.
std::map<std::uint32_t, std::uint64_t> ListPacks(const fs::path& folder) {
  std::map<std::uint32_t, std::uint64_t> packs;
  std::error_code error;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    const std::string name = at->path().stem().string();
    std::uint32_t number = 0;
    const char* const last = name.data() + name.size();
    const auto [parsed, failure] = std::from_chars(name.data(), last, number, 16);
    const bool is_pack = at->path().extension() == ".pack" && name.size() == 8 && parsed == last &&
                         failure == std::errc();
    std::error_code unreadable;
    const std::uint64_t size = is_pack ? at->file_size(unreadable) : 0;
    if (is_pack && !unreadable) packs.emplace(number, size);
  }
  return packs;
}

std::string MakeJournal(const std::map<std::uint32_t, std::uint64_t>& packs) {
  std::string payload = "r" + LittleEndian(0, 8);
  for (const auto& [number, size] : packs)
    payload += "p" + LittleEndian(number, 4) + LittleEndian(size, 8);
  const std::string record =
      "\nREC" + LittleEndian(payload.size(), 4) + LittleEndian(0, 8) + payload;
  TalVcs::Buffer hashed;
  hashed.Append(record.data(), record.size());
  const FolderIndex::RawId digest = FolderIndex::ToRaw(TalVcs::Id(hashed));
  return "TalVcs store 2\nrequires packs\n" + record + std::string(digest.begin(), digest.end());
}

/// Makes a folder of hard links to the files of another one, because a store follows no symbolic
/// link. Where there can be none, as on another file system, copies take their place.
std::error_code Link(const fs::path& from, const fs::path& to) {
  constexpr fs::copy_options kAll = fs::copy_options::recursive | fs::copy_options::skip_symlinks;
  std::error_code error;
  fs::copy(from, to, kAll | fs::copy_options::create_hard_links, error);
  if (!error) return error;
  fs::remove_all(to, error);
  fs::copy(from, to, kAll, error);
  return error;
}

}  // namespace

BareStore::BareStore(const fs::path& top, fs::path scratch) : m_scratch(std::move(scratch)) {
  const fs::path damaged = fs::absolute(top) / Folder::kStoreName;
  std::error_code error;
  if (!fs::is_directory(damaged / kPacks, error) && !fs::is_directory(damaged / kObjects, error))
    throw Failure("the store has no objects in \"" + Printable(damaged.string()) + "\"",
                  ExitCode::Damaged);
  const fs::path store = m_scratch / Folder::kStoreName;
  fs::create_directories(store, error);
  for (const char* name : {kPacks, kObjects}) {
    if (!error && fs::is_directory(damaged / name)) error = Link(damaged / name, store / name);
  }
  if (error)
    throw Failure("cannot write in \"" + Printable(m_scratch.string()) + "\": " + error.message());
  WriteSmallFile(store / "state", MakeJournal(ListPacks(damaged / kPacks)));
  m_store = OpenStore(m_scratch);
}

BareStore::~BareStore() {
  m_store.reset();
  std::error_code error;
  fs::remove_all(m_scratch, error);
}

}  // namespace Tal
