#include <talvcs/directory/internal/object_source.h>

#include <gtest/gtest.h>

namespace TalVcs {
namespace {

constexpr ObjectSource::Place kPlaceOfA = 804113565;
constexpr ObjectSource::Place kPlaceOfBcInA = 1076894015;
constexpr ObjectSource::Place kPlaceOfAbc = 357248848;

// The literals are FNV-1a over "a/", "bc/" and "abc/", computed in Python.
TEST(PlaceOfADirectory, IsMadeOfTheNamesOnItsPath) {
  const TalStringViewT<WideChar> abc = TAL_WIDE("abc");
  EXPECT_EQ(ObjectSource::PlaceBelow(ObjectSource::kRootPlace, abc), kPlaceOfAbc);
  EXPECT_EQ(ObjectSource::PlaceBelow(ObjectSource::kRootPlace, abc.Mid(0, 1)), kPlaceOfA);
  EXPECT_EQ(ObjectSource::PlaceBelow(kPlaceOfA, abc.Mid(1, 2)), kPlaceOfBcInA);
}

}  // namespace
}  // namespace TalVcs
