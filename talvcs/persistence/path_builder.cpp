#include <talvcs/persistence/path_builder.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <string>

namespace TalVcs {

namespace {

using Components = std::initializer_list<TalStringViewT<WideChar>>;

/// Writes a path to `out` and returns its end; counts only, if `out` is null.
std::size_t PutPath(TalStringViewT<WideChar> start, Components components, WideChar* out) {
  std::size_t length = 0;
  WideChar last = WideChar();
  const auto put = [&](TalStringViewT<WideChar> text) {
    if (text.length == 0) return;
    const auto count = static_cast<std::size_t>(text.length);
    if (out != nullptr) std::copy_n(text.text, count, out + length);
    length += count;
    last = text.text[count - 1];
  };
  put(start);
  for (const auto& component : components) {
    if (last != TAL_WIDE('/')) put(TAL_WIDE("/"));
    put(component);
  }
  return length;
}

TalStringT<WideChar> Join(TalStringViewT<WideChar> start, Components components) {
  constexpr std::size_t kStackUnits = 256;
  std::array<WideChar, kStackUnits> on_stack;
  const std::size_t length = PutPath(start, components, nullptr);
  std::basic_string<WideChar> on_heap(length > kStackUnits ? length : 0, WideChar());
  WideChar* const path = on_heap.empty() ? on_stack.data() : on_heap.data();
  PutPath(start, components, path);
  return TalStringT<WideChar>(TalStringViewT<WideChar>(path, static_cast<int>(length)));
}

TalStringT<WideChar> JoinObject(TalStringViewT<WideChar> objects, TalStringViewT<WideChar> id) {
  return Join(objects, {id.Mid(0, 2), id.Mid(2, id.length)});
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
  return JoinObject(objectsPath, id);
}

TalStringT<WideChar> PathBuilder::GetObjectW(const Id& id) const {
  return JoinObject(objectsPath, id.View());
}

TalStringT<WideChar> PathBuilder::GetBranch(const TalStringT<WideChar>& name) const {
  return Join(branchesPath, {name});
}

}  // namespace TalVcs
