#include <kit/text/json_writer.h>
#include <kit/text/utf8.h>

#include <array>
#include <cstdio>
#include <ostream>
#include <string>

namespace TalVcs::Kit {

JsonWriter::JsonWriter(std::ostream& out) : m_out(out) {}

JsonWriter::~JsonWriter() { m_out << '\n'; }

JsonWriter& JsonWriter::Key(std::string_view name) {
  BeforeValue();
  Quote(name);
  m_out << ": ";
  m_isAfterKey = true;
  return *this;
}

void JsonWriter::BeginObject() { Open('{'); }
void JsonWriter::EndObject() { Close('}'); }
void JsonWriter::BeginArray() { Open('['); }
void JsonWriter::EndArray() { Close(']'); }

void JsonWriter::Text(std::string_view text) {
  BeforeValue();
  Quote(text);
}

void JsonWriter::TextOrNull(std::string_view text) {
  if (text.empty()) {
    Null();
  } else {
    Text(text);
  }
}

void JsonWriter::Number(std::int64_t number) {
  BeforeValue();
  m_out << std::to_string(number);
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
  const bool had_members = m_hasMembers.back();
  m_hasMembers.pop_back();
  if (had_members) NewLine();
  m_out << bracket;
}

void JsonWriter::BeforeValue() {
  if (m_isAfterKey) {
    m_isAfterKey = false;
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
    const bool is_surrogate = character.sizeBytes == 3 && !character.isValid;
    if (character.code == '"' || character.code == '\\') {
      m_out << '\\' << text[at];
    } else if (character.code < 0x20 || character.code == 0x7F || is_surrogate) {
      std::array<char, 8> escape{};
      std::snprintf(escape.data(), escape.size(), "\\u%04x", character.code & 0xFFFFU);
      m_out << escape.data();
    } else if (character.isValid) {
      m_out << text.substr(at, character.sizeBytes);
    } else {
      m_out << "\\ufffd";
    }
    at += character.sizeBytes;
  }
  m_out << '"';
}

}  // namespace TalVcs::Kit
