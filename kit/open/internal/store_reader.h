#pragma once

#include <kit/store/object_store.h>
#include <talvcs/storage/object_reader.h>

#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// Reads the objects of a repository on demand from an object store, and ahead where it is asked
/// to.
class StoreReader final : public IObjectReader {
 public:
  /// `known` are objects that the store has passed already.
  StoreReader(std::shared_ptr<IObjectStore> store, std::vector<StoredObject> known)
      : m_store(std::move(store)), m_known(std::move(known)) {}
  ~StoreReader() override;

  void Read(std::span<const Id> wanted, ReadAhead ahead, std::uint64_t history, Sink sink) override;

 private:
  bool PassKnown(const Id& wanted, Sink sink);
  void ReadAncestors(const Id& commit, std::uint64_t history, Sink sink);
  void ReadObjects(std::span<const Id> wanted, bool withSubtrees, Sink sink);

  std::shared_ptr<IObjectStore> m_store;
  std::vector<StoredObject> m_known;  // each until it is asked for
};

/// Returns the problem that corresponds to an error of a store.
ObjectProblem ProblemOf(const Error& error) noexcept;

}  // namespace TalVcs::Kit
