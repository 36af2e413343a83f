#include <kit/store/background_writer.h>
#include <kit/store/internal/find_interface.h>

#include <utility>

namespace TalVcs::Kit {

IBackgroundWriter::~IBackgroundWriter() = default;

Status BeginWrite(IObjectStore& store, std::vector<StoredObject> objects) {
  IBackgroundWriter* const writer = FindInterface<IBackgroundWriter>(store);
  return writer == nullptr ? store.Write(objects) : writer->BeginWrite(std::move(objects));
}

Status FinishWrites(IObjectStore& store) {
  IBackgroundWriter* const writer = FindInterface<IBackgroundWriter>(store);
  return writer == nullptr ? Status() : writer->FinishWrites();
}

void DropWrites(IObjectStore& store) noexcept {
  if (IBackgroundWriter* const writer = FindInterface<IBackgroundWriter>(store))
    writer->DropWrites();
}

}  // namespace TalVcs::Kit
