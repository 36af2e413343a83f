#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// A second, slow and plain version of the library, against which the library is tested.
///
/// Tables are ordered maps, bytes are `std::string`, wide text is `std::u16string`, and every rule
/// is written down step by step, with no thought for speed. Nothing here uses the
/// library.
namespace Model {

using Bytes = std::string;
using Text = std::u16string;
/// The components of a path.
using Components = std::vector<Text>;
/// The hexadecimal digest of an object's packed form; empty for no object.
using Id = std::string;

/// Returns the SHA-256 of `data` as 64 lower-case hexadecimal digits.
std::string Sha256Hex(std::string_view data);

/// Returns the UTF-8 form of `text`; a lone surrogate is written in three bytes like any other
/// unit.
Bytes EncodeUtf8(const Text& text);

/// Returns the UTF-8 form of `text` up to its first zero, as it is written into an object.
Bytes EncodeTerminated(const Text& text);

/// Takes `EncodeUtf8` back. Of other bytes, the longest run that begins some character becomes one
/// U+FFFD, and so does each byte that begins none.
Text DecodeUtf8(const Bytes& bytes);

/// Returns the id that a stream names by these bytes.
Id ReadId(const Bytes& bytes);

/// Returns the components of `path`, without the empty ones.
Components SplitPath(const Text& path);

/// Appends the component `name` to `path`, with one "/" between them.
Text JoinPath(const Text& path, const Text& name);

/// Reads optional white space and sign and then digits; cut off at the limits.
std::int64_t ReadNumber(const Text& text, std::int64_t lowest, std::int64_t highest);

/// Parts of a text with all arguments clamped, and a search that gives -1 for nothing.
Bytes Mid(const Bytes& text, std::int64_t start, std::int64_t count = INT64_MAX);
std::int64_t Find(const Bytes& text, const Bytes& pattern, std::int64_t start = 0);

}  // namespace Model
