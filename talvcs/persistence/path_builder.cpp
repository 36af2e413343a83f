#include <talvcs/persistence/path_builder.h>

#include <initializer_list>
#include <string>

namespace TalVcs {

namespace {

TalStringT<WideChar> Join(const TalStringT<WideChar>& start,
                          std::initializer_list<TalStringViewT<WideChar>> components) {
  std::basic_string<WideChar> path(start.GetString(), static_cast<std::size_t>(start.GetLength()));
  std::size_t length = path.size();
  for (const auto& component : components) length += static_cast<std::size_t>(component.length) + 1;
  path.reserve(length);
  for (const auto& component : components) {
    if (!path.ends_with(TAL_WIDE('/'))) path += TAL_WIDE('/');
    path.append(component.text, static_cast<std::size_t>(component.length));
  }
  return TalStringT<WideChar>(TalStringViewT<WideChar>(path));
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
  const TalStringViewT<WideChar> text(id);
  return Join(objectsPath, {text.Mid(0, 2), text.Mid(2, text.length)});
}

TalStringT<WideChar> PathBuilder::GetObjectW(const Id& id) const {
  return GetObjectW(id.ToString());
}

TalStringT<WideChar> PathBuilder::GetBranch(const TalStringT<WideChar>& name) const {
  return Join(branchesPath, {name});
}

}  // namespace TalVcs
