#include "printing.h"

#include "text.h"

#include <kit/diff/unified_diff.h>

#include <algorithm>
#include <iostream>

namespace Tal {
namespace {

using TalVcs::Kit::DiffLine;
using TalVcs::Kit::Hunk;
using TalVcs::Kit::LineKind;

std::size_t CountLines(const std::vector<DiffLine>& lines, LineKind kind) {
  return static_cast<std::size_t>(std::count_if(
      lines.begin(), lines.end(), [&](const DiffLine& line) { return line.kind == kind; }));
}

Colour ColourOf(LineKind kind) {
  return kind == LineKind::Kept    ? Colour::Plain
         : kind == LineKind::Added ? Colour::Green
                                   : Colour::Red;
}

void PrintHunk(const Terminal& terminal, const std::vector<DiffLine>& lines, const Hunk& hunk) {
  std::cout << terminal.Paint(Colour::Cyan, TalVcs::Kit::HunkHeader(hunk)) << '\n';
  for (std::size_t i = hunk.first; i < hunk.first + hunk.count; ++i) {
    const DiffLine& line = lines[i];
    std::cout << terminal.Paint(ColourOf(line.kind), TalVcs::Kit::UnifiedLine(line)) << '\n';
    if (!line.text.ends_with('\n')) std::cout << TalVcs::Kit::kNoNewlineMark << '\n';
  }
}

/// Returns true if one of the two versions of the file is not text.
bool IsBinary(const FileSides& sides) {
  return TalVcs::Kit::IsBinary(sides.before) || TalVcs::Kit::IsBinary(sides.after);
}

void PrintTextOrNull(JsonWriter& json, std::string_view text) {
  if (text.empty()) {
    json.Null();
  } else {
    json.Text(text);
  }
}

}  // namespace

void PrintCommit(const Terminal& terminal, const HistoryCommit& entry) {
  const TalVcs::Commit& commit = *entry.commit;
  std::cout << terminal.Paint(Colour::Yellow, "commit " + entry.id);
  for (const std::string& branch : entry.branches)
    std::cout << ' ' << terminal.Paint(Colour::Green, "[" + Printable(branch) + "]");
  std::cout << "\nauthor " << Printable(ToUtf8(commit.GetAuthorName())) << " <"
            << Printable(ToUtf8(commit.GetAuthorEmail())) << ">\ntime   " << FormatTime(commit)
            << "\n\n    " << Printable(ToUtf8(commit.GetDesciption())) << '\n';
}

void PrintCommitFields(JsonWriter& json, const TalVcs::Commit& commit,
                       const std::vector<std::string>& branches) {
  json.Key("id").Text(ToUtf8(commit.GetId()));
  json.Key("parent");
  PrintTextOrNull(json, commit.GetParent() ? ToUtf8(commit.GetParent()->GetId()) : "");
  json.Key("tree");
  PrintTextOrNull(json, commit.GetTree() ? ToUtf8(commit.GetTree()->GetRootId()) : "");
  json.Key("author").Text(ToUtf8(commit.GetAuthorName()));
  json.Key("email").Text(ToUtf8(commit.GetAuthorEmail()));
  json.Key("time").Text(FormatTime(commit));
  json.Key("seconds").Number(commit.GetCommitTime().ToTimeT());
  json.Key("description").Text(ToUtf8(commit.GetDesciption()));
  json.Key("branches").BeginArray();
  for (const std::string& branch : branches) json.Text(branch);
  json.EndArray();
}

void PrintFileDiff(const Terminal& terminal, const FileSides& sides) {
  std::cout << terminal.Paint(Colour::Bold, std::string(Name(sides.change.kind)) + " " +
                                                Printable(sides.change.path))
            << '\n';
  if (IsBinary(sides)) {
    std::cout << "binary, " << FormatBytes(sides.before.size()) << " before, "
              << FormatBytes(sides.after.size()) << " after\n";
    return;
  }
  const std::vector<DiffLine> lines = TalVcs::Kit::DiffLines(sides.before, sides.after);
  for (const Hunk& hunk : TalVcs::Kit::FindHunks(lines)) PrintHunk(terminal, lines, hunk);
}

void PrintFileDiffJson(JsonWriter& json, const FileSides& sides) {
  json.BeginObject();
  json.Key("path").Text(sides.change.path);
  json.Key("change").Text(Name(sides.change.kind));
  json.Key("before");
  PrintTextOrNull(json, sides.beforeId);
  json.Key("after");
  PrintTextOrNull(json, sides.afterId);
  const bool binary = IsBinary(sides);
  json.Key("binary").Bool(binary);
  if (!binary) {
    const std::vector<DiffLine> lines = TalVcs::Kit::DiffLines(sides.before, sides.after);
    json.Key("lines_added").Number(static_cast<std::int64_t>(CountLines(lines, LineKind::Added)));
    json.Key("lines_removed")
        .Number(static_cast<std::int64_t>(CountLines(lines, LineKind::Removed)));
  }
  json.EndObject();
}

}  // namespace Tal
