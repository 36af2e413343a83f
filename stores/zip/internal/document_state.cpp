#include <kit/text.h>
#include <stores/zip/internal/document_state.h>
#include <talvcs/foundation/helpers.h>

// readme := "TalVcs document, format " number LF "state " digest LF explanation
// digest := the SHA-256 of the lines below, 64 hexadecimal digits
// state  := ("branch " size SP name SP id LF)* ("value " size SP name SP size SP value LF)*
//           ascending by name, in bytes; size: the decimal byte count of what follows it

namespace TalVcs::Kit::Zip {
namespace {

constexpr std::string_view kFormatLine = "TalVcs document, format ";
constexpr std::string_view kStateLine = "state ";
constexpr std::string_view kExplanation =
    "\n"
    "This archive is a document with its history.\n"
    "\n"
    "branches/NAME.txt      the id of the newest commit of a branch\n"
    "objects/ab/cdef...     one object each, named by its id: the SHA-256 of its bytes\n"
    "  .commit              author, time and description, the id of its folder and of its parent\n"
    "  .tree                a folder: names with the ids of files and folders\n"
    "  .blob                a file: \"blob\", its size in bytes, a zero byte, its bytes\n"
    "values/NAME.txt        a setting of the program that wrote the document\n"
    "\n"
    "In NAME, %2F is \"/\" and so on. Changes by hand to branches or values make the document\n"
    "unreadable, because the state above would not fit them.\n";

void AppendCounted(std::string& text, std::string_view part) {
  text += std::to_string(part.size());
  text += ' ';
  text += part;
}

/// Takes the beginning up to a line end from a text.
std::optional<std::string_view> TakeLine(std::string_view& text, std::string_view beginning) {
  const std::size_t end = text.find('\n');
  if (!text.starts_with(beginning) || end == text.npos) return std::nullopt;
  const std::string_view line = text.substr(beginning.size(), end - beginning.size());
  text.remove_prefix(end + 1);
  return line;
}

}  // namespace

std::string DigestOf(const DocumentState& state) {
  std::string text;
  for (const auto& [name, id] : state.heads) {
    text += "branch ";
    AppendCounted(text, name);
    text += ' ' + ToUtf8(id.View()) + '\n';
  }
  for (const auto& [name, value] : state.values) {
    text += "value ";
    AppendCounted(text, name);
    text += ' ';
    AppendCounted(text, value);
    text += '\n';
  }
  return ToUtf8(Helpers::ComputeEncodedSHA256Hash(text.data(), text.size()));
}

std::string ReadmeOf(const DocumentState& state) {
  std::string text(kFormatLine);
  text += kFormat;
  text += '\n';
  text += kStateLine;
  text += DigestOf(state);
  text += '\n';
  return text += kExplanation;
}

std::optional<Readme> ParseReadme(std::string_view text) {
  const std::optional<std::string_view> format = TakeLine(text, kFormatLine);
  if (!format) return std::nullopt;
  // Of a later format, no more than the number is known.
  if (*format != kFormat) return Readme{*format, {}};
  const std::optional<std::string_view> digest = TakeLine(text, kStateLine);
  if (!digest) return std::nullopt;
  return Readme{*format, *digest};
}

}  // namespace TalVcs::Kit::Zip
