#pragma once

#include <talvcs/objects/blob.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/commit_tree.h>
#include <talvcs/objects/dll_wrapped_shared.h>
#include <talvcs/objects/tree.h>
#include <tests/support/bytes.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TalVcs::Testing {

/// Makes an object in the way hosts do.
template <class T, class... Args>
cow_ptr<T> Make(Args&&... args) {
  return cow_ptr<T>(dll_wrapped_shared(std::make_unique<T>(std::forward<Args>(args)...)));
}

inline Blob BlobOf(std::string_view bytes) { return Blob(BufferOf(bytes)); }
inline cow_ptr<Blob> SharedBlob(std::string_view bytes) { return Make<Blob>(BufferOf(bytes)); }

/// Shows an object's id.
inline std::string IdOf(const IObject& object) { return Ascii(object.GetId()); }

/// Returns a tree with a blob for each path and content.
inline Tree TreeOf(IRepository* repository,
                   const std::vector<std::pair<std::string, std::string>>& files) {
  Tree tree;
  for (const auto& [path, bytes] : files) tree.AddBlob(repository, Wide(path), BlobOf(bytes));
  return tree;
}

}  // namespace TalVcs::Testing
