// Salvages of files that were made to take much more than they have.

#include <gtest/gtest.h>
#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/temporary_folder.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#ifndef _WIN32
#include <sys/resource.h>
#include <sys/stat.h>
#endif

namespace TalVcs::Kit {
namespace {

using namespace Testing;

namespace fs = std::filesystem;

constexpr std::size_t kPageBytes = 65536;

/// Returns a number with the highest byte first.
std::string Number(std::uint64_t number, std::size_t size) {
  std::string bytes;
  for (std::size_t index = size; index-- > 0;) bytes += static_cast<char>(number >> (8 * index));
  return bytes;
}

/// Returns a number of 7 bits in each of `size` bytes.
std::string Sevens(std::uint64_t number, std::size_t size) {
  std::string bytes;
  for (std::size_t index = size; index-- > 0;) {
    bytes += static_cast<char>((number >> (7 * index) & 0x7F) | (index > 0 ? 0x80 : 0));
  }
  return bytes;
}

/// Returns the first page, which says how long pages are.
std::string FirstPage() {
  std::string page("SQLite format 3\0", 16);
  page += Number(1, 2);
  page.resize(kPageBytes, '\0');
  return page;
}

/// Returns a page of that kind, with records at these places.
std::string PageOf(char kind, const std::vector<std::size_t>& places) {
  std::string page = kind + Number(0, 2) + Number(places.size(), 2) + Number(0, 3);
  for (const std::size_t place : places) page += Number(place, 2);
  page.resize(kPageBytes, '\0');
  return page;
}

/// Returns the start of a row of an object; `type` is that of its data.
std::string ObjectRow(std::uint64_t sizeBytes, const std::string& type) {
  const std::string types = std::string("\0\x4C\x01\x08", 4) + type;
  return Sevens(sizeBytes, 5) + '\x01' + static_cast<char>(types.size() + 1) + types +
         std::string(32, 'i') + '\x09';
}

class CraftedFiles : public testing::Test {
 protected:
  void Write(const std::string& bytes, std::uint64_t size) {
    WriteWhole(m_document, bytes);
    fs::resize_file(m_document, size);
  }

  SqliteSalvage Salvage() {
    const SqliteSalvage salvage =
        SqliteStore::Salvage(m_document, m_target, {.durable = false}).value();
    EXPECT_TRUE(SqliteStore::Open(m_target, {.create = false, .durable = false}).ok());
    return salvage;
  }

  /// Returns by how much the most memory that this process had grows.
  template <class Function>
  static std::uint64_t GrowthOf(const Function& function) {
#ifdef _WIN32
    function();
    return 0;
#else
    rusage before{};
    ::getrusage(RUSAGE_SELF, &before);
    function();
    rusage after{};
    ::getrusage(RUSAGE_SELF, &after);
    return static_cast<std::uint64_t>(after.ru_maxrss - before.ru_maxrss) << 10;
#endif
  }

  const TemporaryFolder m_folder;
  const fs::path m_document = m_folder.Path() / "crafted.tal";
  const fs::path m_target = m_folder.Path() / "rescued.tal";
};

TEST_F(CraftedFiles, RecordWhosePagesFormACircleIsLost) {
  // Sanitizers keep 256 MB of what was freed.
  constexpr std::uint64_t kFileBytes = std::uint64_t{1} << 30;
  constexpr std::uint64_t kRecordBytes = kFileBytes - 10;
  std::string page = PageOf('\x0D', {1000});
  const std::string row = ObjectRow(kRecordBytes, Sevens(2 * (kRecordBytes - 60) + 12, 5));
  page.replace(1000, row.size(), row);
  // As many bytes of the record are in the page as make its other pages full ones.
  constexpr std::size_t kLeast = (kPageBytes - 12) * 32 / 255 - 23;
  constexpr std::size_t kSome = kLeast + (kRecordBytes - kLeast) % (kPageBytes - 4);
  constexpr std::size_t kLocal = kSome <= kPageBytes - 35 ? kSome : kLeast;
  page.replace(1006 + kLocal, 4, Number(3, 4));
  const std::string third = Number(4, 4) + std::string(kPageBytes - 4, 'a');
  const std::string fourth = Number(3, 4) + std::string(kPageBytes - 4, 'b');
  Write(FirstPage() + page + third + fourth, kFileBytes);
  SqliteSalvage salvage;
  EXPECT_LT(GrowthOf([&] { salvage = Salvage(); }), kFileBytes / 2);
  EXPECT_EQ(salvage.objects, 0U);
  EXPECT_EQ(salvage.lostObjects, 1U);
}

// Each has thousands of bytes, of which all but some were those of others already.
TEST_F(CraftedFiles, PiecesThatOverlapAreLost) {
  constexpr std::size_t kPages = 16;
  constexpr std::size_t kPieces = 2000;
  constexpr std::size_t kPieceBytes = 16000;
  std::string row = ObjectRow(44, "\x02");
  row += Number(kPages * kPieces, 2);
  std::string page = PageOf('\x0D', {1000});
  page.replace(1000, row.size(), row);
  std::string bytes = FirstPage() + page;
  for (std::size_t number = 0; number < kPages; ++number) {
    std::vector<std::size_t> places;
    for (std::size_t piece = 0; piece < kPieces; ++piece) places.push_back(5000 + 20 * piece);
    page = PageOf('\x0A', places);
    for (std::size_t piece = 0; piece < kPieces; ++piece) {
      const std::string entry = Sevens(kPieceBytes, 2) + "\x06\x09\x02" +
                                Sevens(2 * (kPieceBytes - 8) + 12, 3) +
                                Number(number * kPieces + piece, 2);
      page.replace(places[piece], entry.size(), entry);
    }
    bytes += page;
  }
  Write(bytes, bytes.size());
  SqliteSalvage salvage;
  EXPECT_LT(GrowthOf([&] { salvage = Salvage(); }), std::uint64_t{100} << 20);
  EXPECT_EQ(salvage.objects, 0U);
  EXPECT_EQ(salvage.lostObjects, 1U);
}

TEST_F(CraftedFiles, FramesWithoutAPageAreNoLog) {
  constexpr std::uint64_t kLogBytes = std::uint64_t{1} << 40;
  Write(FirstPage(), kPageBytes);
  const fs::path log = m_document.string() + "-wal";
  WriteWhole(log, std::string(8, '\0') + Number(kPageBytes, 4) + std::string(20, '\0'));
  fs::resize_file(log, kLogBytes);
  EXPECT_EQ(Salvage().objects, 0U);
}

#ifndef _WIN32
TEST_F(CraftedFiles, PipeBesideTheDocumentIsNoLog) {
  Write(FirstPage(), kPageBytes);
  ASSERT_EQ(::mkfifo((m_document.string() + "-wal").c_str(), 0600), 0);
  EXPECT_EQ(Salvage().objects, 0U);
}
#endif

}  // namespace
}  // namespace TalVcs::Kit
