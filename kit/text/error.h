#pragma once

#include <kit/export.h>
#include <talvcs/objects/id.h>

#include <optional>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// What went wrong, as far as a host acts on it differently.
enum class ErrorCode {
  NotFound,     ///< There is nothing of that name or id.
  Conflict,     ///< It exists already, or somebody changed it; `Error::heads` has what is there.
  HeadMoved,    ///< Somebody else moved a branch of a workspace; `Workspace::Reload` takes it over.
  Undecided,    ///< A merge needs decisions.
  Busy,         ///< Somebody else is writing; try again.
  Cancelled,    ///< The host's progress callback returned false.
  Unavailable,  ///< It can't be read or reached now; it may be there.
  Damaged,      ///< Its bytes aren't what they must be.
  Full,         ///< No space left.
  Denied,       ///< No right to do that.
  Unsupported,  ///< A format, version or option that this build doesn't know.
  BadName,      ///< A name that isn't allowed.
  BadText,      ///< A text that isn't UTF-8.
  Unknown,      ///< It may have happened; read again to find out.
};

/// Returns the code's name, such as "NotFound".
TALVCS_KIT_API const char* ToString(ErrorCode code) noexcept;

/// A branch and the id of its head. The name is UTF-8; an empty id is a branch without a head.
struct Head {
  std::string name;  ///< The name of the branch.
  Id id;             ///< The id of its head commit.

  friend bool operator==(const Head&, const Head&) = default;
};

/// Why an operation failed. A value; all texts are UTF-8.
struct Error {
  /// What a host may decide by.
  ErrorCode code = ErrorCode::Unknown;
  /// One sentence without a full stop: what failed, on what, why.
  std::string message;
  /// The path, branch, id or file that it is about; empty if there is none.
  std::string subject;
  /// One sentence that says what is as before; empty if that goes without saying.
  std::string unchanged;
  /// The code and text of the system or engine below; empty if there is none.
  std::string cause;
  /// For `Conflict` and `HeadMoved`: the heads that are there now, of the branches that were to be
  /// moved.
  std::vector<Head> heads;
};

/// Returns one line for people: the message, the cause in brackets, what is unchanged.
TALVCS_KIT_API std::string Describe(const Error& error);

}  // namespace TalVcs::Kit
