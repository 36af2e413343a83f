#pragma once

#include <kit/export.h>
#include <kit/text/result.h>
#include <talvcs/objects/object_unavailable.h>

#include <type_traits>
#include <utility>

namespace TalVcs::Kit {

/// Returns the error of an object that can't be read: `Damaged`, or `Unavailable` if the store
/// could not read it, with the id as the subject.
TALVCS_KIT_API Error ErrorOf(const ObjectUnavailable& problem);

/// What `Try` returns for a function that returns `T`: results stay as they are.
template <class T>
struct TryOutcome {
  /// `Result<T>`, or T itself if it is a result already; `Status` for void.
  using type = Result<T>;
};
template <>
struct TryOutcome<void> {
  using type = Status;
};
template <>
struct TryOutcome<Status> {
  using type = Status;
};
template <class T>
struct TryOutcome<Result<T>> {
  using type = Result<T>;
};

/// Calls a function and returns its result; an object that couldn't be read, or the error of a
/// result whose `value` was asked for, becomes the error. Other exceptions pass through.
///
/// The links of a repository that `Open` made are followed when something asks for them, and each
/// may fail then. This makes results of such failures, in steps of any size:
///
///     const Result<std::string> text = Kit::Try([&] {
///       return BytesFromBlob(*repository.GetHead()->GetBlob(ToWide("a/b")));
///     });
///
/// A link that failed stays as it was, and the step can be repeated.
template <class Function>
typename TryOutcome<std::invoke_result_t<Function>>::type Try(Function&& function) {
  using Value = std::invoke_result_t<Function>;
#ifdef __cpp_exceptions
  try {
#endif
    if constexpr (std::is_void_v<Value>) {
      std::forward<Function>(function)();
      return Status();
    } else {
      return std::forward<Function>(function)();
    }
#ifdef __cpp_exceptions
  } catch (const ObjectUnavailable& problem) {
    return ErrorOf(problem);
  } catch (const ErrorException& exception) {
    return exception.GetError();
  }
#endif
}

}  // namespace TalVcs::Kit
