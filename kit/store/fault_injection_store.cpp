#include <kit/store/fault_injection_store.h>
#include <kit/text.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

Error InjectedFault(ErrorCode code, std::string subject) {
  Error error;
  error.code = code;
  error.message = "a fault was injected into " + subject;
  error.subject = std::move(subject);
  return error;
}

}  // namespace

FaultInjectionStore::~FaultInjectionStore() = default;

void FaultInjectionStore::FailFrom(std::uint64_t first, std::uint64_t count) noexcept {
  m_first = first;
  m_count = count;
}

void FaultInjectionStore::InterruptAt(std::uint64_t call, std::function<void()> act) {
  m_interruptedCall = call;
  m_act = std::move(act);
}

void FaultInjectionStore::FailObject(const Id& id, ErrorCode code) {
  m_faults.insert_or_assign(id, InjectedFault(code, ToUtf8(id.View())));
}

void FaultInjectionStore::ReplaceObject(const Id& id, Buffer packed) {
  m_faults.insert_or_assign(id, std::move(packed));
}

void FaultInjectionStore::Restart() noexcept {
  ClearCalls();
  m_callsBefore = m_last;
  m_hasFailed = false;
}

bool FaultInjectionStore::MustFail(const StoreCall& call) const noexcept {
  const std::uint64_t number = call.number - m_callsBefore;
  return m_first != 0 && number >= m_first && number - m_first < m_count;
}

Status FaultInjectionStore::Before(const StoreCall& call) {
  Status status = RecordingStore::Before(call);
  m_last = call.number;
  if (call.number - m_callsBefore == m_interruptedCall && m_act) m_act();
  if (!status || !MustFail(call)) return status;
  m_hasFailed = true;
  return m_afterwards ? Status() : InjectedFault(m_code, ToString(call.operation));
}

Result<Buffer> FaultInjectionStore::Found(const Id& id, Result<Buffer> packed) {
  const auto fault = m_faults.find(id);
  return fault == m_faults.end() ? std::move(packed) : fault->second;
}

Status FaultInjectionStore::After(const StoreCall& call, Status outcome) {
  if (MustFail(call)) outcome = InjectedFault(m_code, ToString(call.operation));
  return RecordingStore::After(call, std::move(outcome));
}

}  // namespace TalVcs::Kit
