#include <gtest/gtest.h>
#include <kit/internal/journal.h>
#include <tests/support/text.h>

#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {
namespace {

using Testing::Hex;
using Testing::Wide;

const std::string kHeader = "TalVcs store 2\nrequires packs\n";
const std::string kHeaderWithoutPacks = "TalVcs store 2\nrequires\n";

Id IdOfDigit(char digit) { return Id(Wide(std::string(64, digit))); }

/// Shows a state in one line.
std::string Show(const JournalState& state) {
  std::string shown = std::to_string(state.removals);
  for (const auto& [name, id] : state.heads) {
    shown += " " + name + "=" + Testing::Ascii(id).substr(0, 2);
  }
  for (const auto& [name, value] : state.values) shown += " " + name + ":" + value;
  return shown;
}

/// A journal of a checkpoint and two records, and the state after each of the three.
class JournalTest : public testing::Test {
 protected:
  JournalTest() {
    JournalState state;
    state.heads["master"] = IdOfDigit('a');
    state.values["current"] = "master";
    Add(Journal::Write(state));
    JournalChanges moves;
    moves.Move({{HeadMove{"master", IdOfDigit('a'), IdOfDigit('b')},
                 HeadMove{"topic", Id(), IdOfDigit('c')}}});
    Add(m_journal.MakeRecord(moves));
    JournalChanges last;
    last.Move({{HeadMove{"topic", IdOfDigit('c'), Id()}}});
    last.SetRemovals(7);
    last.RemoveValue("current");
    last.SetValue("note", "text");
    Add(m_journal.MakeRecord(last));
  }

  /// Returns the state of these bytes, "damaged" or "unsupported".
  static std::string Read(std::string_view bytes) {
    Journal journal;
    const JournalProblem problem = journal.Read(bytes);
    if (problem == JournalProblem::None) return Show(journal.GetState());
    return problem == JournalProblem::Damaged ? "damaged" : "unsupported";
  }

  std::string m_bytes;
  std::vector<std::size_t> m_ends;    // of the records
  std::vector<std::string> m_states;  // after them
  Journal m_journal;

