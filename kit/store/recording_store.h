#pragma once

#include <kit/export.h>
#include <kit/store/passing_store.h>
#include <kit/text/error.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// A call that a `RecordingStore` has seen.
struct RecordedCall {
  StoreOperation operation = StoreOperation::Missing;  ///< What was called.
  /// The number of the call; the first call of the store object has 1.
  std::uint64_t number = 0;
  /// The ids that were asked for, of the objects that were written, or to which heads were to move.
  std::vector<Id> ids;
  /// The name of a value.
  std::string name;
  /// The number of ids, objects or moves; for `ReadHistory`, the most commits to read.
  std::uint64_t count = 0;
  /// The bytes of packed forms that were to be written or were read.
  std::uint64_t sizeBytes = 0;
  /// The code of the error, or none for a success. Errors of single objects don't count.
  std::optional<ErrorCode> failure;
  /// The time that the call took, with all callbacks; none if it hasn't ended or a callback threw.
  std::optional<std::chrono::nanoseconds> duration;
};

/// Returns the operation and its count or name: "Write 3", "Heads", "Value branch".
TALVCS_KIT_API std::string Describe(const RecordedCall& call);

/// Options of a `RecordingStore`.
struct RecordingOptions {
  /// How many calls are kept; older ones are dropped.
  std::size_t mostCalls = 100'000;
  /// The clock that durations are taken from; empty means the system's.
  std::function<std::chrono::steady_clock::time_point()> now = {};
};

/// Keeps a list of the calls of a store, for tests and for diagnostics.
///
/// The list is in the order in which the calls began. It has ids and names in clear, but no
/// contents and no values. Memory: some 200 bytes a call, and 40 for each of its ids.
class TALVCS_KIT_API RecordingStore : public PassingStore {
 public:
  /// Passes calls on to `store`, which must not be null, and keeps it alive.
  explicit RecordingStore(std::shared_ptr<IObjectStore> store, RecordingOptions options = {});
  /// Passes calls on to `store`, which must outlive this object.
  explicit RecordingStore(IObjectStore& store, RecordingOptions options = {});
  ~RecordingStore() override;

  /// Returns the calls that are kept. The reference is valid until the next call of the store.
  const std::deque<RecordedCall>& GetCalls() const noexcept { return m_calls; }
  /// Returns the descriptions of the calls that are kept.
  std::vector<std::string> GetLog() const;
  /// Return the number of calls that are kept, of any operation or of one.
  std::uint64_t CountCalls() const noexcept { return m_calls.size(); }
  std::uint64_t CountCalls(StoreOperation operation) const noexcept;
  /// Returns the number of ids that the kept calls of `Read` asked for.
  std::uint64_t CountReadIds() const noexcept;
  /// Forgets the calls.
  void ClearCalls() noexcept { m_calls.clear(); }

 protected:
  Status Before(const StoreCall& call) override;
  Status After(const StoreCall& call, Status outcome) override;

 private:
  TALVCS_KIT_NO_EXPORT std::chrono::steady_clock::time_point Now() const;

  RecordingOptions m_options;
  std::deque<RecordedCall> m_calls;
  /// The numbers of the calls that haven't ended, and when they began. A mark may make a call
  /// within another one.
  std::vector<std::pair<std::uint64_t, std::chrono::steady_clock::time_point>> m_begun;
};

}  // namespace TalVcs::Kit
