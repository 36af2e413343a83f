#pragma once

#include <kit/export.h>
#include <kit/text/result.h>

#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// What differs at one place of two JSON documents.
enum class JsonChangeKind {
  Added,      ///< Only the second document has the member or element.
  Removed,    ///< Only the first document has it.
  Changed,    ///< Both have it with another value.
  Reordered,  ///< An array has the same elements in another order, apart from other changes.
};

/// One difference of two JSON documents.
struct JsonChange {
  JsonChangeKind kind = JsonChangeKind::Changed;  ///< What differs.
  /// The place as a JSON pointer, such as "/shapes/3/colour"; empty for the whole document. Indexes
  /// of elements are those of the second document, for `Removed` those of the first.
  std::string pointer;
  std::string before;  ///< The value of the first document as compact JSON; empty for `Added`.
  std::string after;   ///< The value of the second document likewise; empty for `Removed`.

  friend bool operator==(const JsonChange&, const JsonChange&) = default;
};

/// Rules for arrays, shared by comparison and merge.
struct JsonArrayOptions {
  /// Names of members that identify an element of an array, the best one first. An array is
  /// compared by elements if one of these names fits: in all versions of the array, each element is
  /// an object that has that member, a string or number that no other element of the version has.
  /// Any other array is one value. Empty: every array is one value.
  std::vector<std::string> identityMembers = {"id"};
};

/// Compares two JSON documents by member and returns the differences in the order of the second
/// document; what only the first one has follows, object by object.
///
/// The order of members and white space do not count. Numbers are equal if their texts are: 1 and
/// 1.0 differ. Strings are equal if they have the same characters, however those are escaped.
///
/// Fails with `BadText` for a document that is not UTF-8. Fails with `Damaged` for one that is not
/// JSON by RFC 8259, has two members of one name in an object, an escape of half a surrogate pair,
/// or more than 256 levels. The message contains line and column. `subject` is "before" or "after".
[[nodiscard]] TALVCS_KIT_API Result<std::vector<JsonChange>> DiffJson(
    std::string_view before, std::string_view after, const JsonArrayOptions& options = {});

}  // namespace TalVcs::Kit
