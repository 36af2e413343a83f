#include <talvcs/format/internal/commit_format.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>
#include <tests/support/text.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Testing {
namespace {

using namespace std::string_literals;

constexpr std::int64_t kMinute = 600'000'000;
const std::string kTree(64, 'a');
const std::string kParent(64, 'b');
const std::string kInfo = "Ada <ada@example.com> 1700000000 +0530";

std::string Text(const std::string& info, const std::string& description) {
  return "tree " + kTree + "\nparent " + kParent + "\nauthor " + info + "\ncommitter " + info +
         "\n\n" + description + "\n";
}

/// Returns "name|e-mail|description" of a text, or "!" if it is refused.
std::string Split(std::string_view text) {
  const auto fields = ReadCommitText(text);
  if (!fields) return "!";
  return std::string(fields->authorName) + "|" + std::string(fields->authorEmail) + "|" +
         std::string(fields->description);
}

TalStringT<WideChar> Decoded(std::string_view utf8) {
  return TalStringT<WideChar>(TalStringT<char>(TalStringViewT<char>(utf8)));
}

/// Writes the fields of a text without a root and a parent as a commit does.
std::string Rewritten(const CommitFields& fields) {
  Commit commit;
  commit.SetAuthorName(Decoded(fields.authorName));
  commit.SetAuthorEmail(Decoded(fields.authorEmail));
  commit.SetDescription(Decoded(fields.description));
  commit.SetCommitTime(fields.time);
  commit.SetCommitTimezoneBias(fields.bias);
  return Bytes(commit.GetData());
}

TEST(ReadCommitText, ReadsAllFields) {
  const std::string text = Text(kInfo, "First note");
  const auto fields = ReadCommitText(text);
  ASSERT_TRUE(fields);
  EXPECT_EQ(fields->treeId, kTree);
  EXPECT_EQ(fields->parentId, kParent);
  EXPECT_EQ(fields->authorName, "Ada");
  EXPECT_EQ(fields->authorEmail, "ada@example.com");
  EXPECT_EQ(fields->description, "First note");
  EXPECT_EQ(fields->time.ToTimeT(), 1'700'000'000);
  EXPECT_EQ(fields->bias.ticks, 330 * kMinute);
}

TEST(ReadCommitText, ReadsTheTextOfAnEmptyCommit) {
  const auto fields = ReadCommitText("tree \nauthor  <> 0 +0000\ncommitter  <> 0 +0000\n\n\n");
  ASSERT_TRUE(fields);
  EXPECT_EQ(fields->treeId, "");
  EXPECT_EQ(fields->parentId, "");
  EXPECT_EQ(fields->authorName, "");
  EXPECT_EQ(fields->authorEmail, "");
  EXPECT_EQ(fields->description, "");
}

TEST(ReadCommitText, KeepsTheWholeDescription) {
  EXPECT_EQ(Split(Text(kInfo, "a\nb\n\nparent c\n")), "Ada|ada@example.com|a\nb\n\nparent c\n");
}

TEST(ReadCommitText, SplitsTheNameAtTheFirstBracketAndTheTimeAtTheLast) {
  EXPECT_EQ(Split(Text("a <b <c> d> 0 +0000", "x")), "a|b <c> d|x");
  EXPECT_EQ(Split(Text("<<>> <> > 0 +0000", "x")), "<<>>|> |x");
}

TEST(ReadCommitText, ReadsLineBreaksInNamesAndEmails) {
  EXPECT_EQ(Split(Text("a\nb <c\n\nd> 0 +0000", "x")), "a\nb|c\n\nd|x");
  EXPECT_EQ(Split(Text("a\ncommitter b <c> 0 +0000", "x")), "a\ncommitter b|c|x");
  EXPECT_EQ(Split(Text("parent \nauthor  <> 1 +0000\ncommitter  <> 0 +0000", "x")),
            "parent \nauthor |> 1 +0000\ncommitter  <|x");
}

TEST(ReadCommitText, TakesTheShortestInfoThatBothLinesShare) {
  const std::string inner = "a <b> 0 +0000";
  const std::string name = inner + "\ncommitter " + inner + "\n\nc";
  const std::string text = Text(name + " <d> 0 +0000", "x");
  EXPECT_EQ(Split(text), "a|b|c <d> 0 +0000\ncommitter " + name + " <d> 0 +0000\n\nx");
}

TEST(ReadCommitText, RefusesLinesThatDiffer) {
  const std::string text =
      "tree " + kTree + "\nauthor a <b> 0 +0000\ncommitter a <c> 0 +0000\n\n\n";
  EXPECT_EQ(Split(text), "!");
}

TEST(ReadCommitText, ReadsSecondsOf32Bits) {
  EXPECT_EQ(ReadCommitText(Text("a <b> -2147483648 +0000", ""))->time.ToTimeT(), -2147483648LL);
  EXPECT_EQ(ReadCommitText(Text("a <b> 2147483647 +0000", ""))->time.ToTimeT(), 2147483647);
  for (const char* seconds :
       {"2147483648", "-2147483649", "00", "-0", "+1", "01", "", "1x", " 1"}) {
    EXPECT_EQ(Split(Text("a <b> "s + seconds + " +0000", "")), "!") << seconds;
  }
}

TEST(ReadCommitText, ReadsZones) {
  EXPECT_EQ(ReadCommitText(Text("a <b> 0 +0030", ""))->bias.ticks, 30 * kMinute);
  EXPECT_EQ(ReadCommitText(Text("a <b> 0 -0130", ""))->bias.ticks, -90 * kMinute);
  EXPECT_EQ(ReadCommitText(Text("a <b> 0 +10000", ""))->bias.ticks, 6000 * kMinute);
  EXPECT_EQ(ReadCommitText(Text("a <b> 0 -25620477848", ""))->bias.ticks,
            -15'372'286'728 * kMinute);
  for (const char* zone : {"0000", "+000", "+0", "", "-0000", "-0030", "+0060", "+00000", "+ 000",
                           "+00-1", "+0000 ", "+25620477849", "+99999999900"}) {
    EXPECT_EQ(Split(Text("a <b> 0 "s + zone, "")), "!") << zone;
  }
}

TEST(ReadCommitText, RefusesOtherIds) {
  for (const std::string& id : {std::string("a"), std::string(63, 'a'), std::string(65, 'a'),
                                std::string(64, 'A'), std::string(64, 'g')}) {
    EXPECT_EQ(Split("tree " + id + "\nauthor " + kInfo + "\ncommitter " + kInfo + "\n\n\n"), "!");
    EXPECT_EQ(
        Split("tree \nparent " + id + "\nauthor " + kInfo + "\ncommitter " + kInfo + "\n\n\n"),
        "!");
  }
  EXPECT_EQ(Split("tree \nparent \nauthor " + kInfo + "\ncommitter " + kInfo + "\n\n\n"), "!");
}

TEST(ReadCommitText, RefusesTextsThatEncodeToOtherBytes) {
  EXPECT_EQ(Split(Text("\xFF <b> 0 +0000", "")), "!");
  EXPECT_EQ(Split(Text(kInfo, "a\0b"s)), "!");
  EXPECT_EQ(Split(Text(kInfo, "\xED\xA0\x80\xED\xB0\x80")), "!");
  EXPECT_EQ(Split(Text(kInfo, "\xED\xA0\x80")), "Ada|ada@example.com|\xED\xA0\x80");
}

TEST(ReadCommitText, RefusesEveryPrefixBeforeTheDescription) {
  const std::string text = Text(kInfo, "");
  for (std::size_t size = 0; size < text.size(); ++size) {
    EXPECT_EQ(Split(std::string_view(text).substr(0, size)), "!") << size;
  }
  EXPECT_EQ(Split(text + "a"), "!");
  EXPECT_EQ(Split(text + "a\n"), "Ada|ada@example.com|\na");
}

// Name, e-mail and description are put together from the pieces that the reader looks for.
TEST(ReadCommitText, AcceptsWhateverACommitWrites) {
  const std::vector<std::string> pieces = {"",
                                           "a",
                                           " ",
                                           "\n",
                                           "<",
                                           ">",
                                           " <",
                                           "> ",
                                           "\ncommitter ",
                                           "\n\n",
                                           "> 0 +0000",
                                           "> 0 +0000\ncommitter ",
                                           " <> 0 +0000\ncommitter  <> 0 +0000\n\n",
                                           "\xED\xA0\x80"};
  const std::size_t count = pieces.size();
  for (std::size_t number = 0; number < count * count * count * count; ++number) {
    const std::string name = pieces[number % count] + pieces[number / count % count];
    const std::string email = pieces[number / count / count % count];
    const std::string description = pieces[number / count / count / count] + pieces[number % count];
    Commit commit;
    commit.SetAuthorName(Decoded(name));
    commit.SetAuthorEmail(Decoded(email));
    commit.SetDescription(Decoded(description));
    const std::string text = Bytes(commit.GetData());
    const auto fields = ReadCommitText(text);
    ASSERT_TRUE(fields) << text;
    ASSERT_EQ(Rewritten(*fields), text);
  }
}

// With a comparison for each "committer " this takes some minutes.
TEST(ReadCommitText, TakesLinearTimeForManyPlacesThatProveWrong) {
  const std::string period = " <> 0 +0000\ncommitter ";
  std::string info;
  for (int count = 0; count < 200'000; ++count) info += period;
  std::string text = "tree \nauthor " + info;
  text[text.size() / 8] ^= 1;
  for (int count = 0; count < 200'000; ++count) text += " <> 0 +0000\n\n\n\n\n\n\n\n\n\n\n\n";
  EXPECT_EQ(Split(text), "!");
}

}  // namespace
}  // namespace TalVcs::Testing
