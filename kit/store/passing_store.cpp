#include <kit/store/internal/opening.h>
#include <kit/store/passing_store.h>

#include <utility>

namespace TalVcs::Kit {

const char* ToString(StoreOperation operation) noexcept {
  switch (operation) {
    case StoreOperation::Missing:
      return "Missing";
    case StoreOperation::Read:
      return "Read";
    case StoreOperation::ReadHistory:
      return "ReadHistory";
    case StoreOperation::Sizes:
      return "Sizes";
    case StoreOperation::Write:
      return "Write";
    case StoreOperation::Heads:
      return "Heads";
    case StoreOperation::MoveHeads:
      return "MoveHeads";
    case StoreOperation::List:
      return "List";
    case StoreOperation::RemoveUnmarked:
      return "RemoveUnmarked";
    case StoreOperation::Value:
      return "Value";
    case StoreOperation::SetValue:
      return "SetValue";
    case StoreOperation::Replace:
      return "Replace";
    case StoreOperation::WaitForHeads:
      return "WaitForHeads";
    case StoreOperation::ReadOpening:
      return "ReadOpening";
    case StoreOperation::RemoveGradually:
      break;
  }
  return "RemoveGradually";
}

namespace {

std::uint64_t SizeOf(std::span<const StoredObject> objects) {
  std::uint64_t size_bytes = 0;
  for (const StoredObject& object : objects) size_bytes += object.packed.GetSize();
  return size_bytes;
}

}  // namespace

PassingStore::PassingStore(std::shared_ptr<IObjectStore> store) noexcept
    : m_store(std::move(store)) {}
PassingStore::PassingStore(IObjectStore& store) noexcept
    : m_store(std::shared_ptr<void>(), &store) {}
PassingStore::~PassingStore() = default;

Status PassingStore::Before(const StoreCall& /*call*/) { return {}; }
Result<Buffer> PassingStore::Found(const Id& /*id*/, Result<Buffer> packed) { return packed; }
Status PassingStore::After(const StoreCall& /*call*/, Status outcome) { return outcome; }

template <class Outcome, class Operation>
Outcome PassingStore::Pass(StoreCall call, const Operation& operation) {
  call.number = ++m_calls;
  Status before = Before(call);
  Outcome outcome = before ? operation(call) : Outcome(std::move(before).error());
  Status after = After(call, outcome ? Status() : Status(outcome.error()));
  if (!after) return std::move(after).error();
  return outcome;
}

ReadSink PassingStore::SinkOf(const ReadSink& sink, StoreCall& call) {
  return [this, &sink, &call](const Id& id, Result<Buffer> packed) {
    Result<Buffer> found = Found(id, std::move(packed));
    if (found) call.sizeBytes += found->GetSize();
    sink(id, std::move(found));
  };
}

Result<std::vector<Id>> PassingStore::Missing(std::span<const Id> ids) {
  return Pass<Result<std::vector<Id>>>(
      {.operation = StoreOperation::Missing, .ids = ids, .count = ids.size()},
      [&](StoreCall& /*call*/) { return m_store->Missing(ids); });
}

Status PassingStore::Read(std::span<const Id> ids, const ReadSink& sink) {
  return Pass<Status>({.operation = StoreOperation::Read, .ids = ids, .count = ids.size()},
                      [&](StoreCall& call) { return m_store->Read(ids, SinkOf(sink, call)); });
}

Status PassingStore::ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) {
  return Pass<Status>({.operation = StoreOperation::ReadHistory, .ids = {&id, 1}, .count = most},
                      [&](StoreCall& call) {
                        bool has_ended = false;
                        const ReadSink until_error = [&](const Id& found, Result<Buffer> packed) {
                          if (!std::exchange(has_ended, has_ended || !packed))
                            sink(found, std::move(packed));
                        };
                        return m_store->ReadHistory(id, most, SinkOf(until_error, call));
                      });
}

Result<std::vector<std::optional<std::uint64_t>>> PassingStore::Sizes(std::span<const Id> ids) {
  return Pass<Result<std::vector<std::optional<std::uint64_t>>>>(
      {.operation = StoreOperation::Sizes, .ids = ids, .count = ids.size()},
      [&](StoreCall& /*call*/) { return m_store->Sizes(ids); });
}

Status PassingStore::Write(std::span<const StoredObject> objects) {
  return Pass<Status>({.operation = StoreOperation::Write,
                       .objects = objects,
                       .count = objects.size(),
                       .sizeBytes = SizeOf(objects)},
                      [&](StoreCall& /*call*/) { return m_store->Write(objects); });
}

