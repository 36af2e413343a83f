#pragma once

#include <tests/model/driver/twins.h>

namespace Fuzz {

/// Makes a repository with a storage that has the branch "master", in the library and in the model.
ModelTest::RepositoryTwin NewRepository();

/// Requires that each key of the tables is its object's id, freshly computed, and that everything
/// which the heads and the tables reach can be read.
void CheckObjects(const TalVcs::Repository& repository);

/// Requires that a repository, saved and loaded into an empty one, gives the same heads and the
/// same objects below them, as far as the format can hold what is in them.
void CheckSaving(TalVcs::Repository& repository);

}  // namespace Fuzz
