#pragma once

#include <kit/store/object_store.h>

#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

namespace TalVcs::Kit {

/// How often a save or copy begins again because a clean-up ran meanwhile.
inline constexpr int kMostAttempts = 4;

/// Returns the head of that branch; the empty id if there is none.
Id HeadOf(std::span<const Head> heads, std::string_view name);

/// Finds heads by the names of their branches. For callers that look up as many names as there are
/// branches. The heads must outlive it.
class HeadIndex {
 public:
  explicit HeadIndex(std::span<const Head> heads);

  /// Returns the head of that branch; the empty id if there is none.
  Id IdOf(std::string_view name) const;
  bool Contains(std::string_view name) const { return m_heads.contains(name); }

 private:
  std::unordered_map<std::string_view, const Head*> m_heads;
};

/// Moves the heads. Where the store does not know whether they moved, looks at them to find out.
Status MoveHeadsSurely(IObjectStore& store, std::span<const HeadMove> moves);

/// Returns the conflict of moves one of which expects `name` elsewhere, with the actual heads.
Error ConflictOf(std::span<const HeadMove> moves, std::span<const Head> actual,
                 const std::string& name, const std::string& why);

}  // namespace TalVcs::Kit
