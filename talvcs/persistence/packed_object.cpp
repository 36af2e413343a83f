#include <talvcs/persistence/packed_object.h>

#include <talvcs/format/id_text.h>
#include <talvcs/format/internal/commit_format.h>
#include <talvcs/format/internal/packed_format.h>
#include <talvcs/format/internal/record_start.h>
#include <talvcs/format/internal/tree_format.h>
#include <talvcs/foundation/internal/contiguous_bytes.h>
#include <talvcs/foundation/internal/text_compare.h>

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

PackedReference ReferenceOf(const TreeRecord& record) {
  const bool blob = record.kind == EntryKind::Blob;
  return {blob ? ObjectType::Blob : ObjectType::Tree, IdOf(record.id), record.name};
}

bool VisitTree(std::string_view records, Visit visit) {
  if (!IsTreeList(records)) return false;
  TreeReader reader(records);
  for (TreeRecord record; reader.Next(record);) visit(ReferenceOf(record));
  return true;
}

/// Goes through the records of a tree without decoding those that are passed over.
class RecordCursor {
 public:
  explicit RecordCursor(std::string_view records) : m_rest(records) { Advance(); }

  /// Returns the bytes of the record; none at the end and where there is no whole one.
  std::string_view Bytes() const noexcept { return m_bytes; }
  bool HasFailed() const noexcept { return m_bytes.empty() && !m_rest.empty(); }
  void Advance() noexcept {
    const std::size_t zero = m_rest.find('\0');
    const bool is_whole = zero != m_rest.npos && m_rest.size() - zero > kIdLength;
    m_bytes = is_whole ? m_rest.substr(0, zero + 1 + kIdLength) : std::string_view();
    m_rest.remove_prefix(m_bytes.size());
  }

 private:
  std::string_view m_rest;
  std::string_view m_bytes;
};

int CompareNamesOf(const TreeRecord& a, const TreeRecord& b) noexcept {
  return TalPlatform::CompareUnits(a.name.text, static_cast<std::size_t>(a.name.length),
                                   b.name.text, static_cast<std::size_t>(b.name.length));
}

bool VisitChanges(std::string_view records, std::string_view previous, ChangedReference visit) {
  RecordCursor now(records);
  RecordCursor before(previous);
  while (!now.Bytes().empty()) {
    if (now.Bytes() == before.Bytes()) {
      now.Advance();
      before.Advance();
      continue;
    }
    TreeReader reader(now.Bytes());
    TreeReader reader_before(before.Bytes());
    TreeRecord record;
    TreeRecord record_before;
    if (!reader.Next(record)) return false;
    if (before.HasFailed() || (!before.Bytes().empty() && !reader_before.Next(record_before))) {
      return false;
    }
    const int order = before.Bytes().empty() ? -1 : CompareNamesOf(record, record_before);
    if (order <= 0) {
      const bool has_version = order == 0 && record.kind == record_before.kind;
      visit(ReferenceOf(record), has_version ? IdOf(record_before.id) : Id());
      now.Advance();
    }
    if (order >= 0) before.Advance();
  }
  return !now.HasFailed();
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

bool VisitChangedReferences(const Buffer& packed, const Buffer& previous, ChangedReference visit) {
  const auto header = ReadPackedHeader(packed);
  const auto header_before = ReadPackedHeader(previous);
  if (!header || header->type != ObjectType::Tree) return false;
  if (!header_before || header_before->type != ObjectType::Tree) return false;
  const TalUtils::ContiguousBytes data(packed, header->headerBytes);
  const TalUtils::ContiguousBytes data_before(previous, header_before->headerBytes);
  return VisitChanges(data.Get(), data_before.Get(), visit);
}

bool VisitSubtrees(const Buffer& packed, Visit visit) {
  const auto header = ReadPackedHeader(packed);
  if (!header || header->type != ObjectType::Tree) return false;
  const TalUtils::ContiguousBytes data(packed, header->headerBytes);
  RecordCursor cursor(data.Get());
  for (; !cursor.Bytes().empty(); cursor.Advance()) {
    if (!cursor.Bytes().starts_with(kTreeStart)) continue;
    TreeReader reader(cursor.Bytes());
    TreeRecord record;
    if (!reader.Next(record)) return false;
    visit(ReferenceOf(record));
  }
  return !cursor.HasFailed();
}

}  // namespace TalVcs
