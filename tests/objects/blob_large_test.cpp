#include <gtest/gtest.h>
#include <talvcs/objects/blob.h>
#include <tests/support/objects.h>

#include <cstddef>
#include <string>

namespace TalVcs::Testing {
namespace {

// Takes seconds: the bytes are one mebibyte in memory, but all of them are hashed.
TEST(BlobLarge, OfFourGiBOfSharedSegmentsHasTheRightIdAndHeader) {
  std::string ramp;
  while (ramp.size() < std::size_t{1} << 20) ramp += static_cast<char>(ramp.size());
  const Buffer mebibyte = BufferOf(ramp);
  Buffer bytes;
  bytes.ReserveSegments(4096);
  for (int turn = 0; turn < 4096; ++turn) bytes.Append(mebibyte);
  const Blob blob(bytes);
  EXPECT_EQ(blob.GetData().GetSize(), std::uint64_t{1} << 32);
  EXPECT_EQ(IdOf(blob), "dee8d370ae04905478f44cb55d3ad17fb5001f4704112f6694c23f31034de7d9");
  char header[16];
  EXPECT_EQ(blob.GetPackedData().ReadAt(0, header, 16), 16U);
  EXPECT_EQ(std::string(header, 16), std::string("blob 4294967296\0", 16));
}

}  // namespace
}  // namespace TalVcs::Testing
