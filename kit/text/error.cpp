#include <kit/text/error.h>

namespace TalVcs::Kit {

const char* ToString(ErrorCode code) noexcept {
  switch (code) {
    case ErrorCode::NotFound:
      return "NotFound";
    case ErrorCode::Conflict:
      return "Conflict";
    case ErrorCode::HeadMoved:
      return "HeadMoved";
    case ErrorCode::Undecided:
      return "Undecided";
    case ErrorCode::Busy:
      return "Busy";
    case ErrorCode::Cancelled:
      return "Cancelled";
    case ErrorCode::Unavailable:
      return "Unavailable";
    case ErrorCode::Damaged:
      return "Damaged";
    case ErrorCode::Full:
      return "Full";
    case ErrorCode::Denied:
      return "Denied";
    case ErrorCode::Unsupported:
      return "Unsupported";
    case ErrorCode::BadName:
      return "BadName";
    case ErrorCode::BadText:
      return "BadText";
    case ErrorCode::Unknown:
      break;
  }
  return "Unknown";
}

std::string Describe(const Error& error) {
  std::string line = error.message.empty() ? std::string(ToString(error.code)) : error.message;
  if (!error.cause.empty()) line += " (" + error.cause + ")";
  if (!error.unchanged.empty()) line += "; " + error.unchanged;
  return line;
}

}  // namespace TalVcs::Kit
