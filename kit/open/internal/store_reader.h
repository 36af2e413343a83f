#pragma once

#include <kit/store/object_store.h>
#include <talvcs/storage/object_reader.h>

#include <cstdint>
#include <memory>
#include <span>
#include <utility>

namespace TalVcs::Kit {

/// Reads the objects of a repository on demand from an object store, and ahead where it is asked
/// to.
class StoreReader final : public IObjectReader {
 public:
  explicit StoreReader(std::shared_ptr<IObjectStore> store) : m_store(std::move(store)) {}
  ~StoreReader() override;

  void Read(std::span<const Id> wanted, ReadAhead ahead, std::uint64_t history, Sink sink) override;

 private:
  void ReadAncestors(const Id& commit, std::uint64_t history, Sink sink);
  void ReadObjects(std::span<const Id> wanted, bool withSubtrees, Sink sink);

  std::shared_ptr<IObjectStore> m_store;
};

/// Returns the problem that corresponds to an error of a store.
ObjectProblem ProblemOf(const Error& error) noexcept;

}  // namespace TalVcs::Kit
