// Opens a document of any bytes in a SQLite file, reads all of it, and changes it.
//
// input := kind document             kind: "d" the document alone
//        | kind length document file  "j" with a journal, "w" with a write-ahead log beside it
//
// length: bytes of the document, 2 bytes, lowest first.

#include "target.h"

#include <kit/text.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/stores/sqlite/simulated_disk.h>

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::Require;

constexpr char kDocument[] = "/document.tal";

/// Returns the ids that a listing passes, which are at most so many as the file can have.
std::vector<Id> List(Kit::SqliteStore& store, std::size_t size) {
  std::vector<Id> ids;
  const Kit::Status status = store.List([&](std::span<const Id> batch) {
    ids.insert(ids.end(), batch.begin(), batch.end());
    return true;
  });
  Require(!status || ids.size() <= size, "a listing is no longer than the file");
  return ids;
}

std::unordered_map<Id, std::string> Read(Kit::SqliteStore& store, const std::vector<Id>& ids) {
  std::unordered_map<Id, std::string> objects;
  const Kit::Status status = store.Read(ids, [&](const Id& id, Kit::Result<Buffer> packed) {
    if (packed) objects[id] = Kit::BytesFromBuffer(*packed);
  });
  Require(status || !status.error().message.empty(), "an error says what failed");
  const auto sizes = store.Sizes(ids);
  if (!sizes) return objects;
  for (std::size_t place = 0; place < ids.size(); ++place) {
    const auto found = objects.find(ids[place]);
    if (found == objects.end()) continue;
    Require((*sizes)[place] == found->second.size(), "an object has the size of its bytes");
  }
  return objects;
}

Kit::StoredObject ObjectOf(std::string_view text) {
  Kit::StoredObject object;
  object.packed.Append(text.data(), text.size());
  object.id = Id(object.packed);
  return object;
}

/// A save that succeeds is found, one that fails leaves the heads.
void Save(Kit::SqliteStore& store, const std::vector<Id>& ids) {
  const auto before = store.Heads();
  Kit::StoredObject object = ObjectOf("a new object, saved by this target");
  if (!ids.empty()) object.previous = ids.front();
  const std::string name = "a branch that no seed has";
  bool saved = store.Write({{object}}).ok();
  saved = saved && store.MoveHeads({{Kit::HeadMove{name, Id(), object.id}}}).ok();
  const auto after = store.Heads();
  if (!before || !after) return;
  const auto found = std::find(after->begin(), after->end(), Kit::Head{name, object.id});
  Require(saved == (found != after->end()), "a branch is there once it was saved");
  if (!saved) Require(*before == *after, "a failed save moves no head");
}

/// A removal leaves what it keeps.
void RemoveHalf(Kit::SqliteStore& store, const std::vector<Id>& ids) {
  std::vector<Id> kept;
  for (std::size_t place = 0; place < ids.size(); place += 2) kept.push_back(ids[place]);
  const std::unordered_map<Id, std::string> before = Read(store, kept);
  const auto removed = store.RemoveUnmarked([&](auto) { return kept; });
  if (!removed) return;
  const std::unordered_map<Id, std::string> after = Read(store, kept);
  for (const auto& [id, bytes] : before) {
    const auto found = after.find(id);
    // A damaged index may lose rows, but never gives other bytes.
    Require(found == after.end() || found->second == bytes || !(ObjectOf(bytes).id == id),
            "a removal keeps what is marked");
  }
}

void Use(std::size_t size) {
  Kit::Result<Kit::SqliteStore> store =
      Kit::SqliteStore::Open(kDocument, {.create = false, .acceptMissingLog = true});
  if (!store) return;
  const std::vector<Id> ids = List(*store, size);
  Read(*store, ids);
  const auto value = store->Value("current");
  Require(!value || !*value || (*value)->size() <= size, "a value is no longer than the file");
  Save(*store, ids);
  RemoveHalf(*store, ids);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  if (input.empty()) return 0;
  TalVcs::Testing::SimulatedDisk disk;
  if (input[0] == 'd' || size < 3) {
    disk.StartWith(kDocument, input.substr(1));
  } else {
    const std::size_t length = data[1] | std::size_t{data[2]} << 8;
    const std::string document = input.substr(3, length);
    disk.StartWith(kDocument, document);
    disk.Add(std::string(kDocument) + (input[0] == 'w' ? "-wal" : "-journal"),
             input.substr(3 + document.size()));
  }
  Use(size);
  return 0;
}
