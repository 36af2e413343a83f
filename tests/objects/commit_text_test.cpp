#include <talvcs/objects/commit.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/recording_repository.h>

#include <cstdint>
#include <string>

namespace TalVcs::Testing {
namespace {

constexpr std::int64_t kMinute = 600'000'000;
constexpr std::int64_t kHour = 36'000'000'000;

std::string TextOf(const Commit& commit) { return Bytes(commit.GetData()); }

/// Returns the part of the author line after the e-mail.
std::string TimeTextOf(const Commit& commit) {
  const std::string text = TextOf(commit);
  const std::size_t start = text.find("> ") + 2;
  return text.substr(start, text.find('\n', start) - start);
}

std::string BiasText(std::int64_t ticks) {
  Commit commit;
  commit.SetCommitTimezoneBias(TimeDelta{ticks});
  const std::string text = TimeTextOf(commit);
  return text.substr(text.find(' ') + 1);
}

std::string SecondsText(std::int64_t seconds) {
  Commit commit;
  commit.SetCommitTime(Time::FromTimeT(seconds));
  const std::string text = TimeTextOf(commit);
  return text.substr(0, text.find(' '));
}

TEST(CommitText, EmptyCommitHasAllLines) {
  const Commit commit;
  EXPECT_EQ(TextOf(commit), "tree \nauthor  <> 0 +0000\ncommitter  <> 0 +0000\n\n\n");
  EXPECT_EQ(IdOf(commit), "4c1ce23ea960edb77a50757723d57aab990fa80e70debadf7667a4f4452e9a85");
}

TEST(CommitText, IsTheSameWithoutTreeAndWithoutRoot) {
  const Commit commit(nullptr, false);
  EXPECT_EQ(TextOf(commit), TextOf(Commit()));
}

TEST(CommitText, HasAllFieldsInOrder) {
  RecordingRepository repository;
  const auto parent = Make<Commit>();
  Commit commit(parent, false);
  commit.AddBlob(&repository, TAL_WIDE("a"), BlobOf("hello"));
  commit.SetAuthorName(TAL_WIDE("Ada Lovelace"));
  commit.SetAuthorEmail(TAL_WIDE("ada@example.com"));
  commit.SetDescription(TAL_WIDE("First note"));
  commit.SetCommitTime(Time::FromTimeT(1'700'000'000));
  commit.SetCommitTimezoneBias(TimeDelta{5 * kHour + 30 * kMinute});
  EXPECT_EQ(TextOf(commit),
            "tree c91e041eb83553dc49f865126a6528e9a7d54180d7aeb53633121dff7d48cf66\n"
            "parent 4c1ce23ea960edb77a50757723d57aab990fa80e70debadf7667a4f4452e9a85\n"
            "author Ada Lovelace <ada@example.com> 1700000000 +0530\n"
            "committer Ada Lovelace <ada@example.com> 1700000000 +0530\n"
            "\n"
            "First note\n");
  EXPECT_EQ(IdOf(commit), "553a138db10fc6652369b445b324dfcfedb8cf7d500e67e1bdf16a7febf5a27c");
}

TEST(CommitText, IsPackedWithTypeAndSize) {
  const Commit commit;
  EXPECT_EQ(Bytes(commit.GetHeader()), "commit");
  EXPECT_EQ(Bytes(commit.GetStoragePrefix()), "");
  EXPECT_EQ(Bytes(commit.GetPackedData()), std::string("commit 49\0", 10) + TextOf(commit));
  EXPECT_EQ(Bytes(commit.BuildPackedData()), Bytes(commit.GetPackedData()));
}

TEST(CommitText, EmptyTreeHasItsId) {
  RecordingRepository repository;
  Commit commit(nullptr, false);
  commit.ReplaceRoot(&repository, Make<Tree>());
  EXPECT_EQ(TextOf(commit).substr(0, 70),
            "tree 6ef19b41225c5369f1c104d45d8d85efa9b057b53b14b4b9b939dd74decc5321\n");
}

TEST(CommitText, EmptyDescriptionLeavesThreeLineEnds) {
  Commit commit;
  commit.SetAuthorName(TAL_WIDE("x"));
  const std::string text = TextOf(commit);
  EXPECT_EQ(text.substr(text.size() - 8), "+0000\n\n\n");
}

TEST(CommitText, DescriptionOfSeveralLinesIsWrittenWhole) {
  Commit commit;
  commit.SetDescription(TAL_WIDE("one\ntwo\r\n\nthree\n"));
  const std::string text = TextOf(commit);
  EXPECT_EQ(text.substr(text.find("\n\n")), "\n\none\ntwo\r\n\nthree\n\n");
}

TEST(CommitText, NothingIsEscaped) {
  Commit commit;
  commit.SetAuthorName(TAL_WIDE("a <b> %s %d"));
  commit.SetAuthorEmail(TAL_WIDE("c>d\\%n"));
  EXPECT_EQ(TextOf(commit),
            "tree \nauthor a <b> %s %d <c>d\\%n> 0 +0000\n"
            "committer a <b> %s %d <c>d\\%n> 0 +0000\n\n\n");
}

TEST(CommitText, NonAsciiIsUtf8AndTheSizeCountsBytes) {
  Commit commit;
  commit.SetAuthorName(TAL_WIDE("Zo\u00EB"));
  commit.SetAuthorEmail(TAL_WIDE("\u20AC@x"));
  commit.SetDescription(TAL_WIDE("\U0001F600"));
  EXPECT_EQ(TextOf(commit),
            "tree \nauthor Zo\xC3\xAB <\xE2\x82\xAC@x> 0 +0000\n"
            "committer Zo\xC3\xAB <\xE2\x82\xAC@x> 0 +0000\n\n\xF0\x9F\x98\x80\n");
  EXPECT_EQ(Bytes(commit.GetPackedData()).substr(0, 10), std::string("commit 71\0", 10));
  EXPECT_EQ(IdOf(commit), "8f543c998c539ba5dfcd8f5a08db4c2d6ad9a6eb0f5cce0b3b1d85b74e8a71d9");
}

TEST(CommitText, FieldsEndAtZero) {
  Commit commit;
  const TalStringT<WideChar> torn(TalStringViewT<WideChar>(TAL_WIDE("ab\0cd"), 5));
  commit.SetDescription(torn);
  commit.SetAuthorEmail(torn);
  commit.SetAuthorName(TAL_WIDE("n"));
  EXPECT_EQ(TextOf(commit), "tree \nauthor n <ab> 0 +0000\ncommitter n <ab> 0 +0000\n\nab\n");
  commit.SetDescription(TalStringT<WideChar>(TAL_WIDE("\0cd"), 3));
  EXPECT_EQ(TextOf(commit), "tree \nauthor n <ab> 0 +0000\ncommitter n <ab> 0 +0000\n\n\n");
}

TEST(CommitText, BiasHasSignHoursAndMinutes) {
  EXPECT_EQ(BiasText(0), "+0000");
  EXPECT_EQ(BiasText(5 * kHour + 30 * kMinute), "+0530");
  EXPECT_EQ(BiasText(14 * kHour), "+1400");
  EXPECT_EQ(BiasText(-(kHour + 30 * kMinute)), "-0130");
  EXPECT_EQ(BiasText(-12 * kHour), "-1200");
  EXPECT_EQ(BiasText(-kHour), "-0100");
}

TEST(CommitText, NegativeBiasUnderOneHourHasAPlus) {
  EXPECT_EQ(BiasText(-30 * kMinute), "+0030");
  EXPECT_EQ(BiasText(-59 * kMinute), "+0059");
  EXPECT_EQ(BiasText(30 * kMinute), "+0030");
}

TEST(CommitText, BiasIsCutToMinutesTowardsZero) {
  EXPECT_EQ(BiasText(kMinute - 1), "+0000");
  EXPECT_EQ(BiasText(-kMinute + 1), "+0000");
  EXPECT_EQ(BiasText(-(kHour - 1)), "+0059");
  EXPECT_EQ(BiasText(-(kHour + kMinute - 1)), "-0100");
  EXPECT_EQ(BiasText(2 * kHour - 1), "+0159");
}

TEST(CommitText, BiasOfAHundredHoursHasThreeDigits) {
  EXPECT_EQ(BiasText(100 * kHour), "+10000");
  EXPECT_EQ(BiasText(-100 * kHour - 5 * kMinute), "-10005");
}

TEST(CommitText, SecondsAreSignedDecimals) {
  EXPECT_EQ(SecondsText(1000), "1000");
  EXPECT_EQ(SecondsText(-1), "-1");
  EXPECT_EQ(SecondsText(2'147'483'647), "2147483647");
  EXPECT_EQ(SecondsText(-2'147'483'648), "-2147483648");
}

TEST(CommitText, SecondsKeepTheirLow32Bits) {
  EXPECT_EQ(SecondsText(2'147'483'648), "-2147483648");
  EXPECT_EQ(SecondsText(4'294'967'296), "0");
  EXPECT_EQ(SecondsText(4'294'967'295), "-1");
  EXPECT_EQ(SecondsText(-2'147'483'649), "2147483647");
}

TEST(CommitText, FractionsOfASecondAreLeftOut) {
  Commit commit;
  commit.SetCommitTime(Time{10'009'999'999});
  EXPECT_EQ(TimeTextOf(commit), "1000 +0000");
}

TEST(CommitText, ParentIdCoversTheAncestry) {
  const auto root = Make<Commit>();
  Commit middle(root, false);
  middle.SetDescription(TAL_WIDE("middle"));
  const Commit tip(Make<Commit>(middle), false);
  EXPECT_EQ(IdOf(tip), "a4c2a1120da517ba06ee928c44b98691535756b09550ebe1ba3015c081e00578");
}

TEST(CommitText, AmendFlagIsNotWritten) {
  const Commit amend(cow_ptr<Commit>(), true);
  EXPECT_TRUE(amend.IsAmend());
  EXPECT_EQ(TextOf(amend), TextOf(Commit()));
}

TEST(CommitText, IsKeptUntilTheCommitChanges) {
  Commit commit;
  const Buffer* const text = &commit.GetData();
  commit.GetId();
  EXPECT_EQ(&commit.GetData(), text);
  commit.SetDescription(TAL_WIDE("new"));
  EXPECT_EQ(TextOf(commit), "tree \nauthor  <> 0 +0000\ncommitter  <> 0 +0000\n\nnew\n");
}

}  // namespace
}  // namespace TalVcs::Testing
