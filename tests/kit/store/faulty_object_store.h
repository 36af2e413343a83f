#pragma once

#include <kit/store/object_store.h>
#include <talvcs/foundation/names.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace TalVcs::Testing {

/// A store that passes all calls on to another, counts them and lets some of them fail.
///
/// A call that fails does nothing below, except after `FailAfterwards`.
class FaultyObjectStore final : public Kit::IObjectStore {
 public:
  /// Passes the calls on to `store`, which outlives this one.
  explicit FaultyObjectStore(Kit::IObjectStore& store) : m_store(store) {}

  /// Lets the calls from number `first` on fail, `count` of them; the first call has number 1. No
  /// call fails with `first` 0.
  void FailFrom(int first, int count = 1) {
    m_first = first;
    m_count = count;
  }
  /// What the calls that are to fail return.
  void FailWith(Kit::ErrorCode code) { m_code = code; }
  /// Lets calls that are to fail do their work before they fail, as one does whose answer was lost.
  void FailAfterwards() { m_afterwards = true; }
  /// Calls `act` at the beginning of call number `call`, as another process would act then.
  void InterruptAt(int call, std::function<void()> act) {
    m_interruptedCall = call;
    m_act = std::move(act);
  }

  /// Lets reads of one object fail, each time, until `Heal`.
  void FailObject(const Id& id, Kit::ErrorCode code) {
    m_faults.insert_or_assign(id, MakeError(code));
  }
  /// Gives other bytes for one object, until `Heal`.
  void ReplaceObject(const Id& id, Buffer packed) {
    m_faults.insert_or_assign(id, std::move(packed));
  }
  void Heal() { m_faults.clear(); }

  int Calls() const { return static_cast<int>(m_calls.size()); }
  /// True if a call has failed since `Restart`.
  bool HasFailed() const { return m_hasFailed; }
  /// Forgets the calls so far, so that the next one has number 1.
  void Restart() {
    m_calls.clear();
    m_hasFailed = false;
  }
  /// The calls: name of the operation, a blank, and the number of ids, objects or moves, or the
  /// name of the value.
  const std::vector<std::string>& Log() const { return m_calls; }
  int CallsOf(std::string_view operation) const {
    int count = 0;
    for (const std::string& call : m_calls) {
      if (call == operation || call.starts_with(std::string(operation) + " ")) ++count;
    }
    return count;
  }
  /// Number of ids that were read.
  std::uint64_t ReadCount() const { return m_readCount; }

  Kit::Result<std::vector<Id>> Missing(std::span<const Id> ids) override {
    return Do<Kit::Result<std::vector<Id>>>("Missing " + std::to_string(ids.size()),
                                            [&] { return m_store.Missing(ids); });
  }
  Kit::Status Read(std::span<const Id> ids, const Kit::ReadSink& sink) override {
    m_readCount += ids.size();
    return Do<Kit::Status>("Read " + std::to_string(ids.size()),
                           [&] { return m_store.Read(ids, FaultySink(sink)); });
  }
  Kit::Status ReadHistory(const Id& id, std::uint64_t most, const Kit::ReadSink& sink) override {
    return Do<Kit::Status>("ReadHistory " + std::to_string(most), [&] {
      // The contract lets nothing follow an error.
      bool ended = false;
      const Kit::ReadSink faulty = FaultySink([&](const Id& found, Kit::Result<Buffer> packed) {
        if (!std::exchange(ended, ended || !packed)) sink(found, std::move(packed));
      });
      return m_store.ReadHistory(id, most, faulty);
    });
  }
  Kit::Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids) override {
    return Do<Kit::Result<std::vector<std::optional<std::uint64_t>>>>(
        "Sizes " + std::to_string(ids.size()), [&] { return m_store.Sizes(ids); });
  }
  Kit::Status Write(std::span<const Kit::StoredObject> objects) override {
    return Do<Kit::Status>("Write " + std::to_string(objects.size()),
                           [&] { return m_store.Write(objects); });
  }
  Kit::Result<std::vector<Kit::Head>> Heads() override {
    return Do<Kit::Result<std::vector<Kit::Head>>>("Heads", [&] { return m_store.Heads(); });
  }
  Kit::Status MoveHeads(std::span<const Kit::HeadMove> moves) override {
    return Do<Kit::Status>("MoveHeads " + std::to_string(moves.size()),
                           [&] { return m_store.MoveHeads(moves); });
  }
  Kit::Status List(const Kit::IdSink& sink) override {
    return Do<Kit::Status>("List", [&] { return m_store.List(sink); });
  }
  Kit::Result<Kit::RemovedObjects> RemoveUnmarked(const Kit::MarkObjects& mark) override {
    return Do<Kit::Result<Kit::RemovedObjects>>("RemoveUnmarked",
                                                [&] { return m_store.RemoveUnmarked(mark); });
  }
  Kit::Result<std::optional<std::string>> Value(std::string_view name) override {
    return Do<Kit::Result<std::optional<std::string>>>("Value " + std::string(name),
                                                       [&] { return m_store.Value(name); });
  }
  Kit::Status SetValue(std::string_view name, std::optional<std::string_view> value) override {
    return Do<Kit::Status>("SetValue " + std::string(name),
                           [&] { return m_store.SetValue(name, value); });
  }

 private:
  static Kit::Error MakeError(Kit::ErrorCode code) {
    Kit::Error error;
    error.code = code;
    error.message = "the test lets this call fail";
    return error;
  }

  template <class Outcome, class Operation>
  Outcome Do(std::string call, Operation operation) {
    m_calls.push_back(std::move(call));
    const int number = Calls();
    if (number == m_interruptedCall && m_act) m_act();
    if (m_first == 0 || number < m_first || number - m_first >= m_count) return operation();
    m_hasFailed = true;
    if (m_afterwards) static_cast<void>(operation());
    return MakeError(m_code);
  }

  Kit::ReadSink FaultySink(Kit::ReadSink sink) const {
    return [this, sink = std::move(sink)](const Id& id, Kit::Result<Buffer> packed) {
      const auto fault = m_faults.find(id);
      sink(id, fault == m_faults.end() ? std::move(packed) : fault->second);
    };
  }

  Kit::IObjectStore& m_store;
  std::vector<std::string> m_calls;
  std::unordered_map<Id, Kit::Result<Buffer>> m_faults;
  Kit::ErrorCode m_code = Kit::ErrorCode::Unavailable;
  int m_first = 0;
  int m_count = 0;
  bool m_afterwards = false;
  bool m_hasFailed = false;
  int m_interruptedCall = 0;
  std::function<void()> m_act;
  std::uint64_t m_readCount = 0;
};

}  // namespace TalVcs::Testing
