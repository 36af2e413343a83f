#include <kit/store/gradual_removal.h>
#include <kit/store/internal/find_interface.h>

namespace TalVcs::Kit {

IGradualRemoval::~IGradualRemoval() = default;

Result<RemovedObjects> RemoveGradually(IObjectStore& store, const MarkObjects& mark,
                                       std::chrono::milliseconds grace) {
  if (auto* const removal = FindInterface<IGradualRemoval>(store)) {
    return removal->RemoveGradually(mark, grace);
  }
  Error error;
  error.code = ErrorCode::Unsupported;
  error.message = "the store can't remove objects while others use it";
  return error;
}

}  // namespace TalVcs::Kit
