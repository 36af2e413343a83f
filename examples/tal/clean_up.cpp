#include "clean_up.h"

#include <kit/open/clean_up.h>
#include <kit/text/sizes.h>

namespace Tal {

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
  const Kit::RemovedObjects removed =
      Kit::CleanUp(session.SavedStore(), {.progress = ShowProgress(host.terminal)}).value();
  session.SavedStore().SetValue(kFreedValue, std::to_string(removed.sizeBytes)).value();
  host.terminal.Say(what + "; freed " + Kit::FormatSize(removed.sizeBytes) + ", " +
                    Plural(removed.count, "object"));
}

}  // namespace Tal
