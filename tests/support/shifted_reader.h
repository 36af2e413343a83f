#pragma once

#include <talvcs/foundation/stream.h>

#include <cstdint>

namespace TalVcs::Testing {

/// A host's reader that always reports the same position.
class ShiftedReader final : public StreamIO {
 public:
  ShiftedReader(const Stream& stream, std::uint64_t position)
      : StreamIO(stream), m_position(position) {}
  std::uint64_t GetPosition() const override { return m_position; }

 private:
  std::uint64_t m_position;
};

}  // namespace TalVcs::Testing
