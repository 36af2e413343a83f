#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/object_unavailable.h>

#include <optional>
#include <span>

namespace TalVcs {

/// What a reader may pass on beside what it is asked for.
enum class ReadAhead {
  None,      ///< nothing
  Subtrees,  ///< for each wanted tree, the trees directly below it
  History,   ///< for a wanted commit, ancestors of it
};

/// Where a storage on demand reads objects from; a host implements it.
///
/// A read is asked for when a link is followed whose object isn't in memory. The bytes are checked
/// by the storage, so a reader needn't look into them.
class TALVCS_API IObjectReader {
 public:
  /// Takes an object's packed form, or nothing and the reason.
  using Sink = Delegate<void(const Id& id, const Buffer* packed, ObjectProblem problem)>;

  virtual ~IObjectReader();

  /// Passes each of `wanted` to `sink` once, in any order: its packed form, or null and the reason.
  /// May pass on other objects that `ahead` allows, of which those come to use that are asked for
  /// soon; what is passed ahead is kept within a bound of a few megabytes and may be dropped.
  /// `history` is the number of commits to pass at the most for `ReadAhead::History`, the wanted
  /// one included. An exception passes through to whoever followed the link.
  virtual void Read(std::span<const Id> wanted, ReadAhead ahead, std::uint64_t history,
                    Sink sink) = 0;

 protected:
  IObjectReader() = default;
  IObjectReader(const IObjectReader&) = default;
  IObjectReader& operator=(const IObjectReader&) = default;
};

}  // namespace TalVcs
