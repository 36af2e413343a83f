#include <gtest/gtest.h>
#include <kit/open/clean_up.h>
#include <kit/open/copy.h>
#include <kit/open/open.h>
#include <kit/open/statistics.h>
#include <kit/open/verify.h>
#include <kit/store/directory_object_store.h>
#include <kit/store/object_codec.h>
#include <kit/store/recording_store.h>
#include <stores/encryption/encrypted_store.h>
#include <stores/encryption/internal/secret.h>
#include <tests/kit/open/histories.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/kit/temporary_folder.h>
#include <tests/stores/encryption/stores.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

INSTANTIATE_TEST_SUITE_P(
    EncryptedMemory, ObjectStoreSuite, testing::Values(StoreKind{[] {
      return [] {
        return std::make_unique<EncryptedStore>(
            EncryptedStore::Create(std::make_shared<MemoryObjectStore>(), "", kCheap).value());
      };
    }}));

/// Opens an encrypted store in a folder of its own again and again.
StoreOpener MakeFolder() {
  auto folder = std::make_shared<TemporaryFolder>();
  const DirectoryObjectStoreOptions options{.durable = false,
                                            .busyTimeout = std::chrono::milliseconds(20)};
  {
    const auto store = std::make_shared<DirectoryObjectStore>(
        DirectoryObjectStore::Create(folder->Path(), options).value());
    EXPECT_TRUE(EncryptedStore::Create(store, "password", kCheap).ok());
  }
  return [folder, options] {
    return std::make_unique<EncryptedStore>(
        EncryptedStore::Open(std::make_shared<DirectoryObjectStore>(
                                 DirectoryObjectStore::Open(folder->Path(), options).value()),
                             "password")
            .value());
  };
}

INSTANTIATE_TEST_SUITE_P(EncryptedFolder, ObjectStoreSuite,
                         testing::Values(StoreKind{[] { return MakeFolder(); }, true}));

std::string FromHex(std::string_view digits) {
  std::string bytes;
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    bytes += static_cast<char>(std::stoi(std::string(digits.substr(at, 2)), nullptr, 16));
  }
  return bytes;
}

// A store with one object, one branch and one value, that another program has computed: Argon2id by
// the program argon2, BLAKE2b and SHA-256 by Python's hashlib, XChaCha20-Poly1305 from the text of
// its RFC draft. The key is the bytes 0 to 31.
constexpr std::string_view kPassword = "correct horse";
constexpr std::string_view kHeader =
    "54616c56637320656e6372797074696f6e20310a73616c74206f662031362062797465730200000040000000646566"
    "6768696a6b6c6d6e6f707172737475767778797a7b8055bb84b17b27e40df1b260d95836c803e63c9a1af4af3617df"
    "28e9a7585602eced507cc7c966de09dbe2c3d3c60917cd77544368cd49257bc4562e89a4b6a9fe8010242aa5ff2069"
    "97a8d052917cc9";
constexpr std::string_view kSealedId =
    "7cbaeb8fc8cd7783bab0177e786dd3085d97fca072fae64fa59cf567020daa9c";
constexpr std::string_view kRecord =
    "c8c9cacbcccdcecfd0d1d2d3d4d5d6d7d8d9dadbdcdddedf16bb406684237ddd50b189f9cd9ce81e1d1e2a39a4fe3f"
    "1a6d2b96f08803";
constexpr std::string_view kBranch =
    "3921324bb362c4fbfe777ee36fb99273f7c685972304d2f60e5125e13a69d754e813dfb0fe85a813ceed14e5a2f5";
constexpr std::string_view kHead =
    "7726b532323c13325593cc3699fcbaeefe38ebde943b159f6d04bd3683d7e5bd";
constexpr std::string_view kValueName =
    "0de4a85b6cf19ffdc69f190ab70b5881fdb4659d1cd7dbdb6e5a4b620bb45df5";
constexpr std::string_view kValue =
    "000102030405060708090a0b0c0d0e0f101112131415161708c9e8c9e310f1728a37f99508d2184977b7d497ae83";
const Id kId(Wide("8aec4e4876f854f688d0ebfc8f37598f38e5fd6903cccc850ca36591175aeb60"));
const std::string kPacked("blob 5\0hello", 12);

