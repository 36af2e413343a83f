#include <talvcs/format/internal/packed_format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <system_error>
#include <utility>

namespace TalVcs {

namespace {

constexpr std::size_t kLongestHeader = 28;  // "commit", a blank, 20 digits, a zero byte

constexpr std::string_view TextOf(TalStringViewT<char> word) noexcept {
  return {word.text, static_cast<std::size_t>(word.length)};
}

constexpr std::array<std::pair<std::string_view, ObjectType>, 3> kTypes{
    {{TextOf(kBlobType), ObjectType::Blob},
     {TextOf(kTreeType), ObjectType::Tree},
     {TextOf(kCommitType), ObjectType::Commit}}};

// Without leading zeros, each number has one form.
std::optional<std::uint64_t> ReadSize(std::string_view digits) noexcept {
  std::uint64_t size = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, size);
  if (error != std::errc() || stop != end) return std::nullopt;
  if (digits.front() == '0' && digits.size() > 1) return std::nullopt;
  return size;
}

}  // namespace

std::optional<PackedHeaderFields> ReadPackedHeader(const Buffer& packed) noexcept {
  std::array<char, kLongestHeader> bytes;
  const std::size_t count = packed.ReadAt(0, bytes.data(), bytes.size());
  const std::string_view start(bytes.data(), count);
  const std::size_t zero = start.find('\0');
  if (zero == std::string_view::npos) return std::nullopt;
  const std::size_t blank = start.find(' ');
  if (blank >= zero) return std::nullopt;
  const auto* const type = std::find_if(kTypes.begin(), kTypes.end(), [&](const auto& known) {
    return start.substr(0, blank) == known.first;
  });
  if (type == kTypes.end()) return std::nullopt;
  const std::optional<std::uint64_t> size = ReadSize(start.substr(blank + 1, zero - blank - 1));
  if (!size || packed.GetSize() - (zero + 1) != *size) return std::nullopt;
  return PackedHeaderFields{type->second, zero + 1, *size};
}

}  // namespace TalVcs
