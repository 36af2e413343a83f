#pragma once

#include <kit/text.h>
#include <talvcs/persistence/path_builder.h>

/// What the stores agree on about paths.
namespace TalVcs::Kit {

/// Returns what all paths below `directory` begin with.
inline WideString PrefixBelow(const WideString& directory) {
  WideString prefix = directory;
  if (!prefix.EndsWith(TAL_WIDE("/"))) prefix += TAL_WIDE("/");
  return prefix;
}

/// True if what stands below `prefix` are branches, whose names may hold "/".
inline bool HoldsBranches(const WideString& prefix) {
  const WideString branches = PrefixBelow(PathBuilder::GetBranchesPath(WideString()));
  return (TAL_WIDE("/") + prefix).EndsWith(branches);
}

/// Calls `visit(name)` for each stream directly below `directory`. `streams` is an ordered map from
/// paths.
template <class Map, class Visit>
void VisitNames(const Map& streams, const WideString& directory, Visit visit) {
  const WideString prefix = PrefixBelow(directory);
  const bool branches = HoldsBranches(prefix);
  for (auto at = streams.lower_bound(prefix); at != streams.end(); ++at) {
    if (!at->first.StartsWith(prefix)) return;
    const WideString name = at->first.Mid(prefix.GetLength());
    if (branches || name.Find(TAL_WIDE("/")) < 0) visit(name);
  }
}

/// Removes every stream below `directory`.
template <class Map>
void EraseBelow(Map& streams, const WideString& directory) {
  const WideString prefix = PrefixBelow(directory);
  const auto first = streams.lower_bound(prefix);
  auto last = first;
  while (last != streams.end() && last->first.StartsWith(prefix)) ++last;
  streams.erase(first, last);
}

/// Returns a reader on `bytes`, which it shares.
inline StreamIO ReaderOf(const Buffer& bytes) {
  Stream stream = MemStream::Create(0);
  stream.Write(bytes);
  stream.SeekToBegin();
  return stream;
}

}  // namespace TalVcs::Kit
