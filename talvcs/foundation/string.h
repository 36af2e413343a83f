#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/string_view.h>
#include <talvcs/foundation/wide_char.h>

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>

namespace TalPlatform {

/// An owning text of `char` (bytes, normally UTF-8) or of `WideChar` (UTF-16).
///
/// A string is a value. It holds a short text (15 bytes or 7 wide characters) in itself. It shares
/// a longer text with its copies, so a copy costs one atomic count and no allocation. A change
/// copies shared text first. A moved-from string is empty. The text may contain zeros, and a
/// terminator follows it. A text whose length exceeds an `int` throws `std::length_error`.
///
/// Threads: different threads may use different strings at once, even if these share their text.
template <class C>
class TALVCS_API TalStringT {
 public:
  TalStringT() noexcept { SetInlineLength(0); }
  /// Copy a terminated text, a number of characters, or a view. A null text makes an empty string.
  TalStringT(const C* terminated) : TalStringT(TalStringViewT<C>(terminated)) {}
  TalStringT(const C* first, int count) : TalStringT(TalStringViewT<C>(first, count)) {}
  TalStringT(TalStringViewT<C> text);
  TalStringT(const TalStringT& other) noexcept {
    std::memcpy(m_units, other.m_units, sizeof(m_units));
    if (IsShared()) AcquireShared();
  }
  TalStringT(TalStringT&& other) noexcept {
    std::memcpy(m_units, other.m_units, sizeof(m_units));
    other.SetInlineLength(0);
  }

  /// Decodes UTF-8. Each maximal subpart that isn't UTF-8 becomes one U+FFFD. The three-byte form
  /// of a lone surrogate becomes that surrogate. Never fails.
  template <std::same_as<char> Narrow>
  requires(!std::same_as<C, char>) TalStringT(const TalStringT<Narrow>& utf8)
      : TalStringT(Decode(utf8)) {}

  TalStringT& operator=(const TalStringT& other) noexcept {
    TalStringT copy(other);
    Swap(copy);
    return *this;
  }
  TalStringT& operator=(TalStringT&& other) noexcept {
    TalStringT taken(static_cast<TalStringT&&>(other));
    Swap(taken);
    return *this;
  }
  ~TalStringT() {
    if (IsShared()) ReleaseShared();
  }

  /// Return the number of characters, and whether it is 0.
  int GetLength() const noexcept { return IsShared() ? GetShared().length : InlineLength(); }
  bool IsEmpty() const noexcept { return GetLength() == 0; }

  /// Returns the text with its terminator. It stays valid until the string changes or ends.
  const C* GetString() const noexcept { return IsShared() ? GetShared().text : m_units; }
  operator const C*() const noexcept { return GetString(); }
  /// Deleted, because it would add a number to the pointer. `+=` appends a character.
  template <std::integral Number>
  friend void operator+(const TalStringT& text, Number step) = delete;

  /// Returns the character at `index`, the terminator at the length. `index` must not be greater.
  C GetAt(int index) const noexcept { return GetString()[index]; }
  C operator[](int index) const noexcept { return GetString()[index]; }

  /// Return parts of the text. Any index and count is allowed: they are limited to the text, as by
  /// `TalStringViewT::Mid`.
  TalStringT Left(int count) const;
  TalStringT Right(int count) const;
  TalStringT Mid(int start) const;
  TalStringT Mid(int start, int count) const;

  /// Append a text or one character.
  TalStringT& operator+=(const C* terminated) { return Append(TalStringViewT<C>(terminated)); }
  TalStringT& operator+=(TalStringViewT<C> text) { return Append(text); }
  TalStringT& operator+=(const TalStringT& text) { return Append(text); }
  TalStringT& operator+=(C character) { return Append(TalStringViewT<C>(&character, 1)); }
  /// Appends `text`, which may be a part of this string.
  TalStringT& Append(TalStringViewT<C> text);

  /// Compares like `TalStringViewT::Compare`. This is the order of all names and ids.
  int Compare(TalStringViewT<C> other,
              CompareCase compare = CompareCase::Sensitive) const noexcept {
    return TalStringViewT<C>(*this).Compare(other, compare);
  }
  /// True if the text starts, or ends, with the argument.
  bool StartsWith(TalStringViewT<C> prefix,
                  CompareCase compare = CompareCase::Sensitive) const noexcept {
    return TalStringViewT<C>(*this).StartsWith(prefix, compare);
  }
  bool EndsWith(TalStringViewT<C> suffix,
                CompareCase compare = CompareCase::Sensitive) const noexcept {
    return TalStringViewT<C>(*this).EndsWith(suffix, compare);
  }
  /// Returns the index of the first match at or after `start`, or -1.
  int Find(TalStringViewT<C> pattern, CompareCase compare = CompareCase::Sensitive) const noexcept {
    return TalStringViewT<C>(*this).Find(pattern, 0, compare);
  }
  int Find(TalStringViewT<C> pattern, int start,
           CompareCase compare = CompareCase::Sensitive) const noexcept {
    return TalStringViewT<C>(*this).Find(pattern, start, compare);
  }

