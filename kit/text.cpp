#include <kit/text.h>
#include <talvcs/foundation/data_encoding.h>

#include <stdexcept>
#include <utility>

namespace TalVcs::Kit {

namespace {

TalStringViewT<char> NarrowView(std::string_view bytes) {
  if (bytes.size() > 0x7FFFFFFF) throw std::length_error("text too long for a wide string");
  return TalStringViewT<char>(bytes);
}

}  // namespace

WideString ToWide(std::string_view utf8) { return TalStringT<char>(NarrowView(utf8)); }

std::optional<WideString> ToWideExactly(std::string_view utf8) {
  WideString text = ToWide(utf8);
  if (ToUtf8(text) != utf8) return std::nullopt;
  return text;
}

// The library encodes up to a zero, so the text goes to it piece by piece.
std::string ToUtf8(WideView text) {
  std::string utf8;
  const WideString terminated(text);
  for (int start = 0; start <= text.length;) {
    const TalStringT<char> piece =
        TalUtils::DataEncoding::Utf8Encode(terminated.GetString() + start);
    utf8.append(piece.GetString(), static_cast<std::size_t>(piece.GetLength()));
    const int zero = text.Find(WideChar(), start);
    if (zero < 0) break;
    utf8.push_back('\0');
    start = zero + 1;
  }
  return utf8;
}

#ifdef _WIN32

std::optional<WideString> WideFromPath(const std::filesystem::path& path) {
  const std::wstring text = path.generic_wstring();
  return WideString(WideView(std::wstring_view(text)));
}

std::optional<std::filesystem::path> PathFromWide(WideView text) {
  const std::wstring_view view(text.text, static_cast<std::size_t>(text.length));
  if (view.find(L'\0') != view.npos || view.find(L'\\') != view.npos) return std::nullopt;
  return std::filesystem::path(view);
}

#else

std::optional<WideString> WideFromPath(const std::filesystem::path& path) {
  return ToWideExactly(path.native());
}

std::optional<std::filesystem::path> PathFromWide(WideView text) {
  if (text.Find(WideChar()) >= 0) return std::nullopt;
  return std::filesystem::path(ToUtf8(text));
}

#endif

Blob BlobFromBytes(std::span<const std::byte> bytes) {
  Buffer buffer;
  if (!bytes.empty()) buffer.Append(bytes.data(), bytes.size());
  return Blob(std::move(buffer));
}

Blob BlobFromBytes(std::string_view bytes) {
  return BlobFromBytes(std::as_bytes(std::span<const char>(bytes.data(), bytes.size())));
}

std::string BytesFromBlob(const Blob& blob) { return BytesFromBuffer(blob.GetData()); }

std::string BytesFromBuffer(const Buffer& buffer) {
  std::string bytes(static_cast<std::size_t>(buffer.GetSize()), '\0');
  buffer.ReadAt(0, bytes.data(), bytes.size());
  return bytes;
}

}  // namespace TalVcs::Kit
