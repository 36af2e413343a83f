#pragma once

#include <talvcs/export.h>
#include <talvcs/format/object_type.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/object_unavailable.h>

#include <optional>

namespace TalVcs {

/// An object that a packed tree or commit refers to.
struct PackedReference {
  ObjectType type;  ///< Its type, as the reference says.
  Id id;            ///< Its id.
  /// The entry's name in a tree; empty for the tree and the parent of a commit.
  TalStringT<WideChar> name;
};

/// Returns nothing if `packed` has the digest `id` and exactly the form that the library writes.
/// Otherwise returns the problem: `Damaged` for another digest, `NotCanonical` for another form.
/// Cost: one pass over the bytes.
TALVCS_API std::optional<ObjectProblem> CheckPackedObject(const Id& id, const Buffer& packed);

/// Returns the type in the header of `packed`. Returns nothing if the type is unknown or the header
/// is not in the form that the library writes, which includes the size of the data. The data itself
/// is not checked.
TALVCS_API std::optional<ObjectType> GetPackedType(const Buffer& packed);

/// Calls `visit` for each object that `packed` refers to: the entries of a tree, in order; the tree
/// of a commit and then its parent, if it has them. A blob refers to nothing.
///
/// Returns false, without a call, if `packed` is not exactly in the form that the library writes.
/// The digest is not checked. The reference that `visit` gets is valid during that call.
TALVCS_API bool VisitReferences(const Buffer& packed,
                                Delegate<void(const PackedReference& reference)> visit);

/// Takes an entry of a tree, and the id that a previous version of the tree has under its name for
/// an entry of the same type, or the empty id.
using ChangedReference = Delegate<void(const PackedReference& reference, const Id& previous)>;

/// Calls `visit` for each entry of the packed tree `packed` that the packed tree `previous` doesn't
/// have in the same form, in order.
///
/// Both must be in the form that the library writes, as after `CheckPackedObject`. Returns false at
/// the first bytes that show that they aren't; what was visited before are entries of `packed`.
/// Cost: one pass over the bytes; only entries that differ are decoded.
TALVCS_API bool VisitChangedReferences(const Buffer& packed, const Buffer& previous,
                                       ChangedReference visit);

/// Calls `visit` for each subtree of the packed tree `packed`, in order. It must be in the form
/// that the library writes; returns false at the first bytes that show that it isn't. Cost: one
/// pass over the bytes; only subtrees are decoded.
TALVCS_API bool VisitSubtrees(const Buffer& packed,
                              Delegate<void(const PackedReference& reference)> visit);

}  // namespace TalVcs
