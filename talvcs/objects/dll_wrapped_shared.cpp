#include <talvcs/objects/dll_wrapped_shared.h>

#include <talvcs/objects/blob.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/commit_tree.h>
#include <talvcs/objects/object.h>
#include <talvcs/objects/tree.h>

namespace TalVcs {

namespace {

template <class T>
std::shared_ptr<T> Share(std::unique_ptr<T> object) {
  if (object == nullptr) return nullptr;
  return std::shared_ptr<T>(std::move(object));
}

}  // namespace

std::shared_ptr<Blob> dll_wrapped_shared(std::unique_ptr<Blob> object) {
  return Share(std::move(object));
}
std::shared_ptr<Commit> dll_wrapped_shared(std::unique_ptr<Commit> object) {
  return Share(std::move(object));
}
std::shared_ptr<CommitTree> dll_wrapped_shared(std::unique_ptr<CommitTree> object) {
  return Share(std::move(object));
}
std::shared_ptr<Object> dll_wrapped_shared(std::unique_ptr<Object> object) {
  return Share(std::move(object));
}
std::shared_ptr<Tree> dll_wrapped_shared(std::unique_ptr<Tree> object) {
  return Share(std::move(object));
}
std::shared_ptr<std::vector<cow_ptr<Commit>>> dll_wrapped_shared(
    std::unique_ptr<std::vector<cow_ptr<Commit>>> object) {
  return Share(std::move(object));
}

}  // namespace TalVcs

#define TALVCS_DEFINE_COW_FACTORY(Type)                                         \
  std::shared_ptr<TalVcs::Type> TalUtils::cow_factory<TalVcs::Type>::create() { \
    return std::make_shared<TalVcs::Type>();                                    \
  }                                                                             \
  std::shared_ptr<TalVcs::Type> TalUtils::cow_factory<TalVcs::Type>::copy(      \
      const TalVcs::Type& source) {                                             \
    return std::make_shared<TalVcs::Type>(source);                              \
  }
TALVCS_DEFINE_COW_FACTORY(Blob)
TALVCS_DEFINE_COW_FACTORY(Commit)
TALVCS_DEFINE_COW_FACTORY(CommitTree)
TALVCS_DEFINE_COW_FACTORY(Tree)
#undef TALVCS_DEFINE_COW_FACTORY
