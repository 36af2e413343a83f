#include "clean_up.h"

#include <kit/open/clean_up.h>

namespace Tal {

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
  host.terminal.Say(what + "; freed " + FormatBytes(removed.sizeBytes) + " (" +
                    std::to_string(removed.sizeBytes) + " bytes), " +
                    Plural(removed.count, "object"));
}

}  // namespace Tal
