#include "graph.h"
#include "graph_style.h"
#include "text.h"

#include <kit/text/escape.h>
#include <kit/text/utf8.h>

#include <sstream>

namespace Tal {
namespace {

std::string DotQuoted(std::string_view text) {
  return '"' + Kit::ReplaceCharacters(XmlText(text), {{'"', "\\\""}, {'\\', "\\\\"}}) + '"';
}

}  // namespace

std::string ShortDescription(const Kit::Version& version, std::size_t characters) {
  return Kit::CutText(version.summary, characters);
}

std::string DrawDot(const Kit::VersionGraph& history, const Kit::GraphLayout& layout) {
  std::ostringstream out;
  out << "digraph history {\n"
         "  rankdir=BT;\n"
         "  node [shape=box, style=\"rounded,filled\", fillcolor=white, fontname=\"sans-serif\", "
         "fontsize=11];\n"
         "  edge [arrowsize=0.6];\n";
  for (std::size_t row = 0; row < history.versions.size(); ++row) {
    const Kit::GraphVersion& entry = history.versions[row];
    const Kit::Version& version = entry.version;
    const std::string id = ToUtf8(version.id);
    const int line = layout.lineOfRow[row];
    std::string label = ShortId(id) + " " + ShortDescription(version, kDescriptionCharacters);
    for (const std::string& branch : version.branches) label += " [" + branch + "]";
    out << "  " << DotQuoted(id) << " [label=" << DotQuoted(label)
        << ", color=" << DotQuoted(LineColour(line));
    if (!version.branches.empty()) out << ", penwidth=2.5";
    if (entry.IsFork()) out << ", peripheries=2";
    out << "];\n";
    if (entry.parent >= 0) {
      out << "  " << DotQuoted(id) << " -> " << DotQuoted(ToUtf8(version.parent))
          << " [color=" << DotQuoted(LineColour(line)) << "];\n";
    }
  }
  out << "}\n";
  return out.str();
}

}  // namespace Tal
