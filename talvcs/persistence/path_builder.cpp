#include <talvcs/persistence/path_builder.h>

#include <initializer_list>

namespace TalVcs {

namespace {

TalStringT<WideChar> Join(TalStringT<WideChar> path,
                          std::initializer_list<TalStringViewT<WideChar>> components) {
  for (const auto& component : components) {
    if (!path.EndsWith(TAL_WIDE("/"))) path += TAL_WIDE('/');
    path.Append(component);
  }
  return path;
}

}  // namespace

PathBuilder::PathBuilder(const TalStringT<WideChar>& root)
    : rootPath(root),
      objectsPath(GetObjectsPath(GetStoragePath())),
      branchesPath(GetBranchesPath(GetStoragePath())) {}

TalStringT<WideChar> PathBuilder::GetStoragePath() const {
  return Join(rootPath, {TAL_WIDE(".vcs")});
}

TalStringT<WideChar> PathBuilder::GetObjectsPath(const TalStringT<WideChar>& storagePath) {
  return Join(storagePath, {TAL_WIDE("objects")});
}

TalStringT<WideChar> PathBuilder::GetBranchesPath(const TalStringT<WideChar>& storagePath) {
  return Join(storagePath, {TAL_WIDE("refs"), TAL_WIDE("heads")});
}

TalStringT<WideChar> PathBuilder::GetObjectW(const TalStringT<WideChar>& id) const {
  return Join(objectsPath, {id.Left(2), id.Right(id.GetLength() - 2)});
}

TalStringT<WideChar> PathBuilder::GetObjectW(const Id& id) const {
  return GetObjectW(id.ToString());
}

TalStringT<WideChar> PathBuilder::GetBranch(const TalStringT<WideChar>& name) const {
  return Join(branchesPath, {name});
}

}  // namespace TalVcs
