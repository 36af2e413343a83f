#pragma once

#include <kit/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/blob.h>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace TalVcs::Kit {

/// Text of 16-bit units, as the core takes it: names, paths, descriptions.
using WideString = TalStringT<WideChar>;
/// A view of such a text, valid as long as the text.
using WideView = TalStringViewT<WideChar>;

/// Decodes UTF-8. Bytes that aren't UTF-8 become U+FFFD; the three-byte form of a lone surrogate
/// becomes that surrogate. Zeros are characters like others. Never fails, but a text of more than
/// 0x7FFFFFFF bytes throws `std::length_error`.
TALVCS_KIT_API WideString ToWide(std::string_view utf8);

/// Decodes UTF-8. Returns nothing for bytes that `ToUtf8` would not encode again as they were.
TALVCS_KIT_API std::optional<WideString> ToWideExactly(std::string_view utf8);

/// Encodes as UTF-8, zeros included, and a lone surrogate in its three-byte form. `ToWide` returns
/// the same text again.
TALVCS_KIT_API std::string ToUtf8(WideView text);

/// Returns the path as a text with "/" between its components. Returns nothing if `PathFromWide`
/// could not return the same path again: on POSIX, the bytes of a name need not be
/// UTF-8.
TALVCS_KIT_API std::optional<WideString> WideFromPath(const std::filesystem::path& path);

/// Returns the path of a text with "/" between the components. Returns nothing for a text with
/// U+0000, and on Windows for one with a backslash, because no file can have such a name.
TALVCS_KIT_API std::optional<std::filesystem::path> PathFromWide(WideView text);

/// Make a blob of a copy of the bytes.
TALVCS_KIT_API Blob BlobFromBytes(std::span<const std::byte> bytes);
TALVCS_KIT_API Blob BlobFromBytes(std::string_view bytes);

/// Returns a copy of the blob's bytes, without the header of its packed form.
TALVCS_KIT_API std::string BytesFromBlob(const Blob& blob);

/// Returns a copy of the bytes of a buffer.
TALVCS_KIT_API std::string BytesFromBuffer(const Buffer& buffer);

}  // namespace TalVcs::Kit
