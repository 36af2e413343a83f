#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/object_unavailable.h>

#include <optional>
#include <span>

namespace TalVcs {

/// Which objects a reader may pass in addition to the wanted ones.
enum class ReadAhead {
  None,      ///< nothing
  Subtrees,  ///< for each wanted tree, the trees directly below it
  History,   ///< for a wanted commit, ancestors of it
};

/// Where a storage on demand reads objects from; a host implements it.
///
/// The storage calls it when a caller follows a link to an object that isn't in memory. The storage
/// checks the bytes, so a reader need not look into them.
class TALVCS_API IObjectReader {
 public:
  /// Takes an object's packed form, or nothing and the reason.
  using Sink = Delegate<void(const Id& id, const Buffer* packed, ObjectProblem problem)>;

  virtual ~IObjectReader();

  /// Passes each of `wanted` to `sink` once, in any order: its packed form, or null and the reason.
  /// May also pass other objects that `ahead` allows. The storage keeps a few megabytes of them and
  /// uses those that are wanted soon. `history` is the number of commits to pass at the most for
  /// `ReadAhead::History`, the wanted one included. An exception passes through to the caller that
  /// followed the link.
  virtual void Read(std::span<const Id> wanted, ReadAhead ahead, std::uint64_t history,
                    Sink sink) = 0;

 protected:
  IObjectReader() = default;
  IObjectReader(const IObjectReader&) = default;
  IObjectReader& operator=(const IObjectReader&) = default;
};

}  // namespace TalVcs
