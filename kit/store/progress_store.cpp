#include <kit/store/progress_store.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

constexpr std::size_t kMostObjects = 256;
constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 20;
// Fifty calls a second at the most.
constexpr std::chrono::milliseconds kBetweenCalls(20);

Error Cancelled(StoreOperation operation) {
  Error error;
  error.code = ErrorCode::Cancelled;
  error.subject = ToString(operation);
  error.message = "the host has cancelled " + error.subject;
  return error;
}

/// Returns the number of objects at the beginning that make a batch.
std::size_t BatchOf(std::span<const StoredObject> objects) {
  std::uint64_t size_bytes = 0;
  std::size_t count = 0;
  while (count < objects.size() && count < kMostObjects) {
    size_bytes += objects[count].packed.GetSize();
    if (count > 0 && size_bytes > kMostBytes) break;
    ++count;
  }
  return count;
}

}  // namespace

ProgressStore::ProgressStore(std::shared_ptr<IObjectStore> store, ProgressStoreOptions options)
    : PassingStore(std::move(store)), m_options(std::move(options)) {}
ProgressStore::ProgressStore(IObjectStore& store, ProgressStoreOptions options)
    : PassingStore(store), m_options(std::move(options)) {}
ProgressStore::~ProgressStore() = default;

ProgressStore::Phase& ProgressStore::PhaseOf(StoreOperation operation) {
  return m_phases[static_cast<std::size_t>(operation)];
}

bool ProgressStore::Show(StoreOperation operation) {
  if (!m_options.progress) return true;
  Phase& phase = PhaseOf(operation);
  const auto now = m_options.now ? m_options.now() : std::chrono::steady_clock::now();
  if (std::exchange(phase.hasBegun, true) && now - m_shown < kBetweenCalls) return true;
  m_shown = now;
  ProgressStep step;
  step.phase = ToString(operation);
  step.done = phase.done;
  step.sizeBytes = phase.sizeBytes;
  return m_options.progress(step);
}

Status ProgressStore::Before(const StoreCall& call) {
  return Show(call.operation) ? Status() : Cancelled(call.operation);
}

Status ProgressStore::After(const StoreCall& call, Status outcome) {
  if (!outcome) return outcome;
  Phase& phase = PhaseOf(call.operation);
  phase.done += call.count;
  phase.sizeBytes += call.sizeBytes;
  return outcome;
}

Status ProgressStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  do {
    const std::size_t count = std::min(ids.size(), kMostObjects);
    if (Status status = PassingStore::Read(ids.first(count), sink); !status) return status;
    ids = ids.subspan(count);
  } while (!ids.empty());
  return {};
}

Status ProgressStore::Write(std::span<const StoredObject> objects) {
  do {
    const std::size_t count = BatchOf(objects);
    if (Status status = PassingStore::Write(objects.first(count)); !status) return status;
    objects = objects.subspan(count);
  } while (!objects.empty());
  return {};
}

Status ProgressStore::List(const IdSink& sink) {
  bool is_cancelled = false;
  Status status = PassingStore::List([&](std::span<const Id> ids) {
    PhaseOf(StoreOperation::List).done += ids.size();
    is_cancelled = !Show(StoreOperation::List);
    return !is_cancelled && sink(ids);
  });
  return status && is_cancelled ? Cancelled(StoreOperation::List) : status;
}

}  // namespace TalVcs::Kit
