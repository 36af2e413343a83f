// Texts that hosts show, store and read: characters, escapes, base 64, JSON, times, sizes.

#include <gtest/gtest.h>
#include <kit/text/base64.h>
#include <kit/text/escape.h>
#include <kit/text/json_writer.h>
#include <kit/text/sizes.h>
#include <kit/text/times.h>
#include <kit/text/utf8.h>

#include <sstream>
#include <vector>

namespace TalVcs::Kit {
namespace {

using std::chrono::minutes;
using std::chrono::sys_seconds;

sys_seconds At(std::int64_t seconds) { return sys_seconds(std::chrono::seconds(seconds)); }

/// Returns "code/size", with "!" for what is not valid, for the character at an offset.
std::string Decoded(std::string_view text, std::size_t at = 0) {
  const Utf8Character character = DecodeUtf8(text, at);
  std::ostringstream out;
  out << std::hex << character.code << '/' << character.sizeBytes << (character.isValid ? "" : "!");
  return out.str();
}

TEST(DecodeUtf8, ReadsCharactersOfEachSize) {
  EXPECT_EQ(Decoded("a"), "61/1");
  EXPECT_EQ(Decoded(std::string_view("\0", 1)), "0/1");
  EXPECT_EQ(Decoded("\x7F"), "7f/1");
  EXPECT_EQ(Decoded("\xC2\x80"), "80/2");
  EXPECT_EQ(Decoded("\xDF\xBF"), "7ff/2");
  EXPECT_EQ(Decoded("\xE0\xA0\x80"), "800/3");
  EXPECT_EQ(Decoded("\xEF\xBF\xBF"), "ffff/3");
  EXPECT_EQ(Decoded("\xF0\x90\x80\x80"), "10000/4");
  EXPECT_EQ(Decoded("\xF4\x8F\xBF\xBF"), "10ffff/4");
  EXPECT_EQ(Decoded("xy\xC3\xA4", 2), "e4/2");
}

TEST(DecodeUtf8, ReturnsOneByteOfWhatIsNotUtf8) {
  EXPECT_EQ(Decoded("\x80"), "80/1!");
  EXPECT_EQ(Decoded("\xC1\xBF"), "c1/1!");
  EXPECT_EQ(Decoded("\xC2"), "c2/1!");
  EXPECT_EQ(Decoded("\xC2 "), "c2/1!");
  EXPECT_EQ(Decoded("\xE0\x9F\xBF"), "e0/1!");
  EXPECT_EQ(Decoded("\xE2\x82"), "e2/1!");
  EXPECT_EQ(Decoded("\xE2\x82 "), "e2/1!");
  EXPECT_EQ(Decoded("\xF0\x8F\xBF\xBF"), "f0/1!");
  EXPECT_EQ(Decoded("\xF4\x90\x80\x80"), "f4/1!");
  EXPECT_EQ(Decoded("\xF5\x80\x80\x80"), "f5/1!");
}

TEST(DecodeUtf8, ReadsALoneSurrogateAsOneInvalidCharacter) {
  EXPECT_EQ(Decoded("\xED\x9F\xBF"), "d7ff/3");
  EXPECT_EQ(Decoded("\xED\xA0\x80"), "d800/3!");
  EXPECT_EQ(Decoded("\xED\xBF\xBF"), "dfff/3!");
  EXPECT_EQ(Decoded("\xEE\x80\x80"), "e000/3");
}

TEST(CutText, CutsBetweenCharactersAndMarksIt) {
  EXPECT_EQ(CutText("", 1), "");
  EXPECT_EQ(CutText("abc", 3), "abc");
  EXPECT_EQ(CutText("abcd", 3), "ab\xE2\x80\xA6");
  EXPECT_EQ(CutText("\xC3\xA4\xC3\xB6\xC3\xBC", 2), "\xC3\xA4\xE2\x80\xA6");
  EXPECT_EQ(CutText("ab", 1), "\xE2\x80\xA6");
  EXPECT_EQ(CutText("\xFF\xFF\xFF", 2), "\xFF\xE2\x80\xA6");
}

TEST(ReplaceCharacters, ReplacesTheListedOnesAlone) {
  EXPECT_EQ(ReplaceCharacters("a<b>&", {{'<', "&lt;"}, {'&', "&amp;"}}), "a&lt;b>&amp;");
  EXPECT_EQ(ReplaceCharacters("aXbX", {{'X', ""}, {'X', "no"}}), "ab");
  EXPECT_EQ(ReplaceCharacters("", {{'a', "b"}}), "");
}

TEST(EscapeLine, MakesOneLineThatIsReadBack) {
  EXPECT_EQ(EscapeLine("a\nb\\c"), "a\\nb\\\\c");
  for (const std::string text : {"", "plain", "\n", "\\", "\\n", "a\\\n\\\\nb\n", "t\tab"}) {
    EXPECT_EQ(EscapeLine(text).find('\n'), std::string::npos);
    EXPECT_EQ(UnescapeLine(EscapeLine(text)), text);
  }
}

TEST(UnescapeLine, ReadsWhatNoEscapeHasWritten) {
  EXPECT_EQ(UnescapeLine("a\\b"), "ab");
  EXPECT_EQ(UnescapeLine("a\\"), "a\\");
}

TEST(EncodeBase64, PadsTheLastThreeBytes) {
  EXPECT_EQ(EncodeBase64(""), "");
  EXPECT_EQ(EncodeBase64("f"), "Zg==");
  EXPECT_EQ(EncodeBase64("fo"), "Zm8=");
  EXPECT_EQ(EncodeBase64("foo"), "Zm9v");
  EXPECT_EQ(EncodeBase64("foob"), "Zm9vYg==");
  EXPECT_EQ(EncodeBase64(std::string_view("\0\xFF\xFE\x10\x83", 5)), "AP/+EIM=");
  EXPECT_EQ(EncodeBase64("\xFA\xFB\xFC\xFD\xFE\xFF"), "+vv8/f7/");
}

TEST(JsonWriter, IndentsObjectsAndArrays) {
  std::ostringstream out;
  {
    JsonWriter json(out);
    json.BeginObject();
    json.Key("name").Text("house");
    json.Key("none").TextOrNull("");
    json.Key("some").TextOrNull("x");
    json.Key("sizes").BeginArray();
    json.Number(-3);
    json.Bool(true);
    json.Bool(false);
    json.BeginObject();
    json.EndObject();
    json.EndArray();
    json.Key("empty").BeginArray();
    json.EndArray();
    json.EndObject();
  }
  EXPECT_EQ(out.str(), R"({
  "name": "house",
  "none": null,
  "some": "x",
  "sizes": [
    -3,
    true,
    false,
    {}
  ],
  "empty": []
}
)");
}

TEST(JsonWriter, EscapesWhatAJsonStringCannotContain) {
  std::ostringstream out;
  JsonWriter(out).Text("\"\\/\n\x1F\x7F\xC3\xA4\xED\xA0\x80\xFF");
  EXPECT_EQ(out.str(), "\"\\\"\\\\/\\u000a\\u001f\\u007f\xC3\xA4\\ud800\\ufffd\"\n");
}

TEST(JsonWriter, WritesAPlainValueAndNumbersOf64Bits) {
  std::ostringstream out;
  JsonWriter(out).Number(INT64_MIN);
  EXPECT_EQ(out.str(), "-9223372036854775808\n");
}

TEST(FormatTime, ShowsTheTimeInItsZone) {
  EXPECT_EQ(FormatTime(At(1717171500), minutes(120)), "2024-05-31 18:05:00 +0200");
  EXPECT_EQ(FormatTime(At(1717171500), minutes(-330)), "2024-05-31 10:35:00 -0530");
  EXPECT_EQ(FormatTime(At(0), minutes(0)), "1970-01-01 00:00:00 +0000");
  EXPECT_EQ(FormatTime(At(-1), minutes(0)), "1969-12-31 23:59:59 +0000");
  EXPECT_EQ(FormatTime(At(951782399), minutes(0)), "2000-02-28 23:59:59 +0000");
  EXPECT_EQ(FormatTime(At(4102444799), minutes(840)), "2100-01-01 13:59:59 +1400");
  EXPECT_EQ(FormatTime(At(1000000000), minutes(-30)), "2001-09-09 01:16:40 -0030");
}

TEST(FormatAge, TakesTheLargestUnit) {
  const auto age = [](std::int64_t seconds) {
    return FormatAge(At(5000000000 - seconds), At(5000000000));
  };
  EXPECT_EQ(age(-1), "in the future");
  EXPECT_EQ(age(0), "now");
  EXPECT_EQ(age(1), "1 second ago");
  EXPECT_EQ(age(59), "59 seconds ago");
  EXPECT_EQ(age(60), "1 minute ago");
  EXPECT_EQ(age(3599), "59 minutes ago");
  EXPECT_EQ(age(7200), "2 hours ago");
  EXPECT_EQ(age(86400), "1 day ago");
  EXPECT_EQ(age(7 * 86400), "1 week ago");
  EXPECT_EQ(age(30 * 86400), "1 month ago");
  EXPECT_EQ(age(365 * 86400), "1 year ago");
  EXPECT_EQ(age(800 * 86400), "2 years ago");
}

TEST(ParseTime, ReadsSecondsAndDates) {
  const std::vector<std::pair<std::string, std::int64_t>> times = {
      {"0", 0},
      {"2024", 2024},
      {" 1717171500\n", 1717171500},
      {"2024-05-31", 1717113600},
      {"2024-05-31 18:05", 1717178700},
      {"2024-05-31T18:05:00+02:00", 1717171500},
      {"2024-05-31 18:05:00 +0200", 1717171500},
      {"2024-05-31T16:05:00Z", 1717171500},
      {"2024-05-31T18:05:07-05:30", 1717198507},
      {"2024-05-31T18:05:00.123456+02", 1717171500},
      {"2024-02-30", 1709251200},
      {"9999-12-31 23:59:59", 253402300799},
      {"1999-12-31 23:59:59", 946684799}};
  for (const auto& [text, seconds] : times) EXPECT_EQ(ParseTime(text), At(seconds)) << text;
}

TEST(ParseTime, ReturnsNothingForOtherText) {
  for (const std::string text : {"",
                                 "-1",
                                 "now",
                                 "2024-5-31",
                                 "2024-13-01",
                                 "2024-00-10",
                                 "2024-01-00",
                                 "2024-01-32",
                                 "1969-12-31",
                                 "2024-05-31 24:00",
                                 "2024-05-31 18",
                                 "2024-05-31 18:60",
                                 "2024-05-31 18:05:61",
                                 "2024-05-31 18:05 CET",
                                 "2024-05-31 18:05+24:00",
                                 "2024-05-31 18:05+02:60",
                                 "2024-05-31 18:05+02:00x",
                                 "2024-05-31Z0",
                                 "1970-01-01 00:00+01:00",
                                 "12 34",
                                 "99999999999999999999"}) {
    EXPECT_EQ(ParseTime(text), std::nullopt) << text;
  }
}

TEST(ParseAge, ReadsWhatFormatAgeWrites) {
  const sys_seconds now = At(5000000000);
  for (const std::int64_t age : {0, 1, 120, 3600, 7200, 86400, 1209600, 2592000, 63072000}) {
    const sys_seconds time = now - std::chrono::seconds(age);
    EXPECT_EQ(ParseAge(FormatAge(time, now), now), time) << age;
  }
  EXPECT_EQ(ParseAge(" yesterday\n", now), At(5000000000 - 86400));
  EXPECT_EQ(ParseAge("0 days ago", now), now);
  EXPECT_EQ(ParseAge("1 weeks ago", now), At(5000000000 - 604800));
  EXPECT_EQ(ParseAge("1000000 seconds ago", now), At(4999000000));
}

TEST(ParseAge, ReturnsNothingForOtherText) {
  for (const std::string text :
       {"", "ago", "2 weeks", "2weeks ago", "2 fortnights ago", "-2 days ago",
        "1000001 seconds ago", "days ago", "2 days ago x"}) {
    EXPECT_EQ(ParseAge(text, At(5000000000)), std::nullopt) << text;
  }
}

TEST(FormatSize, RoundsToOneDigitInTheLargestUnit) {
  const std::vector<std::pair<std::uint64_t, std::string>> sizes = {{0, "0 B"},
                                                                    {1023, "1023 B"},
                                                                    {1024, "1.0 KiB"},
                                                                    {1126, "1.1 KiB"},
                                                                    {1280, "1.2 KiB"},
                                                                    {1331, "1.3 KiB"},
                                                                    {1408, "1.4 KiB"},
                                                                    {12595, "12.3 KiB"},
                                                                    {1048575, "1024.0 KiB"},
                                                                    {1048576, "1.0 MiB"},
                                                                    {1073741824, "1.0 GiB"},
                                                                    {5368709120, "5.0 GiB"},
                                                                    {1099511627776, "1.0 TiB"},
                                                                    {UINT64_MAX, "16777216.0 TiB"}};
  for (const auto& [size, text] : sizes) EXPECT_EQ(FormatSize(size), text);
}

TEST(ParseSize, ReadsUnitsAsPowersOf1024) {
  const std::vector<std::pair<std::string, std::uint64_t>> sizes = {
      {"0", 0},           {"1000", 1000},
      {"1000B", 1000},    {"1K", 1024},
      {"50MB", 52428800}, {"2GiB", 2147483648},
      {"1T", 1ULL << 40}, {"18446744073709551615", UINT64_MAX}};
  for (const auto& [text, size] : sizes) EXPECT_EQ(ParseSize(text), size) << text;
}

TEST(ParseSize, ReturnsNothingForOtherText) {
  for (const std::string text : {"", "MB", "-1", "1.5MB", "1 MB", "1X", "1MX", "1iB", "1mb",
                                 "18446744073709551616", "16777216T"}) {
    EXPECT_EQ(ParseSize(text), std::nullopt) << text;
  }
  EXPECT_EQ(ParseSize("16777215T"), 16777215ULL << 40);
}

}  // namespace
}  // namespace TalVcs::Kit
