#include "store_view.h"

#include "../terminal.h"
#include "html_text.h"

#include <kit/text/sizes.h>

#include <algorithm>
#include <cstddef>

namespace Tal {
namespace {

using TalVcs::Kit::BranchStatistics;
using TalVcs::Kit::StoreStatistics;

/// Returns a bar of `own` and `shared` as parts of `most`.
std::string Bar(std::uint64_t own, std::uint64_t shared, std::uint64_t most) {
  constexpr std::uint64_t kWidth = 160;
  const auto length = [&](std::uint64_t bytes) {
    return most == 0 ? 0
                     : static_cast<std::uint64_t>(static_cast<double>(bytes) /
                                                  static_cast<double>(most) * kWidth);
  };
  const std::uint64_t first = own == 0 ? 0 : std::max<std::uint64_t>(length(own), 2);
  return "<svg width=\"164\" height=\"10\" aria-hidden=\"true\"><rect class=\"rest\" x=\"" +
         std::to_string(first) + "\" width=\"" + std::to_string(length(shared)) +
         "\" height=\"10\" rx=\"2\"/><rect class=\"bar\" width=\"" + std::to_string(first) +
         "\" height=\"10\" rx=\"2\"/></svg>";
}

std::string CostRow(const BranchStatistics& branch, std::uint64_t most) {
  const auto number = [](const std::string& text) { return "<td class=\"r\">" + text + "</td>"; };
  return "<tr><td><bdi>" + HtmlText(branch.name) + "</bdi></td>" +
         number(std::to_string(branch.commits)) + number(std::to_string(branch.own.count)) +
         number(TalVcs::Kit::FormatSize(branch.own.sizeBytes)) +
         number(TalVcs::Kit::FormatSize(branch.shared.sizeBytes)) + "<td>" +
         Bar(branch.own.sizeBytes, branch.shared.sizeBytes, most) + "</td></tr>\n";
}

}  // namespace

std::string CostView(const StoreStatistics& statistics, std::uint64_t mostBytes) {
  std::uint64_t most = 0;
  for (const BranchStatistics& branch : statistics.branches) {
    most = std::max(most, branch.own.sizeBytes + branch.shared.sizeBytes);
  }
  std::string html =
      "<table class=\"costs\"><thead><tr><th>Branch</th><th class=\"r\">Versions</th>"
      "<th class=\"r\">Objects of its own</th><th class=\"r\">Their bytes</th>"
      "<th class=\"r\">Bytes shared with others</th><th></th></tr></thead><tbody>\n";
  std::size_t left_out = 0;
  for (const BranchStatistics& branch : statistics.branches) {
    const std::string row = CostRow(branch, most);
    if (html.size() + row.size() > mostBytes) {
      ++left_out;
    } else {
      html += row;
    }
  }
  html += "</tbody></table>\n";
  if (left_out > 0) {
    html += "<p class=\"cut\">" + Plural(left_out, "branch") + " left out of this table</p>\n";
  }
  const auto totals = [](const TalVcs::Kit::ObjectTotals& some, std::string_view noun) {
    return Plural(some.count, noun) + " (" + TalVcs::Kit::FormatSize(some.sizeBytes) + ")";
  };
  html += "<p class=\"quiet\">All branches together: " + totals(statistics.commits, "commit") +
          ", " + totals(statistics.trees, "folder") + ", " + totals(statistics.blobs, "file") +
          ". No branch needs " + totals(statistics.unreferenced, "object") +
          ". Sizes are those before compression. Removing a branch frees its own objects.</p>\n";
  return html;
}

std::string VerifyView(const TalVcs::Kit::VerifyReport& report, std::uint64_t mostBytes) {
  if (report.IsWhole()) {
    return "<p><span class=\"good\">Whole.</span> All " + std::to_string(report.objects) +
           " objects that " + Plural(report.branches.size(), "branch") +
           " and tags reach were read and have the bytes of their ids.</p>\n";
  }
  std::string html =
      "<p><span class=\"bad\">Damaged.</span> " + Plural(report.damageCount, "object") + " of " +
      std::to_string(report.objects + report.damageCount) + " can't be read.</p>\n<ul>\n";
  std::uint64_t listed = 0;
  for (const TalVcs::Kit::Damage& damage : report.damages) {
    const std::string line = "<li>" + HtmlText(Describe(damage)) + "</li>\n";
    if (html.size() + line.size() > mostBytes) break;
    html += line;
    ++listed;
  }
  html += "</ul>\n";
  if (listed < report.damageCount) {
    html += "<p class=\"cut\">" + std::to_string(report.damageCount - listed) +
            " more aren't listed.</p>\n";
  }
  return html;
}

}  // namespace Tal
