#pragma once

#include "host.h"

#include <kit/history/graph_layout.h>

#include <string>

namespace Tal {

/// Returns the first line of a version's description, cut to so many characters.
std::string ShortDescription(const Kit::Version& version, std::size_t characters);

/// Returns the history as a graph in the DOT language.
std::string DrawDot(const Kit::VersionGraph& history, const Kit::GraphLayout& layout);

/// Returns the history as a picture. `title` is at its top.
std::string DrawSvg(const Kit::VersionGraph& history, const Kit::GraphLayout& layout,
                    const std::string& title, const std::string& currentBranch);

}  // namespace Tal
