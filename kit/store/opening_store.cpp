#include <kit/store/internal/find_interface.h>
#include <kit/store/internal/opening.h>
#include <kit/store/internal/sound_value.h>

#include <utility>

namespace TalVcs::Kit {

IOpeningStore::~IOpeningStore() = default;

IOpeningStore* FindOpening(IObjectStore& store) noexcept {
  return FindInterface<IOpeningStore>(store);
}

Result<StoreOpening> ReadOpeningInParts(IObjectStore& store, std::string_view valueName) {
  Result<std::vector<Head>> heads = store.Heads();
  if (!heads) return std::move(heads).error();
  Result<std::optional<std::string>> value = ReadSoundValue(store, valueName);
  if (!value) return std::move(value).error();
  return StoreOpening{*std::move(heads), *std::move(value), {}};
}

Result<StoreOpening> ReadOpening(IObjectStore& store, std::string_view branch,
                                 std::string_view valueName, std::string_view otherwise) {
  IOpeningStore* const opening = FindOpening(store);
  return opening == nullptr ? ReadOpeningInParts(store, valueName)
                            : opening->ReadOpening(branch, valueName, otherwise);
}

}  // namespace TalVcs::Kit
