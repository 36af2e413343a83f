// What every object store does with objects and values.

#include <talvcs/objects/id.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/support/bytes.h>

#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace TalVcs::Kit {
namespace {

using Testing::Ascii;
using Testing::Wide;

const char* const kBlobOne = "437613f2000d14882113a8ceeb5e68572589edac29230c9fecd09d682612c4a3";
const char* const kBlobTwo = "9d500193ed108f2f3ad67e1870148696dce98f56644f500176a1dc1cf1634f64";

using Texts = std::vector<std::string>;

TEST_P(ObjectStoreSuite, NewStoreIsEmpty) {
  EXPECT_EQ(Store().Missing({{m_one.id}}).value(), std::vector<Id>{m_one.id});
  EXPECT_EQ(ReadOne(Store(), m_one.id), "<NotFound>");
  EXPECT_EQ(ListOf(Store()), Texts());
  EXPECT_EQ(HeadsOf(Store()), std::vector<Head>());
}

TEST_P(ObjectStoreSuite, MissingReturnsWhatIsNotThereInTheOrderOfTheArguments) {
  Write(Store(), {m_two});
  const std::vector<Id> ids = {m_three.id, m_two.id, m_one.id, m_three.id};
  EXPECT_EQ(Store().Missing(ids).value(), (std::vector<Id>{m_three.id, m_one.id, m_three.id}));
}

TEST_P(ObjectStoreSuite, EmptyArgumentsSucceed) {
  EXPECT_TRUE(Store().Missing({}).value().empty());
  EXPECT_TRUE(Read(Store(), {}).empty());
  EXPECT_TRUE(Store().Sizes({}).value().empty());
  Write(Store(), {});
  ExpectMoved(Store(), {});
  EXPECT_EQ(ListOf(Store()), Texts());
}

TEST_P(ObjectStoreSuite, ReadPassesEachObjectOnce) {
  Write(Store(), {m_one, m_two});
  EXPECT_EQ(Read(Store(), {m_two.id, m_three.id, m_one.id}),
            (ReadObjects{{kBlobOne, {"blob 3\0one", 10}},
                         {kBlobTwo, {"blob 3\0two", 10}},
                         {Ascii(m_three.id), "<NotFound>"}}));
}

TEST_P(ObjectStoreSuite, MissingObjectIsNamedByItsError) {
  std::string subject;
  const Status status = Store().Read({{m_one.id}}, [&](const Id& /*id*/, Result<Buffer> packed) {
    ASSERT_FALSE(packed.ok());
    subject = packed.error().subject;
  });
  EXPECT_TRUE(status.ok());
  EXPECT_EQ(subject, kBlobOne);
}

TEST_P(ObjectStoreSuite, WrittenObjectsAreThereAfterReopening) {
  Write(Store(), {m_one, m_two});
  ExpectMoved(Store(), {{"master", Id(), m_one.id}});
  Reopen();
  EXPECT_EQ(ReadOne(Store(), m_one.id), std::string("blob 3\0one", 10));
  EXPECT_EQ(ReadOne(Store(), m_two.id), std::string("blob 3\0two", 10));
  EXPECT_TRUE(Store().Missing({{m_one.id, m_two.id}}).value().empty());
}

TEST_P(ObjectStoreSuite, ObjectWrittenTwiceIsThereOnce) {
  Write(Store(), {m_one, m_one});
  Write(Store(), {m_one, m_two});
  EXPECT_EQ(ListOf(Store()), (Texts{kBlobOne, kBlobTwo}));
  EXPECT_EQ(ReadOne(Store(), m_one.id), std::string("blob 3\0one", 10));
}

TEST_P(ObjectStoreSuite, ObjectThatIsThereStaysAsItIs) {
  Write(Store(), {m_one});
  Write(Store(), {Stored(kBlobOne, "other bytes")});
  EXPECT_EQ(ReadOne(Store(), m_one.id), std::string("blob 3\0one", 10));
}

TEST_P(ObjectStoreSuite, PackedFormIsNotLookedInto) {
  Write(Store(), {Stored(kBlobOne, "neither a header nor the right digest")});
  Reopen();
  EXPECT_EQ(ReadOne(Store(), m_one.id),
            GetParam().checksIds ? "<Damaged>" : "neither a header nor the right digest");
}

TEST_P(ObjectStoreSuite, ObjectWithoutBytesIsThereOrMissing) {
  Write(Store(), {Stored(kBlobTwo, "")});
  Reopen();
  const bool is_there = GetParam().keepsEmptyObjects;
  EXPECT_EQ(Store().Missing({{m_two.id}}).value().empty(), is_there);
  EXPECT_EQ(Store().Sizes({{m_two.id}}).value().front(),
            is_there ? std::optional<std::uint64_t>(0) : std::nullopt);
  const char* failure = is_there ? "<Damaged>" : "<NotFound>";
  EXPECT_EQ(ReadOne(Store(), m_two.id), is_there && !GetParam().checksIds ? "" : failure);
}

TEST_P(ObjectStoreSuite, LargeObjectInManySegmentsComesBack) {
  std::string bytes;
  Buffer packed;
  for (int part = 0; part < 300; ++part) {
    const std::string piece(static_cast<std::size_t>(10000 + part),
                            static_cast<char>('a' + part % 26));
    packed.Append(Testing::BufferOf(piece));
    bytes += piece;
  }
  const Id id(packed);
  Write(Store(), {{id, packed}});
  Reopen();
  EXPECT_TRUE(ReadOne(Store(), id) == bytes);
  EXPECT_EQ(Store().Sizes({{id}}).value().front(), 3044850U);
}

TEST_P(ObjectStoreSuite, ManyObjectsInOneCall) {
  std::vector<StoredObject> objects;
  std::vector<Id> ids;
  for (int number = 0; number < 1500; ++number) {
    const Buffer packed = Testing::BufferOf("blob " + std::to_string(number));
    objects.push_back({Id(packed), packed});
    ids.push_back(objects.back().id);
  }
  Write(Store(), objects);
  EXPECT_TRUE(Store().Missing(ids).value().empty());
  EXPECT_EQ(ListOf(Store()).size(), 1500U);
  const ReadObjects read = Read(Store(), ids);
  ASSERT_EQ(read.size(), 1500U);
  EXPECT_TRUE(std::all_of(read.begin(), read.end(), [](const auto& object) {
    return Ascii(Id(Testing::BufferOf(object.second))) == object.first;
  }));
}

TEST_P(ObjectStoreSuite, SizesAreInTheOrderOfTheArguments) {
  Write(Store(), {m_one, m_three});
  const std::vector<Id> ids = {m_three.id, m_two.id, m_one.id};
  EXPECT_EQ(Store().Sizes(ids).value(),
            (std::vector<std::optional<std::uint64_t>>{12, std::nullopt, 10}));
}

TEST_P(ObjectStoreSuite, IdThatIsNoneOfAnObjectIsMissing) {
  const std::vector<Id> ids = {Id(),
                               Id(Wide("../../secret")),
                               Id(Wide(std::string(64, 'A'))),
                               Id(Wide(std::string(63, 'a'))),
                               Id(Wide(std::string(65, 'a'))),
                               Id(Wide(std::string(64, 'g')))};
  EXPECT_EQ(Store().Missing(ids).value(), ids);
  for (const Id& id : ids) {
    EXPECT_EQ(ReadOne(Store(), id), "<NotFound>") << Ascii(id);
    EXPECT_EQ(Store().Sizes({{id}}).value().front(), std::nullopt) << Ascii(id);
  }
}

TEST_P(ObjectStoreSuite, IdThatIsNoneOfAnObjectIsNotWritten) {
  for (const std::string& text : {std::string(), std::string("../../../secret"),
                                  std::string(64, 'A'), std::string(62, 'a') + "/b"}) {
    const Status status = Store().Write({{Stored(text, "bytes")}});
    ASSERT_FALSE(status.ok()) << text;
    EXPECT_EQ(status.error().code, ErrorCode::BadName) << text;
  }
  EXPECT_EQ(ListOf(Store()), Texts());
}

TEST_P(ObjectStoreSuite, HistoryIsReadFromNewestToOldest) {
  Write(Store(), {m_firstCommit, m_secondCommit, m_thirdCommit});
  const std::string first = Testing::Bytes(m_firstCommit.packed);
  const std::string second = Testing::Bytes(m_secondCommit.packed);
  const std::string third = Testing::Bytes(m_thirdCommit.packed);
  EXPECT_EQ(ReadHistory(Store(), m_thirdCommit.id, 10), (Texts{third, second, first}));
  EXPECT_EQ(ReadHistory(Store(), m_thirdCommit.id, 3), (Texts{third, second, first}));
  EXPECT_EQ(ReadHistory(Store(), m_thirdCommit.id, 2), (Texts{third, second}));
  EXPECT_EQ(ReadHistory(Store(), m_secondCommit.id, 1), (Texts{second}));
  EXPECT_EQ(ReadHistory(Store(), m_thirdCommit.id, 0), Texts());
}

TEST_P(ObjectStoreSuite, HistoryEndsAfterAMissingParent) {
  Write(Store(), {m_firstCommit, m_thirdCommit});
  EXPECT_EQ(ReadHistory(Store(), m_thirdCommit.id, 10),
            (Texts{Testing::Bytes(m_thirdCommit.packed), "<NotFound>"}));
  EXPECT_EQ(ReadHistory(Store(), m_one.id, 10), Texts{"<NotFound>"});
}

TEST_P(ObjectStoreSuite, HistoryEndsAfterWhatIsNoCommit) {
  Write(Store(), {m_one});
  EXPECT_EQ(ReadHistory(Store(), m_one.id, 10), (Texts{std::string("blob 3\0one", 10)}));
}

TEST_P(ObjectStoreSuite, ListPassesEachIdOnce) {
  Write(Store(), {m_three, m_one, m_two});
  Texts expected = {kBlobOne, kBlobTwo, Ascii(m_three.id)};
  EXPECT_EQ(ListOf(Store()), expected);
  Reopen();
  EXPECT_EQ(ListOf(Store()), expected);
}

TEST_P(ObjectStoreSuite, ListEndsWhenTheSinkReturnsFalse) {
  Write(Store(), {m_three, m_one, m_two});
  int calls = 0;
  const Status status = Store().List([&](std::span<const Id> ids) {
    EXPECT_FALSE(ids.empty());
    ++calls;
    return false;
  });
  EXPECT_TRUE(status.ok());
  EXPECT_EQ(calls, 1);
}

TEST_P(ObjectStoreSuite, ValuesAreSetReplacedAndRemoved) {
  if (RefusesValues()) return;
  ASSERT_TRUE(Store().SetValue("current", "master").ok());
  ASSERT_TRUE(Store().SetValue("empty", "").ok());
  Reopen();
  EXPECT_EQ(Store().Value("current").value(), "master");
  EXPECT_EQ(Store().Value("empty").value(), "");
  EXPECT_EQ(Store().Value("other").value(), std::nullopt);
  ASSERT_TRUE(Store().SetValue("current", "topic").ok());
  ASSERT_TRUE(Store().SetValue("empty", std::nullopt).ok());
  ASSERT_TRUE(Store().SetValue("other", std::nullopt).ok());
  Reopen();
  EXPECT_EQ(Store().Value("current").value(), "topic");
  EXPECT_EQ(Store().Value("empty").value(), std::nullopt);
  EXPECT_EQ(HeadsOf(Store()), std::vector<Head>());
}

TEST_P(ObjectStoreSuite, ValuesAndTheirNamesAreAnyBytes) {
  if (RefusesValues()) return;
  const Texts texts = {"",         std::string("a\0b", 3), "line\nend", "\xFF\xFE", "'; \"%",
                       "a/b/../c", std::string(5000, 'x')};
  for (const std::string& text : texts) {
    ASSERT_TRUE(Store().SetValue(text, "of " + text).ok());
    ASSERT_TRUE(Store().SetValue("of " + text, text).ok());
  }
  Reopen();
  for (const std::string& text : texts) {
    EXPECT_EQ(Store().Value(text).value(), "of " + text);
    EXPECT_EQ(Store().Value("of " + text).value(), text);
  }
}

}  // namespace
}  // namespace TalVcs::Kit