 private:
  void Add(const std::string& bytes) {
    m_bytes += bytes;
    m_ends.push_back(m_bytes.size());
    ASSERT_EQ(m_journal.Read(m_bytes), JournalProblem::None);
    m_states.push_back(Show(m_journal.GetState()));
  }
};

TEST_F(JournalTest, RecordsChangeTheState) {
  EXPECT_EQ(m_states, (std::vector<std::string>{"0 master=aa current:master",
                                                "0 master=bb topic=cc current:master",
                                                "7 master=bb note:text"}));
  EXPECT_EQ(m_journal.GetSize(), m_bytes.size());
  EXPECT_FALSE(m_journal.HasTornTail());
  EXPECT_EQ(m_journal.GetEnd(), m_bytes.substr(m_bytes.size() - 32));
}

// The digests are from another implementation of SHA-256.
TEST_F(JournalTest, BytesAreThoseOfTheFormat) {
  JournalState state;
  state.heads["m"] = IdOfDigit('a');
  state.values["k"] = "xy";
  state.removals = 258;
  const std::string journal = Journal::Write(state);
  ASSERT_EQ(journal.substr(0, kHeader.size()), kHeader);
  EXPECT_EQ(Hex(journal.substr(kHeader.size())),
            "0A 52 45 43 3B 00 00 00 00 00 00 00 00 00 00 00 "
            "72 02 01 00 00 00 00 00 00 "
            "68 01 00 00 00 6D "
            "AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA "
            "AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA "
            "76 01 00 00 00 6B 02 00 00 00 78 79 "
            "5F B9 54 7E 63 5F E6 65 E1 13 6E 3D F5 90 F9 D2 "
            "1B 8B 78 33 A6 D7 2A AB E3 1B 7B 84 9D 9B 31 78");
  Journal read;
  ASSERT_EQ(read.Read(journal), JournalProblem::None);
  JournalChanges changes;
  changes.Move({{HeadMove{"m", IdOfDigit('a'), Id()}}});
  changes.RemoveValue("k");
  EXPECT_EQ(Hex(read.MakeRecord(changes)),
            "0A 52 45 43 0C 00 00 00 5F B9 54 7E 63 5F E6 65 "
            "64 01 00 00 00 6D 78 01 00 00 00 6B "
            "79 7A D2 D0 A0 D1 10 27 A0 8E 4B BF 38 54 E9 D9 "
            "2B DF 90 DD 28 72 9D E6 33 8C C5 76 F0 72 90 21");
}

// The digest is from another implementation of SHA-256.
TEST_F(JournalTest, PacksAndRemovedFilesHaveTheBytesOfTheFormat) {
  JournalState state;
  state.packs[3] = 0x12345;
  state.removedFiles.insert(*KeyOf(IdOfDigit('b')));
  const std::string journal = Journal::Write(state);
  EXPECT_EQ(Hex(journal.substr(kHeader.size())),
            "0A 52 45 43 37 00 00 00 00 00 00 00 00 00 00 00 "
            "72 00 00 00 00 00 00 00 00 "
            "70 03 00 00 00 45 23 01 00 00 00 00 00 "
            "74 "
            "BB BB BB BB BB BB BB BB BB BB BB BB BB BB BB BB "
            "BB BB BB BB BB BB BB BB BB BB BB BB BB BB BB BB "
            "5E F5 EE CD F4 6F 60 FC 55 B5 8E A9 0B 3C 2B BE "
            "91 A4 23 86 1C 70 71 6D 21 CD 40 D9 1B 76 2C 87");
  Journal read;
  ASSERT_EQ(read.Read(journal), JournalProblem::None);
  EXPECT_EQ(read.GetState().packs, state.packs);
  EXPECT_EQ(read.GetState().removedFiles, state.removedFiles);
}

// A reader of the version before would take it for damage.
TEST_F(JournalTest, JournalWithoutPacksGetsNoRecordOfThem) {
  Journal journal;
  ASSERT_EQ(journal.Read(kHeaderWithoutPacks + m_bytes.substr(kHeader.size())),
            JournalProblem::None);
  EXPECT_EQ(Show(journal.GetState()), m_states[2]);
  JournalChanges changes;
  changes.SetValue("name", "value");
  EXPECT_FALSE(journal.MakeRecord(changes).empty());
  changes.SetPack(1, 14);
  EXPECT_TRUE(journal.MakeRecord(changes).empty());
  EXPECT_FALSE(m_journal.MakeRecord(changes).empty());
}

TEST_F(JournalTest, EveryPrefixIsAFormerStateOrDamage) {
  for (std::size_t size = 0; size < m_bytes.size(); ++size) {
    const std::string expected = size < m_ends[0]   ? "damaged"
                                 : size < m_ends[1] ? m_states[0]
                                                    : m_states[1];
    EXPECT_EQ(Read(std::string_view(m_bytes).substr(0, size)), expected) << size;
  }
}

TEST_F(JournalTest, PrefixWithARecordTornHasATornTail) {
  Journal journal;
  ASSERT_EQ(journal.Read(std::string_view(m_bytes).substr(0, m_ends[1] + 5)), JournalProblem::None);
  EXPECT_TRUE(journal.HasTornTail());
  EXPECT_EQ(journal.GetSize(), m_ends[1]);
  ASSERT_EQ(journal.ReadOn(std::string_view(m_bytes).substr(m_ends[1])), JournalProblem::None);
  EXPECT_FALSE(journal.HasTornTail());
  EXPECT_EQ(Show(journal.GetState()), m_states[2]);
}

TEST_F(JournalTest, EveryFlippedBitIsFoundOrLosesTheLastRecordAlone) {
  for (std::size_t position = 0; position < m_bytes.size(); ++position) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string bytes = m_bytes;
      bytes[position] = static_cast<char>(bytes[position] ^ 1 << bit);
      const std::string found = Read(bytes);
      if (position < kHeader.size()) {
        EXPECT_TRUE(found == "damaged" || found == "unsupported") << position << ": " << found;
      } else if (position < m_ends[1]) {
        EXPECT_EQ(found, "damaged") << position;
      } else {
        EXPECT_EQ(found, m_states[1]) << position;
      }
    }
  }
}

