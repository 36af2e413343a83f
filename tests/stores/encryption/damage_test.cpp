// Changed bytes, exchanged records and failing calls below an encrypted store.

#include <gtest/gtest.h>
#include <kit/open/try.h>
#include <kit/open/verify.h>
#include <kit/store/fault_injection_store.h>
#include <stores/encryption/encrypted_store.h>
#include <tests/kit/open/histories.h>
#include <tests/kit/store/repairable_memory_store.h>
#include <tests/kit/store/unrepairable_store.h>
#include <tests/stores/encryption/stores.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

constexpr const char* kHeaderName = "talvcs.encryption";

/// A small history in an encrypted store in memory.
class EncryptionDamage : public testing::Test {
 protected:
  EncryptionDamage() {
    Repository repository = SmallHistory();
    const auto store = CreateOver(m_memory);
    Save(repository, *store).value();
    EXPECT_TRUE(store->SetValue("name", "value").ok());
    EXPECT_TRUE(store->SetValue("other", "thing").ok());
  }

  std::string Header() { return *m_memory->Value(kHeaderName).value(); }
  /// Opens the store with another header, by the right password.
  std::string OpenWith(const std::string& header) {
    EXPECT_TRUE(m_memory->SetValue(kHeaderName, header).ok());
    return CodeOf(EncryptedStore::Open(m_memory, "password"));
  }

  std::shared_ptr<MemoryObjectStore> m_memory = std::make_shared<MemoryObjectStore>();
};

TEST_F(EncryptionDamage, EachChangedByteOfTheHeaderIsNotTakenForAWrongPassword) {
  const std::string header = Header();
  ASSERT_EQ(header.size(), 148U);
  for (std::size_t at = 0; at < header.size(); ++at) {
    std::string changed = header;
    changed[at] = static_cast<char>(changed[at] ^ 0x20);
    // The number of the version and the end of its line.
    const bool is_version = at == 18 || at == 19;
    EXPECT_EQ(OpenWith(changed), is_version ? "Unsupported" : "Damaged") << at;
  }
  EXPECT_EQ(OpenWith(header), "ok");
}

TEST_F(EncryptionDamage, EachShorterOrLongerHeaderIsRefused) {
  const std::string header = Header();
  for (std::size_t size = 0; size < header.size(); ++size) {
    const bool lacks_version = size == 18 || size == 19;
    EXPECT_EQ(OpenWith(header.substr(0, size)), lacks_version ? "Unsupported" : "Damaged") << size;
  }
  EXPECT_EQ(OpenWith(header + '\0'), "Damaged");
}

/// Returns the header with other costs and a right digest.
std::string HeaderWithCost(std::string header, std::uint32_t passes, std::uint32_t memory) {
  for (int byte = 0; byte < 4; ++byte) {
    header[36 + static_cast<std::size_t>(byte)] = static_cast<char>(passes >> 8 * byte);
    header[40 + static_cast<std::size_t>(byte)] = static_cast<char>(memory >> 8 * byte);
  }
  header.resize(116);
  const std::string digits = Ascii(Id(BufferOf(header)));
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    header += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
  }
  return header;
}

