// Checks one packed object, in the notation of streams.h, and reads it on demand. A plain parser
// below decides whether it has exactly the form that the library writes.

#include "input.h"
#include "streams.h"
#include "target.h"

#include <talvcs/persistence/packed_object.h>
#include <talvcs/storage/on_demand_storage.h>
#include <tests/model/driver/twins.h>
#include <tests/support/bytes.h>
#include <tests/support/map_object_reader.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::Require;

/// What an object refers to: type, id and name.
struct Reference {
  ObjectType type;
  std::string id;
  Model::Text name;

  friend bool operator==(const Reference&, const Reference&) = default;
};

struct PackedObject {
  ObjectType type;
  std::vector<Reference> references;
};

bool IsId(const std::string& text) {
  return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

bool IsText(const std::string& bytes) {
  return Model::EncodeUtf8(Model::DecodeUtf8(bytes)) == bytes;
}

/// True for a decimal number as it is written, up to `highest`, with `digits` digits at least.
bool IsNumber(const std::string& text, std::size_t digits, std::uint64_t highest) {
  if (text.size() < digits || text.size() > 19) return false;
  if (text.find_first_not_of("0123456789") != std::string::npos) return false;
  return (text.size() == digits || text[0] != '0') && std::stoull(text) <= highest;
}

/// Takes `key` from the front of `rest`. Returns false if something else stands there.
bool Take(std::string& rest, std::string_view key) {
  if (!rest.starts_with(key)) return false;
  rest.erase(0, key.size());
  return true;
}

std::optional<std::vector<Reference>> ParseTree(std::string rest) {
  std::vector<Reference> entries;
  while (!rest.empty()) {
    const bool blob = Take(rest, "100644 blob ");
    if (!blob && !Take(rest, "40000 tree ")) return std::nullopt;
    const std::size_t zero = rest.find('\0');
    if (zero == std::string::npos || rest.size() < zero + 65) return std::nullopt;
    const std::string name = rest.substr(0, zero);
    const std::string id = rest.substr(zero + 1, 64);
    if (name.empty() || name.find('/') != std::string::npos || !IsText(name) || !IsId(id)) {
      return std::nullopt;
    }
    const Model::Text decoded = Model::DecodeUtf8(name);
    if (!entries.empty() && !(entries.back().name < decoded)) return std::nullopt;
    entries.push_back({blob ? ObjectType::Blob : ObjectType::Tree, id, decoded});
    rest.erase(0, zero + 65);
  }
  return entries;
}

/// True for "seconds zone".
bool IsStamp(const std::string& stamp) {
  constexpr std::uint64_t kMostMinutes = 15'372'286'728;  // of a time difference
  const std::size_t blank = stamp.find(' ');
  if (blank == std::string::npos) return false;
  std::string seconds = stamp.substr(0, blank);
  const bool negative = Take(seconds, "-");
  if (!IsNumber(seconds, 1, negative ? 2147483648U : 2147483647U)) return false;
  if (negative && seconds == "0") return false;
  const std::string zone = stamp.substr(blank + 1);
  if (zone.size() < 5 || (zone[0] != '+' && zone[0] != '-')) return false;
  const std::string hours = zone.substr(1, zone.size() - 3);
  const std::string minutes = zone.substr(zone.size() - 2);
  if (!IsNumber(hours, 2, 0xFFFFFFFF) || !IsNumber(minutes, 2, 59)) return false;
  if (zone[0] == '-' && hours == "00") return false;
  return std::stoull(hours) * 60 + std::stoull(minutes) <= kMostMinutes;
}

/// True for "name <e-mail> seconds zone".
bool IsInfo(const std::string& info) {
  const std::size_t open = info.find(" <");
  if (open == std::string::npos) return false;
  for (std::size_t close = info.find("> ", open + 2); close != std::string::npos;
       close = info.find("> ", close + 1)) {
    if (IsStamp(info.substr(close + 2))) return true;
  }
  return false;
}

/// True if an info stands there twice, after "author " and "committer ", and a description follows.
bool HasInfosAndDescription(const std::string& rest) {
  constexpr std::string_view kAgain = "\ncommitter ";
  for (std::size_t size = rest.find(kAgain); size != std::string::npos;
       size = rest.find(kAgain, size + 1)) {
    std::string after = rest.substr(size + kAgain.size());
    const std::string info = rest.substr(0, size);
    if (IsInfo(info) && Take(after, info) && Take(after, "\n\n")) return after.ends_with('\n');
  }
  return false;
}

std::optional<std::vector<Reference>> ParseCommit(std::string rest) {
  std::vector<Reference> references;
  if (!IsText(rest) || rest.find('\0') != std::string::npos || !Take(rest, "tree ")) {
    return std::nullopt;
  }
  if (!rest.starts_with('\n')) {
    references.push_back({ObjectType::Tree, rest.substr(0, 64), {}});
    rest.erase(0, 64);
  }
  if (!Take(rest, "\n")) return std::nullopt;
  if (Take(rest, "parent ")) {
    references.push_back({ObjectType::Commit, rest.substr(0, 64), {}});
    rest.erase(0, 64);
    if (!Take(rest, "\n")) return std::nullopt;
  }
  for (const Reference& reference : references) {
    if (!IsId(reference.id)) return std::nullopt;
  }
  if (!Take(rest, "author ") || !HasInfosAndDescription(rest)) return std::nullopt;
  return references;
}

/// Returns nothing unless the bytes have exactly the form that the library writes.
std::optional<PackedObject> Parse(std::string rest) {
  std::optional<ObjectType> type;
  if (Take(rest, "blob ")) type = ObjectType::Blob;
  if (!type && Take(rest, "tree ")) type = ObjectType::Tree;
  if (!type && Take(rest, "commit ")) type = ObjectType::Commit;
  const std::size_t zero = rest.find('\0');
  if (!type || zero == std::string::npos) return std::nullopt;
  const std::string size = rest.substr(0, zero);
  rest.erase(0, zero + 1);
  if (size != std::to_string(rest.size())) return std::nullopt;
  if (type == ObjectType::Blob) return PackedObject{*type, {}};
  auto references = type == ObjectType::Tree ? ParseTree(rest) : ParseCommit(rest);
  if (!references) return std::nullopt;
  return PackedObject{*type, std::move(*references)};
}

void CheckReferences(const Buffer& packed, const std::optional<PackedObject>& expected) {
  std::vector<Reference> visited;
  const auto visit = [](void* to, const PackedReference& reference) {
    static_cast<std::vector<Reference>*>(to)->push_back(
        {reference.type, ModelTest::FromLib(reference.id), ModelTest::FromLib(reference.name)});
  };
  Require(VisitReferences(packed, {&visited, visit}) == expected.has_value(),
          "references are visited if the form is exact");
  Require(visited == (expected ? expected->references : std::vector<Reference>()),
          "the visited references are those of the text");
}

/// Returns the packed form of the object that is read under `id`, or why it can't be had.
template <class Get>
std::string Read(const OnDemandStorage& storage, const Id& id, Get get) {
  try {
    const auto object = (storage.*get)(id);
    Require(static_cast<bool>(object), "an object of its type is found");
    Require(object->GetId() == id, "an object has the id under which it is read");
    return Testing::Bytes(object->BuildPackedData());
  } catch (const ObjectUnavailable& error) {
    Require(error.GetId() == id, "the error names the object");
    return error.GetProblem() == ObjectProblem::NotCanonical ? "not canonical" : "damaged";
  }
}

std::string ReadAs(ObjectType type, const OnDemandStorage& storage, const Id& id) {
  if (type == ObjectType::Blob) return Read(storage, id, &OnDemandStorage::GetBlob);
  if (type == ObjectType::Tree) return Read(storage, id, &OnDemandStorage::GetTree);
  return Read(storage, id, &OnDemandStorage::GetCommit);
}

void CheckEntries(const cow_ptr<Tree>& tree, const std::vector<Reference>& entries) {
  Require(tree->GetLocalObjectCount() == entries.size(), "a tree has the entries of its text");
  for (const Reference& entry : entries) {
    const std::optional<Id> id = tree->GetIdByPath(ModelTest::ToLib(entry.name));
    Require(id && ModelTest::FromLib(*id) == entry.id, "an entry has the id of its record");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes = Fuzz::StreamWriter().Expand(Fuzz::Input(data, size).Rest());
  if (bytes.empty()) return 0;
  const std::optional<PackedObject> expected = Parse(bytes);
  const Buffer packed = Testing::BufferOf(bytes);
  const Id id = ModelTest::ToLibId(Model::Sha256Hex(bytes));
  const Id other = ModelTest::ToLibId(Fuzz::StreamWriter::IdOf('0'));

  const std::optional<ObjectProblem> problem = CheckPackedObject(id, packed);
  Require(problem.has_value() != expected.has_value(), "exactly the library's form is accepted");
  Require(!problem || *problem == ObjectProblem::NotCanonical, "the digest is right");
  Require(CheckPackedObject(other, packed) == ObjectProblem::Damaged, "another digest is refused");
  CheckReferences(packed, expected);

  const std::optional<ObjectType> header = GetPackedType(packed);
  Require(!expected || header == expected->type, "the header has the type");
  const ObjectType type = header.value_or(ObjectType::Blob);
  const auto reader = std::make_shared<Testing::MapObjectReader>();
  reader->Put(id, packed);
  reader->Put(other, packed);
  const OnDemandStorage storage(reader, {});
  Require(ReadAs(type, storage, id) == (expected ? bytes : "not canonical"),
          "a read gives the object, or refuses another form");
  Require(ReadAs(type, storage, other) == "damaged", "a read refuses another digest");
  if (expected && type == ObjectType::Tree) CheckEntries(storage.GetTree(id), expected->references);
  return 0;
}
