#pragma once

#include <kit/internal/object_files.h>

#include <vector>

namespace TalVcs::Kit {

/// Sorts objects that are about to be removed so that each comes before all that it names.
///
/// A removal that ends midway then leaves no object behind that lacks what it names, which a later
/// save would take for whole. Cost: reads the objects. One that can't be read names nothing.
void SortForRemoval(std::vector<ObjectKey>& keys, ObjectFiles& objects);

}  // namespace TalVcs::Kit
