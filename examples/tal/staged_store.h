#pragma once

#include <kit/store/head_table.h>
#include <kit/store/passing_store.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Tal {

/// A store that keeps all changes in memory until `Publish` makes them in the store below, which it
/// reads from. So a command does its work, and brings the folder there, before anything is final;
/// one that only shows what it would do ends without `Publish`.
///
/// Removing objects waits as well: `RemoveUnmarked` removes none. Clean the store up after
/// `Publish`.
class StagedStore final : public TalVcs::Kit::PassingStore {
 public:
  using Id = TalVcs::Id;
  template <class T>
  using Result = TalVcs::Kit::Result<T>;
  using Status = TalVcs::Kit::Status;

  explicit StagedStore(std::shared_ptr<TalVcs::Kit::IObjectStore> store)
      : PassingStore(std::move(store)) {}

  /// Writes the objects, moves the heads in one step, and sets the values. Fails with `Conflict` if
  /// somebody else has moved one of these heads. If it fails, the store below has its former heads
  /// unless the error is `Unknown`.
  Status Publish();

  Result<std::vector<Id>> Missing(std::span<const Id> ids) override;
  Status Read(std::span<const Id> ids, const TalVcs::Kit::ReadSink& sink) override;
  Status ReadHistory(const Id& id, std::uint64_t most, const TalVcs::Kit::ReadSink& sink) override;
  Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids) override;
  Status Write(std::span<const TalVcs::Kit::StoredObject> objects) override;
  Result<std::vector<TalVcs::Kit::Head>> Heads() override;
  Status MoveHeads(std::span<const TalVcs::Kit::HeadMove> moves) override;
  Status List(const TalVcs::Kit::IdSink& sink) override;
  Result<TalVcs::Kit::RemovedObjects> RemoveUnmarked(const TalVcs::Kit::MarkObjects& mark) override;
  Result<std::optional<std::string>> Value(std::string_view name) override;
  Status SetValue(std::string_view name, std::optional<std::string_view> value) override;

 private:
  Status LoadHeads();
  std::vector<TalVcs::Kit::HeadMove> Moves() const;

  std::vector<TalVcs::Kit::StoredObject> m_objects;  // in the order in which they were written
  std::unordered_map<Id, std::size_t> m_places;
  std::optional<TalVcs::Kit::HeadTable> m_before;
  TalVcs::Kit::HeadTable m_heads;
  std::map<std::string, std::optional<std::string>, std::less<>> m_values;
};

}  // namespace Tal