TEST_F(EncryptionDamage, HostileCostsAreRefusedBeforeTheyAreSpent) {
  const std::string header = Header();
  ASSERT_EQ(HeaderWithCost(header, 1, 8), header);
  for (const std::uint32_t memory : {0x00100001U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_EQ(OpenWith(HeaderWithCost(header, 1, memory)), "Unsupported");
  }
  for (const std::uint32_t passes : {17U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_EQ(OpenWith(HeaderWithCost(header, passes, 8)), "Unsupported");
  }
  EXPECT_EQ(OpenWith(HeaderWithCost(header, 0, 8)), "Damaged");
  EXPECT_EQ(OpenWith(HeaderWithCost(header, 1, 0)), "Damaged");
  EXPECT_EQ(OpenWith(HeaderWithCost(header, 1, 7)), "Damaged");
  // Another cost makes another key; a forged digest is all that hides the damage.
  EXPECT_EQ(OpenWith(HeaderWithCost(header, 2, 8)), "Denied");
}

TEST_F(EncryptionDamage, EachChangedByteOfAnObjectIsDamaged) {
  const auto faulty = std::make_shared<FaultInjectionStore>(m_memory);
  const auto store = OpenOver(faulty);
  std::size_t bytes = 0;
  for (const Id& sealed : ObjectsOf(*m_memory)) {
    const std::string record = ReadOne(*m_memory, sealed);
    const Id id = [&] {
      MemoryObjectStore one;
      const auto single = std::shared_ptr<IObjectStore>(std::shared_ptr<void>(), &one);
      EXPECT_TRUE(one.SetValue(kHeaderName, Header()).ok());
      EXPECT_TRUE(one.Write({{StoredObject{sealed, BufferOf(record)}}}).ok());
      return ObjectsOf(*OpenOver(single)).front();
    }();
    ASSERT_NE(ReadOne(*store, id), "Damaged");
    for (std::size_t at = 0; at < record.size(); ++at, ++bytes) {
      std::string changed = record;
      changed[at] = static_cast<char>(changed[at] ^ 1 << at % 8);
      faulty->ReplaceObject(sealed, BufferOf(changed));
      EXPECT_EQ(ReadOne(*store, id), "Damaged") << at;
      faulty->ReplaceObject(sealed, BufferOf(record.substr(0, at)));
      EXPECT_EQ(ReadOne(*store, id), "Damaged") << at;
      EXPECT_EQ(store->Sizes({{id}}).value().front(), std::nullopt);
    }
    faulty->Heal();
  }
  EXPECT_GT(bytes, 2000U);
}

TEST_F(EncryptionDamage, ExchangedObjectsAreDamaged) {
  const auto faulty = std::make_shared<FaultInjectionStore>(m_memory);
  const auto store = OpenOver(faulty);
  const std::vector<Id> sealed = ObjectsOf(*m_memory);
  for (std::size_t at = 0; at < sealed.size(); ++at) {
    faulty->ReplaceObject(sealed[at],
                          BufferOf(ReadOne(*m_memory, sealed[(at + 1) % sealed.size()])));
  }
  for (const Id& id : ObjectsOf(*store)) EXPECT_EQ(ReadOne(*store, id), "Damaged");
}

TEST_F(EncryptionDamage, DamagedObjectIsReportedByBranchAndPath) {
  const auto faulty = std::make_shared<FaultInjectionStore>(m_memory);
  const auto store = OpenOver(faulty);
  for (const Id& sealed : ObjectsOf(*m_memory)) {
    faulty->ReplaceObject(sealed, BufferOf("x"));
    const VerifyReport report = Verify(*store).value();
    EXPECT_EQ(report.damageCount, 1U);
    EXPECT_EQ(report.damages.front().code, ErrorCode::Damaged);
    EXPECT_FALSE(report.damages.front().branch.empty());
    faulty->Heal();
  }
}

TEST_F(EncryptionDamage, DamagedObjectIsReplaced) {
  FaultInjectionStore faulty(m_memory);
  const auto store = OpenOver(std::make_shared<RepairableMemoryStore>(faulty));
  const Id id = ObjectsOf(*store).front();
  const Buffer packed = BufferOf(ReadOne(*store, id));
  for (const Id& sealed : ObjectsOf(*m_memory)) faulty.ReplaceObject(sealed, BufferOf("x"));
  ASSERT_EQ(ReadOne(*store, id), "Damaged");
  ASSERT_TRUE(store->Replace({{StoredObject{id, packed}}}).ok());
  EXPECT_EQ(ReadOne(*store, id), Bytes(packed));
  EXPECT_EQ(CodeOf(store->Replace({{StoredObject{Id(), packed}}})), "BadName");
  EXPECT_EQ(CodeOf(OpenOver(std::make_shared<UnrepairableStore>(m_memory))->Replace({})),
            "Unsupported");
}

/// Heads and values of the store below, as a test has changed them.
class ChangedStore final : public PassingStore {
 public:
  using PassingStore::PassingStore;

  Result<std::vector<Head>> Heads() override {
    std::vector<Head> heads = PassingStore::Heads().value();
    if (changeHeads) changeHeads(heads);
    return heads;
  }
  Result<std::optional<std::string>> Value(std::string_view name) override {
    if (name == kHeaderName) return PassingStore::Value(name);
    lastName = name;
    std::optional<std::string> value =
        PassingStore::Value(readName.empty() ? name : readName).value();
    if (changeValue) changeValue(*value);
    return value;
  }

  std::function<void(std::vector<Head>&)> changeHeads;
  std::function<void(std::string&)> changeValue;
  std::string lastName;
  std::string readName;
};

TEST_F(EncryptionDamage, EachChangedDigitOfABranchIsDamaged) {
  const auto changed = std::make_shared<ChangedStore>(m_memory);
  const auto store = OpenOver(changed);
  const std::vector<Head> heads = store->Heads().value();
  const std::size_t size = m_memory->Heads().value()[1].name.size();
  for (std::size_t at = 0; at < size; ++at) {
    for (const char digit : {'0', 'f', 'F', ' '}) {
      std::string before;
      changed->changeHeads = [&](std::vector<Head>& sealed) {
        before = sealed[1].name;
        sealed[1].name[at] = digit;
      };
      const Result<std::vector<Head>> found = store->Heads();
      if (before[at] == digit) continue;
      ASSERT_EQ(CodeOf(found), "Damaged") << at;
      EXPECT_EQ(found.error().heads.size(), heads.size() - 1);
    }
  }
}

TEST_F(EncryptionDamage, HeadOfAnotherBranchLeadsNowhere) {
  const auto changed = std::make_shared<ChangedStore>(m_memory);
  const auto store = OpenOver(changed);
  changed->changeHeads = [](std::vector<Head>& sealed) { std::swap(sealed[0].id, sealed[1].id); };
  const std::vector<Head> heads = store->Heads().value();
  EXPECT_EQ(store->Missing({{heads[0].id, heads[1].id, heads[2].id}}).value().size(), 2U);
  EXPECT_FALSE(Verify(*store).value().IsWhole());
}

TEST_F(EncryptionDamage, EachChangedByteOfAValueIsDamaged) {
  const auto changed = std::make_shared<ChangedStore>(m_memory);
  const auto store = OpenOver(changed);
  for (std::size_t at = 0; at < 24 + 5 + 16; ++at) {
    changed->changeValue = [at](std::string& value) { value[at] = static_cast<char>(~value[at]); };
    EXPECT_EQ(CodeOf(store->Value("name")), "Damaged") << at;
    changed->changeValue = [at](std::string& value) { value.resize(at); };
    EXPECT_EQ(CodeOf(store->Value("name")), "Damaged") << at;
  }
}

TEST_F(EncryptionDamage, ValueOfAnotherNameIsDamaged) {
  const auto changed = std::make_shared<ChangedStore>(m_memory);
  const auto store = OpenOver(changed);
  EXPECT_EQ(store->Value("other").value(), "thing");
  changed->readName = changed->lastName;
  EXPECT_EQ(CodeOf(store->Value("name")), "Damaged");
  EXPECT_EQ(store->Value("other").value(), "thing");
}

/// Creates or opens an encrypted store, adds a commit, saves, cleans up and changes the password.
Status Work(const std::shared_ptr<IObjectStore>& below, bool creates) {
  return Try([&] {
    const auto store = creates ? CreateOver(below) : OpenOver(below);
    OpenedRepository opened = Open(store).value();
    AddCommit(opened.GetRepository(), "master", {{"a/file", creates ? "new" : "more"}});
    Save(opened).value();
    const auto kept = ObjectsOf(*store);
    store->RemoveUnmarked([&](std::span<const Head>) -> Result<std::vector<Id>> { return kept; })
        .value();
    store->SetValue("name", "value").value();
    store->ChangePassword("password", kCheap).value();
  });
}

TEST_F(EncryptionDamage, EachFailureOfTheStoreBelowIsReturnedAndLosesNothing) {
  for (const bool afterwards : {false, true}) {
    for (const bool creates : {false, true}) {
      for (int call = 1;; ++call) {
        const auto below = creates ? std::make_shared<MemoryObjectStore>()
                                   : std::make_shared<MemoryObjectStore>(*m_memory);
        FaultInjectionStore faulty(*below);
        faulty.FailFrom(call);
        faulty.FailWith(ErrorCode::Full);
        faulty.FailAfterwards(afterwards);
        const Status status =
            Work(std::shared_ptr<IObjectStore>(std::shared_ptr<void>(), &faulty), creates);
        if (!faulty.HasFailed()) {
          EXPECT_TRUE(status.ok());
          EXPECT_GT(call, 8);
          break;
        }
        // A create whose header wasn't written leaves an empty store.
        if (!below->Value(kHeaderName).value()) {
          EXPECT_EQ(below->GetCount(), 0U);
          continue;
        }
        const auto store = OpenOver(below);
        EXPECT_TRUE(Verify(*store).value().IsWhole()) << call;
        EXPECT_TRUE(Work(below, false).ok()) << call;
      }
    }
  }
}

TEST_F(EncryptionDamage, ErrorsOfTheStoreBelowAreInClear) {
  const auto store = OpenOver(m_memory);
  const Head head = store->Heads().value().front();
  const Status moved = store->MoveHeads({{HeadMove{head.name, Id(), head.id}}});
  ASSERT_EQ(CodeOf(moved), "Conflict");
  EXPECT_EQ(moved.error().subject, head.name);
  EXPECT_EQ(moved.error().message, "the branch \"" + head.name + "\" has moved meanwhile");
  EXPECT_EQ(moved.error().heads, std::vector<Head>{head});
  const Id missing(Wide(std::string(64, 'a')));
  std::string subject;
  ASSERT_TRUE(
      store
          ->Read({&missing, 1},
                 [&](const Id&, const Result<Buffer>& packed) { subject = packed.error().subject; })
          .ok());
  EXPECT_EQ(subject, std::string(64, 'a'));
}

}  // namespace
}  // namespace TalVcs::Kit
