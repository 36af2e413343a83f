#include <tests/kit/store/object_store_suite.h>
#include <tests/support/bytes.h>
#include <tests/support/text.h>

#include <algorithm>

namespace TalVcs::Kit {

using Testing::Ascii;
using Testing::Bytes;

void ObjectStoreSuite::Reopen() {
  if (!GetParam().durable) return;
  m_store.reset();
  m_store = m_open();
  ASSERT_TRUE(m_store);
}

bool ObjectStoreSuite::IsUsedAlone() {
  if (GetParam().durable) return false;
  Write(Store(), {m_one});
  EXPECT_EQ(ListOf(Store()), std::vector<std::string>{Ascii(m_one.id)});
  return true;
}

bool ObjectStoreSuite::RefusesRemovals() {
  if (GetParam().removes) return false;
  Write(Store(), {m_one});
  ExpectFails(RemoveAllBut(Store(), {}), ErrorCode::Unsupported);
  EXPECT_EQ(ListOf(Store()), std::vector<std::string>{Ascii(m_one.id)});
  return true;
}

bool ObjectStoreSuite::RefusesValues() {
  if (GetParam().keepsValues) return false;
  ExpectFails(Store().SetValue("current", "master"), ErrorCode::Unsupported);
  ExpectFails(Store().Value("current"), ErrorCode::Unsupported);
  return true;
}

std::string ObjectStoreSuite::Show(const Result<Buffer>& packed) {
  return packed ? Bytes(*packed) : "<" + std::string(ToString(packed.error().code)) + ">";
}

ObjectStoreSuite::ReadObjects ObjectStoreSuite::Read(IObjectStore& store, std::vector<Id> ids) {
  ReadObjects objects;
  const Status status = store.Read(ids, [&](const Id& id, Result<Buffer> packed) {
    objects.emplace_back(Ascii(id), Show(packed));
  });
  EXPECT_TRUE(status.ok()) << Describe(status.error());
  std::sort(objects.begin(), objects.end());
  return objects;
}

std::string ObjectStoreSuite::ReadOne(IObjectStore& store, const Id& id) {
  const ReadObjects objects = Read(store, {id});
  return objects.size() == 1 ? objects.front().second : "not passed once";
}

std::vector<std::string> ObjectStoreSuite::ReadHistory(IObjectStore& store, const Id& id,
                                                       std::uint64_t most) {
  std::vector<std::string> commits;
  const Status status = store.ReadHistory(
      id, most, [&](const Id& /*id*/, Result<Buffer> packed) { commits.push_back(Show(packed)); });
  EXPECT_TRUE(status.ok()) << Describe(status.error());
  return commits;
}

std::vector<Head> ObjectStoreSuite::HeadsOf(IObjectStore& store) {
  Result<std::vector<Head>> heads = store.Heads();
  EXPECT_TRUE(heads.ok()) << Describe(heads.error());
  return heads ? *heads : std::vector<Head>();
}

std::vector<std::string> ObjectStoreSuite::ListOf(IObjectStore& store) {
  std::vector<std::string> list;
  const Status status = store.List([&](std::span<const Id> ids) {
    for (const Id& id : ids) list.push_back(Ascii(id));
    return true;
  });
  EXPECT_TRUE(status.ok()) << Describe(status.error());
  std::sort(list.begin(), list.end());
  return list;
}

void ObjectStoreSuite::Write(IObjectStore& store, const std::vector<StoredObject>& objects) {
  const Status status = store.Write(objects);
  ASSERT_TRUE(status.ok()) << Describe(status.error());
}

Status ObjectStoreSuite::Move(IObjectStore& store, const std::vector<HeadMove>& moves) {
  return store.MoveHeads(moves);
}

void ObjectStoreSuite::ExpectMoved(IObjectStore& store, const std::vector<HeadMove>& moves) {
  const Status status = store.MoveHeads(moves);
  EXPECT_TRUE(status.ok()) << Describe(status.error());
}

Result<RemovedObjects> ObjectStoreSuite::RemoveAllBut(IObjectStore& store, std::vector<Id> kept) {
  return store.RemoveUnmarked(
      [&](std::span<const Head> /*heads*/) -> Result<std::vector<Id>> { return kept; });
}

}  // namespace TalVcs::Kit
