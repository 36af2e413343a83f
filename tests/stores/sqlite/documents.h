#pragma once

#include <kit/store/object_store.h>
#include <kit/text.h>
#include <stores/sqlite/sqlite_store.h>

#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What the tests of the SQLite store save, and what they find.
namespace TalVcs::Testing {

/// Makes an object of a text.
inline Kit::StoredObject ObjectOf(std::string_view text) {
  Kit::StoredObject object;
  object.packed.Append(text.data(), text.size());
  object.id = Id(object.packed);
  return object;
}

/// Makes an object of another's bytes and some more, as a version after it.
inline Kit::StoredObject NextVersion(const Kit::StoredObject& previous, std::string_view more) {
  Kit::StoredObject object = ObjectOf(Kit::BytesFromBuffer(previous.packed) + std::string(more));
  object.previous = previous.id;
  return object;
}

/// Returns the same bytes for the same size and seed, which don't compress.
inline std::string RandomBytes(std::size_t size, unsigned seed = 1) {
  std::mt19937 random(seed);
  std::string bytes;
  while (bytes.size() < size) bytes += static_cast<char>(random() & 0xFF);
  return bytes;
}

/// Two states that share an object, and a large object that only the new one has.
inline const Kit::StoredObject kShared = ObjectOf("shared by both states");
inline const Kit::StoredObject kOld = ObjectOf("of the old state");
inline const Kit::StoredObject kNew = ObjectOf("of the new state");
inline const Kit::StoredObject kLarge = ObjectOf(std::string(20000, 'L'));

/// Writes what the store lacks and moves the heads, as hosts do.
inline Kit::Status Save(Kit::IObjectStore& store, const std::vector<Kit::StoredObject>& objects,
                        const std::vector<Kit::HeadMove>& moves) {
  std::vector<Id> ids;
  for (const Kit::StoredObject& object : objects) ids.push_back(object.id);
  Kit::Result<std::vector<Id>> missing = store.Missing(ids);
  if (!missing) return std::move(missing).error();
  Kit::Status status = store.Write(objects);
  return status ? store.MoveHeads(moves) : status;
}

inline Kit::Status SaveOldState(Kit::IObjectStore& store) {
  return Save(store, {kShared, kOld}, {{"master", Id(), kOld.id}, {"topic", Id(), kShared.id}});
}

inline Kit::Status SaveNewState(Kit::IObjectStore& store) {
  return Save(
      store, {kShared, kNew, kLarge},
      {{"master", kOld.id, kNew.id}, {"large", Id(), kLarge.id}, {"topic", kShared.id, Id()}});
}

inline const std::string kOldState = "master: of the old state\ntopic: shared by both states\n";
inline const std::string kNewState = "large: 20000 bytes\nmaster: of the new state\n";

/// Returns the object's text, its size if it is long, or what is wrong with it.
inline std::string DescribeObject(Kit::IObjectStore& store, const Id& id) {
  std::string text = "not passed";
  const Kit::Status status = store.Read({{id}}, [&](const Id&, Kit::Result<Buffer> packed) {
    if (!packed) {
      text = Kit::ToString(packed.error().code);
    } else if (Id(*packed) != id) {
      text = "other bytes";
    } else if (packed->GetSize() > 100) {
      text = std::to_string(packed->GetSize()) + " bytes";
    } else {
      text = Kit::BytesFromBuffer(*packed);
    }
  });
  return status ? text : Kit::ToString(status.error().code);
}

/// Returns a line for each branch with the object that its head names, or what is wrong.
inline std::string DescribeStore(Kit::IObjectStore& store) {
  const Kit::Result<std::vector<Kit::Head>> heads = store.Heads();
  if (!heads) return Kit::ToString(heads.error().code);
  std::string text;
  for (const Kit::Head& head : *heads) {
    text += head.name + ": " + DescribeObject(store, head.id) + "\n";
  }
  return text;
}

inline std::string DescribeFile(const std::filesystem::path& path,
                                const Kit::SqliteOptions& options = {.create = false}) {
  Kit::Result<Kit::SqliteStore> store = Kit::SqliteStore::Open(path, options);
  return store ? DescribeStore(*store) : Kit::ToString(store.error().code);
}

}  // namespace TalVcs::Testing
