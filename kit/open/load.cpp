#include <kit/open/internal/history_walk.h>
#include <kit/open/internal/loaded_objects.h>
#include <kit/open/internal/opened_access.h>
#include <kit/open/load.h>
#include <kit/store/internal/sound_value.h>

#include <utility>

namespace TalVcs::Kit {

Result<OpenedRepository> Load(std::shared_ptr<IObjectStore> store, const LoadOptions& options) {
  const Result<std::vector<Head>> heads = store->Heads();
  if (!heads) return heads.error();
  auto loaded = std::make_shared<LoadedObjects>();
  WalkHooks hooks;
  hooks.commitRead = [&loaded](const CommitRecord& commit) {
    loaded->Add(commit.id, commit.packed);
    return Status();
  };
  hooks.objectRead = [&loaded](const StoredObject& object, bool /*isWhole*/) {
    loaded->Add(object.id, object.packed);
    return Status();
  };
  Reporter reporter(options.progress);
  Result<HistoryReport> report = HistoryWalk(*store, reporter, std::move(hooks)).Run(*heads);
  if (!report) return report.error();
  loaded->SetDamages(report->damages);
  Result<std::optional<std::string>> saved = ReadSoundValue(*store, kBranchValue);
  if (!saved) return std::move(saved).error();
  return OpenedAccess::Make(std::move(store), loaded, loaded, *std::move(report), options.policy,
                            options.branch, *std::move(saved));
}

}  // namespace TalVcs::Kit
