#include "json.h"

#include "utf8.h"

#include <array>
#include <cstdio>
#include <string>

namespace Tal {

JsonWriter& JsonWriter::Key(std::string_view name) {
  BeforeValue();
  Quote(name);
  m_out << ": ";
  m_afterKey = true;
  return *this;
}

void JsonWriter::Text(std::string_view text) {
  BeforeValue();
  Quote(text);
}

void JsonWriter::Number(std::int64_t number) {
  BeforeValue();
  m_out << number;
}

void JsonWriter::Bool(bool value) {
  BeforeValue();
  m_out << (value ? "true" : "false");
}

void JsonWriter::Null() {
  BeforeValue();
  m_out << "null";
}

void JsonWriter::Open(char bracket) {
  BeforeValue();
  m_out << bracket;
  m_hasMembers.push_back(false);
}

void JsonWriter::Close(char bracket) {
  const bool hadMembers = m_hasMembers.back();
  m_hasMembers.pop_back();
  if (hadMembers) NewLine();
  m_out << bracket;
}

void JsonWriter::BeforeValue() {
  if (m_afterKey) {
    m_afterKey = false;
    return;
  }
  if (m_hasMembers.empty()) return;
  if (m_hasMembers.back()) m_out << ',';
  m_hasMembers.back() = true;
  NewLine();
}

void JsonWriter::NewLine() { m_out << '\n' << std::string(2 * m_hasMembers.size(), ' '); }

void JsonWriter::Quote(std::string_view text) {
  m_out << '"';
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Character character = DecodeUtf8(text, at);
    const bool surrogate = character.size == 3 && !character.valid;
    if (character.code == '"' || character.code == '\\') {
      m_out << '\\' << text[at];
    } else if (character.code < 0x20 || character.code == 0x7F || surrogate) {
      std::array<char, 8> escape{};
      std::snprintf(escape.data(), escape.size(), "\\u%04x", character.code & 0xFFFFU);
      m_out << escape.data();
    } else if (character.valid) {
      m_out << text.substr(at, character.size);
    } else {
      m_out << "\\ufffd";
    }
    at += character.size;
  }
  m_out << '"';
}

}  // namespace Tal
