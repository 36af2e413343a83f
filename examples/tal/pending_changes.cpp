#include "pending_changes.h"

#include "interrupt.h"

namespace Tal {

std::vector<SettledFile> WriteChanges(Session& session, const FolderChanges& state) {
  std::vector<SettledFile> read;
  Kit::Workspace& document = session.Document();
  FileKinds kinds = session.HeadFiles().GetKinds();
  const FileKinds before = kinds;
  for (const Change& change : state.changes) {
    if (change.kind != Change::Kind::Removed) continue;
    document.Remove(change.path).value();
    kinds.Set(change.path, FileKind::File);
  }
  Progress progress(session.GetHost().terminal, "reading files");
  for (const Change& change : state.changes) {
    if (change.kind == Change::Kind::Removed) continue;
    StopIfInterrupted();
    const FileContent content = session.WorkFolder().Read(change.path);
    document.Write(change.path, Kit::Bytes(content.bytes)).value();
    kinds.Set(change.path, content.stat.kind);
    read.push_back({change.path, content.stat});
    progress.Count(content.bytes.GetSize());
  }
  if (kinds == before) return read;
  const std::string text = kinds.ToText();
  if (text.empty()) {
    document.Remove(FileKinds::kKindsName).value();
  } else {
    document.Write(FileKinds::kKindsName, text).value();
  }
  return read;
}

}  // namespace Tal
