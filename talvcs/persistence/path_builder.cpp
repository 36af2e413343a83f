#include <talvcs/persistence/path_builder.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <string>

namespace TalVcs {

namespace {

using Components = std::initializer_list<TalStringViewT<WideChar>>;

WideChar* PutText(TalStringViewT<WideChar> text, WideChar* out) {
  return std::copy_n(text.text, text.length, out);
}

/// Puts a slash before each component, unless one stands there already.
TalStringT<WideChar> Join(TalStringViewT<WideChar> start, Components components) {
  constexpr std::size_t kStackUnits = 256;
  auto most = static_cast<std::size_t>(start.length);
  for (const auto& component : components) most += static_cast<std::size_t>(component.length) + 1;
  std::array<WideChar, kStackUnits> on_stack;
  std::basic_string<WideChar> on_heap(most > kStackUnits ? most : 0, WideChar());
  WideChar* const path = on_heap.empty() ? on_stack.data() : on_heap.data();
  WideChar* end = PutText(start, path);
  for (const auto& component : components) {
    if (end == path || end[-1] != TAL_WIDE('/')) *end++ = TAL_WIDE('/');
    end = PutText(component, end);
  }
  return TalStringT<WideChar>(TalStringViewT<WideChar>(path, static_cast<int>(end - path)));
}

TalStringT<WideChar> JoinObject(TalStringViewT<WideChar> objects, TalStringViewT<WideChar> id) {
  return Join(objects, {id.Mid(0, PathBuilder::kFolderDigits),
                        id.Mid(PathBuilder::kFolderDigits, id.length)});
}

}  // namespace

PathBuilder::PathBuilder(const TalStringT<WideChar>& root)
    : rootPath(root),
      objectsPath(GetObjectsPath(GetStoragePath())),
      branchesPath(GetBranchesPath(GetStoragePath())) {}

TalStringT<WideChar> PathBuilder::GetStoragePath() const { return Join(rootPath, {kStoreFolder}); }

TalStringT<WideChar> PathBuilder::GetObjectsPath(const TalStringT<WideChar>& storagePath) {
  return Join(storagePath, {kObjectsFolder});
}

TalStringT<WideChar> PathBuilder::GetBranchesPath(const TalStringT<WideChar>& storagePath) {
  return Join(storagePath, {kRefsFolder, kHeadsFolder});
}

TalStringT<WideChar> PathBuilder::GetObjectW(const TalStringT<WideChar>& id) const {
  return JoinObject(objectsPath, id);
}

TalStringT<WideChar> PathBuilder::GetObjectW(const Id& id) const {
  return JoinObject(objectsPath, id.View());
}

TalStringT<WideChar> PathBuilder::GetBranch(const TalStringT<WideChar>& name) const {
  return Join(branchesPath, {name});
}

}  // namespace TalVcs
