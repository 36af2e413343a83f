#include <kit/store/internal/parent_of.h>
#include <kit/store/read_history.h>
#include <talvcs/persistence/packed_object.h>

#include <optional>
#include <utility>

namespace TalVcs::Kit {

std::optional<Id> ParentOf(const Buffer& packed) {
  std::optional<Id> parent;
  const auto visit = [](void* target, const PackedReference& reference) {
    if (reference.type == ObjectType::Commit) {
      *static_cast<std::optional<Id>*>(target) = reference.id;
    }
  };
  VisitReferences(packed, Delegate<void(const PackedReference&)>(&parent, visit));
  return parent;
}

Status ReadHistoryByParents(IObjectStore& store, const Id& id, std::uint64_t most,
                            const ReadSink& sink) {
  std::optional<Id> next = id;
  for (std::uint64_t count = 0; next && count < most; ++count) {
    const Id current = *std::exchange(next, std::nullopt);
    Status status = store.Read({&current, 1}, [&](const Id& found, Result<Buffer> packed) {
      if (packed) next = ParentOf(*packed);
      sink(found, std::move(packed));
    });
    if (!status) return status;
  }
  return {};
}

}  // namespace TalVcs::Kit
