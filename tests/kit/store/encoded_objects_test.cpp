#include <gtest/gtest.h>
#include <kit/store/encoded_objects.h>
#include <tests/support/bytes.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

using Encoded = std::vector<std::byte>;

/// A table of encoded forms that counts how often it is read.
class Table {
 public:
  ReadEncoded Reader() {
    return [this](const Id& id) -> Result<Encoded> {
      ++m_reads;
      const auto found = m_forms.find(id);
      if (found != m_forms.end()) return found->second;
      Error error;
      error.code = ErrorCode::NotFound;
      error.message = "the table lacks the object";
      return error;
    };
  }

  void Put(EncodedObjects& objects, const StoredObject& object) {
    m_forms[object.id] = objects.Encode(object, Reader());
  }

  /// Returns the packed form, or the name of the error's code in angle brackets.
  std::string Read(EncodedObjects& objects, const Id& id) {
    const Result<Buffer> packed = objects.Decode(id, m_forms.at(id), Reader());
    return packed ? Bytes(*packed) : std::string("<") + ToString(packed.error().code) + ">";
  }

  EncodedHeader HeaderOf(const Id& id) const { return ReadEncodedHeader(m_forms.at(id)).value(); }
  std::size_t SizeOf(const Id& id) const { return m_forms.at(id).size(); }
  void Remove(const Id& id) { m_forms.erase(id); }
  void Replace(const Id& id, Encoded encoded) { m_forms[id] = std::move(encoded); }
  /// Returns the number of reads since the last call.
  int TakeReads() { return std::exchange(m_reads, 0); }

 private:
  std::unordered_map<Id, Encoded> m_forms;
  int m_reads = 0;
};

std::string NoiseOf(std::size_t size, std::mt19937& random) {
  std::string noise;
  for (std::size_t index = 0; index < size; ++index) noise += static_cast<char>(random());
  return noise;
}

/// Versions of one path: noise, of which each version replaces 20 bytes in the one before.
std::vector<StoredObject> VersionsOf(int count, unsigned seed = 1) {
  std::mt19937 random(seed);
  std::string bytes = NoiseOf(2000, random);
  std::vector<StoredObject> versions;
  for (int index = 0; index < count; ++index) {
    bytes.replace(random() % (bytes.size() - 20), 20, NoiseOf(20, random));
    const Buffer packed = BufferOf(bytes);
    versions.push_back({Id(packed), packed, versions.empty() ? Id() : versions.back().id});
  }
  return versions;
}

void PutAll(Table& table, const std::vector<StoredObject>& versions) {
  EncodedObjects objects;
  for (const StoredObject& version : versions) table.Put(objects, version);
  table.TakeReads();
}

TEST(EncodedObjects, VersionsContinueEachOtherWithoutAnyRead) {
  Table table;
  EncodedObjects objects;
  const std::vector<StoredObject> versions = VersionsOf(200);
  for (const StoredObject& version : versions) table.Put(objects, version);
  EXPECT_EQ(table.TakeReads(), 0);
}

TEST(EncodedObjects, AnyVersionIsReadInSixStepsWithoutACache) {
  Table table;
  const std::vector<StoredObject> versions = VersionsOf(150);
  PutAll(table, versions);
  int most = 0;
  for (const StoredObject& version : versions) {
    EncodedObjects objects(0);
    EXPECT_EQ(table.Read(objects, version.id), Bytes(version.packed));
    most = std::max(most, table.TakeReads());
  }
  EXPECT_EQ(most, ObjectEncoder::CanCompress() ? 6 : 0);
}

