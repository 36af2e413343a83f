#pragma once

#include <kit/store/object_store.h>
#include <kit/text.h>

#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What stores have in common, for those who implement `IObjectStore`: the rule by which heads
/// move, and the errors of the contract. Nothing here keeps a state. Threads: none is shared.
namespace TalVcs::Kit {

/// Branches by name, each with the id of its head, which isn't empty.
using HeadTable = std::map<std::string, Id>;

/// Returns the error `BadName` for an id that no object can have.
inline Error NotAnObjectId(const Id& id) {
  Error error;
  error.code = ErrorCode::BadName;
  error.subject = ToUtf8(id.View());
  error.message = "\"" + error.subject + "\" is not the id of an object";
  return error;
}

/// Returns the heads of a table, sorted by name.
inline std::vector<Head> ListHeads(const HeadTable& heads) {
  std::vector<Head> list;
  list.reserve(heads.size());
  for (const auto& [name, id] : heads) list.push_back({name, id});
  return list;
}

/// Returns whether all of the moves can be made from `heads`: `BadName` for a branch that comes
/// twice or an id that is none, `Conflict` with the actual heads.
inline Status CheckMoves(const HeadTable& heads, std::span<const HeadMove> moves) {
  Error conflict;
  conflict.code = ErrorCode::Conflict;
  std::set<std::string_view> names;
  for (const HeadMove& move : moves) {
    if (!move.desired.View().IsEmpty() && !IsObjectId(move.desired)) {
      return NotAnObjectId(move.desired);
    }
    if (!names.insert(move.name).second) {
      Error twice;
      twice.code = ErrorCode::BadName;
      twice.subject = move.name;
      twice.message = "cannot move the branch \"" + move.name + "\" twice at once";
      return twice;
    }
    const auto found = heads.find(move.name);
    const Id actual = found == heads.end() ? Id() : found->second;
    if (actual != move.expected && conflict.message.empty()) {
      conflict.subject = move.name;
      conflict.message = "the branch \"" + move.name + "\" has moved meanwhile";
      conflict.unchanged = "no branch was moved";
    }
    conflict.heads.push_back({move.name, actual});
  }
  return conflict.message.empty() ? Status() : Status(std::move(conflict));
}

/// Makes moves that `CheckMoves` found possible.
inline void ApplyMoves(HeadTable& heads, std::span<const HeadMove> moves) {
  for (const HeadMove& move : moves) {
    if (move.desired.View().IsEmpty()) {
      heads.erase(move.name);
    } else {
      heads.insert_or_assign(move.name, move.desired);
    }
  }
}

/// Returns the error `Busy` of a move of heads after objects were removed that the save relied on.
inline Error ObjectsWereRemoved() {
  Error error;
  error.code = ErrorCode::Busy;
  error.message = "objects that the save relies on may have been removed meanwhile";
  error.unchanged = "no branch was moved";
  return error;
}

/// Returns the error `NotFound` for an object that the store lacks.
inline Error NoSuchObject(const Id& id) {
  Error error;
  error.code = ErrorCode::NotFound;
  error.subject = ToUtf8(id.View());
  error.message = "the store has no object " + error.subject;
  return error;
}

}  // namespace TalVcs::Kit
