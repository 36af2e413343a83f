#pragma once

#include <talvcs/directory/internal/tree_entries.h>

#include <optional>
#include <string_view>

namespace TalVcs {

/// Makes the list of a directory from its records, every entry of which is absent.
///
/// Chunks and entries of `previous`, another state of a directory or null, serve again where their
/// bytes are the same, with what they have in memory already. Returns the list, held once, null for
/// no records. Returns nothing if the records aren't exactly in the form that the library writes.
std::optional<TreeEntries*> RestoreEntries(std::string_view records, const TreeEntries* previous,
                                           ObjectSource& source, ObjectSource::Place place);

}  // namespace TalVcs
