#pragma once

#include <talvcs/directory/internal/tree_entries.h>

#include <optional>
#include <string_view>

namespace TalVcs {

/// Makes the list of a directory from its records, every entry of which is absent.
///
/// The list shares chunks and entries of `previous`, another state of a directory or null, where
/// the bytes are the same, with the objects that they have in memory. Returns null for no records,
/// and nothing if the records aren't exactly in the form that the library writes.
std::optional<TreeEntries::Ptr> RestoreEntries(std::string_view records,
                                               const TreeEntries* previous, ObjectSource& source,
                                               ObjectSource::Place place);

}  // namespace TalVcs
