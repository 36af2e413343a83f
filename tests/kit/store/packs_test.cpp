#include <gtest/gtest.h>
#include <kit/internal/checksum.h>
#include <kit/internal/pack_index.h>
#include <kit/internal/pack_record.h>
#include <tests/support/bytes.h>
#include <tests/support/digits.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {
namespace {

using Testing::BytesFromDigits;

/// A file that has the bytes of a text.
class TextFile final : public OpenedFile {
 public:
  explicit TextFile(std::string text) : m_text(std::move(text)) {}

  std::error_code ReadAt(std::uint64_t position, char* target, std::size_t size,
                         std::size_t& count) override {
    ++m_reads;
    count = position < m_text.size() ? m_text.copy(target, size, position) : 0;
    return {};
  }
  std::error_code GetSize(std::uint64_t& size) override {
    size = m_text.size();
    return {};
  }
  int Reads() const { return m_reads; }

 private:
  std::string m_text;
  int m_reads = 0;
};

// CRC-32 of Python's zlib.
TEST(Checksum, IsThatOfZip) {
  EXPECT_EQ(ChecksumOf(""), 0U);
  EXPECT_EQ(ChecksumOf("123456789"), 0xCBF43926U);
  std::string bytes;
  for (int index = 0; index < 768; ++index) bytes.push_back(static_cast<char>(index));
  EXPECT_EQ(ChecksumOf(bytes), 0xB0C0DF2AU);
}

TEST(Checksum, IsTheSameInPieces) {
  EXPECT_EQ(ChecksumOf("6789", ChecksumOf("12345")), 0xCBF43926U);
  EXPECT_EQ(ChecksumOf("", 0xCBF43926U), 0xCBF43926U);
}

/// Three records in a pack, each of which is named by the digit that its id is made of.
class PackScan : public testing::Test {
 protected:
  PackScan() : m_pack(kPackTitle) {
    Add('1', std::string("\0\3one", 5));
    Add('2', std::string("\0\5OO\0OO", 7));
    Add('3', std::string("\0\5three", 7));
  }
  void Add(char digit, const std::string& encoded) {
    m_ends.push_back(m_pack.size());
    AppendPackRecord(m_pack, *KeyFromHex(std::string(64, digit)), encoded);
  }

  /// Returns the digits of the records, those of damaged ones in brackets, and "~" for a gap.
  static std::string Scan(const std::string& pack, std::uint64_t kept) {
    TextFile file(pack);
    PackScanner scanner(file, kPackTitle.size(), pack.size(), kept);
    std::string found;
    while (const std::optional<ScannedRecord> record = scanner.Next()) {
      const std::string digit = HexFromKey(record->key).substr(0, 1);
      found += record->isWhole ? digit : "[" + digit + "]";
    }
    return found + (scanner.HasSkipped() ? "~" : "");
  }

  std::string m_pack;
  std::vector<std::size_t> m_ends;  // where each record begins
};

// Made with Python's zlib.crc32.
TEST_F(PackScan, RecordHasTheBytesOfTheFormat) {
  EXPECT_EQ(m_pack.substr(0, m_ends[1]),
            "TalVcs pack 1\n" +
                BytesFromDigits("4f050000" + std::string(64, '1') + "00036f6e6592669722"));
}

TEST_F(PackScan, FindsAllRecords) {
  EXPECT_EQ(Scan(m_pack, 0), "123");
  EXPECT_EQ(Scan(m_pack, m_pack.size()), "123");
}

TEST_F(PackScan, EndsAtARecordThatIsNotWhole) {
  for (std::size_t size = m_ends[2]; size < m_pack.size(); ++size) {
    EXPECT_EQ(Scan(m_pack.substr(0, size), m_ends[2]), "12") << size;
    const std::string zeros(m_pack.size() - size, '\0');
    EXPECT_EQ(Scan(m_pack.substr(0, size) + zeros, m_ends[2]), "12") << size;
  }
}

TEST_F(PackScan, SkipsDamageBelowWhatIsKept) {
  for (std::size_t at = m_ends[1]; at < m_ends[2]; ++at) {
    std::string damaged = m_pack;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x41);
    const std::string found = Scan(damaged, m_pack.size());
    const bool in_id = at >= m_ends[1] + 4 && at < m_ends[1] + 36;
    EXPECT_TRUE(found == "1[2]3" || found == "13~" || (in_id && found.size() == 5)) << at << found;
  }
}

