#include <talvcs/foundation/string.h>

#include <talvcs/foundation/internal/counted_block.h>
#include <talvcs/foundation/internal/text_compare.h>
#include <talvcs/foundation/internal/utf.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace TalPlatform {

namespace {

/// The head of a shared text. The units follow it.
struct TextBlock : TalUtils::CountedBlock {
  std::int32_t capacity = 0;
};

template <class C>
C* AllocateText(int capacity) {
  const std::size_t units = static_cast<std::size_t>(capacity) + 1;
  auto* const block = TalUtils::NewCountedBlock<TextBlock>(units * sizeof(C));
  block->capacity = capacity;
  return TalUtils::FirstAfter<C>(block);
}

template <class C>
TextBlock* BlockOf(C* text) noexcept {
  return TalUtils::HeadBefore<TextBlock>(text);
}

int CheckedLength(std::int64_t length) {
  if (length > std::numeric_limits<int>::max()) ThrowTextTooLong();
  return static_cast<int>(length);
}

}  // namespace

void ThrowTextTooLong() { throw std::length_error("the length of a text exceeds an int"); }

template <class C>
int TalStringViewT<C>::Find(TalStringViewT pattern, int start, CompareCase) const noexcept {
  const int from = std::max(start, 0);
  if (from > length || pattern.length > length - from) return -1;
  if (pattern.length == 0) return from;
  const std::basic_string_view<C> haystack(text, static_cast<std::size_t>(length));
  const std::basic_string_view<C> needle(pattern.text, static_cast<std::size_t>(pattern.length));
  const auto found = haystack.find(needle, static_cast<std::size_t>(from));
  return found == haystack.npos ? -1 : static_cast<int>(found);
}

template <class C>
int TalStringViewT<C>::Find(C character, int start, CompareCase compare) const noexcept {
  return Find(TalStringViewT(&character, 1), start, compare);
}

template <class C>
int TalStringViewT<C>::Compare(TalStringViewT other, CompareCase) const noexcept {
  return CompareUnits(text, static_cast<std::size_t>(length), other.text,
                      static_cast<std::size_t>(other.length));
}

template <class C>
bool TalStringViewT<C>::StartsWith(TalStringViewT prefix, CompareCase compare) const noexcept {
  return prefix.length <= length && Mid(0, prefix.length).Compare(prefix, compare) == 0;
}

template <class C>
bool TalStringViewT<C>::EndsWith(TalStringViewT suffix, CompareCase compare) const noexcept {
  return suffix.length <= length &&
         Mid(length - suffix.length, suffix.length).Compare(suffix, compare) == 0;
}

template <class C>
TalStringT<C>::TalStringT(TalStringViewT<C> text) {
  const auto bytes = static_cast<std::size_t>(text.length) * sizeof(C);
  if (text.length <= kInlineCapacity) {
    if (bytes != 0) std::memcpy(m_units, text.text, bytes);
    SetInlineLength(text.length);
    return;
  }
  C* copy = AllocateText<C>(text.length);
  std::memcpy(copy, text.text, bytes);
  SetShared(copy, text.length);
}

template <class C>
void TalStringT<C>::SetShared(C* text, int length) noexcept {
  text[length] = C();
  const Shared shared{text, length};
  std::memcpy(m_units, &shared, sizeof(shared));
  m_units[kUnits - 1] = kSharedMark;
}

template <class C>
void TalStringT<C>::AcquireShared() const noexcept {
  BlockOf(GetShared().text)->holders.Acquire();
}

template <class C>
void TalStringT<C>::ReleaseShared() noexcept {
  C* text = GetShared().text;
  TextBlock* const block = BlockOf(text);
  if (block->holders.Release()) TalUtils::FreeCountedBlock(block);
}

template <class C>
bool TalStringT<C>::Equals(const TalStringT& other) const noexcept {
  const int length = GetLength();
  if (length != other.GetLength()) return false;
  const C* a = GetString();
  const C* b = other.GetString();
  return a == b || std::memcmp(a, b, static_cast<std::size_t>(length) * sizeof(C)) == 0;
}

