#pragma once

#include <talvcs/format/internal/tree_format.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace TalVcs {

/// The bytes of a record before its name: mode, blank, type, blank.
template <std::size_t N>
class RecordStart {
 public:
  constexpr RecordStart(TalStringViewT<char> mode, TalStringViewT<char> type) noexcept {
    char* at = std::copy_n(mode.text, mode.length, m_bytes);
    *at++ = ' ';
    at = std::copy_n(type.text, type.length, at);
    *at = ' ';
  }
  constexpr std::string_view Get() const noexcept { return {m_bytes, N}; }

 private:
  char m_bytes[N] = {};
};

inline constexpr RecordStart<kBlobMode.length + kBlobType.length + 2> kBlobStartBytes(kBlobMode,
                                                                                      kBlobType);
inline constexpr RecordStart<kTreeMode.length + kTreeType.length + 2> kTreeStartBytes(kTreeMode,
                                                                                      kTreeType);
inline constexpr std::string_view kBlobStart = kBlobStartBytes.Get();
inline constexpr std::string_view kTreeStart = kTreeStartBytes.Get();

/// True if `record` begins like those of the library's own blobs or trees. Both comparisons are of
/// a known size, which takes fewer steps than one of either size.
inline bool BeginsAsUsual(EntryKind kind, std::string_view record) noexcept {
  return kind == EntryKind::Blob ? record.starts_with(kBlobStart) : record.starts_with(kTreeStart);
}

}  // namespace TalVcs