  /// Texts are equal if all their characters are.
  friend bool operator==(const TalStringT& a, const TalStringT& b) noexcept { return a.Equals(b); }
  friend bool operator==(const TalStringT& a, TalStringViewT<C> b) noexcept {
    return TalStringViewT<C>(a) == b;
  }
  friend bool operator==(const TalStringT& a, const C* b) noexcept {
    return TalStringViewT<C>(a) == TalStringViewT<C>(b);
  }

  /// The order of `Compare`.
  friend std::strong_ordering operator<=>(const TalStringT& a, const TalStringT& b) noexcept {
    return a.Compare(b) <=> 0;
  }
  friend std::strong_ordering operator<=>(const TalStringT& a, TalStringViewT<C> b) noexcept {
    return a.Compare(b) <=> 0;
  }
  friend std::strong_ordering operator<=>(const TalStringT& a, const C* b) noexcept {
    return a.Compare(b) <=> 0;
  }

 private:
  static constexpr std::size_t kUnits = 16 / sizeof(C);
  static constexpr int kInlineCapacity = static_cast<int>(kUnits) - 1;
  static constexpr C kSharedMark = static_cast<C>(-1);

  struct Shared {
    C* text;
    std::int32_t length;
  };
  static_assert(sizeof(Shared) <= 16);

  static TalStringT Decode(TalStringViewT<char> utf8);

  // The last unit is kSharedMark or the number of free inline units. That number is 0, a
  // terminator, if an inline text fills the object. For a shared text, the address of its first
  // unit and its length are in the bytes before the mark.
  bool IsShared() const noexcept { return m_units[kUnits - 1] == kSharedMark; }
  int InlineLength() const noexcept {
    return kInlineCapacity - static_cast<int>(m_units[kUnits - 1]);
  }
  void SetInlineLength(int length) noexcept {
    m_units[length] = C();
    m_units[kUnits - 1] = static_cast<C>(kInlineCapacity - length);
  }
  Shared GetShared() const noexcept {
    Shared shared;
    std::memcpy(&shared, m_units, sizeof(shared));
    return shared;
  }
  void SetShared(C* text, int length) noexcept;
  void AcquireShared() const noexcept;
  void ReleaseShared() noexcept;
  bool Equals(const TalStringT& other) const noexcept;
  void Swap(TalStringT& other) noexcept {
    C kept[kUnits];
    std::memcpy(kept, m_units, sizeof(m_units));
    std::memcpy(m_units, other.m_units, sizeof(m_units));
    std::memcpy(other.m_units, kept, sizeof(m_units));
  }

  alignas(8) C m_units[kUnits];
};

template <class C>
TalStringViewT<C>::TalStringViewT(const TalStringT<C>& string) noexcept
    : text(string.GetString()), length(string.GetLength()) {}

template <class C>
TalStringT<C> TalStringViewT<C>::ToString() const {
  return TalStringT<C>(*this);
}

// A DLL exports only the functions that are defined outside of the classes. A host that doesn't
// optimise needs the others too.
#if !defined(_WIN32)
extern template class TALVCS_API TalStringViewT<char>;
extern template class TALVCS_API TalStringViewT<WideChar>;
extern template class TALVCS_API TalStringT<char>;
extern template class TALVCS_API TalStringT<WideChar>;
#endif

/// Returns the two texts as one.
TALVCS_API TalStringT<WideChar> operator+(TalStringViewT<WideChar> first,
                                          TalStringViewT<WideChar> second);

/// Hashes at most about ten code units of `text`, spread over its whole length.
///
/// All hash tables with ids or names as keys use it. No result depends on the value.
TALVCS_API std::uint64_t SampleHash(TalStringViewT<WideChar> text) noexcept;

}  // namespace TalPlatform

template <>
struct std::hash<TalPlatform::TalStringT<TalPlatform::WideChar>> {
  // Not noexcept on purpose: then the standard library's tables store the value with each entry,
  // and a look-up reads no other keys.
  std::size_t operator()(const TalPlatform::TalStringT<TalPlatform::WideChar>& text) const {
    return static_cast<std::size_t>(TalPlatform::SampleHash(text));
  }
};
