#pragma once

#include "graph_cells.h"
#include "version_table.h"

#include <string>

namespace Tal {

/// Returns the name of a version's element on the page.
std::string ElementOf(const TalVcs::Kit::Version& version);

/// Returns the line of a version in the list, with its part of the graph. `current` is the current
/// branch.
std::string VersionLine(const VersionTable::Row& row, const std::string& cell,
                        const std::string& current);

/// Returns what a page says about a version, without its changes. Versions that the table lists
/// become links.
std::string VersionHead(const VersionTable& table, const VersionTable::Row& row);

/// Returns the changes of a version since the one before it, whether listed or not. What can't be
/// read is said in their place.
std::string VersionChanges(const TalVcs::Kit::Workspace& workspace,
                           const TalVcs::Kit::Version& version);

}  // namespace Tal
