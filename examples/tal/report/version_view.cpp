#include "version_view.h"

#include "../text.h"
#include "content_view.h"
#include "html_text.h"

#include <kit/diff/tree_changes.h>

#include <chrono>
#include <optional>

namespace Tal {
namespace {

using TalVcs::Kit::Bytes;
using TalVcs::Kit::Snapshot;
using TalVcs::Kit::TreeChange;
using TalVcs::Kit::TreeChangeKind;
using TalVcs::Kit::Version;
using TalVcs::Kit::Workspace;

std::string TwoDigits(std::int64_t number) {
  return (number < 10 ? "0" : "") + std::to_string(number);
}

struct LocalTime {
  std::string date;
  std::string time;
  std::string offset;
};

LocalTime LocalTimeOf(const Version& version) {
  const auto local = version.time + version.offset;
  const auto day = std::chrono::floor<std::chrono::days>(local);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss time(local - day);
  const auto minutes =
      version.offset.count() < 0 ? -version.offset.count() : version.offset.count();
  return {
      std::to_string(static_cast<int>(date.year())) + '-' +
          TwoDigits(static_cast<unsigned>(date.month())) + '-' +
          TwoDigits(static_cast<unsigned>(date.day())),
      TwoDigits(time.hours().count()) + ':' + TwoDigits(time.minutes().count()),
      (version.offset.count() < 0 ? "-" : "+") + TwoDigits(minutes / 60) + TwoDigits(minutes % 60)};
}

std::string Names(const Version& version, const std::string& current) {
  std::string html;
  for (const std::string& name : version.branches) {
    html += "<bdi class=\"ref" + std::string(name == current ? " now" : "") + "\">" +
            HtmlText(name) + "</bdi>";
  }
  for (const std::string& name : version.tags) {
    html += "<bdi class=\"ref tag\">" + HtmlText(name) + "</bdi>";
  }
  return html;
}

std::string Summary(const Version& version) {
  if (version.summary.empty()) return "<span class=\"quiet\">no message</span>";
  return "<bdi>" + HtmlText(version.summary) + "</bdi>";
}

std::string LinkTo(const VersionTable& table, const TalVcs::Id& id) {
  const int row = table.Find(id);
  const std::string code = "<code>" + ShortId(ToUtf8(id)) + "</code>";
  if (row < 0) return code;
  const Version& version = table.Rows()[static_cast<std::size_t>(row)].version;
  return "<a href=\"#" + ElementOf(version) + "\">" + code + " " + Summary(version) + "</a>";
}

const char* NameOf(TreeChangeKind kind) {
  switch (kind) {
    case TreeChangeKind::Added:
      return "added";
    case TreeChangeKind::Removed:
      return "removed";
    case TreeChangeKind::Changed:
      return "changed";
    case TreeChangeKind::Moved:
      return "moved";
    case TreeChangeKind::MovedAndChanged:
      return "moved and changed";
  }
  return "";
}

std::string Unreadable(const TalVcs::Kit::Error& error) {
  return "<p class=\"bad\">" + HtmlText(Describe(error)) + "</p>\n";
}

/// Reads one side of a change; none if there is no file.
TalVcs::Kit::Result<std::optional<Bytes>> Side(const Snapshot& files, const TalVcs::Id& blob,
                                               const std::string& path) {
  if (blob.View().IsEmpty()) return std::optional<Bytes>();
  TalVcs::Kit::Result<Bytes> bytes = files.Read(path);
  if (!bytes) return std::move(bytes).error();
  return std::optional<Bytes>(*std::move(bytes));
}

std::string ChangeView(const TreeChange& change, const Snapshot& before, const Snapshot& after) {
  const std::string& old_path = change.oldPath.empty() ? change.path : change.oldPath;
  const auto old_bytes = Side(before, change.before, old_path);
  const auto new_bytes = Side(after, change.after, change.path);
  const std::string kind = NameOf(change.kind);
  std::string html = "<details open><summary><span class=\"kind " + kind + "\">" + kind +
                     "</span><bdi><code>" + HtmlText(change.path) + "</code></bdi>";
  if (!change.oldPath.empty()) {
    html += "<span class=\"quiet\">was <bdi>" + HtmlText(change.oldPath) + "</bdi></span>";
  }
  if (!old_bytes) return html + "</summary>" + Unreadable(old_bytes.error()) + "</details>\n";
  if (!new_bytes) return html + "</summary>" + Unreadable(new_bytes.error()) + "</details>\n";
  ContentPair contents;
  if (*old_bytes) contents.before = (*old_bytes)->text();
  if (*new_bytes) contents.after = (*new_bytes)->text();
  if (change.kind == TreeChangeKind::Moved) {
    return html + "</summary><p class=\"quiet\">The content is the same.</p></details>\n";
  }
  return html + "<span class=\"count\">" + CountChanges(contents) + "</span></summary>" +
         CompareContents(contents) + "</details>\n";
}

}  // namespace

std::string ElementOf(const Version& version) {
  constexpr std::size_t kDigits = 16;
  return "v" + ToUtf8(version.id).substr(0, kDigits);
}

std::string VersionLine(const VersionTable::Row& row, const std::string& cell,
                        const std::string& current) {
  const Version& version = row.version;
  const LocalTime time = LocalTimeOf(version);
  return "<li data-version=\"" + ElementOf(version) + "\">" + cell + "<a href=\"#" +
         ElementOf(version) + "\">" + Names(version, current) + Summary(version) +
         "</a><bdi class=\"who\">" + HtmlText(version.author) + "</bdi><span class=\"when\">" +
         time.date + "<span class=\"time\"> " + time.time + "</span></span><span class=\"id\">" +
         ShortId(ToUtf8(version.id)) + "</span></li>\n";
}

std::string VersionHead(const VersionTable& table, const VersionTable::Row& row) {
  const Version& version = row.version;
  const LocalTime time = LocalTimeOf(version);
  std::string html = "<div class=\"about\"><h3>" + Summary(version) + "</h3>\n";
  if (version.message.size() > version.summary.size() + 1) {
    html += "<p class=\"message\">" +
            HtmlText(std::string_view(version.message).substr(version.summary.size() + 1)) +
            "</p>\n";
  }
  html += "<dl><dt>Version</dt><dd><code>" + ToUtf8(version.id) +
          "</code></dd>\n<dt>Author</dt><dd><bdi>" + HtmlText(version.author) +
          "</bdi> <span class=\"quiet\">&lt;<bdi>" + HtmlText(version.email) +
          "</bdi>&gt;</span></dd>\n<dt>Time</dt><dd>" + time.date + ' ' + time.time + ' ' +
          time.offset + "</dd>\n";
  if (!version.parent.View().IsEmpty()) {
    html += "<dt>Follows</dt><dd>" + LinkTo(table, version.parent) + "</dd>\n";
  }
  for (const TalVcs::Id& id : version.merges) {
    html += "<dt>Merged</dt><dd>" + LinkTo(table, id) + "</dd>\n";
  }
  const std::string names = Names(version, {});
  if (!names.empty()) html += "<dt>Names</dt><dd>" + names + "</dd>\n";
  return html + "</dl></div>\n";
}

std::string VersionChanges(const Workspace& workspace, const Version& version) {
  const auto after = workspace.At(version.id);
  if (!after) return Unreadable(after.error());
  TalVcs::Kit::Result<Snapshot> before = Snapshot();
  if (!version.parent.View().IsEmpty()) before = workspace.At(version.parent);
  if (!before) return Unreadable(before.error());
  const auto changes = TalVcs::Kit::FindTreeChanges(before->GetTree(), after->GetTree());
  if (!changes) return Unreadable(changes.error());
  if (changes->empty()) return "<p class=\"quiet\">No file differs from the version before.</p>\n";
  std::string html;
  for (const TreeChange& change : *changes) html += ChangeView(change, *before, *after);
  return html;
}

}  // namespace Tal