class EncryptionVector : public testing::Test {
 protected:
  EncryptionVector() {
    EXPECT_TRUE(m_memory->SetValue("talvcs.encryption", FromHex(kHeader)).ok());
  }

  std::shared_ptr<MemoryObjectStore> m_memory = std::make_shared<MemoryObjectStore>();
};

TEST_F(EncryptionVector, StoreOfAnotherProgramIsRead) {
  const Id sealed(Wide(kSealedId));
  const std::string record = FromHex(kRecord);
  ASSERT_TRUE(m_memory->Write({{StoredObject{sealed, BufferOf(record)}}}).ok());
  ASSERT_TRUE(m_memory->MoveHeads({{HeadMove{std::string(kBranch), Id(), Id(Wide(kHead))}}}).ok());
  ASSERT_TRUE(m_memory->SetValue(kValueName, FromHex(kValue)).ok());

  EncryptedStore store = EncryptedStore::Open(m_memory, kPassword).value();
  EXPECT_EQ(ReadOne(store, kId), kPacked);
  EXPECT_EQ(store.Heads().value(), (std::vector<Head>{{"master", kId}}));
  EXPECT_EQ(store.Value("branch").value(), "master");
  EXPECT_EQ(ObjectsOf(store), std::vector<Id>{kId});
}

TEST_F(EncryptionVector, NamesAreThoseOfAnotherProgram) {
  EncryptedStore store = EncryptedStore::Open(m_memory, kPassword).value();
  ASSERT_TRUE(store.Write({{StoredObject{kId, BufferOf(kPacked)}}}).ok());
  ASSERT_TRUE(store.MoveHeads({{HeadMove{"master", Id(), kId}}}).ok());
  ASSERT_TRUE(store.SetValue("branch", "master").ok());
  EXPECT_EQ(ObjectsOf(*m_memory), std::vector<Id>{Id(Wide(kSealedId))});
  EXPECT_EQ(m_memory->Heads().value(),
            (std::vector<Head>{{std::string(kBranch), Id(Wide(kHead))}}));
  EXPECT_TRUE(m_memory->Value(kValueName).value());
}

TEST_F(EncryptionVector, NoNonceIsUsedTwice) {
  EncryptedStore store = EncryptedStore::Open(m_memory, kPassword).value();
  ASSERT_TRUE(store.SetValue("branch", "master").ok());
  const std::string first = *m_memory->Value(kValueName).value();
  ASSERT_TRUE(store.SetValue("branch", "master").ok());
  EXPECT_NE(m_memory->Value(kValueName).value()->substr(0, 24), first.substr(0, 24));

  MemoryObjectStore copy = *m_memory;
  EncryptedStore other =
      EncryptedStore::Open(std::shared_ptr<IObjectStore>(std::shared_ptr<void>(), &copy), kPassword)
          .value();
  ASSERT_TRUE(store.Write({{StoredObject{kId, BufferOf(kPacked)}}}).ok());
  ASSERT_TRUE(other.Write({{StoredObject{kId, BufferOf(kPacked)}}}).ok());
  EXPECT_NE(ReadOne(*m_memory, Id(Wide(kSealedId))).substr(0, 24),
            ReadOne(copy, Id(Wide(kSealedId))).substr(0, 24));
}

/// All texts that the owner of a store sees.
std::string EverythingIn(IObjectStore& store) {
  std::string all;
  for (const Id& id : ObjectsOf(store)) all += ReadOne(store, id) + Ascii(id);
  for (const Head& head : store.Heads().value()) all += head.name + Ascii(head.id);
  return all + *store.Value("talvcs.encryption").value();
}

TEST(EncryptedStore, NothingIsInClear) {
  const auto memory = std::make_shared<MemoryObjectStore>();
  const auto store = CreateOver(memory);
  Repository repository = SmallHistory();
  AddCommit(repository, "secret-branch", {{"secret-folder/secret-file", "secret-text"}},
            "secret-description");
  Save(repository, *store).value();
  const std::string all = EverythingIn(*memory);
  for (const Id& id : ObjectsOf(*store)) EXPECT_EQ(all.find(Ascii(id)), std::string::npos);
  for (const Head& head : store->Heads().value()) {
    EXPECT_EQ(all.find(Ascii(head.id)), std::string::npos);
    EXPECT_EQ(all.find(head.name), std::string::npos);
  }
  for (const char* text : {"secret", "password", "blob ", "tree ", "commit "}) {
    EXPECT_EQ(all.find(text), std::string::npos) << text;
  }
}

