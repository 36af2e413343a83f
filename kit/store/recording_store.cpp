#include <kit/store/recording_store.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

std::string Describe(const RecordedCall& call) {
  std::string text = ToString(call.operation);
  switch (call.operation) {
    case StoreOperation::Heads:
    case StoreOperation::List:
    case StoreOperation::RemoveUnmarked:
    case StoreOperation::RemoveGradually:
      return text;
    case StoreOperation::Value:
    case StoreOperation::SetValue:
    case StoreOperation::ReadOpening:
      return text + ' ' + call.name;
    default:
      return text + ' ' + std::to_string(call.count);
  }
}

RecordingStore::RecordingStore(std::shared_ptr<IObjectStore> store, RecordingOptions options)
    : PassingStore(std::move(store)), m_options(std::move(options)) {}
RecordingStore::RecordingStore(IObjectStore& store, RecordingOptions options)
    : PassingStore(store), m_options(std::move(options)) {}
RecordingStore::~RecordingStore() = default;

std::vector<std::string> RecordingStore::GetLog() const {
  std::vector<std::string> log;
  for (const RecordedCall& call : m_calls) log.push_back(Describe(call));
  return log;
}

std::uint64_t RecordingStore::CountCalls(StoreOperation operation) const noexcept {
  std::uint64_t count = 0;
  for (const RecordedCall& call : m_calls) count += call.operation == operation ? 1 : 0;
  return count;
}

std::uint64_t RecordingStore::CountReadIds() const noexcept {
  std::uint64_t count = 0;
  for (const RecordedCall& call : m_calls) {
    if (call.operation == StoreOperation::Read) count += call.count;
  }
  return count;
}

std::chrono::steady_clock::time_point RecordingStore::Now() const {
  return m_options.now ? m_options.now() : std::chrono::steady_clock::now();
}

Status RecordingStore::Before(const StoreCall& call) {
  RecordedCall record;
  record.operation = call.operation;
  record.number = call.number;
  record.ids.assign(call.ids.begin(), call.ids.end());
  for (const StoredObject& object : call.objects) record.ids.push_back(object.id);
  for (const HeadMove& move : call.moves) record.ids.push_back(move.desired);
  record.name = call.name;
  record.count = call.count;
  record.sizeBytes = call.sizeBytes;
  m_calls.push_back(std::move(record));
  if (m_calls.size() > m_options.mostCalls) m_calls.pop_front();
  m_begun.emplace_back(call.number, Now());
  return {};
}

Status RecordingStore::After(const StoreCall& call, Status outcome) {
  // Calls that began later have ended, or a callback threw.
  while (!m_begun.empty() && m_begun.back().first > call.number) m_begun.pop_back();
  // A derived class can fail before it calls the function above.
  if (m_begun.empty() || m_begun.back().first != call.number) return outcome;
  const std::chrono::nanoseconds duration = Now() - m_begun.back().second;
  m_begun.pop_back();
  const auto record = std::find_if(m_calls.rbegin(), m_calls.rend(), [&](const RecordedCall& kept) {
    return kept.number == call.number;
  });
  if (record == m_calls.rend()) return outcome;
  record->sizeBytes = call.sizeBytes;
  record->duration = duration;
  if (!outcome) record->failure = outcome.error().code;
  return outcome;
}

}  // namespace TalVcs::Kit
