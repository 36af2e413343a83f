#pragma once

#include <stores/postgres/internal/connection.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace TalVcs::Kit::Postgres {

/// The version of the tables that this class makes.
inline constexpr std::int64_t kSchemaVersion = 2;

/// Makes sure that the database has the tables of this version, and makes or upgrades them if
/// `create` allows it. Fails with `NotFound` without tables or with older ones, and with
/// `Unsupported` for a newer version. Two programs may do so at once: one makes all of the tables,
/// the other sees them.
Status OpenSchema(Connection& connection, bool create);

/// Returns the number of the repository `name`, and makes it if `create` allows it. Fails with
/// `NotFound` without it.
Result<std::int64_t> OpenRepository(Connection& connection, std::string_view name, bool create);

/// Runs `settings`, and returns the number of the repository if all is as it should be. One round
/// trip. Without a number there is more to do.
std::optional<std::int64_t> FindRepository(Connection& connection, const Call& settings,
                                           std::string_view name);

}  // namespace TalVcs::Kit::Postgres