TEST(EncryptedStore, ObjectsAreCompressedBefore) {
  const auto memory = std::make_shared<MemoryObjectStore>();
  const auto store = CreateOver(memory);
  const Buffer packed = BufferOf(std::string("blob 5000\0", 10) + std::string(5000, 'a'));
  ASSERT_TRUE(store->Write({{StoredObject{Id(packed), packed}}}).ok());
  EXPECT_LT(memory->GetSizeInBytes(), ObjectEncoder::CanCompress() ? 200U : 5100U);
  EXPECT_EQ(store->Sizes({{Id(packed)}}).value().front(), 5010U);
}

TEST(EncryptedStore, WholeHistoryIsOpenedCopiedAndCleanedUp) {
  const auto memory = std::make_shared<MemoryObjectStore>();
  Repository repository = SmallHistory();
  Save(repository, *CreateOver(memory)).value();
  const auto store = OpenOver(memory);
  EXPECT_EQ(HistoryOf(Open(store).value().GetRepository()), HistoryOf(repository));
  EXPECT_TRUE(Verify(*store).value().IsWhole());
  MemoryObjectStore copy;
  Copy(*store, copy).value();
  EXPECT_EQ(ObjectsOf(copy), ObjectsOf(*store));
  const Buffer extra = BufferOf(std::string("blob 5\0extra", 12));
  ASSERT_TRUE(store->Write({{StoredObject{Id(extra), extra}}}).ok());
  const RemovedObjects removed = CleanUp(*store).value();
  EXPECT_EQ(removed.count, 1U);
  EXPECT_EQ(removed.sizeBytes, 12U);
  EXPECT_EQ(ObjectsOf(copy), ObjectsOf(*store));
}

// A store that is far opens and waits in one round trip, with names that it can't read.
TEST(EncryptedStore, OpensAndWaitsByTheCallsOfTheStoreBelow) {
  class FarStore final : public PassingStore {
   public:
    using PassingStore::PassingStore;
    Result<StoreOpening> ReadOpening(std::string_view branch, std::string_view valueName,
                                     std::string_view) override {
      asked = branch;
      return StoreOpening{Heads().value(), Value(valueName).value(), {}};
    }
    Result<std::vector<Head>> WaitForHeads(std::span<const Head> seen,
                                           std::chrono::milliseconds) override {
      isWaiting = std::ranges::equal(seen, Heads().value());
      return Heads();
    }
    std::string asked;
    bool isWaiting = false;
  };
  const auto memory = std::make_shared<MemoryObjectStore>();
  const auto far = std::make_shared<FarStore>(memory);
  const auto store = CreateOver(far);
  const Buffer packed = BufferOf("content");
  const Id id(packed);
  ASSERT_TRUE(store->Write({{StoredObject{id, packed}}}).ok());
  ASSERT_TRUE(store->MoveHeads({{{"one", Id(), id}, {"two", Id(), id}}}).ok());
  ASSERT_TRUE(store->SetValue("branch", "two").ok());
  const std::vector<Head> heads{{"one", id}, {"two", id}};
  const StoreOpening opening = ReadOpening(*store, "two", "branch", "one").value();
  EXPECT_EQ(opening.heads, heads);
  EXPECT_EQ(opening.value, "two");
  EXPECT_TRUE(opening.objects.empty());
  EXPECT_FALSE(far->asked.empty());
  EXPECT_EQ(far->asked.find("two"), std::string::npos);
  EXPECT_EQ(WatchHeads(*store, heads, std::chrono::milliseconds(0)).value(), heads);
  EXPECT_TRUE(far->isWaiting);
  EXPECT_EQ(WatchHeads(*CreateOver(std::make_shared<MemoryObjectStore>()), {},
                       std::chrono::milliseconds(0))
                .error()
                .code,
            ErrorCode::Unsupported);
}

