#include <kit/store/background_writer.h>

#include <utility>

namespace TalVcs::Kit {

namespace {

IBackgroundWriter* FindBackgroundWriter(IObjectStore& store) noexcept {
#ifdef __cpp_rtti
  return dynamic_cast<IBackgroundWriter*>(&store);
#else
  // Without type information no store is known to have it.
  static_cast<void>(store);
  return nullptr;
#endif
}

}  // namespace

IBackgroundWriter::~IBackgroundWriter() = default;

Status BeginWrite(IObjectStore& store, std::vector<StoredObject> objects) {
  IBackgroundWriter* const writer = FindBackgroundWriter(store);
  return writer == nullptr ? store.Write(objects) : writer->BeginWrite(std::move(objects));
}

Status FinishWrites(IObjectStore& store) {
  IBackgroundWriter* const writer = FindBackgroundWriter(store);
  return writer == nullptr ? Status() : writer->FinishWrites();
}

void DropWrites(IObjectStore& store) noexcept {
  if (IBackgroundWriter* const writer = FindBackgroundWriter(store)) writer->DropWrites();
}

}  // namespace TalVcs::Kit
