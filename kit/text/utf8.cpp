#include <kit/text/utf8.h>

namespace TalVcs::Kit {

Utf8Character DecodeUtf8(std::string_view text, std::size_t at) noexcept {
  const auto byte = [&](std::size_t offset) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(text[at + offset]));
  };
  const std::uint32_t lead = byte(0);
  const Utf8Character broken{lead, 1, false};
  if (lead < 0x80) return {lead, 1, true};
  if (lead < 0xC2 || lead > 0xF4) return broken;

  const std::size_t size = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (text.size() - at < size) return broken;
  std::uint32_t code = lead & (0xFFU >> (size + 1));
  for (std::size_t offset = 1; offset < size; ++offset) {
    if ((byte(offset) & 0xC0U) != 0x80) return broken;
    code = code << 6U | (byte(offset) & 0x3FU);
  }
  if ((size == 3 && code < 0x800) || (size == 4 && code < 0x10000) || code > 0x10FFFF) {
    return broken;
  }
  return {code, size, code < 0xD800 || code > 0xDFFF};
}

std::string CutText(std::string_view text, std::size_t characters) {
  std::size_t end = 0;
  std::size_t before_last = 0;
  for (std::size_t count = 0; count < characters && end < text.size(); ++count) {
    before_last = end;
    end += DecodeUtf8(text, end).sizeBytes;
  }
  if (end >= text.size()) return std::string(text);
  return std::string(text.substr(0, before_last)) + "\xE2\x80\xA6";
}

}  // namespace TalVcs::Kit
