// description := message [LF LF "Workspace:" (SP word)*]
// word        := "machine" | "checkpoint" | "gesture=" text
//              | "undoes=" id | "redoes=" id | "merges=" id
// text        := (letter | digit | "-" | "." | "_" | "%" two hexadecimal digits)+
//
// The last line counts if an empty line and that key come before. A message that ends like that
// itself gets a line without words. Unknown words are skipped.

#include <kit/store/object_store.h>
#include <kit/text.h>
#include <kit/workspace/internal/message.h>

#include <charconv>
#include <optional>

namespace TalVcs::Kit {

namespace {

constexpr std::string_view kSeparator = "\n\n";
constexpr std::string_view kKey = "Workspace:";

/// Returns where the line of annotations begins, with its separator, or npos.
std::size_t FindLine(std::string_view description) {
  const std::size_t line = description.rfind('\n');
  if (line == description.npos || line == 0 || description[line - 1] != '\n') {
    return description.npos;
  }
  return description.substr(line + 1).starts_with(kKey) ? line - 1 : description.npos;
}

bool IsPlain(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_';
}

std::string Escaped(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string escaped;
  for (const char c : text) {
    if (IsPlain(c)) {
      escaped += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      escaped += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return escaped;
}

std::string Unescaped(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned value = 0;
    const char* digits = text.data() + i + 1;
    if (text[i] == '%' && i + 2 < text.size() &&
        std::from_chars(digits, digits + 2, value, 16).ptr == digits + 2) {
      plain += static_cast<char>(value);
      i += 2;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

void AppendId(std::string& line, std::string_view key, const Id& id) {
  if (id.View().IsEmpty()) return;
  line += ' ';
  line += key;
  line += ToUtf8(id.View());
}

std::string LineOf(const Annotations& annotations) {
  std::string line(kKey);
  if (annotations.isMachineMade) line += " machine";
  if (annotations.isCheckpoint) line += " checkpoint";
  if (!annotations.gesture.empty()) line += " gesture=" + Escaped(annotations.gesture);
  AppendId(line, "undoes=", annotations.undoes);
  AppendId(line, "redoes=", annotations.redoes);
  for (const Id& id : annotations.merges) AppendId(line, "merges=", id);
  return line;
}

/// Returns what follows the key, or nothing if the word has another key.
std::optional<std::string_view> ValueOf(std::string_view word, std::string_view key) {
  if (!word.starts_with(key)) return std::nullopt;
  return word.substr(key.size());
}

Id IdOf(std::string_view text) {
  Id id(ToWide(text));
  return IsObjectId(id) ? id : Id();
}

void ParseWord(std::string_view word, Annotations& annotations) {
  if (word == "machine") annotations.isMachineMade = true;
  if (word == "checkpoint") annotations.isCheckpoint = true;
  if (const auto gesture = ValueOf(word, "gesture=")) annotations.gesture = Unescaped(*gesture);
  if (const auto id = ValueOf(word, "undoes=")) annotations.undoes = IdOf(*id);
  if (const auto id = ValueOf(word, "redoes=")) annotations.redoes = IdOf(*id);
  if (const auto id = ValueOf(word, "merges=")) {
    Id merged = IdOf(*id);
    if (!merged.View().IsEmpty()) annotations.merges.push_back(std::move(merged));
  }
}

}  // namespace

std::string DescriptionOf(const AnnotatedMessage& message) {
  if (message.annotations == Annotations() && FindLine(message.message) == std::string_view::npos) {
    return message.message;
  }
  return message.message + std::string(kSeparator) + LineOf(message.annotations);
}

AnnotatedMessage ParseDescription(std::string_view description) {
  AnnotatedMessage parsed;
  const std::size_t begin = FindLine(description);
  parsed.message = description.substr(0, begin);
  if (begin == description.npos) return parsed;
  std::string_view words = description.substr(begin + kSeparator.size() + kKey.size());
  while (!words.empty()) {
    const std::size_t end = words.find(' ');
    ParseWord(words.substr(0, end), parsed.annotations);
    words = end == words.npos ? std::string_view() : words.substr(end + 1);
  }
  return parsed;
}

}  // namespace TalVcs::Kit
