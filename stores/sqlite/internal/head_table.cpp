#include <kit/store/head_table.h>
#include <kit/store/object_key.h>
#include <stores/sqlite/internal/checksum.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/head_table.h>
#include <stores/sqlite/internal/meta.h>

#include <optional>
#include <string>
#include <unordered_set>
#include <utility>

namespace TalVcs::Kit::Sqlite {
namespace {

/// Returns the empty id for bytes that are none.
Id IdFrom(const std::optional<std::span<const std::byte>>& bytes) {
  const std::optional<ObjectKey> key = KeyOf(bytes.value_or(std::span<const std::byte>()));
  return key ? IdOf(*key) : Id();
}

}  // namespace

Result<std::vector<Head>> HeadTable::List() {
  std::vector<Head> heads;
  std::optional<std::int64_t> expected;
  std::uint64_t sum = 0;
  bool is_damaged = false;
  // Pages that a damaged table has several times could make the list endless.
  std::unordered_set<std::string> names;
  Statement rows = m_database.Use(Query::Heads, Task::Read);
  for (;;) {
    Result<bool> row = rows.Step();
    if (!row) {
      Error error = std::move(row).error();
      error.heads = std::move(heads);
      return error;
    }
    if (!*row) break;
    expected = rows.Number(0);
    if (rows.IsNull(1)) break;
    Head head{std::string(rows.Text(1).value_or("")), IdFrom(rows.Blob(2))};
    if (!names.insert(head.name).second) {
      is_damaged = true;
      break;
    }
    sum ^= ChecksumOfHead(head.name, head.id);
    // Such a row adds nothing to the sum.
    is_damaged = is_damaged || head.id == Id();
    heads.push_back(std::move(head));
  }
  if (!is_damaged && expected && static_cast<std::uint64_t>(*expected) == sum) return heads;
  Error error = m_database.Damage("the list of its branches is damaged");
  error.heads = std::move(heads);
  return error;
}

Result<Id> HeadTable::Find(const std::string& name) {
  Statement row = m_database.Use(Query::Head, Task::Read);
  Result<bool> found = row.BindText(1, name).Step();
  if (!found) return std::move(found).error();
  return *found ? IdFrom(row.Blob(0)) : Id();
}

Status HeadTable::Check(std::span<const HeadMove> moves) {
  Kit::HeadTable heads;
  for (const HeadMove& move : moves) {
    Result<Id> actual = Find(move.name);
    if (!actual) return std::move(actual).error();
    if (*actual != Id()) heads.emplace(move.name, *std::move(actual));
  }
  return CheckMoves(heads, moves);
}

Status HeadTable::Apply(std::span<const HeadMove> moves) {
  std::uint64_t change = 0;
  for (const HeadMove& move : moves) {
    if (move.expected == move.desired) continue;
    change ^= ChecksumOfHead(move.name, move.expected) ^ ChecksumOfHead(move.name, move.desired);
    if (Status status = Set(move); !status) return status;
  }
  if (change == 0) return {};
  Result<std::uint64_t> sum = ReadMeta(m_database, Meta::HeadSum);
  if (!sum) return std::move(sum).error();
  return WriteMeta(m_database, Meta::HeadSum, *sum ^ change);
}

Status HeadTable::Set(const HeadMove& move) {
  const std::optional<ObjectKey> key = KeyOf(move.desired);
  if (!key) {
    return m_database.Use(Query::DeleteHead, Task::Save).BindText(1, move.name).RunChange();
  }
  return m_database.Use(Query::SetHead, Task::Save)
      .BindText(1, move.name)
      .Bind(2, *key)
      .RunChange();
}

}  // namespace TalVcs::Kit::Sqlite
