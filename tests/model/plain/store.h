#pragma once

#include "repository.h"

#include <map>

namespace Model {

/// The streams of a store by their paths.
using Store = std::map<Text, Bytes>;

/// Replaces all of `store` by what `storage` holds. A null storage leaves nothing.
void Serialize(const Storage* storage, Store& store, const Text& rootPath);

/// Loads the branches of `store`, in the order of their names.
bool Deserialize(const Store& store, const Text& rootPath, Repository* repository);

/// Returns the path below which the branches stand, and that of an object.
Text BranchesPath(const Text& rootPath);
Text ObjectPath(const Text& rootPath, const Id& id);

/// Returns the names of the branches of `store`, sorted.
std::vector<Text> BranchNames(const Store& store, const Text& branchesPath);

}  // namespace Model
