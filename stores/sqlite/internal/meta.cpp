#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/meta.h>

namespace TalVcs::Kit::Sqlite {
namespace {

const char* NameOf(Meta meta) noexcept {
  switch (meta) {
    case Meta::HeadSum:
      return "heads";
    case Meta::Removals:
      return "removals";
    case Meta::Log:
      return "log";
    case Meta::Version:
      break;
  }
  return "version";
}

}  // namespace

Result<std::optional<std::uint64_t>> FindMeta(Database& database, Meta meta) {
  Statement row = database.Use(Query::Meta, Task::Read);
  Result<bool> found = row.BindText(1, NameOf(meta)).Step();
  if (!found) return std::move(found).error();
  const std::optional<std::int64_t> value = *found ? row.Number(0) : std::nullopt;
  if (!value) return std::optional<std::uint64_t>();
  return std::optional(static_cast<std::uint64_t>(*value));
}

Result<std::uint64_t> ReadMeta(Database& database, Meta meta) {
  Result<std::optional<std::uint64_t>> value = FindMeta(database, meta);
  if (!value) return std::move(value).error();
  if (!*value) return database.Damage("the table \"meta\" is damaged");
  return **value;
}

Status WriteMeta(Database& database, Meta meta, std::uint64_t value) {
  return database.Use(Query::SetMeta, Task::Save)
      .BindText(1, NameOf(meta))
      .Bind(2, static_cast<std::int64_t>(value))
      .RunChange();
}

}  // namespace TalVcs::Kit::Sqlite
