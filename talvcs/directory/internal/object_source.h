#pragma once

#include <talvcs/foundation/internal/counted_block.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

#include <cstdint>
#include <span>

namespace TalVcs {

class Commit;
class Object;
class Tree;
enum class EntryKind;

/// Where absent links lead: reads the object that a link names, or finds the instance that is in
/// memory already.
///
/// Counted: every directory and every commit with an absent link holds it. For an object that can't
/// be read it throws `ObjectUnavailable`, and the link stays absent.
class ObjectSource : public TalUtils::CountedBlock {
 public:
  /// The place of a directory, made of the names on the path to it. Two directories at one place
  /// are likely to be states of one directory; nothing depends on it but the use of memory.
  using Place = std::uint32_t;
  static constexpr Place kRootPlace = 1;
  /// Returns the place of the subdirectory `name`.
  static Place PlaceBelow(Place place, TalStringViewT<WideChar> name) noexcept;

  ObjectSource(const ObjectSource&) = delete;
  ObjectSource& operator=(const ObjectSource&) = delete;

  /// Deletes a source that has no hold left.
  static void Free(ObjectSource* source) noexcept { delete source; }

  /// Return the instance of that id. `place` is that of the entry, for a subtree.
  virtual cow_ptr<Object> OpenEntry(EntryKind kind, const Id& id, Place place) = 0;
  virtual cow_ptr<Tree> OpenRoot(const Id& id) = 0;
  virtual cow_ptr<Commit> OpenParent(const Id& id, const Id& child) = 0;

  /// A subtree that is opened next.
  struct ExpectedTree {
    Id id;
    Place place;
  };
  /// Announces that the caller opens these trees next, and if `deep` is true, what lies below them.
  /// One read serves them all. A tree that can't be read fails when its link is followed.
  virtual void ExpectTrees(std::span<const ExpectedTree> trees, bool deep) = 0;

 protected:
  ObjectSource() = default;
  virtual ~ObjectSource() = default;
};

using SourcePtr = TalUtils::CountedPtr<ObjectSource>;

}  // namespace TalVcs
