#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/object_unavailable.h>

#include <optional>

namespace TalVcs {

/// The types of objects, in the order of their layers.
enum class ObjectType { Blob, Tree, Commit };

/// What a packed tree or commit names.
struct PackedReference {
  ObjectType type;
  Id id;
  /// The entry's name in a tree; empty for the tree and the parent of a commit.
  TalStringT<WideChar> name;
};

/// Returns nothing if `packed` has the digest that `id` says and exactly the form that the library
/// writes, otherwise what is wrong: `Damaged` or `NotCanonical`. Cost: one pass over the bytes.
TALVCS_API std::optional<ObjectProblem> CheckPackedObject(const Id& id, const Buffer& packed);

/// Returns the type that the header tells, or nothing for none of the three.
TALVCS_API std::optional<ObjectType> GetPackedType(const Buffer& packed);

/// Calls `visit` for what a packed form names: each entry of a tree, in order; a commit's tree, if
/// it has one, and then its parent, if it has one. Returns false, having visited nothing, for bytes
/// that aren't exactly in the form that the library writes. The digest isn't looked at.
TALVCS_API bool VisitReferences(const Buffer& packed,
                                Delegate<void(const PackedReference& reference)> visit);

}  // namespace TalVcs
