// Compares and merges texts. The first byte bounds the search of a comparison, the second chooses
// what is written for a conflict; root, left and right follow, each a part of the input.

#include "input.h"
#include "target.h"

#include <kit/diff/unified_diff.h>
#include <kit/diff/word_diff.h>
#include <kit/merge/text_merge.h>

#include <algorithm>
#include <string>
#include <utility>

namespace {

using namespace TalVcs::Kit;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::Require;

void CheckRanges(const MarkedLine& line) {
  std::size_t end = 0;
  for (const TextRange& range : line.changed) {
    Require(range.sizeBytes > 0 && range.offset >= end, "changed words ascend");
    end = range.offset + range.sizeBytes;
  }
  Require(end <= line.text.size(), "changed words lie in the line");
}

void Compare(const std::string& before, const std::string& after, const LineDiffOptions& options) {
  const std::vector<DiffLine> lines = DiffLines(before, after, options);
  std::string old_text;
  std::string new_text;
  for (const DiffLine& line : lines) {
    if (line.kind != LineKind::Added) old_text += line.text;
    if (line.kind != LineKind::Removed) new_text += line.text;
  }
  Require(old_text == before && new_text == after, "the comparison has both texts");
  std::size_t last = 0;
  for (const Hunk& hunk : FindHunks(lines)) {
    Require(hunk.first >= last && hunk.count > 0, "hunks ascend");
    last = hunk.first + hunk.count;
  }
  Require(last <= lines.size(), "hunks lie in the comparison");
  for (const MarkedLine& line : MarkChangedWords(lines)) CheckRanges(line);
}

std::string Merged(const std::string& root, const std::string& left, const std::string& right) {
  const TextMerge merge = MergeText(root, left, right).value();
  Require(merge.IsClean(), "a merge with one changed side is clean");
  return merge.text;
}

std::string LinesAt(const std::string& text, const LineRange& range) {
  const std::vector<std::string_view> lines = SplitLines(text);
  Require(range.first + range.count <= lines.size(), "lines of a conflict lie in the text");
  std::string part;
  for (std::size_t i = 0; i < range.count; ++i) part += lines[range.first + i];
  return part;
}

void Merge(const std::string& root, const std::string& left, const std::string& right,
           TextMergeOptions options) {
  const auto merge = MergeText(root, left, right, options);
  if (!merge) {
    Require(IsBinary(root) || IsBinary(left) || IsBinary(right), "every text can be merged");
    return;
  }
  for (const TextConflict& conflict : merge->conflicts) {
    Require(LinesAt(root, conflict.rootLines) == conflict.root, "root lines of a conflict");
    Require(LinesAt(left, conflict.leftLines) == conflict.left, "left lines of a conflict");
    Require(LinesAt(right, conflict.rightLines) == conflict.right, "right lines of a conflict");
  }
  options.conflictText = ConflictText::Left;
  const TextMerge chosen = MergeText(root, left, right, options).value();
  options.conflictText = ConflictText::Right;
  TextMerge exchanged = MergeText(root, right, left, options).value();
  for (TextConflict& conflict : exchanged.conflicts) {
    std::swap(conflict.left, conflict.right);
    std::swap(conflict.leftLines, conflict.rightLines);
  }
  Require(exchanged.text == chosen.text, "exchanged sides give the same text");
  Require(exchanged.conflicts == chosen.conflicts, "exchanged sides give the same conflicts");
  Require(merge->IsClean() == chosen.IsClean(), "conflicts do not depend on what is written");
  if (merge->IsClean()) Require(merge->text == chosen.text, "a clean merge has one text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  // The largest bound is none for inputs of this size.
  const std::uint8_t bound = input.Byte();
  TextMergeOptions options;
  options.lines.mostSteps = bound == 255 ? 1'000'000 : bound;
  options.conflictText = static_cast<ConflictText>(input.Byte() % 6);
  const std::string root = input.Part();
  const std::string left = input.Part();
  const std::string right = input.Rest();
  Compare(root, left, options.lines);
  Compare(left, right, options.lines);
  Require(Merged(root, left, root) == left, "a change of the left side is taken");
  Require(Merged(root, root, left) == left, "a change of the right side is taken");
  Require(Merged(root, left, left) == left, "a change of both sides is taken");
  Merge(root, left, right, options);
  return 0;
}
