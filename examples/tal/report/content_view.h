#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Tal {

/// The content of a file on both sides of a comparison; none where there is no file.
struct ContentPair {
  std::optional<std::string_view> before;
  std::optional<std::string_view> after;
};

/// Returns the media type of a picture that every browser shows, by its first bytes, or an empty
/// text for other content.
std::string_view ImageType(std::string_view content) noexcept;

/// Returns the picture as an address that contains it.
std::string ImageAddress(std::string_view content);

/// Returns the comparison of two contents as HTML: pictures, text side by side with the changed
/// words marked, or bytes in hexadecimal digits. Long ones are cut, which the last line says.
std::string CompareContents(const ContentPair& contents);

/// Returns how many lines the comparison removes and adds, such as "+3 -1", or the sizes of
/// contents that aren't text.
std::string CountChanges(const ContentPair& contents);

}  // namespace Tal