TEST_F(PackScan, DamageAtTheEndOfWhatIsKeptHidesNothingBeyond) {
  const std::size_t kept = m_pack.size();
  Add('4', std::string("\0\4four", 6));
  m_pack[m_ends[2]] = 'x';
  EXPECT_EQ(Scan(m_pack, kept), "124~");
  EXPECT_EQ(Scan(m_pack, m_ends[2]), "12");
}

TEST_F(PackScan, ForgedRecordsEndTheSearch) {
  // Each of these bytes looks like the mark of a record of 5 MB, the sum of which takes long.
  std::string forged(m_pack);
  forged += std::string(std::size_t{20} << 20, 'O');
  EXPECT_EQ(Scan(forged, forged.size()), "123~");
}

/// Returns the entries with a prefix, by `Find`.
std::vector<std::uint64_t> PlacesOf(PackIndex& index, std::uint64_t prefix) {
  std::vector<std::uint64_t> places;
  EXPECT_TRUE(index.Find(prefix, places));
  return places;
}

/// Six hundred objects in three packs.
std::vector<PackIndexEntry> ManyEntries() {
  std::vector<PackIndexEntry> entries;
  for (std::uint64_t number = 0; number < 600; ++number) {
    const auto pack = static_cast<std::uint32_t>(1 + number / 200);
    entries.push_back({number * 0x001234567890ABC1U, NumberFromPlace({pack, 14 + 52 * number})});
  }
  return entries;
}

const PackIndexRange kRangeOfMany{{0, 0}, {3, 31214}, 0xAABBCCDDU};

// Made with Python's zlib.crc32 and hashlib.
TEST(PackIndex, HasTheBytesOfTheFormat) {
  const std::string two =
      MakePackIndex({{0, 0}, {1, 118}, 0x226E8F69U},
                    std::vector<PackIndexEntry>{{0x437613F2000D1488U, NumberFromPlace({1, 14})},
                                                {0x9D500193ED108F2FU, NumberFromPlace({1, 66})}});
  ASSERT_EQ(two.size(), 8192U);
  EXPECT_EQ(two.substr(0, 48),
            "TalVcs pack index 1\n" + BytesFromDigits("00000000000000007600000000010000698f6e22"
                                                      "0200000000000000"));
  EXPECT_EQ(two.substr(4092, 4), BytesFromDigits("722ad664"));
  EXPECT_EQ(two.substr(4096, 32), BytesFromDigits("88140d00f21376430e00000000010000"
                                                  "2f8f10ed9301509d4200000000010000"));
  EXPECT_EQ(two.substr(8188), BytesFromDigits("9b1e37b0"));
  const std::string many = MakePackIndex(kRangeOfMany, ManyEntries());
  EXPECT_EQ(many.size(), 20480U);
  EXPECT_EQ(HexFromKey(*KeyOf(Id(Testing::BufferOf(many)))),
            "fa6ff1181cfd206ce0ac5f8f954af5759a7d8276386159cd8ef538238bfe339b");
}

TEST(PackIndex, FindsEachEntryAndNoOther) {
  const std::vector<PackIndexEntry> entries = ManyEntries();
  auto index = PackIndex::Open(std::make_unique<TextFile>(MakePackIndex(kRangeOfMany, entries)));
  ASSERT_NE(index, nullptr);
  EXPECT_EQ(index->GetCount(), 600U);
  EXPECT_EQ(index->GetRange().to, kRangeOfMany.to);
  for (const PackIndexEntry& entry : entries) {
    EXPECT_EQ(PlacesOf(*index, entry.prefix), std::vector<std::uint64_t>{entry.place});
    EXPECT_EQ(PlacesOf(*index, entry.prefix + 1), std::vector<std::uint64_t>());
  }
  std::vector<PackIndexEntry> all;
  ASSERT_TRUE(index->ReadAll(all));
  EXPECT_EQ(all, entries);
}

