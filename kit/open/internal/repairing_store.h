#pragma once

#include <kit/open/internal/record_reader.h>
#include <kit/store/object_store.h>
#include <kit/store/repairable_store.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace TalVcs::Kit {

/// A store as it is after a repair: an object that it lacks or has damaged is read from a second
/// store, and put into the first one after the read.
class RepairingStore final : public IObjectStore {
 public:
  /// Both outlive this object.
  RepairingStore(IObjectStore& store, IObjectStore& source)
      : m_store(store), m_source(source), m_isRepairable(CanReplace(store)) {}
  ~RepairingStore() override;

  /// Writes what was found in the second store and isn't in the first one yet, and waits until it
  /// is durable.
  Status Finish();

  /// Returns why the first store's own object could not be read, if it was repaired.
  std::optional<ReadProblem> ProblemOf(const Id& id) const;
  std::uint64_t RepairedObjects() const noexcept { return m_problems.size(); }
  std::uint64_t RepairedBytes() const noexcept { return m_repairedBytes; }

  Result<std::vector<Id>> Missing(std::span<const Id> ids) override;
  Status Read(std::span<const Id> ids, const ReadSink& sink) override;
  Status ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) override;
  Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids) override;
  Status Write(std::span<const StoredObject> objects) override;
  Result<std::vector<Head>> Heads() override;
  Status MoveHeads(std::span<const HeadMove> moves) override;
  Status List(const IdSink& sink) override;
  Result<RemovedObjects> RemoveUnmarked(const MarkObjects& mark) override;
  Result<std::optional<std::string>> Value(std::string_view name) override;
  Status SetValue(std::string_view name, std::optional<std::string_view> value) override;

 private:
  /// A store that fails in another way may do so later, and then the repair does too.
  static bool CanReplace(IObjectStore& store) {
    const Status status = ReplaceObjects(store, {});
    return status || status.error().code != ErrorCode::Unsupported;
  }

  static constexpr std::uint64_t kMostBytes = std::uint64_t{4} << 20;

  /// What the first store passed for an object that it can't read.
  struct Unreadable {
    ReadProblem problem;
    Result<Buffer> passed;
  };
  using UnreadableObjects = std::unordered_map<Id, Unreadable>;

  Status ReadFromSource(const UnreadableObjects& unreadable, const ReadSink& sink);
  void Take(const Id& id, const ReadProblem& problem, const Buffer& packed);
  Status Flush();

  IObjectStore& m_store;
  IObjectStore& m_source;
  bool m_isRepairable;
  std::vector<StoredObject> m_missing;
  std::vector<StoredObject> m_damaged;
  std::uint64_t m_pendingBytes = 0;
  std::unordered_map<Id, ReadProblem> m_problems;
  std::uint64_t m_repairedBytes = 0;
};

}  // namespace TalVcs::Kit
