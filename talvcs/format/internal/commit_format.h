#pragma once

#include <talvcs/foundation/names.h>

#include <optional>
#include <string_view>

namespace TalVcs {

// text      := "tree " id? LF parent? "author " info LF "committer " info LF LF description LF
// parent    := "parent " id LF
// info      := name " <" e-mail "> " seconds SP zone      the same in both lines
// zone      := ("+" | "-") hours minutes                  two digits each, more for long hours
//
// All of it is UTF-8 without zero bytes; a surrogate without its other half has the generalised
// form of three bytes. `seconds` are decimal and have 32 bits with a sign. The sign of a zone
// belongs to its hours, so "-00" never occurs.
//
// Name, e-mail and description are free texts: each may hold line breaks and the separators. Texts
// with separators can be split in several ways, all of which give the same bytes when written. The
// reader takes this one: the shortest info that both lines share and that ends with a time and a
// zone; in it, the name up to the first " <" and the time after the last "> ". The description is
// the rest without the last line end.

/// The fields of a commit's text, as views of its bytes.
struct CommitFields {
  std::string_view treeId;    // empty for a commit without a root
  std::string_view parentId;  // empty for a commit without a parent
  std::string_view authorName;
  std::string_view authorEmail;
  std::string_view description;
  Time time;
  TimeDelta bias;
};

/// Splits `text` into its fields, which are valid as long as its bytes. Returns nothing unless it
/// has exactly the form above, so that its fields give the same bytes when written. Cost: linear in
/// the length of the text.
std::optional<CommitFields> ReadCommitText(std::string_view text);

}  // namespace TalVcs