TEST(PackIndex, FindsAllEntriesOfOnePrefix) {
  std::vector<PackIndexEntry> entries;
  for (std::uint64_t place = 0; place < 1000; ++place) entries.push_back({7, place});
  entries.push_back({8, 5});
  auto index = PackIndex::Open(std::make_unique<TextFile>(MakePackIndex({}, entries)));
  ASSERT_NE(index, nullptr);
  EXPECT_EQ(PlacesOf(*index, 7).size(), 1000U);
  EXPECT_EQ(PlacesOf(*index, 8), std::vector<std::uint64_t>{5});
  EXPECT_EQ(PlacesOf(*index, 6), std::vector<std::uint64_t>());
}

class LongPackIndex : public testing::Test {
 protected:
  // More leaves of 255 entries than stay in memory.
  static constexpr std::uint64_t kEntries = 300 * 255;

  LongPackIndex() {
    std::vector<PackIndexEntry> entries;
    for (std::uint64_t number = 0; number < kEntries; ++number) {
      entries.push_back({number << 40, number});
    }
    auto file = std::make_unique<TextFile>(MakePackIndex({}, entries));
    m_file = file.get();
    m_index = PackIndex::Open(std::move(file));
  }

  /// Looks up an entry and returns the number of reads that took.
  int Find(std::uint64_t number) {
    const int before = m_file->Reads();
    EXPECT_EQ(PlacesOf(*m_index, number << 40), std::vector<std::uint64_t>{number});
    return m_file->Reads() - before;
  }

  const TextFile* m_file = nullptr;
  std::unique_ptr<PackIndex> m_index;
};

TEST_F(LongPackIndex, LookUpIsOneReadOnceTheTopIsKnown) {
  EXPECT_EQ(m_file->Reads(), 1);
  EXPECT_LE(Find(5), 3);
  EXPECT_EQ(Find(1000), 1);
}

TEST_F(LongPackIndex, LookUpInAPageThatWasReadIsNoRead) {
  Find(1000);
  EXPECT_EQ(Find(1000), 0);
  m_index->Trim();
  EXPECT_EQ(Find(1000), 1);
}

TEST_F(LongPackIndex, PagesInMemoryAreBounded) {
  Find(0);
  for (std::uint64_t number = 300; number < kEntries; number += 255) Find(number);
  EXPECT_EQ(Find(0), 1);
}

TEST(PackIndex, DamageIsFound) {
  const std::vector<PackIndexEntry> entries = ManyEntries();
  const std::string bytes = MakePackIndex(kRangeOfMany, entries);
  for (std::size_t at = 0; at < bytes.size(); at += 7) {
    std::string damaged = bytes;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
    const auto index = PackIndex::Open(std::make_unique<TextFile>(damaged));
    EXPECT_EQ(index == nullptr, at < PackIndex::kPageSize) << at;
    bool found = index == nullptr;
    for (std::size_t entry = 0; entry < entries.size() && !found; entry += 20) {
      std::vector<std::uint64_t> places;
      found = !index->Find(entries[entry].prefix, places);
    }
    EXPECT_TRUE(found) << at;
  }
}

TEST(PackIndex, FileThatIsCutIsNone) {
  const std::string bytes = MakePackIndex(kRangeOfMany, ManyEntries());
  for (std::size_t size = 0; size < bytes.size(); size += 61) {
    EXPECT_EQ(PackIndex::Open(std::make_unique<TextFile>(bytes.substr(0, size))), nullptr) << size;
  }
  EXPECT_EQ(PackIndex::Open(std::make_unique<TextFile>(bytes + "x")), nullptr);
}

}  // namespace
}  // namespace TalVcs::Kit
