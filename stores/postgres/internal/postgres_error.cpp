#include <stores/postgres/internal/postgres_error.h>

#include <utility>

namespace TalVcs::Kit::Postgres {
namespace {

struct Reason {
  ErrorCode code;
  const char* text;
};

Reason ReasonOf(std::string_view state) noexcept {
  if (state.empty()) return {ErrorCode::Unavailable, "the server can't be reached"};
  if (state == kLockNotAvailable) return {ErrorCode::Busy, "others keep it locked"};
  if (IsUndone(state)) return {ErrorCode::Busy, "others change it at the same time"};
  if (state == "25006") return {ErrorCode::Denied, "the server can only be read"};
  if (state == "42501") return {ErrorCode::Denied, "no permission"};
  if (state == "3D000") return {ErrorCode::NotFound, "there is no such database"};
  if (state == "53100") return {ErrorCode::Full, "the server has no space left"};
  if (state.starts_with("28")) return {ErrorCode::Denied, "the server refuses the user"};
  if (EndsConnection(state) || state.starts_with("53") || state.starts_with("57") ||
      state.starts_with("58")) {
    return {ErrorCode::Unavailable, "the server can't do it now"};
  }
  if (state.starts_with("XX")) return {ErrorCode::Damaged, "the server's files are damaged"};
  if (state.starts_with("54")) return {ErrorCode::Unsupported, "the server can't hold so much"};
  return {ErrorCode::Damaged, "its tables aren't those of this store"};
}

const char* VerbOf(Task task) noexcept {
  switch (task) {
    case Task::Open:
      return "open";
    case Task::Read:
      return "read from";
    case Task::Save:
      break;
  }
  return "save to";
}

}  // namespace

bool IsUndone(std::string_view state) noexcept { return state.starts_with("40"); }

bool EndsConnection(std::string_view state) noexcept {
  return state.starts_with("08") || state.starts_with("57P") || state == "53300";
}

Error ErrorOf(std::string_view state, std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  const Reason reason = ReasonOf(state);
  Error error;
  error.code = reason.code;
  error.message = reason.text;
  error.cause = "PostgreSQL: " + std::move(text);
  return error;
}

Error MakeError(ErrorCode code, Task task, std::string_view name, std::string_view reason) {
  Error error;
  error.code = code;
  error.subject = name;
  error.message =
      std::string("cannot ") + VerbOf(task) + " the repository \"" + error.subject + "\": ";
  error.message += reason;
  if (task == Task::Save) error.unchanged = "no branch was moved";
  return error;
}

}  // namespace TalVcs::Kit::Postgres
