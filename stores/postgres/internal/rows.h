#pragma once

#include <libpq-fe.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

namespace TalVcs::Kit::Postgres {

/// The result of a statement: rows of binary values. Any server may have sent them.
class Rows {
 public:
  explicit Rows(PGresult* result) noexcept : m_result(result) {}

  /// Null if there was no result.
  const PGresult* Raw() const noexcept { return m_result.get(); }

  int Count() const noexcept { return PQntuples(m_result.get()); }

  /// Returns the bytes of a value; none for a null.
  std::span<const std::byte> Bytes(int row, int column) const noexcept {
    return {reinterpret_cast<const std::byte*>(PQgetvalue(m_result.get(), row, column)),
            static_cast<std::size_t>(PQgetlength(m_result.get(), row, column))};
  }

  /// Returns an int8; -1 for a value of another size.
  std::int64_t Number(int row, int column) const noexcept {
    const std::span<const std::byte> bytes = Bytes(row, column);
    if (bytes.size() != sizeof(std::int64_t)) return -1;
    std::uint64_t number = 0;
    for (const std::byte byte : bytes) number = number << 8 | static_cast<std::uint64_t>(byte);
    return static_cast<std::int64_t>(number);
  }

  /// Returns how many rows the statement changed.
  std::int64_t Changed() const noexcept { return std::atoll(PQcmdTuples(m_result.get())); }

 private:
  struct Clear {
    void operator()(PGresult* result) const noexcept { PQclear(result); }
  };
  std::unique_ptr<PGresult, Clear> m_result;
};

}  // namespace TalVcs::Kit::Postgres
