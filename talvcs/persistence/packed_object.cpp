#include <talvcs/persistence/packed_object.h>

#include <talvcs/format/internal/commit_format.h>
#include <talvcs/format/internal/packed_format.h>
#include <talvcs/format/internal/tree_format.h>
#include <talvcs/foundation/internal/contiguous_bytes.h>

#include <string_view>

namespace TalVcs {

namespace {

// The bytes of an id are ASCII.
Id IdOf(std::string_view bytes) {
  return Id(TalStringT<WideChar>(TalStringT<char>(TalStringViewT<char>(bytes))));
}

bool HasExactForm(const Buffer& packed) {
  const auto header = ReadPackedHeader(packed);
  if (!header) return false;
  if (header->type == ObjectType::Blob) return true;
  const TalUtils::ContiguousBytes data(packed, header->headerBytes);
  if (header->type == ObjectType::Tree) return IsTreeList(data.Get());
  return ReadCommitText(data.Get()).has_value();
}

using Visit = Delegate<void(const PackedReference& reference)>;

bool VisitTree(std::string_view records, Visit visit) {
  if (!IsTreeList(records)) return false;
  TreeReader reader(records);
  for (TreeRecord record; reader.Next(record);) {
    const bool blob = record.kind == EntryKind::Blob;
    visit({blob ? ObjectType::Blob : ObjectType::Tree, IdOf(record.id), record.name});
  }
  return true;
}

bool VisitCommit(std::string_view text, Visit visit) {
  const auto fields = ReadCommitText(text);
  if (!fields) return false;
  if (!fields->treeId.empty()) visit({ObjectType::Tree, IdOf(fields->treeId), {}});
  if (!fields->parentId.empty()) visit({ObjectType::Commit, IdOf(fields->parentId), {}});
  return true;
}

}  // namespace

std::optional<ObjectProblem> CheckPackedObject(const Id& id, const Buffer& packed) {
  if (!(Id(packed) == id)) return ObjectProblem::Damaged;
  if (!HasExactForm(packed)) return ObjectProblem::NotCanonical;
  return std::nullopt;
}

std::optional<ObjectType> GetPackedType(const Buffer& packed) {
  const auto header = ReadPackedHeader(packed);
  return header ? std::optional(header->type) : std::nullopt;
}

bool VisitReferences(const Buffer& packed, Visit visit) {
  const auto header = ReadPackedHeader(packed);
  if (!header) return false;
  if (header->type == ObjectType::Blob) return true;
  const TalUtils::ContiguousBytes data(packed, header->headerBytes);
  return header->type == ObjectType::Tree ? VisitTree(data.Get(), visit)
                                          : VisitCommit(data.Get(), visit);
}

}  // namespace TalVcs
