#include <kit/open/internal/record_reader.h>
#include <kit/text.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/read_folders.h>

#include <utility>

namespace TalVcs::Kit {

namespace {

void Append(void* entries, const PackedReference& reference) {
  static_cast<std::vector<PackedReference>*>(entries)->push_back(reference);
}

}  // namespace

Result<std::vector<FolderRecord>> ReadFolders(IObjectStore& store, std::span<const Id> ids) {
  std::vector<FolderRecord> folders(ids.size());
  Status status = ReadEach(store, ids, [&](std::size_t index, Result<Buffer> packed) -> Status {
    if (!packed) return std::move(packed).error();
    folders[index].sizeBytes = packed->GetSize();
    if (VisitReferences(*packed, {&folders[index].entries, &Append})) return {};
    const std::string id = ToUtf8(ids[index].View());
    return WorkspaceError(ErrorCode::Damaged, "folder " + id + " can't be read", id);
  });
  if (!status) return std::move(status).error();
  return folders;
}

}  // namespace TalVcs::Kit
