#include <talvcs/foundation/internal/sha256_many.h>

#include <algorithm>
#include <array>
#include <cstring>

// Two lanes take message after message. What is left of a message that is short is put into the
// lane's own memory with its padding, so that most messages are one run of blocks; of a longer one
// the blocks are read where they lie.

namespace TalUtils {

namespace {

constexpr std::size_t kBlock = Sha256::kBlockSize;
constexpr std::size_t kPaddingSize = 9;  // a set bit and the length, at least

class Lane {
 public:
  /// Makes sure that there are blocks to mix, of the present message or of the next one. Returns
  /// false once there is none.
  bool Ready(std::span<const Sha256Message>& waiting) noexcept {
    while (m_blocks == 0) {
      if (m_message != nullptr && !m_padded) {
        FindBlocks();
        continue;
      }
      Finish();
      if (waiting.empty()) return false;
      m_message = &waiting.front();
      waiting = waiting.subspan(1);
      m_state = Sha256::kInitialState;
      m_position = 0;
      m_padded = false;
    }
    return true;
  }

  std::size_t Blocks() const noexcept { return m_blocks; }
  const std::uint8_t* Bytes() const noexcept { return m_bytes; }
  Sha256::State& State() noexcept { return m_state; }
  void Skip(std::size_t blocks) noexcept {
    m_blocks -= blocks;
    m_bytes += blocks * kBlock;
  }

 private:
  std::size_t Size() const noexcept { return m_message->head.size() + m_message->body.size(); }

  void FindBlocks() noexcept {
    const std::size_t left = Size() - m_position;
    if (left <= m_own.size() - kBlock - kPaddingSize) {
      Copy(left);
      const std::size_t end = (left + kPaddingSize + kBlock - 1) / kBlock * kBlock;
      std::memset(m_own.data() + left, 0, end - left);
      m_own[left] = 0x80;
      Sha256::PutLength(m_own.data() + end, Size());
      UseOwn(end);
      m_padded = true;
    } else if (m_position < m_message->head.size()) {
      Copy(kBlock);
      UseOwn(kBlock);
    } else {
      m_blocks = left / kBlock;
      m_bytes = static_cast<const std::uint8_t*>(
          static_cast<const void*>(m_message->body.data() + (m_position - m_message->head.size())));
      m_position += m_blocks * kBlock;
    }
  }

  void Copy(std::size_t size) noexcept {
    const auto& [head, body, digest] = *m_message;
    const std::size_t of_head =
        m_position < head.size() ? std::min(size, head.size() - m_position) : 0;
    if (of_head != 0) std::memcpy(m_own.data(), head.data() + m_position, of_head);
    const std::size_t of_body = size - of_head;
    m_position += size;
    if (of_body == 0) return;
    const std::size_t start = m_position - head.size() - of_body;
    std::memcpy(m_own.data() + of_head, body.data() + start, of_body);
  }

  void UseOwn(std::size_t size) noexcept {
    m_bytes = m_own.data();
    m_blocks = size / kBlock;
  }

  void Finish() noexcept {
    if (m_message != nullptr) *m_message->digest = Sha256::DigestOf(m_state);
    m_message = nullptr;
  }

  const Sha256Message* m_message = nullptr;
  std::size_t m_position = 0;  // of the first byte that no run of blocks held so far
  bool m_padded = false;
  const std::uint8_t* m_bytes = nullptr;
  std::size_t m_blocks = 0;
  Sha256::State m_state;
  std::array<std::uint8_t, 256> m_own;
};

}  // namespace

void ComputeSha256(std::span<const Sha256Message> messages) noexcept {
  static const Sha256::PairFunction pair = GetSha256PairX86();
  ComputeSha256(messages, pair);
}

void ComputeSha256(std::span<const Sha256Message> messages,
                   Sha256::PairFunction function) noexcept {
  const Sha256::BlockFunction single = Sha256::GetImplementations().front().function;
  Lane one;
  Lane two;
  const auto finish = [&](Lane& lane) {
    while (lane.Ready(messages)) {
      single(lane.State(), lane.Bytes(), lane.Blocks());
      lane.Skip(lane.Blocks());
    }
  };
  while (function != nullptr && one.Ready(messages) && two.Ready(messages)) {
    const std::size_t blocks = std::min(one.Blocks(), two.Blocks());
    function(one.State(), one.Bytes(), two.State(), two.Bytes(), blocks);
    one.Skip(blocks);
    two.Skip(blocks);
  }
  finish(one);
  finish(two);
}

}  // namespace TalUtils
