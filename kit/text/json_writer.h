#pragma once

#include <kit/export.h>

#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// Writes one JSON document to a stream, indented by two blanks a level.
///
///     JsonWriter json(std::cout);
///     json.BeginObject();
///     json.Key("name").Text("house");
///     json.EndObject();
///
/// The caller opens and closes objects and arrays in pairs, and calls `Key` before each value of an
/// object; nothing checks that. Texts are UTF-8. The three-byte form of a lone surrogate is written
/// as an escape, so that it differs from other texts; any other byte that isn't UTF-8 becomes
/// U+FFFD. Errors of the stream are the caller's to check.
class TALVCS_KIT_API JsonWriter {
 public:
  /// Writes to `out`, which must outlive the writer.
  explicit JsonWriter(std::ostream& out);
  JsonWriter(const JsonWriter&) = delete;
  JsonWriter& operator=(const JsonWriter&) = delete;
  /// Ends the document's last line.
  ~JsonWriter();

  /// Writes the name of the next member of an object.
  JsonWriter& Key(std::string_view name);

  void BeginObject();  ///< Opens an object.
  void EndObject();    ///< Closes it.
  void BeginArray();   ///< Opens an array.
  void EndArray();     ///< Closes it.

  void Text(std::string_view text);        ///< Writes a string.
  void TextOrNull(std::string_view text);  ///< Writes a string, or null for an empty one.
  void Number(std::int64_t number);        ///< Writes a whole number.
  void Bool(bool value);                   ///< Writes true or false.
  void Null();                             ///< Writes null.

 private:
  TALVCS_KIT_NO_EXPORT void Open(char bracket);
  TALVCS_KIT_NO_EXPORT void Close(char bracket);
  TALVCS_KIT_NO_EXPORT void BeforeValue();
  TALVCS_KIT_NO_EXPORT void NewLine();
  TALVCS_KIT_NO_EXPORT void Quote(std::string_view text);

  std::ostream& m_out;
  std::vector<bool> m_hasMembers;  // of each object and array that is open
  bool m_isAfterKey = false;
};

}  // namespace TalVcs::Kit
