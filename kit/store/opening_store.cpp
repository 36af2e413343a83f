#include <kit/store/internal/sound_value.h>
#include <kit/store/opening_store.h>

#include <utility>

namespace TalVcs::Kit {

IOpeningStore::~IOpeningStore() = default;

Result<StoreOpening> ReadOpening(IObjectStore& store, std::string_view branch,
                                 std::string_view valueName, std::string_view otherwise) {
#ifdef __cpp_rtti
  if (auto* opening = dynamic_cast<IOpeningStore*>(&store)) {
    return opening->ReadOpening(branch, valueName, otherwise);
  }
#else
  // Without type information no store is known to have it.
  static_cast<void>(branch);
  static_cast<void>(otherwise);
#endif
  Result<std::vector<Head>> heads = store.Heads();
  if (!heads) return std::move(heads).error();
  Result<std::optional<std::string>> value = ReadSoundValue(store, valueName);
  if (!value) return std::move(value).error();
  return StoreOpening{*std::move(heads), *std::move(value), {}};
}

}  // namespace TalVcs::Kit
