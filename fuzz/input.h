#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace Fuzz {

/// The bytes of an input, taken from the start. After the end come zeros.
///
/// Parts end with a byte that no UTF-8 has or with a line end, so that what a fuzzer inserts into
/// one part leaves the others as they are.
class Input {
 public:
  static constexpr char kSeparator = '\xFF';

  Input(const std::uint8_t* data, std::size_t size) : m_rest(data, data + size) {}
  explicit Input(std::string bytes) : m_rest(std::move(bytes)) {}

  bool IsAtEnd() const { return m_rest.empty(); }

  std::uint8_t Byte() {
    if (m_rest.empty()) return 0;
    const auto byte = static_cast<std::uint8_t>(m_rest.front());
    m_rest.erase(0, 1);
    return byte;
  }

  /// Takes everything up to `separator`, which goes too, or up to the end.
  std::string UpTo(char separator) {
    const std::size_t found = m_rest.find(separator);
    std::string part = m_rest.substr(0, found);
    m_rest.erase(0, found == std::string::npos ? found : found + 1);
    return part;
  }
  std::string Line() { return UpTo('\n'); }
  std::string Part() { return UpTo(kSeparator); }

  std::string Rest() { return std::exchange(m_rest, std::string()); }

 private:
  std::string m_rest;
};

}  // namespace Fuzz
