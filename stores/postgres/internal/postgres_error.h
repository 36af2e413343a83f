#pragma once

#include <kit/text/error.h>

#include <string>
#include <string_view>

namespace TalVcs::Kit::Postgres {

/// What an operation was about to do, for its messages.
enum class Task { Open, Read, Save };

/// The states of the server, by their codes, which the store acts on.
inline constexpr std::string_view kLockNotAvailable = "55P03";
inline constexpr std::string_view kUniqueViolation = "23505";
inline constexpr std::string_view kUndefinedTable = "42P01";
inline constexpr std::string_view kInvalidSchema = "3F000";
inline constexpr std::string_view kDuplicateSchema = "42P06";
inline constexpr std::string_view kDuplicateTable = "42P07";
inline constexpr std::string_view kDuplicateColumn = "42701";

/// Returns true if the server undid a transaction because of others, so that it may be repeated.
bool IsUndone(std::string_view state) noexcept;

/// Returns true if the server ends the connection or takes none now.
bool EndsConnection(std::string_view state) noexcept;

/// Returns the error of a state of the server; an empty state is a lost connection. `text` is what
/// libpq says.
Error ErrorOf(std::string_view state, std::string text);

/// Returns an error whose message says what couldn't be done with the repository `name`, and why.
Error MakeError(ErrorCode code, Task task, std::string_view name, std::string_view reason);

}  // namespace TalVcs::Kit::Postgres
