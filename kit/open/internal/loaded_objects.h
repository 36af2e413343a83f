#pragma once

#include <kit/open/internal/id_map.h>
#include <kit/open/report.h>
#include <kit/store/object_store.h>
#include <talvcs/storage/object_reader.h>

#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

namespace TalVcs::Kit {

/// The objects that a load has read, from which its repository takes them.
class LoadedObjects final : public IObjectReader {
 public:
  LoadedObjects() = default;
  ~LoadedObjects() override;

  void Add(const Id& id, Buffer packed);
  /// Notes why the load has no object of these ids.
  void SetDamages(std::span<const Damage> damages);

  void Read(std::span<const Id> wanted, ReadAhead ahead, std::uint64_t history, Sink sink) override;

 private:
  IdMap m_indexes;
  std::vector<Buffer> m_objects;
  std::unordered_map<Id, ObjectProblem> m_problems;
};

}  // namespace TalVcs::Kit
