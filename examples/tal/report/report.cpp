// page := head header (cut)? history compare branches check data script
//
// The policy allows the one style and the one script by the hashes of their texts, and pictures
// that are part of the page. Nothing else can load or run.

#include "report.h"

#include "../failure.h"
#include "../graph.h"
#include "../terminal.h"
#include "../text.h"
#include "content_view.h"
#include "html_text.h"
#include "page_parts.h"
#include "store_view.h"
#include "version_table.h"
#include "version_view.h"

#include <kit/diff/line_diff.h>
#include <kit/text/base64.h>
#include <kit/text/sizes.h>

#include <algorithm>
#include <limits>

namespace Tal {
namespace {

using TalVcs::Kit::Version;
using TalVcs::Kit::Workspace;

template <class T>
T ValueOf(TalVcs::Kit::Result<T> result) {
  if (!result) throw Failure("cannot make the report: " + Describe(result.error()));
  return *std::move(result);
}

/// Returns the hash of a style or script as a policy names it.
std::string PolicyHash(std::string_view text) {
  const std::string hex =
      ToUtf8(TalVcs::Helpers::ComputeEncodedSHA256Hash(text.data(), text.size()));
  std::string digest;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    digest += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  }
  return "'sha256-" + TalVcs::Kit::EncodeBase64(digest) + "'";
}

std::string Head(const std::string& title) {
  return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; script-src " +
         PolicyHash(kPageScript) + "; style-src " + PolicyHash(kPageStyle) +
         "; img-src data:; base-uri 'none'; form-action 'none'\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
         HtmlAttribute(title) + "</title>\n<style>" + std::string(kPageStyle) +
         "</style>\n</head>\n<body>\n";
}

constexpr std::string_view kFilter = R"(<form id="filter" hidden>
<label>Text <input id="text" type="search" size="16"></label>
<label>Author <select id="author"><option value="">everybody</option></select></label>
<label>Branch <select id="branch"><option value="">all</option></select></label>
<label>Path <input id="path" type="search" size="16"></label>
<span id="count" class="quiet" role="status"></span>
</form>
)";

constexpr std::string_view kCompare = R"(<section id="compare" hidden>
<h2>Compare two versions</h2>
<form id="pick" hidden>
<label>From <select id="from"></select></label>
<label>to <select id="to"></select></label>
<button>Compare</button>
</form>
<div id="result"></div>
</section>
)";

class ReportMaker {
 public:
  ReportMaker(const Workspace& workspace, TalVcs::Kit::IObjectStore& store,
              const ReportOptions& options)
      : m_workspace(workspace),
        m_store(store),
        m_options(options),
        m_table(workspace, AllVersions()),
        m_versionCount(m_table.Rows().size()) {}

  Report Run() {
    const std::string title = m_options.title.empty() ? "History" : m_options.title;
    const std::string head = Head(title) + Header(title);
    const std::string tail = StoreSections();
    Take(head.size() + tail.size() + kFilter.size() + kCompare.size() + kPageScript.size());
    constexpr std::uint64_t kRest = 8192;  // the elements between, and the list of cuts
    Take(kRest);
    ChooseRows();
    AddChanges();
    AddContents();
    Report report;
    report.cuts = m_cuts;
    report.page = head + Cuts() + History() + std::string(kCompare) + tail + Data() + "<script>" +
                  std::string(kPageScript) + "</script>\n</body>\n</html>\n";
    return report;
  }

 private:
  std::vector<Version> AllVersions() {
    auto versions = m_workspace.Log({.allBranches = true,
                                     .limit = std::numeric_limits<std::uint64_t>::max(),
                                     .progress = m_options.progress});
    if (versions) return *std::move(versions);
    if (versions.error().code == TalVcs::Kit::ErrorCode::Cancelled) ValueOf(std::move(versions));
    m_cuts.push_back("The history can't be read: " + Describe(versions.error()));
    return {};
  }

  std::uint64_t Left() const {
    return m_options.mostBytes > m_used ? m_options.mostBytes - m_used : 0;
  }
  void Take(std::uint64_t bytes) { m_used += bytes; }

