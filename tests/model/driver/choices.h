#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>

namespace ModelTest {

/// Where the driver gets its decisions from.
class Choices {
 public:
  virtual ~Choices() = default;

  /// Returns a number below `limit`, which is at least 1.
  virtual std::uint32_t Below(std::uint32_t limit) = 0;

  /// True once there is nothing left to decide by.
  virtual bool IsExhausted() const { return false; }

  /// True once in `limit` times.
  bool OneIn(std::uint32_t limit) { return Below(limit) == 0; }

  /// Returns an element of a container that isn't empty.
  template <class Container>
  decltype(auto) Of(Container& container) {
    return *std::next(
        std::begin(container),
        static_cast<std::ptrdiff_t>(Below(static_cast<std::uint32_t>(std::size(container)))));
  }
};

/// Decisions from a seed: the same ones on every platform.
class SeededChoices : public Choices {
 public:
  explicit SeededChoices(std::uint64_t seed) : m_state(seed) {}

  std::uint32_t Below(std::uint32_t limit) override {
    m_state += 0x9E3779B97F4A7C15;
    std::uint64_t z = m_state;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
    return static_cast<std::uint32_t>((z ^ (z >> 31)) % limit);
  }

 private:
  std::uint64_t m_state;
};

/// Decisions from the bytes of an input, and after its end from a fixed seed, so that an operation
/// that goes on by a decision comes to its end.
class ByteChoices : public Choices {
 public:
  explicit ByteChoices(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {}

  std::uint32_t Below(std::uint32_t limit) override {
    if (limit == 1) return 0;
    std::uint32_t value = Next();
    if (limit > 256) value = value << 8 | Next();
    return value % limit;
  }
  bool IsExhausted() const override { return m_bytes.empty(); }

 private:
  std::uint32_t Next() {
    if (m_bytes.empty()) return m_behind.Below(256);
    const std::uint8_t byte = m_bytes.front();
    m_bytes = m_bytes.subspan(1);
    return byte;
  }

  std::span<const std::uint8_t> m_bytes;
  SeededChoices m_behind{1};
};

}  // namespace ModelTest
