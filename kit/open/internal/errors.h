#pragma once

#include <kit/text.h>
#include <kit/text/error.h>
#include <talvcs/objects/id.h>

#include <string>
#include <utility>

namespace TalVcs::Kit {

/// Makes an error with a sentence and what it is about.
inline Error MakeError(ErrorCode code, std::string message, std::string subject = {},
                       std::string unchanged = {}) {
  Error error;
  error.code = code;
  error.message = std::move(message);
  error.subject = std::move(subject);
  error.unchanged = std::move(unchanged);
  return error;
}

inline std::string TextOf(const Id& id) { return ToUtf8(id.View()); }
inline std::string Quoted(const std::string& text) { return '"' + text + '"'; }

/// Returns the first digits of an id, for sentences.
inline std::string ShortId(const Id& id) { return TextOf(id).substr(0, 12); }

}  // namespace TalVcs::Kit
