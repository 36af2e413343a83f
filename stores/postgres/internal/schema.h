#pragma once

#include <stores/postgres/internal/connection.h>

#include <cstdint>
#include <string_view>

namespace TalVcs::Kit::Postgres {

/// The version of the tables that this class makes.
inline constexpr std::int64_t kSchemaVersion = 1;

/// Makes sure that the database has the tables of a version that is known, and makes them if
/// `create` allows it. Fails with `NotFound` without them, and with `Unsupported` for a newer
/// version. Two programs may do so at once: one makes all of the tables, the other sees them.
Status OpenSchema(Connection& connection, bool create);

/// Returns the number of the repository `name`, and makes it if `create` allows it. Fails with
/// `NotFound` without it.
Result<std::int64_t> OpenRepository(Connection& connection, std::string_view name, bool create);

}  // namespace TalVcs::Kit::Postgres
