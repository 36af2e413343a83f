#include <kit/open/try.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/workspace_state.h>
#include <kit/workspace/workspace.h>

#include <utility>

namespace TalVcs::Kit {

Workspace::Workspace(std::unique_ptr<WorkspaceState> state) noexcept : m_state(std::move(state)) {}
Workspace::Workspace(Workspace&& other) noexcept = default;
Workspace& Workspace::operator=(Workspace&& other) noexcept = default;
Workspace::~Workspace() = default;

Result<Workspace> Workspace::Open(std::shared_ptr<IObjectStore> store,
                                  const WorkspaceOptions& options) {
  return Try([&]() -> Result<Workspace> {
    const Result<WideString> branch = CheckedText(options.branch, "name of the branch");
    if (!branch) return branch.error();
    if (options.branch.starts_with(kTagPrefix)) {
      return WorkspaceError(ErrorCode::BadName,
                            "\"" + options.branch + "\" is a tag and can't be the current branch",
                            options.branch);
    }
    Result<OpenedRepository> opened = Kit::Open(store, {.branch = options.branch});
    if (!opened) return opened.error();
    return Workspace(
        std::make_unique<WorkspaceState>(std::move(store), *std::move(opened), options));
  });
}

Result<Bytes> Workspace::Read(std::string_view path) const { return m_state->draft.Read(path); }

Result<bool> Workspace::Contains(std::string_view path) const {
  return Try([&] { return Snapshot(m_state->draft.GetTree()).Contains(path); });
}

Result<std::vector<FolderEntry>> Workspace::List(std::string_view folder) const {
  return Try([&] { return Snapshot(m_state->draft.GetTree()).List(folder); });
}

Result<std::vector<std::string>> Workspace::ListFiles(std::string_view folder) const {
  return Try([&] { return Snapshot(m_state->draft.GetTree()).ListFiles(folder); });
}

Status Workspace::Write(std::string_view path, std::span<const std::byte> bytes) {
  return m_state->draft.Write(path, Bytes(bytes).GetBuffer());
}

Status Workspace::Write(std::string_view path, std::string_view text) {
  return m_state->draft.Write(path, Bytes(text).GetBuffer());
}

Status Workspace::Write(std::string_view path, const Bytes& bytes) {
  return m_state->draft.Write(path, bytes.GetBuffer());
}

Status Workspace::Remove(std::string_view path) { return m_state->draft.Remove(path); }

Status Workspace::Rename(std::string_view from, std::string_view to) {
  return m_state->draft.Rename(from, to);
}

Status Workspace::CopyFrom(const Snapshot& version, std::string_view from, std::string_view to) {
  return Try([&]() -> Status {
    const Result<bool> exists = version.Contains(from);
    if (!exists) return exists.error();
    if (!*exists) {
      return WorkspaceError(ErrorCode::NotFound,
                            "the version has no file or folder \"" + std::string(from) + "\"",
                            from);
    }
    return m_state->draft.Put(to, version.GetTree()->GetDeepObject(ToWide(from)));
  });
}

Result<std::vector<TreeChange>> Workspace::GetChanges(const TreeChangesOptions& options) const {
  return Try([&] { return FindTreeChanges(m_state->base, m_state->draft.GetTree(), options); });
}

void Workspace::Discard() { m_state->BeginDraft(m_state->base); }

Status Workspace::Discard(std::string_view path) {
  return Try([&]() -> Status {
    const Result<WideString> wide = CheckedPath(path);
    if (!wide) return wide.error();
    return m_state->draft.Put(path, m_state->base->GetDeepObject(*wide));
  });
}

void Workspace::Observe(std::function<void(const Move&)> observer) {
  m_state->observer = std::move(observer);
}

void Workspace::Trim() { m_state->opened.Trim(); }

}  // namespace TalVcs::Kit
