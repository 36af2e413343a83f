#include <kit/diff/internal/json_reader.h>
#include <kit/text/utf8.h>

#include <algorithm>
#include <cstdint>
#include <unordered_set>
#include <utility>

// document := blank value blank
// value    := "null" | "false" | "true" | number | string | array | object
// number   := ["-"] ("0" | digit-but-0 digit*) ["." digit+] [("e" | "E") ["+" | "-"] digit+]
// string   := '"' (character | escape)* '"'      no character below U+0020
// array    := "[" blank [value blank ("," blank value blank)*] "]"
// object   := "{" blank [member blank ("," blank member blank)*] "}"
// member   := string blank ":" blank value

namespace TalVcs::Kit {
namespace {

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

int HexDigit(char character) {
  if (IsDigit(character)) return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  return -1;
}

bool IsHighSurrogate(std::uint32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool IsLowSurrogate(std::uint32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

void AppendUtf8(std::string& text, std::uint32_t point) {
  const auto tail = [&](unsigned shift) {
    text += static_cast<char>(0x80U | (point >> shift & 0x3FU));
  };
  if (point < 0x80) {
    text += static_cast<char>(point);
  } else if (point < 0x800) {
    text += static_cast<char>(0xC0U | point >> 6U);
    tail(0);
  } else if (point < 0x10000) {
    text += static_cast<char>(0xE0U | point >> 12U);
    tail(6);
    tail(0);
  } else {
    text += static_cast<char>(0xF0U | point >> 18U);
    tail(12);
    tail(6);
    tail(0);
  }
}

/// Returns the size of the UTF-8 character that `text` begins with, or 0 if it begins with none.
std::size_t Utf8Size(std::string_view text) {
  if (text.empty()) return 0;
  const Utf8Character character = DecodeUtf8(text, 0);
  return character.isValid ? character.sizeBytes : 0;
}

class Reader {
 public:
  Reader(std::string_view text, const std::string& document) : m_text(text), m_document(document) {}

  Result<JsonValue> Run() {
    JsonValue value;
    SkipBlanks();
    if (!ReadValue(value, 0)) return m_error;
    SkipBlanks();
    if (m_at < m_text.size()) {
      Fail("expected the end of the document");
      return m_error;
    }
    return value;
  }

 private:
  bool ReadValue(JsonValue& value, int depth) {
    bool done = false;
    switch (Peek()) {
      case '{':
        done = Enter(depth) && ReadObject(value, depth + 1);
        break;
      case '[':
        done = Enter(depth) && ReadArray(value, depth + 1);
        break;
      case '"':
        value.kind = JsonKind::String;
        done = ReadString(value.characters, value.spelling);
        break;
      case 'n':
        done = ReadWord("null", JsonKind::Null, value);
        break;
      case 'f':
        done = ReadWord("false", JsonKind::False, value);
        break;
      case 't':
        done = ReadWord("true", JsonKind::True, value);
        break;
      default:
        done = ReadNumber(value);
        break;
    }
    if (done) UpdateHash(value);
    return done;
  }

  bool Enter(int depth) {
    return depth < kMostJsonDepth ||
           Fail("there are more than " + std::to_string(kMostJsonDepth) + " levels");
  }

  bool ReadObject(JsonValue& value, int depth) {
    value.kind = JsonKind::Object;
    const bool done = ReadList('}', [&] {
      JsonMember member;
      if (Peek() != '"') return Fail("expected the name of a member");
      if (!ReadString(member.name, member.nameSpelling)) return false;
      SkipBlanks();
      if (!Take(':')) return Fail("expected ':'");
      SkipBlanks();
      if (!ReadValue(member.value, depth)) return false;
      value.members.push_back(std::move(member));
      return true;
    });
    return done && NamesAreUnique(value);
  }

  bool ReadArray(JsonValue& value, int depth) {
    value.kind = JsonKind::Array;
    return ReadList(']', [&] {
      JsonValue element;
      if (!ReadValue(element, depth)) return false;
      value.elements.push_back(std::move(element));
      return true;
    });
  }

  template <class ReadItem>
  bool ReadList(char close, ReadItem readItem) {
    ++m_at;
    SkipBlanks();
    if (Take(close)) return true;
    for (;;) {
      if (!readItem()) return false;
      SkipBlanks();
      if (Take(close)) return true;
      if (!Take(',')) return Fail(std::string("expected ',' or '") + close + '\'');
      SkipBlanks();
    }
  }

  bool NamesAreUnique(const JsonValue& object) {
    std::unordered_set<std::string_view> names;
    for (const JsonMember& member : object.members) {
      if (!names.insert(member.name).second) {
        return Fail("the object that ends here has two members " + member.nameSpelling);
      }
    }
    return true;
  }

  bool ReadWord(std::string_view word, JsonKind kind, JsonValue& value) {
    if (!m_text.substr(m_at).starts_with(word)) return Fail("expected a value");
    m_at += word.size();
    value.kind = kind;
    return true;
  }

  bool ReadNumber(JsonValue& value) {
    const std::size_t first = m_at;
    Take('-');
    if (!IsDigit(Peek())) return Fail(m_at == first ? "expected a value" : "expected a digit");
    if (!Take('0')) SkipDigits();
    if (Take('.') && !SkipDigits()) return Fail("expected a digit");
    if (Take('e') || Take('E')) {
      if (!Take('+')) Take('-');
      if (!SkipDigits()) return Fail("expected a digit");
    }
    value.kind = JsonKind::Number;
    value.spelling = m_text.substr(first, m_at - first);
    return true;
  }

  bool SkipDigits() {
    const std::size_t first = m_at;
    while (IsDigit(Peek())) ++m_at;
    return m_at > first;
  }

  bool ReadString(std::string& characters, std::string& spelling) {
    const std::size_t first = m_at++;
    while (!Take('"')) {
      if (m_at == m_text.size()) return Fail("a string has no end");
      if (Peek() == '\\') {
        if (!ReadEscape(characters)) return false;
        continue;
      }
      if (static_cast<unsigned char>(Peek()) < 0x20) {
        return Fail("a string has a control character");
      }
      const std::size_t size = Utf8Size(m_text.substr(m_at));
      if (size == 0) return FailText();
      characters += m_text.substr(m_at, size);
      m_at += size;
    }
    spelling = m_text.substr(first, m_at - first);
    return true;
  }

  bool ReadEscape(std::string& characters) {
    static constexpr std::string_view kLetters = "\"\\/bfnrt";
    static constexpr std::string_view kCharacters = "\"\\/\b\f\n\r\t";
    const std::size_t first = m_at++;
    if (Take('u')) {
      std::uint32_t point = 0;
      if (!ReadHex(point)) return false;
      if (IsHighSurrogate(point)) {
        std::uint32_t low = 0;
        if (!Take('\\') || !Take('u')) return FailAt(first, "half of a surrogate pair");
        if (!ReadHex(low)) return false;
        if (!IsLowSurrogate(low)) return FailAt(first, "half of a surrogate pair");
        point = 0x10000 + ((point - 0xD800) << 10U) + (low - 0xDC00);
      } else if (IsLowSurrogate(point)) {
        return FailAt(first, "half of a surrogate pair");
      }
      AppendUtf8(characters, point);
      return true;
    }
    const std::size_t letter = m_at < m_text.size() ? kLetters.find(Peek()) : kLetters.npos;
    if (letter == kLetters.npos) return FailAt(first, "unknown escape");
    ++m_at;
    characters += kCharacters[letter];
    return true;
  }

  bool ReadHex(std::uint32_t& unit) {
    for (int i = 0; i < 4; ++i, ++m_at) {
      const int digit = HexDigit(Peek());
      if (digit < 0) return Fail("expected a hexadecimal digit");
      unit = unit * 16 + static_cast<std::uint32_t>(digit);
    }
    return true;
  }

  /// Returns the next character, zero at the end: no rule accepts a zero.
  char Peek() const { return m_at < m_text.size() ? m_text[m_at] : '\0'; }
  bool Take(char character) {
    if (m_at == m_text.size() || m_text[m_at] != character) return false;
    ++m_at;
    return true;
  }
  void SkipBlanks() {
    while (m_at < m_text.size() &&
           std::string_view(" \t\r\n").find(m_text[m_at]) != std::string_view::npos) {
      ++m_at;
    }
  }

  bool Fail(const std::string& why) {
    const bool is_byte_of_other_text = (static_cast<unsigned char>(Peek()) & 0x80U) != 0;
    if (is_byte_of_other_text && Utf8Size(m_text.substr(m_at)) == 0) return FailText();
    return FailAt(m_at, why);
  }
  bool FailText() {
    FailAt(m_at, "the bytes at offset " + std::to_string(m_at) + " are not UTF-8");
    m_error.code = ErrorCode::BadText;
    return false;
  }
  bool FailAt(std::size_t at, const std::string& why) {
    const std::string_view before = m_text.substr(0, at);
    const auto lines = std::count(before.begin(), before.end(), '\n');
    const std::size_t line_start = before.rfind('\n') + 1;  // 0 without a line end
    m_error.code = ErrorCode::Damaged;
    m_error.message = "cannot read the JSON document \"" + m_document + "\", line " +
                      std::to_string(lines + 1) + ", column " +
                      std::to_string(at - line_start + 1) + ": " + why;
    m_error.subject = m_document;
    return false;
  }

  std::string_view m_text;
  const std::string& m_document;
  std::size_t m_at = 0;
  Error m_error;
};

}  // namespace

Result<JsonValue> ReadJson(std::string_view text, const std::string& document) {
  return Reader(text, document).Run();
}

}  // namespace TalVcs::Kit