TEST(EncryptedStore, OtherPasswordIsDenied) {
  const auto memory = std::make_shared<MemoryObjectStore>();
  CreateOver(memory);
  for (const char* other : {"", "passwor", "Password", "password "}) {
    const Result<EncryptedStore> opened = EncryptedStore::Open(memory, other);
    ASSERT_EQ(CodeOf(opened), "Denied") << other;
    EXPECT_EQ(Describe(opened.error()), "cannot open the encrypted store: the password is wrong");
  }
}

TEST(EncryptedStore, StoreThatIsNotEncryptedIsNotFound) {
  EXPECT_EQ(CodeOf(EncryptedStore::Open(std::make_shared<MemoryObjectStore>(), "password")),
            "NotFound");
}

TEST(EncryptedStore, OnlyAnEmptyStoreBecomesEncrypted) {
  const auto memory = std::make_shared<MemoryObjectStore>();
  CreateOver(memory);
  EXPECT_EQ(CodeOf(EncryptedStore::Create(memory, "password", kCheap)), "Conflict");
  const auto plain = SmallStore();
  EXPECT_EQ(CodeOf(EncryptedStore::Create(plain, "password", kCheap)), "Conflict");
  EXPECT_FALSE(plain->Value("talvcs.encryption").value());
  const auto objects = std::make_shared<MemoryObjectStore>();
  ASSERT_TRUE(objects->Write({{StoredObject{kId, BufferOf(kPacked)}}}).ok());
  EXPECT_EQ(CodeOf(EncryptedStore::Create(objects, "password", kCheap)), "Conflict");
}

TEST(EncryptedStore, PasswordIsChangedWithoutWritingObjects) {
  const auto memory = std::make_shared<MemoryObjectStore>();
  const auto recording = std::make_shared<RecordingStore>(memory);
  Repository repository = SmallHistory();
  const auto store = CreateOver(recording);
  Save(repository, *store).value();
  recording->ClearCalls();
  ASSERT_TRUE(store->ChangePassword("next", kCheap).ok());
  EXPECT_EQ(recording->GetLog(), std::vector<std::string>{"SetValue talvcs.encryption"});
  EXPECT_EQ(CodeOf(EncryptedStore::Open(memory, "password")), "Denied");
  const auto again = std::make_shared<EncryptedStore>(EncryptedStore::Open(memory, "next").value());
  EXPECT_EQ(HistoryOf(Open(again).value().GetRepository()), HistoryOf(repository));
  EXPECT_EQ(HistoryOf(Open(store).value().GetRepository()), HistoryOf(repository));
}

TEST(EncryptedStore, CostOfAPasswordIsBounded) {
  const auto memory = std::make_shared<MemoryObjectStore>();
  for (const PasswordCost& cost :
       {PasswordCost{8191, 1}, PasswordCost{8192, 0}, PasswordCost{(std::uint64_t{1} << 30) + 1, 1},
        PasswordCost{8192, 17}}) {
    EXPECT_EQ(CodeOf(EncryptedStore::Create(memory, "password", cost)), "Unsupported");
  }
  EXPECT_FALSE(memory->Value("talvcs.encryption").value());
  EncryptedStore store = EncryptedStore::Create(memory, "password", {16384, 2}).value();
  EXPECT_EQ(CodeOf(EncryptedStore::Open(memory, "password", {16384, 1})), "Unsupported");
  EXPECT_EQ(CodeOf(EncryptedStore::Open(memory, "password", {16383, 2})), "Unsupported");
  EXPECT_EQ(CodeOf(EncryptedStore::Open(memory, "password", {16384, 2})), "ok");
  EXPECT_EQ(CodeOf(store.ChangePassword("next", {8191, 1})), "Unsupported");
  EXPECT_EQ(CodeOf(EncryptedStore::Open(memory, "password")), "ok");
}

TEST(EncryptedStore, KeysAreWipedAtTheEnd) {
  alignas(Encryption::Key) unsigned char place[sizeof(Encryption::Key)];
  auto* key = new (place) Encryption::Key;
  std::fill_n(key->data(), Encryption::Key::size(), static_cast<unsigned char>(0xA5));
  key->~Secret();
  EXPECT_TRUE(std::all_of(std::begin(place), std::end(place),
                          [](unsigned char byte) { return byte == 0; }));
}

}  // namespace
}  // namespace TalVcs::Kit
