// Salvages a SQLite file of any bytes into a new document.
//
// input := kind document         kind: "d" the document alone
//        | kind length document log  "w" with a write-ahead log beside it
//
// length: bytes of the document, 2 bytes, lowest first.

#include "target.h"

#include <kit/open/verify.h>
#include <stores/sqlite/sqlite_store.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::Require;
namespace fs = std::filesystem;

/// The folder in which all inputs are salvaged. A salvage reads files of the system.
const fs::path& Folder() {
  static const fs::path folder = [] {
    fs::path made =
        fs::temp_directory_path() / ("talvcs-salvage-" + std::to_string(std::random_device()()));
    fs::create_directories(made);
    std::atexit([] {
      std::error_code ignored;
      fs::remove_all(Folder(), ignored);
    });
    return made;
  }();
  return folder;
}

fs::path Source() { return Folder() / "damaged.tal"; }
fs::path Log() { return Folder() / "damaged.tal-wal"; }
fs::path Target() { return Folder() / "rescued.tal"; }

void WriteFile(const fs::path& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << bytes;
}

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Returns the objects of a new document, all of which can be read and have their ids.
std::unordered_set<Id> CheckObjects(Kit::SqliteStore& store) {
  std::vector<Id> ids;
  const Kit::Status listed = store.List([&ids](std::span<const Id> batch) {
    ids.insert(ids.end(), batch.begin(), batch.end());
    return true;
  });
  Require(listed.ok(), "a new document lists its objects");
  std::unordered_set<Id> found;
  const Kit::Status status = store.Read(ids, [&found](const Id& id, Kit::Result<Buffer> packed) {
    Require(packed && Id(*packed) == id, "each object has the bytes of its id");
    found.insert(id);
  });
  Require(status && found.size() == ids.size(), "each object can be read");
  return found;
}

void CheckDocument(const Kit::SqliteSalvage& salvage) {
  Kit::SqliteStore store =
      Kit::SqliteStore::Open(Target(), {.create = false, .durable = false}).value();
  const std::unordered_set<Id> objects = CheckObjects(store);
  Require(objects.size() == salvage.objects, "the objects are counted");
  const auto heads = store.Heads();
  Require(heads && *heads == salvage.heads, "the heads are those that are reported");
  if (!salvage.hasAllHeads) {
    Require(std::all_of(heads->begin(), heads->end(),
                        [&](const Kit::Head& head) { return objects.contains(head.id); }),
            "a head that was chosen has its commit");
  }
  const auto value = store.Value("current");
  Require(value && (!*value || salvage.values > 0), "the values are counted");
  Require(Kit::Verify(store).ok(), "a new document can be verified");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  if (input.empty()) return 0;
  std::string document = input.substr(1);
  std::string log;
  if (input[0] == 'w' && size >= 3) {
    document = input.substr(3, data[1] | std::size_t{data[2]} << 8);
    log = input.substr(3 + document.size());
  }
  WriteFile(Source(), document);
  if (!log.empty()) WriteFile(Log(), log);

  const auto salvage = Kit::SqliteStore::Salvage(Source(), Target(), {.durable = false});
  Require(salvage.ok(), "every file can be salvaged");
  Require(ReadFile(Source()) == document && ReadFile(Log()) == log, "the source stays as it is");
  CheckDocument(*salvage);
  fs::remove(Target());
  fs::remove(Log());
  fs::remove(Source());
  Require(fs::is_empty(Folder()), "nothing else is left");
  return 0;
}
