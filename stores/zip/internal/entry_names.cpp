#include <kit/store/object_store.h>
#include <kit/text.h>
#include <stores/zip/internal/entry_names.h>

#include <algorithm>

namespace TalVcs::Kit::Zip {
namespace {

constexpr std::string_view kBranches = "branches/";
constexpr std::string_view kObjects = "objects/";
constexpr std::string_view kValues = "values/";
constexpr std::string_view kText = ".txt";
constexpr std::string_view kCapitals = "0123456789ABCDEF";

bool IsPlain(char byte, bool isFirst) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9') || byte == '-' || byte == '_' || (byte == '.' && !isFirst);
}

std::string Escape(std::string_view name) {
  std::string text;
  for (const char byte : name) {
    if (IsPlain(byte, text.empty())) {
      text += byte;
    } else {
      const auto value = static_cast<unsigned char>(byte);
      text += {'%', kCapitals[value >> 4], kCapitals[value & 15]};
    }
  }
  return text;
}

/// Returns nothing for a text that `Escape` does not return.
std::optional<std::string> Unescape(std::string_view text) {
  std::string name;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '%') {
      name += text[at];
      continue;
    }
    if (at + 2 >= text.size()) return std::nullopt;
    const std::size_t high = kCapitals.find(text[at + 1]);
    const std::size_t low = kCapitals.find(text[at + 2]);
    if (high == kCapitals.npos || low == kCapitals.npos) return std::nullopt;
    name += static_cast<char>(high * 16 + low);
    at += 2;
  }
  return Escape(name) == text ? std::optional(name) : std::nullopt;
}

bool IsDigits(std::string_view text) {
  constexpr std::size_t kSeparator = 2;
  if (text.size() != Digits().size() || text[kSeparator] != '/') return false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool is_digit =
        (text[at] >= '0' && text[at] <= '9') || (text[at] >= 'a' && text[at] <= 'f');
    if (at != kSeparator && !is_digit) return false;
  }
  return true;
}

EntryName ParseObject(std::string_view text) {
  const std::string_view digits = text.substr(0, Digits().size());
  const std::string_view kind = text.substr(std::min(text.size(), Digits().size()));
  const bool is_known =
      kind == ".blob" || kind == ".tree" || kind == ".commit" || kind == ".object";
  if (!is_known || !IsDigits(digits)) return {};
  return {EntryKind::Object, digits, {}};
}

EntryName ParseText(EntryKind kind, std::string_view text) {
  if (!text.ends_with(kText)) return {};
  std::optional<std::string> name = Unescape(text.substr(0, text.size() - kText.size()));
  if (!name) return {};
  return {kind, {}, *std::move(name)};
}

}  // namespace

EntryName ParseEntryName(std::string_view text) {
  if (text == kReadme) return {EntryKind::Readme, {}, {}};
  if (text.starts_with(kObjects)) return ParseObject(text.substr(kObjects.size()));
  if (text.starts_with(kBranches)) {
    return ParseText(EntryKind::Branch, text.substr(kBranches.size()));
  }
  if (text.starts_with(kValues)) return ParseText(EntryKind::Value, text.substr(kValues.size()));
  return {};
}

std::string BranchEntry(std::string_view branch) {
  return std::string(kBranches) + Escape(branch) + std::string(kText);
}

std::string ValueEntry(std::string_view name) {
  return std::string(kValues) + Escape(name) + std::string(kText);
}

std::string ObjectEntry(std::string_view digits, const Buffer& packed) {
  std::array<char, 7> bytes{};
  const std::string_view beginning(bytes.data(), packed.ReadAt(0, bytes.data(), bytes.size()));
  const char* kind = ".object";
  if (beginning.starts_with("blob ")) kind = ".blob";
  if (beginning.starts_with("tree ")) kind = ".tree";
  if (beginning.starts_with("commit ")) kind = ".commit";
  return std::string(kObjects) + std::string(digits) + kind;
}

std::optional<Digits> DigitsOf(const Id& id) {
  if (!IsObjectId(id)) return std::nullopt;
  const WideChar* text = id.View().text;
  Digits digits;
  for (std::size_t at = 0; at < digits.size(); ++at) {
    const std::size_t source = at < 2 ? at : at - 1;
    digits[at] = at == 2 ? '/' : static_cast<char>(text[source]);
  }
  return digits;
}

Id IdOf(std::string_view digits) {
  std::string text(digits.substr(0, 2));
  text += digits.substr(3);
  return Id(ToWide(text));
}

}  // namespace TalVcs::Kit::Zip
