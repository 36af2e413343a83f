#include <kit/open/internal/errors.h>
#include <kit/open/internal/head_moves.h>

#include <algorithm>

namespace TalVcs::Kit {

Id HeadOf(std::span<const Head> heads, std::string_view name) {
  const auto found = std::find_if(heads.begin(), heads.end(),
                                  [name](const Head& head) { return head.name == name; });
  return found == heads.end() ? Id() : found->id;
}

HeadIndex::HeadIndex(std::span<const Head> heads) {
  m_heads.reserve(heads.size());
  for (const Head& head : heads) m_heads.try_emplace(head.name, &head);
}

Id HeadIndex::IdOf(std::string_view name) const {
  const auto found = m_heads.find(name);
  return found == m_heads.end() ? Id() : found->second->id;
}

Status MoveHeadsSurely(IObjectStore& store, std::span<const HeadMove> moves) {
  Status status = store.MoveHeads(moves);
  if (status || status.error().code != ErrorCode::Unknown) return status;
  const Result<std::vector<Head>> actual = store.Heads();
  if (!actual) return status;
  const HeadIndex heads(*actual);
  const bool moved = std::all_of(moves.begin(), moves.end(), [&](const HeadMove& move) {
    return heads.IdOf(move.name) == move.desired;
  });
  if (moved) return {};
  const bool unmoved = std::all_of(moves.begin(), moves.end(), [&](const HeadMove& move) {
    return heads.IdOf(move.name) == move.expected;
  });
  if (!unmoved) return status;
  Error error = std::move(status).error();
  error.code = ErrorCode::Unavailable;
  error.unchanged = "the branches are where they were";
  return error;
}

Error ConflictOf(std::span<const HeadMove> moves, std::span<const Head> actual,
                 const std::string& name, const std::string& why) {
  Error error = MakeError(ErrorCode::Conflict, "cannot move branch " + Quoted(name) + ": " + why,
                          name, "no branch was moved");
  const HeadIndex heads(actual);
  for (const HeadMove& move : moves) error.heads.push_back({move.name, heads.IdOf(move.name)});
  return error;
}

}  // namespace TalVcs::Kit
