#pragma once

#include <cstdint>
#include <ostream>
#include <string_view>
#include <vector>

namespace Tal {

/// Writes one JSON document, indented. The caller opens and closes objects and arrays in pairs.
///
/// Texts are UTF-8. A lone surrogate in its three-byte form is written as an escape, so that it can
/// be distinguished from others; any other byte that is no UTF-8 becomes U+FFFD.
class JsonWriter {
 public:
  explicit JsonWriter(std::ostream& out) : m_out(out) {}
  JsonWriter(const JsonWriter&) = delete;
  JsonWriter& operator=(const JsonWriter&) = delete;
  /// Ends the document's last line.
  ~JsonWriter() { m_out << '\n'; }

  JsonWriter& Key(std::string_view name);

  void BeginObject() { Open('{'); }
  void EndObject() { Close('}'); }
  void BeginArray() { Open('['); }
  void EndArray() { Close(']'); }

  void Text(std::string_view text);
  void Number(std::int64_t number);
  void Bool(bool value);
  void Null();

 private:
  void Open(char bracket);
  void Close(char bracket);
  void BeforeValue();
  void NewLine();
  void Quote(std::string_view text);

  std::ostream& m_out;
  std::vector<bool> m_hasMembers;
  bool m_afterKey = false;
};

}  // namespace Tal
