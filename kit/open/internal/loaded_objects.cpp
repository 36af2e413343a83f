#include <kit/open/internal/loaded_objects.h>
#include <kit/open/internal/store_reader.h>

#include <utility>

namespace TalVcs::Kit {

LoadedObjects::~LoadedObjects() = default;

void LoadedObjects::Add(const Id& id, Buffer packed) {
  const auto index = static_cast<std::uint32_t>(m_objects.size());
  if (m_indexes.Insert(*KeyOf(id), index).second) m_objects.push_back(std::move(packed));
}

void LoadedObjects::SetDamages(std::span<const Damage> damages) {
  for (const Damage& damage : damages) {
    Error error;
    error.code = damage.code;
    m_problems.insert_or_assign(damage.id, ProblemOf(error));
  }
}

void LoadedObjects::Read(std::span<const Id> wanted, ReadAhead /*ahead*/, std::uint64_t /*history*/,
                         Sink sink) {
  for (const Id& id : wanted) {
    const std::optional<ObjectKey> key = KeyOf(id);
    const std::uint32_t* index = key ? m_indexes.Find(*key) : nullptr;
    if (index != nullptr) {
      sink(id, &m_objects[*index], ObjectProblem::Missing);
      continue;
    }
    const auto problem = m_problems.find(id);
    sink(id, nullptr, problem == m_problems.end() ? ObjectProblem::Missing : problem->second);
  }
}

}  // namespace TalVcs::Kit
