#include "staged_store.h"

#include <kit/store/read_history.h>

#include <utility>

namespace Tal {

using namespace TalVcs::Kit;  // NOLINT: every name here is one of the kit's stores
using TalVcs::Buffer;
using TalVcs::Id;

Status StagedStore::LoadHeads() {
  if (m_before) return {};
  const Result<std::vector<Head>> heads = PassingStore::Heads();
  if (!heads) return heads.error();
  m_before.emplace();
  for (const Head& head : *heads) m_before->emplace(head.name, head.id);
  m_heads = *m_before;
  return {};
}

std::vector<HeadMove> StagedStore::Moves() const {
  std::vector<HeadMove> moves;
  for (const auto& [name, id] : m_heads) {
    const auto before = m_before->find(name);
    const Id expected = before == m_before->end() ? Id() : before->second;
    if (expected != id) moves.push_back({name, expected, id});
  }
  for (const auto& [name, id] : *m_before) {
    if (!m_heads.contains(name)) moves.push_back({name, id, Id()});
  }
  return moves;
}

Status StagedStore::Publish() {
  Status status = LoadHeads();
  const std::vector<HeadMove> moves = status ? Moves() : std::vector<HeadMove>();
  if (status && !moves.empty()) {
    if (!m_objects.empty()) status = PassingStore::Write(m_objects);
    if (status) status = PassingStore::MoveHeads(moves);
    if (status) m_before = m_heads;
  }
  for (auto at = m_values.begin(); status && at != m_values.end(); ++at) {
    const Result<std::optional<std::string>> present = PassingStore::Value(at->first);
    if (!present) return present.error();
    if (*present != at->second) status = PassingStore::SetValue(at->first, at->second);
  }
  if (!status) return status;
  m_objects.clear();
  m_places.clear();
  m_values.clear();
  return status;
}

Result<std::vector<Id>> StagedStore::Missing(std::span<const Id> ids) {
  Result<std::vector<Id>> missing = PassingStore::Missing(ids);
  if (missing) std::erase_if(*missing, [&](const Id& id) { return m_places.contains(id); });
  return missing;
}

Status StagedStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  std::vector<Id> below;
  for (const Id& id : ids) {
    const auto found = m_places.find(id);
    if (found == m_places.end()) {
      below.push_back(id);
    } else {
      sink(id, Buffer(m_objects[found->second].packed));
    }
  }
  return below.empty() ? Status() : PassingStore::Read(below, sink);
}

Status StagedStore::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  if (m_places.contains(id)) return ReadHistoryByParents(*this, id, most, sink);
  return PassingStore::ReadHistory(id, most, sink);
}

Result<std::vector<std::optional<std::uint64_t>>> StagedStore::Sizes(std::span<const Id> ids) {
  auto sizes = PassingStore::Sizes(ids);
  for (std::size_t i = 0; sizes && i < ids.size(); ++i) {
    const auto found = m_places.find(ids[i]);
    if (found != m_places.end()) (*sizes)[i] = m_objects[found->second].packed.GetSize();
  }
  return sizes;
}

Status StagedStore::Write(std::span<const StoredObject> objects) {
  for (const StoredObject& object : objects) {
    if (!IsObjectId(object.id)) return NotAnObjectId(object.id);
  }
  for (const StoredObject& object : objects) {
    if (m_places.emplace(object.id, m_objects.size()).second) m_objects.push_back(object);
  }
  return {};
}

Result<std::vector<Head>> StagedStore::Heads() {
  const Status status = LoadHeads();
  if (!status) return status.error();
  return ListHeads(m_heads);
}

Status StagedStore::MoveHeads(std::span<const HeadMove> moves) {
  Status status = LoadHeads();
  if (status) status = CheckMoves(m_heads, moves);
  if (!status) return status;
  for (const HeadMove& move : moves) {
    if (move.desired.View().IsEmpty()) {
      m_heads.erase(move.name);
    } else {
      m_heads.insert_or_assign(move.name, move.desired);
    }
  }
  return {};
}

Status StagedStore::List(const IdSink& sink) {
  bool goes_on = true;
  const Status status = PassingStore::List([&](std::span<const Id> ids) {
    goes_on = sink(ids);
    return goes_on;
  });
  for (auto at = m_objects.begin(); status && goes_on && at != m_objects.end(); ++at)
    goes_on = sink(std::span<const Id>(&at->id, 1));
  return status;
}

Result<RemovedObjects> StagedStore::RemoveUnmarked(const MarkObjects&) { return RemovedObjects(); }

Result<std::optional<std::string>> StagedStore::Value(std::string_view name) {
  const auto found = m_values.find(name);
  if (found == m_values.end()) return PassingStore::Value(name);
  return found->second;
}

Status StagedStore::SetValue(std::string_view name, std::optional<std::string_view> value) {
  m_values.insert_or_assign(std::string(name),
                            value ? std::optional(std::string(*value)) : std::nullopt);
  return {};
}

}  // namespace Tal