TEST(EncodedObjects, BaseHasThePositionWithoutItsLowestBit) {
  Table table;
  const std::vector<StoredObject> versions = VersionsOf(130);
  PutAll(table, versions);
  if (!ObjectEncoder::CanCompress()) {
    EXPECT_EQ(table.HeaderOf(versions[1].id).encoding, ObjectEncoding::Plain);
    return;
  }
  for (std::size_t index = 0; index < versions.size(); ++index) {
    const EncodedHeader header = table.HeaderOf(versions[index].id);
    const std::size_t position = index % kVersionsInGroup;
    ASSERT_EQ(header.position, position) << index;
    if (position == 0) {
      ASSERT_EQ(header.base, Id()) << index;
      continue;
    }
    const std::size_t base = index - position + (position & (position - 1));
    ASSERT_EQ(header.base, versions[base].id) << index;
    ASSERT_LT(table.SizeOf(versions[index].id), 20 * (index - base) * 2 + 60) << index;
  }
}

TEST(EncodedObjects, VersionsOfAnotherProcessAreContinued) {
  Table table;
  const std::vector<StoredObject> versions = VersionsOf(64);
  for (const StoredObject& version : versions) {
    EncodedObjects objects;
    table.Put(objects, version);
  }
  const bool compresses = ObjectEncoder::CanCompress();
  EXPECT_EQ(table.HeaderOf(versions.back().id).position, compresses ? 63U : 0U);
  EncodedObjects objects;
  for (const StoredObject& version : versions) {
    EXPECT_EQ(table.Read(objects, version.id), Bytes(version.packed));
  }
}

TEST(EncodedObjects, TwoVersionsAfterTheSameOneHaveTheSamePosition) {
  Table table;
  std::vector<StoredObject> versions = VersionsOf(3);
  versions[2].previous = versions[0].id;
  PutAll(table, versions);
  EXPECT_EQ(table.HeaderOf(versions[1].id).position, table.HeaderOf(versions[2].id).position);
  EXPECT_EQ(table.HeaderOf(versions[1].id).base, table.HeaderOf(versions[2].id).base);
  EncodedObjects objects(0);
  EXPECT_EQ(table.Read(objects, versions[2].id), Bytes(versions[2].packed));
}

TEST(EncodedObjects, PreviousVersionThatTheStoreLacksIsNotUsed) {
  Table table;
  const std::vector<StoredObject> versions = VersionsOf(2);
  EncodedObjects objects;
  table.Put(objects, versions[1]);
  EXPECT_EQ(table.HeaderOf(versions[1].id).encoding, ObjectEncoding::Plain);
  EXPECT_EQ(table.Read(objects, versions[1].id), Bytes(versions[1].packed));
}

TEST(EncodedObjects, ObjectAsItsOwnPreviousVersionHasNoBase) {
  Table table;
  std::vector<StoredObject> versions = VersionsOf(1);
  versions[0].previous = versions[0].id;
  PutAll(table, versions);
  EXPECT_EQ(table.HeaderOf(versions[0].id).encoding, ObjectEncoding::Plain);
}

TEST(EncodedObjects, ClearForgetsWhatMayBeGone) {
  Table table;
  const std::vector<StoredObject> versions = VersionsOf(2);
  EncodedObjects objects;
  table.Put(objects, versions[0]);
  EXPECT_GT(objects.GetCachedBytes(), 2000U);
  table.Remove(versions[0].id);
  objects.Clear();
  EXPECT_EQ(objects.GetCachedBytes(), 0U);
  table.Put(objects, versions[1]);
  EXPECT_EQ(table.HeaderOf(versions[1].id).encoding, ObjectEncoding::Plain);
}

TEST(EncodedObjects, BaseThatWasReadIsTakenOnce) {
  Table table;
  const std::vector<StoredObject> versions = VersionsOf(4);
  PutAll(table, versions);
  EncodedObjects objects;
  EXPECT_EQ(table.Read(objects, versions[3].id), Bytes(versions[3].packed));
  for (const int index : {2, 0}) {
    const std::optional<Buffer> base = objects.TakeBase(versions[index].id);
    const Buffer expected = ObjectEncoder::CanCompress() ? versions[index].packed : Buffer();
    EXPECT_EQ(Bytes(base.value_or(Buffer())), Bytes(expected)) << index;
    EXPECT_FALSE(objects.TakeBase(versions[index].id)) << index;
  }
  EXPECT_FALSE(objects.TakeBase(versions[3].id));
  EXPECT_FALSE(objects.TakeBase(versions[1].id));
}

