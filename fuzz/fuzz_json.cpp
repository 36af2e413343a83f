// Reads, compares and merges JSON documents: root, left and right, each a part of the input. The
// first byte chooses the side that is taken for a conflict, and what identifies elements.

#include "input.h"
#include "target.h"

#include <kit/merge/json_merge.h>

#include <string>
#include <utility>

namespace {

using namespace TalVcs::Kit;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::Require;

/// Returns true for a document that can be read, which equals itself and what is written of it.
bool CheckReading(const std::string& document) {
  const auto changes = DiffJson(document, document);
  if (!changes) {
    const ErrorCode code = changes.error().code;
    Require(code == ErrorCode::Damaged || code == ErrorCode::BadText, "the code of the error");
    Require(changes.error().subject == "before", "the subject of the error");
    return false;
  }
  Require(changes->empty(), "a document equals itself");
  const auto whole = DiffJson("[" + document + "]", "[]", {.identityMembers = {}});
  if (!whole) {
    const bool is_too_deep = whole.error().message.find("levels") != std::string::npos;
    Require(is_too_deep, "a document can be an element");
    return true;
  }
  Require(whole->size() == 1, "an array is one value");
  const std::string& written = whole->front().before;
  Require(DiffJson("[" + document + "]", written).value().empty(), "what is written is the same");
  return true;
}

/// Requires that a merge is clean and has the value of `side`.
void CheckTaken(const JsonMerge& merge, const std::string& side) {
  Require(merge.IsClean(), "a merge with one changed side is clean");
  Require(DiffJson(merge.text, side).value().empty(), "the change of a side is taken");
}

void CheckMerge(const std::string& root, const std::string& left, const std::string& right,
                JsonMergeOptions options) {
  const JsonMerge merge = MergeJson(root, left, right, options).value();
  Require(DiffJson(merge.text, merge.text).value().empty(), "the merged document is JSON");
  for (const JsonConflict& conflict : merge.conflicts) {
    Require(conflict.left != conflict.right, "the sides of a conflict differ");
  }
  const MergeSide side = options.conflictSide;
  if (side != MergeSide::Root) {
    options.conflictSide = side == MergeSide::Left ? MergeSide::Right : MergeSide::Left;
  }
  const JsonMerge exchanged = MergeJson(root, right, left, options).value();
  Require(exchanged.conflicts.size() == merge.conflicts.size(),
          "exchanged sides give the same conflicts");
  for (const JsonChange& change : DiffJson(merge.text, exchanged.text, options.arrays).value()) {
    // Elements that only one side has follow those of the left side.
    Require(change.kind == JsonChangeKind::Reordered, "exchanged sides give the same members");
  }
  Require(MergeAddedJson(left, right, options).ok(), "documents without a root can be merged");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  const std::uint8_t choice = input.Byte();
  JsonMergeOptions options;
  options.conflictSide = static_cast<MergeSide>(choice % 3);
  if (choice / 3 % 2 == 1) options.arrays.identityMembers = {"k", "id"};
  const std::string root = input.Part();
  const std::string left = input.Part();
  const std::string right = input.Rest();
  const bool has_root = CheckReading(root);
  const bool has_left = CheckReading(left);
  const bool has_right = CheckReading(right);
  if (has_root && has_left) {
    CheckTaken(MergeJson(root, left, root, options).value(), left);
    CheckTaken(MergeJson(root, root, left, options).value(), left);
    CheckTaken(MergeJson(root, left, left, options).value(), left);
  }
  if (has_root && has_left && has_right) CheckMerge(root, left, right, options);
  return 0;
}