  std::string Header(const std::string& title) const {
    return "<header><h1><bdi>" + HtmlText(title) + "</bdi></h1><span class=\"quiet\">" +
           Plural(m_versionCount, "version") + ", " +
           Plural(m_workspace.GetBranches().size(), "branch") + ", " +
           Plural(m_workspace.GetTags().size(), "tag") +
           "</span><nav><a href=\"#history\">History</a><a href=\"#compare\">Compare</a>"
           "<a href=\"#branches\">Branches</a><a href=\"#check\">Verification</a></nav></header>\n"
           "<main>\n";
  }

  std::string StoreSections() {
    const std::uint64_t most = m_options.mostBytes / 8;
    const auto statistics =
        ValueOf(TalVcs::Kit::Statistics(m_store, {.progress = m_options.progress}));
    const auto verified = ValueOf(TalVcs::Kit::Verify(m_store, {.progress = m_options.progress}));
    return "<section id=\"branches\"><h2>What each branch costs</h2>\n" +
           CostView(statistics, most) +
           "</section>\n<section id=\"check\"><h2>Verification</h2>\n" +
           VerifyView(verified, most) + "</section>\n</main>\n";
  }

  /// Lists as many of the newest versions as fit into half of the page.
  void ChooseRows() {
    const std::uint64_t most = Left() / 2;
    std::size_t count = m_table.Rows().size();
    std::uint64_t size = 0;
    constexpr std::uint64_t kOfLine = 600;  // a line without its texts, and an article without them
    for (std::size_t i = 0; i < count; ++i) {
      const Version& version = m_table.Rows()[i].version;
      size += kOfLine + 2 * version.summary.size() + version.message.size();
      if (size > most) count = i;
    }
    for (;; count /= 2) {
      m_table.Limit(count);
      if (MakeRows() <= most || count == 0) break;
    }
    Take(m_lines.size() + m_data.size());
    for (const std::string& article : m_articles) Take(article.size() + kContentLeftOut);
    if (m_table.Rows().size() < m_versionCount) {
      m_cuts.push_back(Plural(m_versionCount - m_table.Rows().size(), "older version") +
                       " left out.");
    }
  }

