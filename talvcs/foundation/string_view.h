#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/wide_char.h>

#include <compare>
#include <cstddef>
#include <limits>
#include <string>
#include <string_view>

namespace TalPlatform {

template <class C>
class TalStringT;

/// Throws the `std::length_error` of a text whose length exceeds an `int`. Out of line, so that
/// hosts without exceptions can include this header.
[[noreturn]] TALVCS_API void ThrowTextTooLong();

/// How texts are compared. There is one way: by the values of their code units, exactly.
enum class CompareCase { Sensitive = 0 };

/// A view of `length` characters from `text` on, which it does not own.
///
/// The text isn't terminated. It must live and stay unchanged while the view is used. A null `text`
/// has the length 0. Indices and lengths are `int`: a longer text throws `std::length_error`.
///
/// `C` is `char` for bytes, normally UTF-8, or `WideChar` for UTF-16.
template <class C>
class TALVCS_API TalStringViewT {
 public:
  const C* text = nullptr;  ///< The first character; not terminated.
  int length = 0;           ///< The number of characters.

  constexpr TalStringViewT() noexcept = default;
  /// Views `count` characters from `first` on.
  constexpr TalStringViewT(const C* first, int count) noexcept : text(first), length(count) {}

  /// Views the whole of `string`, which has to outlive the view.
  TalStringViewT(const TalStringT<C>& string) noexcept;

  /// Views `terminated` up to its terminator; null gives an empty view.
  constexpr TalStringViewT(const C* terminated)
      : text(terminated),
        length(terminated == nullptr ? 0 : Checked(std::char_traits<C>::length(terminated))) {}

  /// View a text of the standard library, which has to outlive the view.
  constexpr TalStringViewT(std::basic_string_view<C> view)
      : text(view.data()), length(Checked(view.size())) {}
  TalStringViewT(const std::basic_string<C>& string)
      : TalStringViewT(std::basic_string_view<C>(string)) {}

  /// Return the fields, and whether the text is empty.
  constexpr const C* GetRawUnterminatedString() const noexcept { return text; }
  constexpr int GetLength() const noexcept { return length; }
  constexpr bool IsEmpty() const noexcept { return length == 0; }

  /// Returns the index of the first `pattern` at or after `start`, or -1.
  ///
  /// A negative start counts as 0; a start at or past the end finds nothing but an empty pattern
  /// at the end itself.
  int Find(TalStringViewT pattern, int start = 0,
           CompareCase compare = CompareCase::Sensitive) const noexcept;
  int Find(C character, int start = 0, CompareCase compare = CompareCase::Sensitive) const noexcept;

  /// Returns `count` characters from `start` on, clamped to the view: a negative argument counts as
  /// 0, a start past the end gives an empty view at the end.
  constexpr TalStringViewT Mid(int start, int count) const noexcept {
    const int from = start < 0 ? 0 : (start > length ? length : start);
    const int most = length - from;
    const int kept = count < 0 ? 0 : (count > most ? most : count);
    return TalStringViewT(text + from, kept);
  }

  /// Compares code unit by code unit, as unsigned values; a proper prefix stands before the longer
  /// text. Returns a negative value, zero or a positive one for before, equal, after.
  int Compare(TalStringViewT other, CompareCase compare = CompareCase::Sensitive) const noexcept;

  /// True if the text starts, or ends, with the argument.
  bool StartsWith(TalStringViewT prefix,
                  CompareCase compare = CompareCase::Sensitive) const noexcept;
  bool EndsWith(TalStringViewT suffix, CompareCase compare = CompareCase::Sensitive) const noexcept;

  /// Returns a string with a copy of the characters.
  TalStringT<C> ToString() const;

  /// Texts are equal if all their characters are.
  friend bool operator==(TalStringViewT a, TalStringViewT b) noexcept {
    return a.length == b.length && a.Compare(b) == 0;
  }
  /// The order of `Compare`.
  friend std::strong_ordering operator<=>(TalStringViewT a, TalStringViewT b) noexcept {
    return a.Compare(b) <=> 0;
  }

 private:
  static constexpr int Checked(std::size_t length) {
    if (length > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
      ThrowTextTooLong();
    }
    return static_cast<int>(length);
  }
};

}  // namespace TalPlatform
