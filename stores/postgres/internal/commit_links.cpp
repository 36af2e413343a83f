#include <stores/postgres/internal/commit_links.h>
#include <talvcs/persistence/packed_object.h>

namespace TalVcs::Kit::Postgres {

CommitLinks LinksOf(const Buffer& packed) {
  CommitLinks links;
  if (GetPackedType(packed) != ObjectType::Commit) return links;
  const auto visit = [](void* target, const PackedReference& reference) {
    auto& [parent, root] = *static_cast<CommitLinks*>(target);
    (reference.type == ObjectType::Commit ? parent : root) = reference.id;
  };
  VisitReferences(packed, Delegate<void(const PackedReference&)>(&links, visit));
  return links;
}

}  // namespace TalVcs::Kit::Postgres
