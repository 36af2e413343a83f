#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>

#include <concepts>
#include <cstddef>
#include <functional>
#include <utility>

namespace TalVcs {

/// The id of an object: the SHA-256 of its packed form, as 64 lower-case hexadecimal digits.
///
/// A value that holds one text. A copy shares the text and never allocates. The empty id is that of
/// no object. The text is not checked: any text makes an id, and ids are equal if their texts are.
class TALVCS_API Id {
 public:
  /// The empty id.
  Id() noexcept = default;
  /// Copies `text`.
  Id(TalStringViewT<WideChar> text) : m_text(text) {}
  /// Takes over `text`. A template, so that a literal finds the other constructor alone.
  template <std::same_as<TalStringT<WideChar>> Text>
  explicit Id(Text text) noexcept : m_text(std::move(text)) {}
  /// Computes the digest of these bytes, to which no header is added. An empty buffer gives the
  /// empty id.
  explicit Id(const Buffer& data);

  /// Returns the text: 64 hexadecimal digits for a digest.
  TalStringT<WideChar> ToString() const { return m_text; }

  /// Ids are equal if their texts are.
  friend bool operator==(const Id& a, const Id& b) noexcept { return a.m_text == b.m_text; }

  /// Hashes like the text.
  std::size_t GetHash() const { return std::hash<TalStringT<WideChar>>()(m_text); }

  /// Returns a view of the text, valid as long as this id is unchanged.
  TalStringViewT<WideChar> View() const noexcept { return m_text; }

 private:
  TalStringT<WideChar> m_text;
};

}  // namespace TalVcs

template <>
struct std::hash<TalVcs::Id> {
  // Not noexcept on purpose, like the hash of the text.
  std::size_t operator()(const TalVcs::Id& id) const { return id.GetHash(); }
};
