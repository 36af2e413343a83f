#include "graph.h"
#include "graph_style.h"
#include "text.h"

#include <kit/text/utf8.h>

#include <algorithm>
#include <cmath>
#include <sstream>

// The picture is a list, one row a commit: the lanes on the left, then the names of the branches
// that stand on it, its description, and on the right id, author and time. Lines run down to the
// parents, each in the colour of its line of commits.

namespace Tal {
namespace {

constexpr int kMargin = 28;
constexpr int kHeader = 72;
constexpr int kRowHeight = 34;
constexpr int kLaneWidth = 24;
constexpr int kTextWidth = 560;
constexpr int kIdWidth = 104;
constexpr int kAuthorWidth = 130;
constexpr int kTimeWidth = 130;
constexpr int kLegendY = 52;
constexpr int kBaseline = 4;             // how far below its middle a line of text stands
constexpr double kCharacterWidth = 6.9;  // of the description's font, on average
constexpr std::size_t kMostLabels = 4;

std::size_t Place(int index) { return static_cast<std::size_t>(index); }

/// Estimates the width of `text`; characters of East Asian scripts and pictures count twice.
double TextWidth(std::string_view text) {
  double width = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Kit::Utf8Character character = Kit::DecodeUtf8(text, at);
    width += character.code >= 0x1100 && character.sizeBytes >= 3 ? 2 * kCharacterWidth
                                                                  : kCharacterWidth;
    at += character.sizeBytes;
  }
  return width;
}

std::string FittingText(const std::string& text, double width) {
  auto characters = static_cast<std::size_t>(std::max(width / kCharacterWidth, 4.0));
  std::string cut = Kit::CutText(text, characters);
  while (TextWidth(cut) > width && characters > 4) cut = Kit::CutText(text, --characters);
  return cut;
}

class Picture {
 public:
  Picture(const Kit::VersionGraph& history, const Kit::GraphLayout& layout,
          const std::string& currentBranch)
      : m_history(history),
        m_layout(layout),
        m_current(currentBranch),
        m_textX(kMargin + layout.laneCount * kLaneWidth + 14),
        m_width(m_textX + kTextWidth + kIdWidth + kAuthorWidth + kTimeWidth + kMargin),
        m_height(kHeader + Rows() * kRowHeight + kMargin) {}

  std::string Draw(const std::string& title) {
    Begin(title);
    for (int row = 0; row < Rows(); row += 2) DrawBand(row);
    for (int row = 0; row < Rows(); ++row) DrawEdge(row);
    for (int row = 0; row < Rows(); ++row) {
      DrawNode(row);
      DrawTexts(row);
    }
    m_out << "</svg>\n";
    return m_out.str();
  }

 private:
  int Rows() const { return static_cast<int>(m_history.versions.size()); }
  const Kit::GraphVersion& EntryOf(int row) const { return m_history.versions[Place(row)]; }
  int X(int row) const { return kMargin + m_layout.LaneOfRow(row) * kLaneWidth + kLaneWidth / 2; }
  static int Y(int row) { return kHeader + row * kRowHeight + kRowHeight / 2; }
  std::string ColourOf(int row) const { return LineColour(m_layout.lineOfRow[Place(row)]); }

  void Begin(const std::string& title) {
    m_out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << m_width << "\" height=\""
          << m_height << "\" viewBox=\"0 0 " << m_width << ' ' << m_height << "\">\n"
          << "<title>" << XmlEscaped(title) << "</title>\n"
          << "<style>\n"
             "text { font-family: 'DejaVu Sans', Verdana, sans-serif; font-size: 12px; "
             "fill: #1e293b; }\n"
             ".title { font-size: 17px; font-weight: bold; }\n"
             ".quiet { fill: #64748b; font-size: 11px; }\n"
             ".id { font-family: 'DejaVu Sans Mono', Consolas, monospace; font-size: 11px; "
             "fill: #475569; }\n"
             ".label { font-size: 11px; font-weight: bold; }\n"
             ".empty { fill: #94a3b8; font-style: italic; }\n"
             "</style>\n"
          << "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n"
          << "<text class=\"title\" x=\"" << kMargin << "\" y=\"28\">" << XmlEscaped(title)
          << "</text>\n";
    DrawLegend();
  }

  void DrawLegend() {
    constexpr const char* kGrey = "#64748b";
    int x = kMargin + kLaneWidth / 2;
    const auto name = [&](const char* text) {
      DrawText("quiet", x + 16, kLegendY, text);
      x += 48 + static_cast<int>(TextWidth(text));
    };
    DrawDisc(x, kLegendY, kGrey);
    name("commit");
    DrawTip(x, kLegendY, kGrey);
    name("tip of a branch");
    DrawFork(x, kLegendY, kGrey);
    name("fork");
  }

  void DrawBand(int row) {
    m_out << "<rect x=\"" << kMargin / 2 << "\" y=\"" << Y(row) - kRowHeight / 2 << "\" width=\""
          << m_width - kMargin << "\" height=\"" << kRowHeight
          << "\" rx=\"6\" fill=\"#f1f5f9\"/>\n";
  }