  /// Makes the lines and articles of the versions that are listed. Returns their size.
  std::uint64_t MakeRows() {
    const TalVcs::Kit::GraphLayout layout = LayOut();
    std::vector<MergeEdge> merges;
    const auto& rows = m_table.Rows();
    for (std::size_t i = 0; i < rows.size(); ++i) {
      for (const int merged : rows[i].merges) {
        if (merged > static_cast<int>(i)) merges.push_back({static_cast<int>(i), merged});
      }
    }
    const GraphCells cells(layout, std::move(merges));
    const std::string current = m_workspace.GetBranch();
    m_lines.clear();
    m_articles.clear();
    m_data = m_table.ToJson();
    std::uint64_t size = m_data.size() + m_table.Contents().size() * kContentLeftOut;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      m_lines += VersionLine(
          rows[i], cells.Draw(static_cast<int>(i), !rows[i].version.branches.empty()), current);
      m_articles.push_back("<article id=\"" + ElementOf(rows[i].version) + "\">\n" +
                           VersionHead(m_table, rows[i]));
      size += m_articles.back().size();
    }
    return size + m_lines.size();
  }

  TalVcs::Kit::GraphLayout LayOut() const {
    TalVcs::Kit::VersionGraph history;
    for (const VersionTable::Row& row : m_table.Rows()) {
      history.versions.push_back({row.version, row.parent, {}});
    }
    std::vector<TalVcs::Kit::Head> branches = m_workspace.GetBranches();
    std::stable_partition(branches.begin(), branches.end(), [&](const TalVcs::Kit::Head& head) {
      return head.name == m_workspace.GetBranch();
    });
    return TalVcs::Kit::LayOutGraph(history, branches);
  }

  /// Adds changes, newest version first, until half of the room that is left is taken.
  void AddChanges() {
    std::uint64_t room = Left() / 2;
    std::uint64_t left_out = 0;
    const auto& rows = m_table.Rows();
    for (std::size_t i = 0; i < rows.size(); ++i) {
      std::string changes;
      if (room > 0) changes = VersionChanges(m_workspace, rows[i].version);
      if (room == 0 || changes.size() > room) {
        changes = "<p class=\"quiet\">The changes are left out.</p>\n";
        ++left_out;
        if (changes.size() > room) room = 0;
      }
      room -= std::min<std::uint64_t>(room, changes.size());
      Take(changes.size());
      m_articles[i] += changes + "</article>\n";
    }
    if (left_out > 0)
      m_cuts.push_back("The changes of " + Plural(left_out, "version") + " left out.");
  }

  void AddContents() {
    std::uint64_t left_out = 0;
    std::string contents = "[";
    for (const VersionTable::Content& content : m_table.Contents()) {
      if (contents.size() > 1) contents += ",\n";
      const std::string json = ContentToJson(content);
      const bool fits = json.size() + contents.size() < Left();
      if (!fits || (json.starts_with("[\"x\"") && json != kNoContent)) ++left_out;
      contents += fits ? json : std::string(kNoContent);
    }
    m_contents = contents + "]";
    Take(m_contents.size());
    if (left_out > 0) {
      m_cuts.push_back("The contents of " + Plural(left_out, "file") +
                       " left out: a comparison of two versions can't show them.");
    }
  }

  std::string ContentToJson(const VersionTable::Content& content) const {
    const auto files = m_workspace.At(m_table.Rows()[content.row].version.id);
    const auto bytes = files ? files->Read(content.path) : files.error();
    if (!bytes) return std::string(kNoContent);
    const std::string_view text = bytes->text();
    if (text.size() > Left()) return "[\"x\"," + std::to_string(text.size()) + "]";
    if (!ImageType(text).empty()) {
      return "[\"i\"," + JsonText(ImageType(text)) + ",\"" + TalVcs::Kit::EncodeBase64(text) +
             "\"]";
    }
    if (TalVcs::Kit::IsBinary(text)) return "[\"b\",\"" + TalVcs::Kit::EncodeBase64(text) + "\"]";
    return "[\"t\"," + JsonText(text) + "]";
  }

  std::string Cuts() const {
    if (m_cuts.empty()) return {};
    std::string html = "<div class=\"cut\">";
    if (m_versionCount > 0) {
      html +=
          "<p>This page is limited to " + TalVcs::Kit::FormatSize(m_options.mostBytes) + ".</p>";
    }
    for (const std::string& cut : m_cuts) html += "<p>" + HtmlText(cut) + "</p>";
    return html + "</div>\n";
  }

  std::string History() const {
    std::string html = "<section id=\"history\"><h2>History</h2>\n" + std::string(kFilter) +
                       "<ol id=\"versions\">" + m_lines + "</ol>\n<div id=\"changes\">\n";
    for (const std::string& article : m_articles) html += article;
    return html + "</div></section>\n";
  }

  std::string Data() const {
    std::string heads;
    for (const TalVcs::Kit::Head& head : m_workspace.GetBranches()) {
      const int row = m_table.Find(head.id);
      if (row < 0) continue;
      if (!heads.empty()) heads += ',';
      heads += '[' + JsonText(head.name) + ',' + std::to_string(row) + ']';
    }
    return "<script id=\"data\" type=\"application/json\">{\"heads\":[" + heads +
           "],\n\"versions\":" + m_data + ",\n\"contents\":" + m_contents + "}</script>\n";
  }

  static constexpr std::uint64_t kContentLeftOut = 64;
  static constexpr std::string_view kNoContent = "[\"x\",0]";

  const Workspace& m_workspace;
  TalVcs::Kit::IObjectStore& m_store;
  const ReportOptions& m_options;
  std::vector<std::string> m_cuts;
  VersionTable m_table;
  std::uint64_t m_versionCount;
  std::uint64_t m_used = 0;
  std::string m_lines;
  std::vector<std::string> m_articles;
  std::string m_data;
  std::string m_contents;
};

}  // namespace

Report MakeReport(const Workspace& workspace, TalVcs::Kit::IObjectStore& store,
                  const ReportOptions& options) {
  if (options.mostBytes < ReportOptions::kLeastBytes) {
    throw Failure("a report needs at least " + TalVcs::Kit::FormatSize(ReportOptions::kLeastBytes),
                  ExitCode::Usage);
  }
  return ReportMaker(workspace, store, options).Run();
}

}  // namespace Tal
