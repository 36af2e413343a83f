#pragma once

#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

/// The names of the entries of an archive.
///
///     README.txt                  the mark of the format, for people and for this store
///     branches/NAME.txt           the id of the head of a branch
///     objects/ab/cdef...KIND      the packed form of an object; KIND is .blob, .tree, .commit
///                                 or .object
///     values/NAME.txt             a value
///
/// NAME is the name of the branch or value. A byte that is no ASCII letter, digit, "-" or "_", and
/// no "." except the first byte, is "%" with its two hexadecimal digits in capitals.
namespace TalVcs::Kit::Zip {

inline constexpr std::string_view kReadme = "README.txt";

/// What an entry is for.
enum class EntryKind { Foreign, Readme, Branch, Object, Value };

struct EntryName {
  EntryKind kind = EntryKind::Foreign;
  /// Of an object, its 65 characters "ab/cdef..." inside of the text that was parsed.
  std::string_view digits;
  /// Of a branch or value, its name.
  std::string name;
};

/// Parses the name of an entry. A name that this store never writes is `Foreign`.
EntryName ParseEntryName(std::string_view text);

std::string BranchEntry(std::string_view branch);
std::string ValueEntry(std::string_view name);
/// `digits` are those of the object's id, `packed` gives the kind.
std::string ObjectEntry(std::string_view digits, const Buffer& packed);

/// The digits of an id as names of entries have them: "ab/cdef...".
using Digits = std::array<char, 65>;
/// Returns nothing for an id that isn't an object's.
std::optional<Digits> DigitsOf(const Id& id);
Id IdOf(std::string_view digits);

/// The most bytes that a zip archive gives to a name.
inline constexpr std::size_t kMostNameBytes = 65535;

}  // namespace TalVcs::Kit::Zip
