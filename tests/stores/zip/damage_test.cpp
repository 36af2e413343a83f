// Archives of which any one byte is wrong or whose end is missing.

#include <gtest/gtest.h>
#include <stores/zip/zip_store.h>
#include <tests/kit/store/document_states.h>
#include <tests/kit/temporary_folder.h>

#include <map>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace Testing;

class ZipDamage : public testing::Test {
 protected:
  void SetUp() override {
    ZipStore store = ZipStore::Open(m_path, {.durable = false}).value();
    SaveOldState(store).value();
    Save(store, {m_long}, {{"long", Id(), m_long.id}}).value();
    store.SetValue("current", "master").value();
    m_heads = store.Heads().value();
    store.Close().value();
    m_bytes = ReadWhole(m_path);
  }

  /// Reads all of a document and changes it. What is read has to be right, or an error, or bytes
  /// that don't fit their id.
  void CheckWith(const std::string& bytes, const std::string& what) {
    SCOPED_TRACE(what);
    WriteWhole(m_path, bytes);
    Result<ZipStore> store = ZipStore::Open(m_path, m_options);
    if (!store) {
      ++m_counts[ToString(store.error().code)];
      return;
    }
    CheckHeads(*store);
    CheckObjects(*store);
    const Result<std::optional<std::string>> value = store->Value("current");
    if (value) {
      EXPECT_EQ(*value, "master");
    }
    CheckChanges(*store);
  }

  void CheckHeads(ZipStore& store) {
    const Result<std::vector<Head>> heads = store.Heads();
    ++m_counts[heads ? "heads" : std::string("heads ") + ToString(heads.error().code)];
    if (heads) {
      EXPECT_EQ(*heads, m_heads);
    }
  }

  void CheckObjects(ZipStore& store) {
    const std::map<std::string, Id> objects = {{"of the old state", kOld.id},
                                               {"shared by both states", kShared.id},
                                               {"400 bytes", m_long.id}};
    for (const auto& [text, id] : objects) {
      const std::string found = DescribeObject(store, id);
      EXPECT_TRUE(found == text || found == "NotFound" || found == "Damaged" ||
                  found == "Unsupported")
          << found;
      ++m_counts[found == text ? "objects" : "object " + found];
    }
  }

  /// A change of a damaged document may fail, but the heads stay those of either state, or an
  /// error.
  void CheckChanges(ZipStore& store) {
    const bool saved =
        Save(store, {kNew}, {{"master", kOld.id, kNew.id}, {"topic", kShared.id, Id()}}).ok();
    const Result<std::vector<Head>> heads = store.Heads();
    if (!heads) return;
    if (saved) {
      EXPECT_EQ(*heads, (std::vector<Head>{{"long", m_long.id}, {"master", kNew.id}}));
      EXPECT_EQ(DescribeObject(store, kNew.id), "of the new state");
    } else {
      EXPECT_EQ(*heads, m_heads);
    }
  }

  const StoredObject m_long = ObjectOf(std::string(400, 'L'));
  const ZipOptions m_options = {.create = false, .durable = false};
  const TemporaryFolder m_folder;
  const std::filesystem::path m_path = m_folder.Path() / "document.zip";
  std::string m_bytes;
  std::vector<Head> m_heads;
  std::map<std::string, std::uint64_t> m_counts;
};

TEST_F(ZipDamage, AnyWrongByteGivesWhatWasSavedOrAnError) {
  for (std::size_t position = 0; position < m_bytes.size(); ++position) {
    for (const int change : {0x01, 0xFF}) {
      std::string bytes = m_bytes;
      bytes[position] = static_cast<char>(bytes[position] ^ change);
      CheckWith(bytes, "byte " + std::to_string(position) + " xor " + std::to_string(change));
    }
  }
  EXPECT_GT(m_counts["Damaged"], 500U);
  EXPECT_GT(m_counts["heads Damaged"], 200U);
  EXPECT_GT(m_counts["object Damaged"], 100U);
  EXPECT_GT(m_counts["object NotFound"], 300U);
}

TEST_F(ZipDamage, AnyMissingEndIsAnError) {
  for (std::size_t size = 0; size < m_bytes.size(); ++size) {
    WriteWhole(m_path, m_bytes.substr(0, size));
    const Result<ZipStore> store = ZipStore::Open(m_path, m_options);
    ASSERT_FALSE(store.ok()) << size;
    EXPECT_STREQ(ToString(store.error().code), "Damaged") << size;
  }
}

TEST_F(ZipDamage, HeadsThatCanBeReadComeWithTheError) {
  const std::size_t value = m_bytes.find("master", m_bytes.find("values/current.txt"));
  ASSERT_NE(value, m_bytes.npos);
  m_bytes[value] = 'M';
  WriteWhole(m_path, m_bytes);
  ZipStore store = ZipStore::Open(m_path, m_options).value();
  const Result<std::vector<Head>> heads = store.Heads();
  ASSERT_FALSE(heads.ok());
  EXPECT_STREQ(ToString(heads.error().code), "Damaged");
  EXPECT_EQ(heads.error().heads, m_heads);
}

}  // namespace
}  // namespace TalVcs::Kit
