#include <kit/store/object_codec.h>
#include <kit/text.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/object_rows.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace TalVcs::Kit::Sqlite {
namespace {

// Data that is longer is in pieces of so many bytes, far below SQLite's limit of a row.
constexpr std::uint64_t kPieceBytes = std::uint64_t{4} << 20;

std::int64_t PiecesOf(const Buffer& data) {
  return static_cast<std::int64_t>((data.GetSize() + kPieceBytes - 1) / kPieceBytes);
}

bool IsSplit(const Buffer& data) { return data.GetSize() > kPieceBytes; }

void Append(std::span<const std::byte> bytes, Buffer& target) {
  if (bytes.empty()) return;
  std::byte* place = nullptr;
  const Buffer segment = Buffer::Allocate(bytes.size(), place);
  std::memcpy(place, bytes.data(), bytes.size());
  target.Append(segment);
}

/// The bytes of a part of a buffer in one place.
class Part {
 public:
  Part(const Buffer& buffer, std::uint64_t position, std::size_t size) {
    if (buffer.GetSegmentCount() == 1) {
      m_bytes = buffer.GetSegment(0).subspan(static_cast<std::size_t>(position), size);
      return;
    }
    m_copy.resize(size);
    if (size != 0) buffer.ReadAt(position, m_copy.data(), size);
    m_bytes = std::as_bytes(std::span(m_copy));
  }
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;

  std::span<const std::byte> Bytes() const noexcept { return m_bytes; }

 private:
  std::string m_copy;
  std::span<const std::byte> m_bytes;
};

}  // namespace

Error ObjectRows::Damage(const ObjectKey& key) const {
  Error error = m_database.Damage("the row of an object is damaged");
  error.subject = ToUtf8(IdOf(key).View());
  return error;
}

Result<std::optional<ObjectRow>> ObjectRows::Find(const ObjectKey& key) {
  Statement statement = m_database.Use(Query::ReadObject, Task::Read);
  statement.Bind(1, key);
  return Take(statement);
}

Result<std::optional<ObjectRow>> ObjectRows::Find(std::int64_t number) {
  Statement statement = m_database.Use(Query::ReadObjectByNumber, Task::Read);
  statement.Bind(1, number);
  return Take(statement);
}

Result<std::optional<ObjectRow>> ObjectRows::Take(Statement& statement) {
  Result<bool> found = statement.Step();
  if (!found) return std::move(found).error();
  if (!*found) return std::optional<ObjectRow>();
  ObjectRow row;
  const std::optional<std::int64_t> number = statement.Number(0);
  const std::optional<ObjectKey> key =
      KeyOf(statement.Blob(1).value_or(std::span<const std::byte>()));
  const std::optional<std::int64_t> size = statement.Number(2);
  const std::optional<std::int64_t> encoding = statement.Number(3);
  row.key = key.value_or(ObjectKey());
  if (!number || !key || !size || *size < 0 || !encoding || *encoding < kCompressedRow) {
    return Damage(row.key);
  }
  row.number = *number;
  row.sizeBytes = static_cast<std::uint64_t>(*size);
  row.encoding = *encoding;
  if (const std::optional<std::span<const std::byte>> data = statement.Blob(4)) {
    Append(*data, row.data);
  } else if (Status status = ReadPieces(row, statement.Number(4).value_or(0)); !status) {
    return std::move(status).error();
  }
  if (row.encoding == kPlainRow && row.data.GetSize() != row.sizeBytes) return Damage(row.key);
  return std::optional(std::move(row));
}

Status ObjectRows::ReadPieces(ObjectRow& row, std::int64_t count) {
  std::int64_t pieces = 0;
  Statement statement = m_database.Use(Query::ReadPieces, Task::Read);
  statement.Bind(1, row.number);
  for (;; ++pieces) {
    Result<bool> found = statement.Step();
    if (!found) return std::move(found).error();
    if (!*found) break;
    const std::optional<std::span<const std::byte>> data = statement.Blob(1);
    if (statement.Number(0) != pieces || !data) return Damage(row.key);
    Append(*data, row.data);
  }
  return pieces == count && count > 0 ? Status() : Status(Damage(row.key));
}

Status ObjectRows::Insert(const ObjectRow& row) {
  Status status;
  std::int64_t number = row.number;
  {
    const Part data(row.data, 0, IsSplit(row.data) ? 0 : row.data.GetSize());
    Statement statement = m_database.Use(Query::InsertObject, Task::Save);
    if (number != 0) statement.Bind(1, number);
    statement.Bind(2, row.key)
        .Bind(3, static_cast<std::int64_t>(row.sizeBytes))
        .Bind(4, row.encoding);
    status = IsSplit(row.data) ? statement.Bind(5, PiecesOf(row.data)).RunChange()
                               : statement.BindBlob(5, data.Bytes()).RunChange();
  }
  if (!status || !IsSplit(row.data)) return status;
  if (number == 0) number = sqlite3_last_insert_rowid(m_database.Connection());
  return WritePieces(number, row.data);
}

Status ObjectRows::Update(const ObjectRow& row) {
  Status status = m_database.Use(Query::DeletePieces, Task::Save).Bind(1, row.number).Run();
  if (!status) return status;
  {
    const Part data(row.data, 0, IsSplit(row.data) ? 0 : row.data.GetSize());
    Statement statement = m_database.Use(Query::UpdateObject, Task::Save);
    statement.Bind(1, row.number).Bind(2, row.encoding);
    status = IsSplit(row.data) ? statement.Bind(3, PiecesOf(row.data)).RunChange()
                               : statement.BindBlob(3, data.Bytes()).RunChange();
  }
  return status && IsSplit(row.data) ? WritePieces(row.number, row.data) : status;
}

Status ObjectRows::WritePieces(std::int64_t number, const Buffer& data) {
  Status status;
  for (std::int64_t piece = 0; status && piece < PiecesOf(data); ++piece) {
    const std::uint64_t position = static_cast<std::uint64_t>(piece) * kPieceBytes;
    const Part part(data, position,
                    static_cast<std::size_t>(std::min(kPieceBytes, data.GetSize() - position)));
    status = m_database.Use(Query::InsertPiece, Task::Save)
                 .Bind(1, number)
                 .Bind(2, piece)
                 .BindBlob(3, part.Bytes())
                 .RunChange();
  }
  return status;
}

Status ObjectRows::Remove(std::int64_t number) {
  Status status = m_database.Use(Query::DeletePieces, Task::Save).Bind(1, number).Run();
  if (!status) return status;
  return m_database.Use(Query::DeleteObject, Task::Save).Bind(1, number).RunChange();
}

std::vector<std::byte> EncodedFormOf(std::span<const std::byte> packed) {
  std::vector<std::byte> encoded{static_cast<std::byte>(ObjectEncoding::Plain)};
  std::uint64_t size = packed.size();
  for (; size >= 0x80; size >>= 7) encoded.push_back(static_cast<std::byte>(size | 0x80));
  encoded.push_back(static_cast<std::byte>(size));
  encoded.insert(encoded.end(), packed.begin(), packed.end());
  return encoded;
}

}  // namespace TalVcs::Kit::Sqlite
