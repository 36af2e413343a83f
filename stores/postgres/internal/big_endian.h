#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace TalVcs::Kit::Postgres {

/// Appends all bytes of a number, the highest first, as the server's protocol has them.
template <class Number>
void AppendNumber(std::string& out, Number number) {
  for (std::size_t shift = 8 * sizeof(Number); shift != 0;) {
    shift -= 8;
    out.push_back(static_cast<char>(static_cast<std::uint64_t>(number) >> shift & 0xFF));
  }
}

}  // namespace TalVcs::Kit::Postgres
