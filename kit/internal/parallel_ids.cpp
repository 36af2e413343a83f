#include <kit/internal/parallel_ids.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <new>
#include <thread>
#include <vector>

namespace TalVcs::Kit {
namespace {

// Starting a thread takes about as long as hashing this many bytes.
constexpr std::uint64_t kFewestBytesPerThread = 64 << 10;
constexpr std::size_t kMostTogether = 32;
constexpr std::size_t kPartsPerThread = 8;

/// The blobs in parts, which threads take in turn.
class Parts {
 public:
  Parts(std::span<const Blob* const> blobs, unsigned threads) noexcept
      : m_blobs(blobs),
        m_together(std::clamp<std::size_t>(blobs.size() / (threads * kPartsPerThread), 2,
                                           kMostTogether)) {}

  void ComputeAll() noexcept {
    for (;;) {
      const std::size_t begin = m_next.fetch_add(m_together, std::memory_order_relaxed);
      if (begin >= m_blobs.size()) return;
      Compute(m_blobs.subspan(begin, std::min(m_together, m_blobs.size() - begin)));
    }
  }

 private:
  static void Compute(std::span<const Blob* const> blobs) noexcept {
    try {
      Blob::ComputeIds(blobs);
      for (const Blob* blob : blobs) {
        if (blob != nullptr) blob->GetId();
      }
    } catch (const std::bad_alloc&) {
      // The next call of GetId computes the id, or reports the failure.
      return;
    }
  }

  std::span<const Blob* const> m_blobs;
  std::size_t m_together;
  std::atomic<std::size_t> m_next{0};
};

unsigned UsefulThreads(std::span<const Blob* const> blobs, unsigned threads) {
  std::uint64_t bytes = 0;
  for (const Blob* blob : blobs) bytes += blob == nullptr ? 0 : blob->GetData().GetSize();
  return static_cast<unsigned>(
      std::clamp<std::uint64_t>(bytes / kFewestBytesPerThread, 1, std::max(threads, 1u)));
}

}  // namespace

void ComputeIdsOnThreads(std::span<const Blob* const> blobs, unsigned threads) {
  threads = UsefulThreads(blobs, threads);
  if (threads == 1) return;
  Parts parts(blobs, threads);
  std::vector<std::thread> others;
  others.reserve(threads - 1);
  try {
    while (others.size() + 1 < threads) others.emplace_back([&parts] { parts.ComputeAll(); });
  } catch (const std::exception&) {
    // The system refuses another thread or has no memory for it: those that run do the work.
  }
  parts.ComputeAll();
  for (std::thread& other : others) other.join();
}

}  // namespace TalVcs::Kit
