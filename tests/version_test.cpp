#include <talvcs/version.h>

#include <gtest/gtest.h>

#include <string>

namespace TalVcs::Testing {
namespace {

TEST(Version, HasNumbersAndText) {
  const Version version = GetVersion();
  EXPECT_EQ(version.major_number, 1);
  EXPECT_EQ(version.minor_number, 0);
  EXPECT_EQ(version.patch_number, 0);
  EXPECT_EQ(std::string(GetVersionText()), "1.0.0");
}

}  // namespace
}  // namespace TalVcs::Testing
