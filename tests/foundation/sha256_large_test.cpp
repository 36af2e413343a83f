#include <talvcs/foundation/internal/sha256.h>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <talvcs/foundation/helpers.h>
#include <tests/support/text.h>

#include <cstddef>
#include <cstdint>

namespace TalVcs::Testing {
namespace {

constexpr std::size_t kFourGiB = std::size_t{1} << 32;

/// Zero bytes that take no memory, because these pages are never written.
class ManyZeros {
 public:
  explicit ManyZeros(std::size_t size)
      : m_size(size),
        m_bytes(
            mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {}
  ManyZeros(const ManyZeros&) = delete;
  ManyZeros& operator=(const ManyZeros&) = delete;
  ~ManyZeros() {
    if (IsThere()) munmap(m_bytes, m_size);
  }

  bool IsThere() const { return m_bytes != MAP_FAILED; }
  const void* Get() const { return m_bytes; }

 private:
  std::size_t m_size;
  void* m_bytes;
};

// Takes seconds: a single call of more bytes than 32 bits can count.
TEST(Sha256Large, SingleCallOfMoreThanFourGiBGivesTheRightDigest) {
  const ManyZeros zeros(kFourGiB + 5);
  ASSERT_TRUE(zeros.IsThere());
  EXPECT_EQ(Ascii(Helpers::ComputeEncodedSHA256Hash(zeros.Get(), kFourGiB + 5)),
            "709fc0b74f7c916cedccb212d681c035f36ffbb31ebfe806eb40c31592744eb5");
}

}  // namespace
}  // namespace TalVcs::Testing