TEST(EncodedObjects, BaseThatWasForgottenIsNotTaken) {
  Table table;
  const std::vector<StoredObject> versions = VersionsOf(2);
  PutAll(table, versions);
  EncodedObjects objects;
  EXPECT_EQ(table.Read(objects, versions[1].id), Bytes(versions[1].packed));
  objects.Clear();
  EXPECT_FALSE(objects.TakeBase(versions[0].id));
}

TEST(EncodedObjects, CacheStaysBelowItsBound) {
  Table table;
  EncodedObjects objects(10000);
  for (unsigned seed = 0; seed < 20; ++seed) {
    for (const StoredObject& version : VersionsOf(3, seed)) table.Put(objects, version);
    EXPECT_LE(objects.GetCachedBytes(), 10000U);
  }
  EXPECT_GT(objects.GetCachedBytes(), 5000U);
}

TEST(EncodedObjects, DamagedBaseIsNotUsed) {
  Table table;
  const std::vector<StoredObject> versions = VersionsOf(3);
  PutAll(table, {versions[0]});
  std::string damaged = Bytes(versions[0].packed);
  damaged[100] = static_cast<char>(damaged[100] + 1);
  table.Replace(versions[0].id, ObjectEncoder().Encode(BufferOf(damaged)));
  EncodedObjects objects;
  EXPECT_EQ(table.Read(objects, versions[0].id), damaged);
  table.Put(objects, versions[1]);
  EXPECT_EQ(table.HeaderOf(versions[1].id).encoding, ObjectEncoding::Plain);
  EXPECT_EQ(table.Read(objects, versions[1].id), Bytes(versions[1].packed));
}

TEST(EncodedObjects, MissingBaseIsDamage) {
  Table table;
  const std::vector<StoredObject> versions = VersionsOf(2);
  PutAll(table, versions);
  table.Remove(versions[0].id);
  EncodedObjects objects;
  EXPECT_EQ(table.Read(objects, versions[1].id),
            ObjectEncoder::CanCompress() ? "<Damaged>" : Bytes(versions[1].packed));
}

// The headers below were made by hand: two objects that are each other's base.
TEST(EncodedObjects, BasesInACircleAreDamage) {
  Table table;
  const std::vector<StoredObject> versions = VersionsOf(2);
  for (int index = 0; index < 2; ++index) {
    Encoded circle = {std::byte{2}, std::byte{10}};
    const std::string other = Ascii(versions[1 - index].id);
    for (std::size_t digit = 0; digit < other.size(); digit += 2) {
      circle.push_back(static_cast<std::byte>(std::stoi(other.substr(digit, 2), nullptr, 16)));
    }
    circle.push_back(std::byte{1});
    table.Replace(versions[index].id, circle);
  }
  EncodedObjects objects;
  EXPECT_EQ(table.Read(objects, versions[0].id), "<Damaged>");
  StoredObject next = VersionsOf(1, 2).front();
  next.previous = versions[0].id;
  table.Put(objects, next);
  EXPECT_EQ(table.HeaderOf(next.id).encoding, ObjectEncoding::Plain);
}

TEST(EncodedObjects, ErrorOfAReadIsTheErrorOfTheDecoding) {
  Table table;
  const std::vector<StoredObject> versions = VersionsOf(2);
  PutAll(table, versions);
  const Encoded encoded = table.Reader()(versions[1].id).value();
  EncodedObjects objects;
  const Result<Buffer> packed =
      objects.Decode(versions[1].id, encoded, [](const Id& /*id*/) -> Result<Encoded> {
        Error error;
        error.code = ErrorCode::Unavailable;
        error.message = "the table can't be read";
        return error;
      });
  if (!ObjectEncoder::CanCompress()) {
    EXPECT_EQ(Bytes(packed.value()), Bytes(versions[1].packed));
    return;
  }
  ASSERT_FALSE(packed.ok());
  EXPECT_EQ(packed.error().code, ErrorCode::Unavailable);
}

}  // namespace
}  // namespace TalVcs::Kit
