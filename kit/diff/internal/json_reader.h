#pragma once

#include <kit/diff/internal/json_value.h>
#include <kit/text/result.h>

#include <string>
#include <string_view>

namespace TalVcs::Kit {

/// Most levels of objects and arrays in a document.
inline constexpr int kMostJsonDepth = 256;

/// Reads a document by RFC 8259: UTF-8 without a byte order mark, one value, no member twice, no
/// half of a surrogate pair. Fails with `BadText` or `Damaged`, with line and column in the message
/// and `document` as the subject.
Result<JsonValue> ReadJson(std::string_view text, const std::string& document);

}  // namespace TalVcs::Kit
