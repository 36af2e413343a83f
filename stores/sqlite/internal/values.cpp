#include <stores/sqlite/internal/checksum.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/values.h>

namespace TalVcs::Kit::Sqlite {

Status PutValue(Database& database, std::string_view name, std::span<const std::byte> value) {
  return database.Use(Query::SetValue, Task::Save)
      .BindText(1, name)
      .BindBlob(2, value)
      .Bind(3, static_cast<std::int64_t>(Checksum(name, value)))
      .RunChange();
}

}  // namespace TalVcs::Kit::Sqlite
