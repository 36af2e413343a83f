#include <talvcs/foundation/helpers.h>
#include <talvcs/foundation/internal/exact_type.h>
#include <talvcs/objects/commit.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

// text   := "tree " id? LF ("parent " id LF)? author committer LF description LF
// author := "author " name " <" e-mail "> " seconds SP zone LF      committer: likewise
// zone   := ("+" | "-") hours minutes                               two digits each, at least
//
// All of it is UTF-8. The description is written as it is.

namespace TalVcs {

namespace {

constexpr TalStringViewT<char> kType{"commit", 6};
constexpr std::int64_t kTicksPerMinute = 600'000'000;
constexpr std::int64_t kTicksPerHour = 60 * kTicksPerMinute;

// U+0000 ends a text where it is written.
TalStringViewT<WideChar> UpToZero(TalStringViewT<WideChar> text) {
  const int zero = text.Find(WideChar());
  return zero < 0 ? text : text.Mid(0, zero);
}

void AppendAscii(TalStringT<WideChar>& text, const std::string& ascii) {
  for (const char character : ascii) text += static_cast<WideChar>(character);
}

std::string TwoDigits(std::int64_t value) {
  const std::string digits = std::to_string(value);
  return digits.size() < 2 ? "0" + digits : digits;
}

}  // namespace

TalStringT<char> Commit::GetHeader() const { return kType; }
TalStringT<char> Commit::GetStoragePrefix() const { return {}; }

Id Commit::GetId() const {
  if (!HasId()) {
    ComputeIdsOfParents();
    if (!TalUtils::IsExactly<Commit>(*this)) return Object::GetId();
    IdOfData(kType, m_data.IsEmpty() ? BuildText() : m_data);
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
  return Pack(kType, m_data.IsEmpty() ? BuildText() : m_data);
}

// An id tells a state of the commit. Whoever changes the commit without a reset has the texts of
// that state made first.
void Commit::KeepAllCaches() const {
  KeepCaches();
  if (HasId()) GetData();
}

// The text holds the parent's id, and so on down to the root. The oldest comes first, so that no id
// asks for another one below it.
void Commit::ComputeIdsOfParents() const {
  std::vector<const Commit*> unknown;
  for (const Commit* at = m_parent.get(); at != nullptr && !at->HasId(); at = at->m_parent.get()) {
    unknown.push_back(at);
  }
  std::for_each(unknown.rbegin(), unknown.rend(), [](const Commit* commit) { commit->GetId(); });
}

Buffer Commit::BuildText() const {
  TalStringT<WideChar> head(TAL_WIDE("tree "));
  if (m_tree) head.Append(m_tree->GetRootId().View());
  head += TAL_WIDE('\n');
  if (m_parent) {
    head += TAL_WIDE("parent ");
    head.Append(m_parent->GetId().View());
    head += TAL_WIDE('\n');
  }
  for (const auto* role : {TAL_WIDE("author"), TAL_WIDE("committer")}) {
    head.Append(
        GetAuthorInfo(role, m_authorName, m_authorEmail, m_commitTime, m_commitTimezoneBias));
    head += TAL_WIDE('\n');
  }
  head += TAL_WIDE('\n');
  head.Append(UpToZero(m_description));
  head += TAL_WIDE('\n');
  Buffer text;
  Helpers::AppendToBuffer(text, head);
  return text;
}

// The sign follows the hours alone, so a negative bias of less than an hour is written with "+".
// The ids of all commits depend on it.
TalStringT<WideChar> Commit::GetAuthorInfo(TalStringViewT<WideChar> role,
                                           TalStringViewT<WideChar> name,
                                           TalStringViewT<WideChar> email, Time time,
                                           TimeDelta bias) {
  const std::int64_t hours = bias.ticks / kTicksPerHour;
  const std::int64_t minutes = bias.ticks / kTicksPerMinute;
  TalStringT<WideChar> info(UpToZero(role));
  info += TAL_WIDE(' ');
  info.Append(UpToZero(name));
  info += TAL_WIDE(" <");
  info.Append(UpToZero(email));
  AppendAscii(info, "> " + std::to_string(static_cast<std::int32_t>(time.ToTimeT())) +
                        (hours < 0 ? " -" : " +") + TwoDigits(std::abs(hours)) +
                        TwoDigits(std::abs(minutes) % 60));
  return info;
}

std::optional<TalStringT<char>> Commit::ParseCommitInfo(const TalStringT<char>& text,
                                                        TalStringViewT<char> key, int& position) {
  const int found = text.Find(key, position);
  if (found < 0) return std::nullopt;
  const int start = found + key.length;
  const int end = text.Find("\n", start);
  position = end;
  // Without a line end the count is negative and the value empty.
  return text.Mid(start, end - start);
}

}  // namespace TalVcs
