#include <talvcs/format/internal/tree_format.h>

#include <talvcs/format/id_text.h>
#include <talvcs/format/internal/record_start.h>
#include <talvcs/foundation/internal/text_compare.h>
#include <talvcs/foundation/internal/utf.h>

#include <algorithm>
#include <limits>

namespace TalVcs {

namespace {

constexpr std::size_t kLongestName = std::numeric_limits<int>::max();

char* PutText(TalStringViewT<WideChar> text, char* out) noexcept {
  return TalPlatform::EncodeUtf8UpToZero(text.text, static_cast<std::size_t>(text.length), out);
}

char* PutNameWithId(TalStringViewT<WideChar> name, TalStringViewT<WideChar> id,
                    char* out) noexcept {
  out = PutText(name, out);
  *out++ = '\0';
  return PutText(id, out);
}

/// Takes the bytes up to a separator, or up to the end if there is none.
TalStringViewT<char> TakeUpTo(TalStringViewT<char> list, char separator, int& position) noexcept {
  const int found = list.Find(separator, position);
  const int end = found < 0 ? list.length : found;
  const TalStringViewT<char> taken = list.Mid(position, end - position);
  position = std::min(end + 1, list.length);
  return taken;
}

}  // namespace

std::size_t MostRecordBytes(TalStringViewT<WideChar> name, TalStringViewT<WideChar> id) noexcept {
  const auto units = static_cast<std::size_t>(name.length) + static_cast<std::size_t>(id.length);
  return kBlobStart.size() + 1 + units * TalPlatform::kMaxUtf8BytesPerUnit;
}

char* PutRecord(EntryKind kind, TalStringViewT<WideChar> name, TalStringViewT<WideChar> id,
                char* out) noexcept {
  // Two copies of a known size take fewer steps than one of either size.
  if (kind == EntryKind::Blob) {
    out = std::copy_n(kBlobStart.data(), kBlobStart.size(), out);
  } else {
    out = std::copy_n(kTreeStart.data(), kTreeStart.size(), out);
  }
  return PutNameWithId(name, id, out);
}

char* PutRecord(std::string_view start, TalStringViewT<WideChar> name, TalStringViewT<WideChar> id,
                char* out) noexcept {
  return PutNameWithId(name, id, std::copy(start.begin(), start.end(), out));
}

bool TreeReader::Next(TreeRecord& record) {
  if (m_failed || m_rest.empty()) return false;
  m_failed = !TakeRecord(record);
  return !m_failed;
}

bool TreeReader::TakeRecord(TreeRecord& record) {
  const bool blob = m_rest.starts_with(kBlobStart);
  if (!blob && !m_rest.starts_with(kTreeStart)) return false;
  const std::size_t start = blob ? kBlobStart.size() : kTreeStart.size();
  const std::size_t zero = m_rest.find('\0', start);
  if (zero == std::string_view::npos) return false;
  const std::string_view name = m_rest.substr(start, zero - start);
  const std::string_view id = m_rest.substr(zero + 1, kIdLength);
  if (name.empty() || name.size() > kLongestName || name.find('/') != std::string_view::npos ||
      !TalPlatform::IsExactUtf8(name.data(), name.size()) || !IsIdText(id)) {
    return false;
  }
  const TalStringViewT<WideChar> decoded = DecodeName(name);
  const int order =
      TalPlatform::CompareUnits(m_lastName.text, static_cast<std::size_t>(m_lastName.length),
                                decoded.text, static_cast<std::size_t>(decoded.length));
  if (order >= 0) return false;
  m_lastName = decoded;
  const std::size_t size = zero + 1 + kIdLength;
  record = {blob ? EntryKind::Blob : EntryKind::Tree, decoded, id, m_rest.substr(0, size)};
  m_rest.remove_prefix(size);
  return true;
}

TalStringViewT<WideChar> TreeReader::DecodeName(std::string_view name) {
  m_names.swap(m_lastNames);
  if (m_names.size() < name.size()) m_names.resize(name.size());
  const std::size_t units = TalPlatform::DecodeUtf8(name.data(), name.size(), m_names.data());
  return {m_names.data(), static_cast<int>(units)};
}

bool IsTreeList(std::string_view records) {
  TreeReader reader(records);
  TreeRecord record;
  while (reader.Next(record)) {
  }
  return !reader.HasFailed();
}

LooseTreeRecord ReadLooseRecord(TalStringViewT<char> list, int& position) noexcept {
  TakeUpTo(list, ' ', position);  // the type says all that the mode does
  LooseTreeRecord record;
  record.type = TakeUpTo(list, ' ', position);
  record.name = TakeUpTo(list, '\0', position);
  record.id = list.Mid(position, static_cast<int>(kIdLength));
  position += record.id.length;
  return record;
}

}  // namespace TalVcs
