#pragma once

#include <kit/export.h>
#include <kit/store/recording_store.h>

#include <cstdint>
#include <functional>
#include <unordered_map>

namespace TalVcs::Kit {

/// A recording store that lets calls fail on demand, to test what a host does then.
///
///     FaultInjectionStore faulty(memory);
///     for (int call = 1; call == 1 || faulty.HasFailed(); ++call) {
///       faulty.Restart();
///       faulty.FailFrom(call);
///       ...  // save, and require that the history is the old one or the new one
///     }
class TALVCS_KIT_API FaultInjectionStore final : public RecordingStore {
 public:
  using RecordingStore::RecordingStore;
  ~FaultInjectionStore() override;

  /// Lets the calls from number `first` on fail, `count` of them. The first call since `Restart`
  /// has number 1; 0 means that no call fails.
  void FailFrom(std::uint64_t first, std::uint64_t count = 1) noexcept;
  /// Sets what calls fail with; `Unavailable` at first.
  void FailWith(ErrorCode code) noexcept { m_code = code; }
  /// Sets whether calls do their work before they fail, as if only the answer were lost. Otherwise
  /// the store below isn't called.
  void FailAfterwards(bool afterwards = true) noexcept { m_afterwards = afterwards; }
  /// Calls `act` at the beginning of call number `call`, as another program could act then.
  void InterruptAt(std::uint64_t call, std::function<void()> act);

  /// Lets reads of one object fail, each time, until `Heal`.
  void FailObject(const Id& id, ErrorCode code);
  /// Passes on other bytes for one object, until `Heal`. An object that isn't there gets them too.
  void ReplaceObject(const Id& id, Buffer packed);
  /// Ends the faults of objects.
  void Heal() noexcept { m_faults.clear(); }

  /// True if a call has failed on demand since `Restart`.
  bool HasFailed() const noexcept { return m_hasFailed; }
  /// Forgets the calls, so that the next one has number 1. The faults stay as they are set.
  void Restart() noexcept;

 protected:
  Status Before(const StoreCall& call) override;
  Result<Buffer> Found(const Id& id, Result<Buffer> packed) override;
  Status After(const StoreCall& call, Status outcome) override;

 private:
  TALVCS_KIT_NO_EXPORT bool MustFail(const StoreCall& call) const noexcept;

  std::unordered_map<Id, Result<Buffer>> m_faults;
  std::function<void()> m_act;
  std::uint64_t m_interruptedCall = 0;
  std::uint64_t m_first = 0;
  std::uint64_t m_count = 0;
  std::uint64_t m_last = 0;
  std::uint64_t m_callsBefore = 0;
  ErrorCode m_code = ErrorCode::Unavailable;
  bool m_afterwards = false;
  bool m_hasFailed = false;
};

}  // namespace TalVcs::Kit