TEST_F(JournalTest, GarbageOrZerosBehindTheRecordsAreATornTail) {
  EXPECT_EQ(Read(m_bytes + std::string(500, '\0')), m_states[2]);
  EXPECT_EQ(Read(m_bytes + "\nREC garbage"), m_states[2]);
  EXPECT_EQ(Read(m_bytes + std::string("\nREC\0\0\0\0", 8) + std::string(100, 'x')), m_states[2]);
}

TEST_F(JournalTest, RecordThatIsLeftOutRepeatedOrMovedIsDamage) {
  const std::string first = m_bytes.substr(0, m_ends[0]);
  const std::string second = m_bytes.substr(m_ends[0], m_ends[1] - m_ends[0]);
  const std::string third = m_bytes.substr(m_ends[1]);
  EXPECT_EQ(Read(first + third), "damaged");
  EXPECT_EQ(Read(first + second + second), "damaged");
  EXPECT_EQ(Read(first + third + second), "damaged");
  EXPECT_EQ(Read(first + second + "x" + third), "damaged");
}

TEST_F(JournalTest, OtherVersionsAndFeaturesAreUnsupported) {
  const std::string records = m_bytes.substr(kHeader.size());
  EXPECT_EQ(Read("TalVcs store 3\nanything"), "unsupported");
  EXPECT_EQ(Read("TalVcs store 22\nrequires\n" + records), "unsupported");
  EXPECT_EQ(Read("TalVcs store 2\nrequires packs later\n" + records), "unsupported");
  EXPECT_EQ(Read("TalVcs store 2\nrequires later\n" + records), "unsupported");
  EXPECT_EQ(Read("TalVcs store 2\nrequest\n" + records), "damaged");
  EXPECT_EQ(Read("TalVcs store 1\n0 objects\n"), "damaged");
  EXPECT_EQ(Read(""), "damaged");
  EXPECT_EQ(Read(kHeader), "damaged");
}

TEST(JournalChanges, UnknownOrCutChangesAreRefused) {
  JournalState state;
  JournalChanges changes;
  changes.SetValue("name", "value");
  const std::string payload = changes.GetPayload();
  EXPECT_TRUE(Journal::Apply(payload, state));
  for (std::size_t size = 1; size < payload.size(); ++size) {
    EXPECT_FALSE(Journal::Apply(payload.substr(0, size), state)) << size;
  }
  EXPECT_FALSE(Journal::Apply("z", state));
  EXPECT_FALSE(Journal::Apply(std::string("h\xFF\xFF\xFF\xFF", 5), state));
}

TEST(Journal, OutgrowsItsCheckpointByThreeTimesItsSize) {
  std::string bytes = Journal::Write(JournalState());
  Journal journal;
  ASSERT_EQ(journal.Read(bytes), JournalProblem::None);
  while (!journal.HasOutgrownCheckpoint()) {
    ASSERT_LT(journal.GetSize(), 20000U);
    JournalChanges changes;
    changes.SetValue("name", std::string(500, 'x'));
    ASSERT_EQ(journal.ReadOn(journal.MakeRecord(changes)), JournalProblem::None);
  }
  EXPECT_GT(journal.GetSize(), 16384U);
  const std::string again = Journal::Write(journal.GetState());
  EXPECT_LT(again.size(), 1000U);
  ASSERT_EQ(journal.Read(again), JournalProblem::None);
  EXPECT_FALSE(journal.HasOutgrownCheckpoint());
}

}  // namespace
}  // namespace TalVcs::Kit
