#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/cow_ptr.h>

#include <memory>
#include <vector>

namespace TalVcs {

class Blob;
class Commit;
class CommitTree;
class Object;
class Tree;

/// Turns a sole owner into a shared one whose control block is made, and whose object is deleted,
/// in the library, even if the host holds it last. An empty pointer gives an empty result. If the
/// control block can't be allocated, `object` still owns what it did and deletes it.
TALVCS_API std::shared_ptr<Blob> dll_wrapped_shared(std::unique_ptr<Blob> object);
TALVCS_API std::shared_ptr<Commit> dll_wrapped_shared(std::unique_ptr<Commit> object);
TALVCS_API std::shared_ptr<CommitTree> dll_wrapped_shared(std::unique_ptr<CommitTree> object);
TALVCS_API std::shared_ptr<Object> dll_wrapped_shared(std::unique_ptr<Object> object);
TALVCS_API std::shared_ptr<Tree> dll_wrapped_shared(std::unique_ptr<Tree> object);
TALVCS_API std::shared_ptr<std::vector<TalUtils::cow_ptr<Commit>>> dll_wrapped_shared(
    std::unique_ptr<std::vector<TalUtils::cow_ptr<Commit>>> object);

}  // namespace TalVcs

// The library makes its own objects, in one allocation with their counts.
#define TALVCS_DECLARE_COW_FACTORY(Type)                                   \
  template <>                                                              \
  struct TALVCS_API TalUtils::cow_factory<TalVcs::Type> {                  \
    static std::shared_ptr<TalVcs::Type> create();                         \
    static std::shared_ptr<TalVcs::Type> copy(const TalVcs::Type& source); \
  };
TALVCS_DECLARE_COW_FACTORY(Blob)
TALVCS_DECLARE_COW_FACTORY(Commit)
TALVCS_DECLARE_COW_FACTORY(CommitTree)
TALVCS_DECLARE_COW_FACTORY(Tree)
#undef TALVCS_DECLARE_COW_FACTORY
