#include <kit/store/head_table.h>
#include <kit/store/memory_object_store.h>
#include <kit/store/read_history.h>

#include <unordered_set>
#include <utility>

namespace TalVcs::Kit {

MemoryObjectStore::MemoryObjectStore() = default;
MemoryObjectStore::MemoryObjectStore(const MemoryObjectStore& other) = default;
MemoryObjectStore::MemoryObjectStore(MemoryObjectStore&& other) noexcept {
  *this = std::move(other);
}
MemoryObjectStore& MemoryObjectStore::operator=(const MemoryObjectStore& other) = default;
MemoryObjectStore& MemoryObjectStore::operator=(MemoryObjectStore&& other) noexcept {
  if (this == &other) return *this;
  m_objects = std::exchange(other.m_objects, {});
  m_heads = std::exchange(other.m_heads, {});
  m_values = std::exchange(other.m_values, {});
  m_save = std::exchange(other.m_save, SaveState::None);
  return *this;
}
MemoryObjectStore::~MemoryObjectStore() = default;

void MemoryObjectStore::Rely() noexcept {
  if (m_save != SaveState::LostObjects) m_save = SaveState::ReliesOnObjects;
}

Result<std::vector<Id>> MemoryObjectStore::Missing(std::span<const Id> ids) {
  Rely();
  std::vector<Id> missing;
  for (const Id& id : ids) {
    if (!m_objects.contains(id)) missing.push_back(id);
  }
  return missing;
}

Status MemoryObjectStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  for (const Id& id : ids) {
    const auto found = m_objects.find(id);
    if (found == m_objects.end()) {
      sink(id, NoSuchObject(id));
    } else {
      sink(id, found->second);
    }
  }
  return {};
}

Status MemoryObjectStore::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  return ReadHistoryByParents(*this, id, most, sink);
}

Result<std::vector<std::optional<std::uint64_t>>> MemoryObjectStore::Sizes(
    std::span<const Id> ids) {
  std::vector<std::optional<std::uint64_t>> sizes;
  sizes.reserve(ids.size());
  for (const Id& id : ids) {
    const auto found = m_objects.find(id);
    sizes.push_back(found == m_objects.end() ? std::nullopt
                                             : std::optional(found->second.GetSize()));
  }
  return sizes;
}

Status MemoryObjectStore::Write(std::span<const StoredObject> objects) {
  for (const StoredObject& object : objects) {
    if (!IsObjectId(object.id)) return NotAnObjectId(object.id);
  }
  Rely();
  for (const StoredObject& object : objects) {
    m_objects.try_emplace(object.id, object.packed);
  }
  return {};
}

Result<std::vector<Head>> MemoryObjectStore::Heads() { return ListHeads(m_heads); }

Status MemoryObjectStore::MoveHeads(std::span<const HeadMove> moves) {
  if (Status status = CheckMoves(m_heads, moves); !status) return status;
  if (m_save == SaveState::LostObjects || m_save == SaveState::KnowsLoss) {
    m_save = SaveState::KnowsLoss;
    return ObjectsWereRemoved();
  }
  HeadTable moved = m_heads;
  ApplyMoves(moved, moves);
  m_heads.swap(moved);
  m_save = SaveState::None;
  return {};
}

Status MemoryObjectStore::List(const IdSink& sink) {
  std::vector<Id> ids;
  ids.reserve(m_objects.size());
  for (const auto& [id, packed] : m_objects) ids.push_back(id);
  if (!ids.empty()) sink(ids);
  return {};
}

Result<RemovedObjects> MemoryObjectStore::RemoveUnmarked(const MarkObjects& mark) {
  Result<std::vector<Id>> marked = mark(ListHeads(m_heads));
  if (!marked) return std::move(marked).error();
  const std::unordered_set<Id> kept(marked->begin(), marked->end());
  RemovedObjects removed;
  for (auto at = m_objects.begin(); at != m_objects.end();) {
    if (kept.contains(at->first)) {
      ++at;
      continue;
    }
    ++removed.count;
    removed.sizeBytes += at->second.GetSize();
    at = m_objects.erase(at);
  }
  if (removed.count > 0 && m_save == SaveState::ReliesOnObjects) m_save = SaveState::LostObjects;
  return removed;
}

Result<std::optional<std::string>> MemoryObjectStore::Value(std::string_view name) {
  const auto found = m_values.find(name);
  return found == m_values.end() ? std::nullopt : std::optional(found->second);
}

Status MemoryObjectStore::SetValue(std::string_view name, std::optional<std::string_view> value) {
  const auto found = m_values.find(name);
  if (value) {
    m_values.insert_or_assign(std::string(name), std::string(*value));
  } else if (found != m_values.end()) {
    m_values.erase(found);
  }
  return {};
}

Status MemoryObjectStore::Replace(std::span<const StoredObject> objects) {
  for (const StoredObject& object : objects) {
    if (!IsObjectId(object.id)) return NotAnObjectId(object.id);
  }
  for (const StoredObject& object : objects) {
    m_objects.insert_or_assign(object.id, object.packed);
  }
  return {};
}

std::size_t MemoryObjectStore::GetCount() const noexcept { return m_objects.size(); }

std::uint64_t MemoryObjectStore::GetSizeInBytes() const noexcept {
  std::uint64_t size = 0;
  for (const auto& [id, packed] : m_objects) size += packed.GetSize();
  return size;
}

}  // namespace TalVcs::Kit