template <class C>
TalStringT<C> TalStringT<C>::Left(int count) const {
  return Mid(0, count);
}

template <class C>
TalStringT<C> TalStringT<C>::Right(int count) const {
  const int length = GetLength();
  return Mid(length - std::clamp(count, 0, length));
}

template <class C>
TalStringT<C> TalStringT<C>::Mid(int start) const {
  return Mid(start, GetLength());
}

template <class C>
TalStringT<C> TalStringT<C>::Mid(int start, int count) const {
  const TalStringViewT<C> part = TalStringViewT<C>(*this).Mid(start, count);
  return part.length == GetLength() ? *this : TalStringT(part);
}

template <class C>
TalStringT<C>& TalStringT<C>::Append(TalStringViewT<C> text) {
  if (text.length == 0) return *this;
  const int old_length = GetLength();
  const int new_length = CheckedLength(std::int64_t{old_length} + text.length);
  const auto added_bytes = static_cast<std::size_t>(text.length) * sizeof(C);
  if (!IsShared() && new_length <= kInlineCapacity) {
    std::memmove(m_units + old_length, text.text, added_bytes);
    SetInlineLength(new_length);
    return *this;
  }
  if (IsShared()) {
    C* own = GetShared().text;
    const TextBlock* block = BlockOf(own);
    if (block->capacity >= new_length && block->holders.IsSole()) {
      std::memmove(own + old_length, text.text, added_bytes);
      SetShared(own, new_length);
      return *this;
    }
  }
  const std::int64_t roomy = std::int64_t{new_length} + (IsShared() ? new_length / 2 : 0);
  const auto capacity =
      static_cast<int>(std::min<std::int64_t>(roomy, std::numeric_limits<int>::max() - 1));
  C* grown = AllocateText<C>(std::max(capacity, new_length));
  std::memcpy(grown, GetString(), static_cast<std::size_t>(old_length) * sizeof(C));
  std::memcpy(grown + old_length, text.text, added_bytes);
  if (IsShared()) ReleaseShared();
  SetShared(grown, new_length);
  return *this;
}

template <class C>
TalStringT<C> TalStringT<C>::Decode(TalStringViewT<char> utf8) {
  TalStringT result;
  if constexpr (!std::same_as<C, char>) {
    const auto count = static_cast<std::size_t>(utf8.length);
    if (utf8.length <= kInlineCapacity) {
      C units[kInlineCapacity];
      const std::size_t written = DecodeUtf8(utf8.text, count, units);
      return TalStringT(TalStringViewT<C>(units, static_cast<int>(written)));
    }
    C* text = AllocateText<C>(utf8.length);
    const std::size_t written = DecodeUtf8(utf8.text, count, text);
    result.SetShared(text, static_cast<int>(written));
  }
  return result;
}

template class TalStringViewT<char>;
template class TalStringViewT<WideChar>;
template class TalStringT<char>;
template class TalStringT<WideChar>;

TalStringT<WideChar> operator+(TalStringViewT<WideChar> first, TalStringViewT<WideChar> second) {
  TalStringT<WideChar> result(first);
  result.Append(second);
  return result;
}

std::uint64_t SampleHash(TalStringViewT<WideChar> text) noexcept {
  constexpr std::uint64_t kFnvBasis = 0xCBF29CE484222325;
  constexpr std::uint64_t kFnvPrime = 0x100000001B3;
  std::uint64_t hash = 0x42C52834B230EF45;
  const int step = text.length / 10 + 1;
  for (std::int64_t index = 0; index < text.length; index += step) {
    const auto unit = static_cast<std::uint16_t>(text.text[index]);
    const std::uint64_t low = unit & 0xFF;
    const std::uint64_t high = unit >> 8;
    const std::uint64_t mixed = ((low ^ kFnvBasis) * kFnvPrime ^ high) * kFnvPrime;
    hash ^= (hash >> 2) + (hash << 6) + mixed + 0x0FD258F8F3210C68;
  }
  return hash;
}

}  // namespace TalPlatform
