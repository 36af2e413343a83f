#pragma once

#include <kit/store/object_key.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit::Postgres {

/// The values for the parameters of one statement, in the binary form of the server's protocol.
class Parameters {
 public:
  /// A number, as int8.
  Parameters& Add(std::int64_t number);
  /// Bytes, as bytea.
  Parameters& Add(std::string_view bytes);
  Parameters& Add(const ObjectKey& key);
  /// A text, as text.
  Parameters& AddText(std::string_view text);
  /// Arrays: of int8, and of bytea.
  Parameters& Add(std::span<const std::int64_t> numbers);
  Parameters& Add(std::span<const ObjectKey> keys);
  Parameters& Add(std::span<const std::string> values);
  Parameters& Add(std::span<const std::vector<std::byte>> values);

  int Count() const noexcept { return static_cast<int>(m_values.size()); }
  /// Types, addresses, sizes and formats of the values, each as libpq takes them.
  const std::uint32_t* Types() const noexcept { return m_types.data(); }
  std::vector<const char*> Addresses() const;
  std::vector<int> Sizes() const;
  std::vector<int> Formats() const { return std::vector<int>(m_values.size(), 1); }

 private:
  template <class Values>
  Parameters& AddByteArrays(const Values& values);
  Parameters& Append(std::uint32_t type, std::string value);

  std::vector<std::string> m_values;
  std::vector<std::uint32_t> m_types;
};

}  // namespace TalVcs::Kit::Postgres
