#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

enum class JsonKind { Null, False, True, Number, String, Array, Object };

struct JsonMember;

/// A JSON value that keeps the spelling of numbers and strings, and the order of members. At most
/// `kMostJsonDepth` levels, so that functions over values may recurse.
struct JsonValue {
  JsonKind kind = JsonKind::Null;
  std::string spelling;    ///< Of a number, or of a string with its quotes.
  std::string characters;  ///< Of a string, in UTF-8.
  std::vector<JsonValue> elements;
  std::vector<JsonMember> members;
  /// Equal for values that are the same by `SameJson`.
  std::size_t hash = 0;
};

struct JsonMember {
  std::string name;          ///< In UTF-8.
  std::string nameSpelling;  ///< With its quotes.
  JsonValue value;
};

/// Computes the hash of a value from those of its children.
void UpdateHash(JsonValue& value);

/// Compares two values, either of which may be null for none. The order of members does not count.
bool SameJson(const JsonValue* a, const JsonValue* b);
inline bool SameJson(const JsonValue& a, const JsonValue& b) { return SameJson(&a, &b); }

/// How a document is written. Empty `lineEnd`: on one line, without blanks.
struct JsonStyle {
  std::string lineEnd;
  std::string indent;         ///< Of each level.
  bool endsWithLine = false;  ///< True if the document ends with a line end.
};

/// Returns the style of a document.
JsonStyle StyleOf(std::string_view document);

/// Returns a value as JSON.
std::string WriteJson(const JsonValue& value, const JsonStyle& style = {});

/// Returns the pointer of a member or element of the value at `pointer`.
std::string PointerTo(const std::string& pointer, std::string_view name);
std::string PointerTo(const std::string& pointer, std::size_t index);

/// A member, or an element of an array that is compared by elements.
struct JsonChild {
  std::string key;                     ///< The name, or the identity of the element.
  const JsonMember* member = nullptr;  ///< Null for an element.
  const JsonValue* value = nullptr;
  std::size_t index = 0;
};

/// The members of an object or the elements of an array, in their order and by key. Views of the
/// value that it was made of. Movable only: the index refers to the list.
class JsonChildren {
 public:
  JsonChildren() = default;
  /// The members of an object.
  static JsonChildren MembersOf(const JsonValue& object);
  /// The elements of an array under the identity member `name`, which fits (see `FindIdentity`).
  static JsonChildren ElementsOf(const JsonValue& array, std::string_view name);

  JsonChildren(JsonChildren&&) = default;
  JsonChildren& operator=(JsonChildren&&) = default;

  const std::vector<JsonChild>& List() const { return m_list; }
  /// Returns null if there is none.
  const JsonChild* Find(std::string_view key) const;

 private:
  void BuildIndex();

  std::vector<JsonChild> m_list;
  std::unordered_map<std::string_view, std::size_t> m_index;
};

/// Returns the first of these names that identifies the elements of all arrays; nothing if none
/// does.
std::optional<std::string> FindIdentity(std::span<const JsonValue* const> arrays,
                                        const std::vector<std::string>& names);

/// Returns true if the children that both have are in the same order.
bool SameOrder(const JsonChildren& a, const JsonChildren& b);

}  // namespace TalVcs::Kit
