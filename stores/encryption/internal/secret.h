#pragma once

#include <sodium.h>

#include <array>
#include <cstddef>

namespace TalVcs::Kit::Encryption {

/// Bytes that are wiped from memory at the end. Not copied, so that there is one place to wipe.
template <std::size_t kSize>
class Secret {
 public:
  Secret() noexcept = default;
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret() { sodium_memzero(m_bytes.data(), kSize); }

  unsigned char* data() noexcept { return m_bytes.data(); }
  const unsigned char* data() const noexcept { return m_bytes.data(); }
  static constexpr std::size_t size() noexcept { return kSize; }

 private:
  std::array<unsigned char, kSize> m_bytes{};
};

/// The key that all others come from, and one of those.
using Key = Secret<32>;

}  // namespace TalVcs::Kit::Encryption