  void DrawEdge(int row) {
    const int parent = EntryOf(row).parent;
    if (parent < 0) return;
    const int x = X(row);
    const int parentX = X(parent);
    const int parentY = Y(parent);
    m_out << "<path d=\"M" << x << ' ' << Y(row);
    if (x == parentX) {
      m_out << " V" << parentY;
    } else {
      const int bend = parentY - kRowHeight;
      const int middle = parentY - kRowHeight / 2;
      m_out << " V" << bend << " C" << x << ' ' << middle << ' ' << parentX << ' ' << middle << ' '
            << parentX << ' ' << parentY;
    }
    m_out << "\" fill=\"none\" stroke=\"" << ColourOf(row) << "\" stroke-width=\"2.5\"/>\n";
  }

  void DrawNode(int row) {
    const Kit::GraphVersion& entry = EntryOf(row);
    m_out << "<g><title>" << XmlEscaped(ToUtf8(entry.version.id)) << "</title>\n";
    if (!entry.version.branches.empty()) {
      DrawTip(X(row), Y(row), ColourOf(row));
      if (entry.IsFork()) DrawCentre(X(row), Y(row));
    } else if (entry.IsFork()) {
      DrawFork(X(row), Y(row), ColourOf(row));
    } else {
      DrawDisc(X(row), Y(row), ColourOf(row));
    }
    m_out << "</g>\n";
  }

  void DrawCircle(int x, int y, double radius, const std::string& style) {
    m_out << "<circle cx=\"" << x << "\" cy=\"" << y << "\" r=\"" << radius << "\" " << style
          << "/>\n";
  }
  void DrawDisc(int x, int y, const std::string& colour) {
    DrawCircle(x, y, 4.5, "fill=\"" + colour + "\" stroke=\"#ffffff\" stroke-width=\"1.5\"");
  }
  void DrawTip(int x, int y, const std::string& colour) {
    DrawCircle(x, y, 8.5, "fill=\"#ffffff\" stroke=\"" + colour + "\" stroke-width=\"2\"");
    DrawCircle(x, y, 5, "fill=\"" + colour + "\"");
  }
  void DrawFork(int x, int y, const std::string& colour) {
    DrawCircle(x, y, 6, "fill=\"#ffffff\" stroke=\"" + colour + "\" stroke-width=\"3\"");
  }
  void DrawCentre(int x, int y) { DrawCircle(x, y, 2, "fill=\"#ffffff\""); }

  void DrawText(const char* style, double x, int y, const std::string& text) {
    m_out << "<text class=\"" << style << "\" x=\"" << std::lround(x) << "\" y=\"" << y + kBaseline
          << "\">" << XmlEscaped(text) << "</text>\n";
  }

  /// Draws the name of a branch and returns the x after it.
  double DrawLabel(double x, int row, const std::string& text, bool isCurrent) {
    const double width = TextWidth(text) * 1.08 + 16;
    const std::string colour = ColourOf(row);
    m_out << "<rect x=\"" << std::lround(x) << "\" y=\"" << Y(row) - 10 << "\" width=\""
          << std::lround(width) << "\" height=\"20\" rx=\"10\" fill=\""
          << (isCurrent ? colour : "#ffffff") << "\" stroke=\"" << colour
          << "\" stroke-width=\"1.5\"/>\n"
          << "<text class=\"label\" text-anchor=\"middle\" x=\"" << std::lround(x + width / 2)
          << "\" y=\"" << Y(row) + kBaseline
          << "\" style=\"fill: " << (isCurrent ? "#ffffff" : colour) << "\">" << XmlEscaped(text)
          << "</text>\n";
    return x + width + 6;
  }

  void DrawTexts(int row) {
    const Kit::Version& version = EntryOf(row).version;
    double x = m_textX;
    for (std::size_t i = 0; i < version.branches.size() && i < kMostLabels; ++i) {
      const std::string& name = version.branches[i];
      x = DrawLabel(x, row, Kit::CutText(name, 20), name == m_current);
    }
    if (version.branches.size() > kMostLabels)
      x = DrawLabel(x, row, "+" + std::to_string(version.branches.size() - kMostLabels), false);

    const double room = m_textX + kTextWidth - x - 12;
    const std::string description = ShortDescription(version, kDescriptionCharacters);
    if (description.empty()) {
      DrawText("empty", x, Y(row), "no description");
    } else {
      DrawText("line", x, Y(row), FittingText(description, room));
    }
    x = m_textX + kTextWidth;
    DrawText("id", x, Y(row), ShortId(ToUtf8(version.id)));
    x += kIdWidth;
    DrawText("quiet", x, Y(row), FittingText(version.author, kAuthorWidth - 10));
    DrawText("quiet", x + kAuthorWidth, Y(row), FormatTime(version).substr(0, 16));
  }

  const Kit::VersionGraph& m_history;
  const Kit::GraphLayout& m_layout;
  const std::string m_current;
  int m_textX;
  int m_width;
  int m_height;
  std::ostringstream m_out;
};

}  // namespace

std::string DrawSvg(const Kit::VersionGraph& history, const Kit::GraphLayout& layout,
                    const std::string& title, const std::string& currentBranch) {
  return Picture(history, layout, currentBranch).Draw(title);
}

}  // namespace Tal
