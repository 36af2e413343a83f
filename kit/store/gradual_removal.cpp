#include <kit/store/gradual_removal.h>

namespace TalVcs::Kit {

IGradualRemoval::~IGradualRemoval() = default;

Result<RemovedObjects> RemoveGradually(IObjectStore& store, const MarkObjects& mark,
                                       std::chrono::milliseconds grace) {
#ifdef __cpp_rtti
  if (auto* removal = dynamic_cast<IGradualRemoval*>(&store)) {
    return removal->RemoveGradually(mark, grace);
  }
#else
  // Without type information no store is known to be able to do it.
  static_cast<void>(store);
  static_cast<void>(mark);
  static_cast<void>(grace);
#endif
  Error error;
  error.code = ErrorCode::Unsupported;
  error.message = "the store can't remove objects while others use it";
  return error;
}

}  // namespace TalVcs::Kit
