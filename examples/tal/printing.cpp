#include "printing.h"

#include "interrupt.h"
#include "text.h"

#include <kit/diff/unified_diff.h>
#include <kit/text/sizes.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <utility>

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

std::string AgeOf(const Kit::Version& version) {
  using std::chrono::system_clock;
  return Kit::FormatAge(version.time,
                        std::chrono::floor<std::chrono::seconds>(system_clock::now()));
}

void PrintChangeFields(Kit::JsonWriter& json, const Change& change) {
  json.Key("path").Text(change.path);
  json.Key("change").Text(Name(change.kind));
  if (!change.oldPath.empty()) json.Key("old_path").Text(change.oldPath);
  if (change.kindBefore == change.kindAfter && change.kindAfter == FileKind::File) return;
  json.Key("kind_before").Text(Name(change.kindBefore));
  json.Key("kind_after").Text(Name(change.kindAfter));
}

}  // namespace

std::string DescriptionOf(const Kit::Version& version) {
  std::string text = version.message;
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

void PrintVersion(const Terminal& terminal, const Kit::Version& version, Times times) {
  StopIfInterrupted();
  std::cout << terminal.Paint(Colour::Yellow, "commit " + IdOf(version));
  for (const std::string& branch : version.branches)
    std::cout << ' ' << terminal.Paint(Colour::Green, "[" + Printable(branch) + "]");
  for (const std::string& tag : version.tags)
    std::cout << ' ' << terminal.Paint(Colour::Magenta, "<" + Printable(tag) + ">");
  std::cout << "\nauthor " << Printable(version.author) << " <" << Printable(version.email)
            << ">\ntime   " << (times == Times::Ages ? AgeOf(version) : FormatTime(version))
            << "\n\n";
  const std::string description = DescriptionOf(version);
  for (std::size_t at = 0; at <= description.size();) {
    const std::size_t end = std::min(description.find('\n', at), description.size());
    std::cout << "    " << Printable(std::string_view(description).substr(at, end - at)) << '\n';
    at = end + 1;
  }
}

void PrintVersionFields(Kit::JsonWriter& json, Session& session, const Kit::Version& version) {
  const TalVcs::cow_ptr<TalVcs::Tree> tree = session.FilesOf(version.id).GetTree();
  json.Key("id").Text(IdOf(version));
  json.Key("parent").TextOrNull(ToUtf8(version.parent));
  json.Key("tree").TextOrNull(tree && !tree->IsEmpty() ? ToUtf8(tree->GetId()) : "");
  json.Key("author").Text(version.author);
  json.Key("email").Text(version.email);
  json.Key("time").Text(FormatTime(version));
  json.Key("seconds").Number(version.time.time_since_epoch().count());
  json.Key("description").Text(DescriptionOf(version));
  for (const auto& [key, names] :
       {std::pair("branches", &version.branches), std::pair("tags", &version.tags)}) {
    json.Key(key).BeginArray();
    for (const std::string& name : *names) json.Text(name);
    json.EndArray();
  }
  json.Key("merges").BeginArray();
  for (const TalVcs::Id& id : version.merges) json.Text(ToUtf8(id));
  json.EndArray();
}

void PrintFileDiff(const Terminal& terminal, const FileSides& sides) {
  std::cout << terminal.Paint(Colour::Bold, std::string(Name(sides.change.kind)) + " " +
                                                DescribePath(sides.change))
            << '\n';
  if (sides.before == sides.after) return;
  if (IsBinary(sides)) {
    std::cout << "binary, " << Kit::FormatSize(sides.before.size()) << " before, "
              << Kit::FormatSize(sides.after.size()) << " after\n";
    return;
  }
  const std::vector<DiffLine> lines = TalVcs::Kit::DiffLines(sides.before, sides.after);
  for (const Hunk& hunk : TalVcs::Kit::FindHunks(lines)) {
    StopIfInterrupted();
    PrintHunk(terminal, lines, hunk);
  }
}

void PrintFileDiffJson(Kit::JsonWriter& json, const FileSides& sides) {
  json.BeginObject();
  PrintChangeFields(json, sides.change);
  json.Key("before").TextOrNull(sides.beforeId);
  json.Key("after").TextOrNull(sides.afterId);
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

void PrintChange(const Terminal& terminal, const Change& change) {
  StopIfInterrupted();
  std::cout << terminal.Paint(ColourOf(change.kind), Name(change.kind)) << '\t'
            << DescribePath(change) << '\n';
}

void PrintChangeJson(Kit::JsonWriter& json, const Change& change) {
  json.BeginObject();
  PrintChangeFields(json, change);
  json.EndObject();
}

}  // namespace Tal
