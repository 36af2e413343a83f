#include "graph.h"
#include "graph_style.h"

#include <sstream>

namespace Tal {
namespace {

std::string DotQuoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : XmlText(text)) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

}  // namespace

std::string DrawDot(const History& history, const GraphLayout& layout) {
  std::ostringstream out;
  out << "digraph history {\n"
         "  rankdir=BT;\n"
         "  node [shape=box, style=\"rounded,filled\", fillcolor=white, fontname=\"sans-serif\", "
         "fontsize=11];\n"
         "  edge [arrowsize=0.6];\n";
  for (std::size_t row = 0; row < history.commits.size(); ++row) {
    const HistoryCommit& commit = history.commits[row];
    const int line = layout.lineOfRow[row];
    std::string label = ShortId(commit.id) + " " + ShortDescription(commit, kDescriptionCharacters);
    for (const std::string& branch : commit.version.branches) label += " [" + branch + "]";
    out << "  " << DotQuoted(commit.id) << " [label=" << DotQuoted(label)
        << ", color=" << DotQuoted(LineColour(line));
    if (!commit.version.branches.empty()) out << ", penwidth=2.5";
    if (IsFork(commit)) out << ", peripheries=2";
    out << "];\n";
    if (commit.parent >= 0) {
      out << "  " << DotQuoted(commit.id) << " -> "
          << DotQuoted(history.commits[static_cast<std::size_t>(commit.parent)].id)
          << " [color=" << DotQuoted(LineColour(line)) << "];\n";
    }
  }
  out << "}\n";
  return out.str();
}

}  // namespace Tal
