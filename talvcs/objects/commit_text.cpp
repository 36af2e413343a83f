#include <talvcs/format/internal/commit_format.h>
#include <talvcs/foundation/internal/exact_type.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/objects/internal/packed_id.h>

#include <algorithm>
#include <span>
#include <vector>

// The form of the text is in commit_format.h.

namespace TalVcs {

TalStringT<char> Commit::GetHeader() const { return kCommitType; }
TalStringT<char> Commit::GetStoragePrefix() const { return {}; }

Id Commit::GetId() const {
  if (!HasId()) {
    ComputeIdsOfParents();
    if (!TalUtils::IsExactly<Commit>(*this)) return Object::GetId();
    if (!m_data.IsEmpty()) return IdOfData(kCommitType, m_data);
    CacheId(CommitAccess::WithContent(*this, [](const CommitContent& content) {
      const CommitText text(content);
      return IdOfPacked(kCommitType, std::as_bytes(std::span(text.Get())));
    }));
  }
  return CachedId();
}

const Buffer& Commit::GetData() const {
  if (m_data.IsEmpty()) m_data = BuildText();
  return m_data;
}

Buffer Commit::BuildPackedData() const {
  if (!TalUtils::IsExactly<Commit>(*this)) return GetPackedData();
  if (!CachedPackedData().IsEmpty()) return CachedPackedData();
  return Pack(kCommitType, m_data.IsEmpty() ? BuildText() : m_data);
}

// The cached id belongs to the state before the change. Build the texts of that state first,
// because the change does not reset the cache.
void Commit::CompleteAllCaches() const {
  CompleteCaches();
  if (HasId()) GetData();
}

// The text has the parent's id, whose text has that of its parent, and so on. The oldest comes
// first, so that no id needs another one.
void Commit::ComputeIdsOfParents() const {
  std::vector<const Commit*> unknown;
  for (const Commit* at = m_parent.get(); at != nullptr && !at->HasId(); at = at->m_parent.get()) {
    unknown.push_back(at);
  }
  std::for_each(unknown.rbegin(), unknown.rend(), [](const Commit* commit) { commit->GetId(); });
}

Buffer Commit::BuildText() const { return CommitAccess::WithContent(*this, WriteCommitText); }

// Members by name only: nothing in the library calls these two except through the functions after
// them.
TalStringT<WideChar> Commit::GetAuthorInfo(TalStringViewT<WideChar> role,
                                           TalStringViewT<WideChar> name,
                                           TalStringViewT<WideChar> email, Time time,
                                           TimeDelta bias) {
  return WriteInfoLine(role, name, email, time, bias);
}

std::optional<TalStringT<char>> Commit::ParseCommitInfo(const TalStringT<char>& text,
                                                        TalStringViewT<char> key, int& position) {
  const auto value = FindCommitValue(text, key, position);
  return value ? std::optional(value->ToString()) : std::nullopt;
}

}  // namespace TalVcs
