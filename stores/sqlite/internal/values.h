#pragma once

#include <kit/text/result.h>

#include <cstddef>
#include <span>
#include <string_view>

namespace TalVcs::Kit::Sqlite {

class Database;

/// Puts a value of the host into the table, with its checksum. Needs a write transaction.
Status PutValue(Database& database, std::string_view name, std::span<const std::byte> value);

}  // namespace TalVcs::Kit::Sqlite
