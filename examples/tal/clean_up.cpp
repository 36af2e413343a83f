#include "clean_up.h"

#include <kit/open/clean_up.h>
#include <kit/text/sizes.h>

namespace Tal {

namespace {

/// What a clean-up did.
struct CleanedUp {
  Kit::RemovedObjects removed;
  bool isGradual = false;  ///< What has just become unused stays for a day.
};

/// Cleans up a store on a server gradually, because others read it meanwhile, and any other at
/// once.
CleanedUp CleanUpFor(Session& session) {
  Kit::IObjectStore& store = session.SavedStore();
  const Kit::Progress progress = ShowProgress(session.GetHost().terminal);
  const Kit::Result<Kit::RemovedObjects> gradual =
      Kit::CleanUpGradually(store, {.progress = progress});
  if (!gradual && gradual.error().code == Kit::ErrorCode::Unsupported)
    return {Kit::CleanUp(store, {.progress = progress}).value()};
  return {gradual.value(), true};
}

}  // namespace

Kit::RetentionReport ForgetVersions(Session& session, const Kit::Retention& rule) {
  const Kit::Progress progress = ShowProgress(session.GetHost().terminal);
  return session.Document().Forget(rule, {.progress = progress, .mostListed = 0}).value();
}

void SaveAndCleanUp(Session& session, const std::string& what) {
  const Host& host = session.GetHost();
  if (session.IsRehearsal()) {
    host.terminal.Say("would have " + what + "; this was a dry run");
    return;
  }
  session.Save();
  const auto [removed, is_gradual] = CleanUpFor(session);
  session.SavedStore().SetValue(kFreedValue, std::to_string(removed.sizeBytes)).value();
  host.terminal.Say(what + "; freed " + Kit::FormatSize(removed.sizeBytes) + ", " +
                    Plural(removed.count, "object") +
                    (is_gradual
                         ? "; a clean-up frees the rest of it after a day, when nobody reads "
                           "it any more"
                         : ""));
}

}  // namespace Tal