Result<std::vector<Head>> PassingStore::Heads() {
  if (m_opened != nullptr) return m_opened->opening.heads;
  return Pass<Result<std::vector<Head>>>({.operation = StoreOperation::Heads},
                                         [&](StoreCall& /*call*/) { return m_store->Heads(); });
}

Status PassingStore::MoveHeads(std::span<const HeadMove> moves) {
  return Pass<Status>(
      {.operation = StoreOperation::MoveHeads, .moves = moves, .count = moves.size()},
      [&](StoreCall& /*call*/) { return m_store->MoveHeads(moves); });
}

Status PassingStore::List(const IdSink& sink) {
  return Pass<Status>({.operation = StoreOperation::List},
                      [&](StoreCall& /*call*/) { return m_store->List(sink); });
}

Result<RemovedObjects> PassingStore::RemoveUnmarked(const MarkObjects& mark) {
  return Pass<Result<RemovedObjects>>(
      {.operation = StoreOperation::RemoveUnmarked},
      [&](StoreCall& /*call*/) { return m_store->RemoveUnmarked(mark); });
}

Result<std::optional<std::string>> PassingStore::Value(std::string_view name) {
  if (m_opened != nullptr && m_opened->valueName == name) return m_opened->opening.value;
  return Pass<Result<std::optional<std::string>>>(
      {.operation = StoreOperation::Value, .name = name},
      [&](StoreCall& /*call*/) { return m_store->Value(name); });
}

Status PassingStore::SetValue(std::string_view name, std::optional<std::string_view> value) {
  return Pass<Status>({.operation = StoreOperation::SetValue, .name = name},
                      [&](StoreCall& /*call*/) { return m_store->SetValue(name, value); });
}

Status PassingStore::Replace(std::span<const StoredObject> objects) {
  return Pass<Status>({.operation = StoreOperation::Replace,
                       .objects = objects,
                       .count = objects.size(),
                       .sizeBytes = SizeOf(objects)},
                      [&](StoreCall& /*call*/) { return ReplaceObjects(*m_store, objects); });
}

void PassingStore::Trim() noexcept { TrimStore(*m_store); }

Result<std::vector<Head>> PassingStore::WaitForHeads(std::span<const Head> seen,
                                                     std::chrono::milliseconds timeout) {
  return Pass<Result<std::vector<Head>>>(
      {.operation = StoreOperation::WaitForHeads, .count = seen.size()},
      [&](StoreCall& /*call*/) { return WatchHeads(*m_store, seen, timeout); });
}

Result<StoreOpening> PassingStore::ReadOpening(std::string_view branch, std::string_view valueName,
                                               std::string_view otherwise) {
  IOpeningStore* const below = FindOpening(*m_store);
  if (below == nullptr) return ReadOpeningInParts(*this, valueName);
  Result<StoreOpening> opening = Pass<Result<StoreOpening>>(
      {.operation = StoreOperation::ReadOpening, .name = valueName},
      [&](StoreCall& call) { return ReadOpeningBelow(*below, call, branch, otherwise); });
  if (!opening) return opening;
  // A derived class may have other heads and values than the store below.
  const Opened opened{*opening, valueName};
  struct Restore {
    ~Restore() { opened = nullptr; }
    const Opened*& opened;
  } restore{m_opened};
  m_opened = &opened;
  Result<StoreOpening> seen = ReadOpeningInParts(*this, valueName);
  if (seen) seen->objects = std::move(opening->objects);
  return seen;
}

Result<StoreOpening> PassingStore::ReadOpeningBelow(IOpeningStore& store, StoreCall& call,
                                                    std::string_view branch,
                                                    std::string_view otherwise) {
  Result<StoreOpening> opening = store.ReadOpening(branch, call.name, otherwise);
  if (!opening) return opening;
  std::vector<StoredObject> objects;
  for (StoredObject& object : opening->objects) {
    Result<Buffer> found = Found(object.id, std::move(object.packed));
    if (!found) continue;
    call.sizeBytes += found->GetSize();
    objects.push_back({object.id, *std::move(found)});
  }
  opening->objects = std::move(objects);
  return opening;
}

Result<RemovedObjects> PassingStore::RemoveGradually(const MarkObjects& mark,
                                                     std::chrono::milliseconds grace) {
  return Pass<Result<RemovedObjects>>(
      {.operation = StoreOperation::RemoveGradually},
      [&](StoreCall& /*call*/) { return Kit::RemoveGradually(*m_store, mark, grace); });
}

}  // namespace TalVcs::Kit
