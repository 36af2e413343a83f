#include <kit/open/save.h>
#include <kit/open/try.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/workspace_state.h>
#include <kit/workspace/workspace.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

std::vector<Head> HeadsOf(WorkspaceState& state, bool areTags) {
  std::vector<Head> heads;
  for (const auto& [wide, id] : state.GetStorage().GetHeadIds()) {
    std::string name = ToUtf8(wide);
    if (IsEmpty(id) || name.starts_with(kTagPrefix) != areTags) continue;
    if (areTags) name.erase(0, kTagPrefix.size());
    heads.push_back({std::move(name), id});
  }
  std::sort(heads.begin(), heads.end(),
            [](const Head& a, const Head& b) { return a.name < b.name; });
  return heads;
}

std::string TagBranch(std::string_view tag) { return std::string(kTagPrefix).append(tag); }

Error NoBranch(std::string_view kind, std::string_view name) {
  return WorkspaceError(ErrorCode::NotFound,
                        "there is no " + std::string(kind) + " \"" + std::string(name) + "\"",
                        name);
}

/// Creates a branch of the store.
Status Create(WorkspaceState& state, std::string_view kind, std::string_view name,
              const std::string& branch, const Id& version) {
  const Result<WideString> wide = CheckedText(branch, kind);
  if (!wide) return wide.error();
  if (name.empty()) {
    return WorkspaceError(ErrorCode::BadName, "the name of a " + std::string(kind) + " is empty",
                          name);
  }
  if (state.GetRepository().GetHead(*wide)) {
    return WorkspaceError(ErrorCode::Conflict,
                          "there is a " + std::string(kind) + " \"" + std::string(name) + "\"",
                          name);
  }
  cow_ptr<Commit> commit = state.GetHead();
  if (!IsEmpty(version)) {
    const Result<cow_ptr<Commit>> found = state.FindCommit(version);
    if (!found) return found.error();
    commit = *found;
  }
  if (!commit) {
    return WorkspaceError(ErrorCode::NotFound, "the document has no version yet", name);
  }
  return state.MoveBranches({{branch, commit}}, nullptr, {});
}

Status RemoveHead(WorkspaceState& state, std::string_view kind, std::string_view name,
                  const std::string& branch) {
  const Result<WideString> wide = CheckedText(name, "name of the " + std::string(kind));
  if (!wide) return wide.error();
  if (!state.GetRepository().GetHead(ToWide(branch))) return NoBranch(kind, name);
  return state.MoveBranches({{branch, nullptr}}, nullptr, {});
}

/// A checkout that is taken back at the end of the scope unless it is kept, also when memory runs
/// out.
class CheckedOut {
 public:
  CheckedOut(WorkspaceState& state, const WideString& branch)
      : m_state(state), m_before(state.GetRepository().GetCurentBranch()) {
    m_state.GetRepository().Checkout(branch);
  }
  CheckedOut(const CheckedOut&) = delete;
  CheckedOut& operator=(const CheckedOut&) = delete;
  ~CheckedOut() {
    if (!m_isKept) m_state.PutBack({}, std::move(m_before));
  }

  void Keep() noexcept { m_isKept = true; }

 private:
  WorkspaceState& m_state;
  WideString m_before;
  bool m_isKept = false;
};

}  // namespace

std::string Workspace::GetBranch() const { return m_state->GetBranch(); }

Result<std::optional<Version>> Workspace::GetHead() const {
  return Try([&]() -> Result<std::optional<Version>> {
    const cow_ptr<TalVcs::Commit> head = m_state->GetHead();
    if (!head) return std::optional<Version>();
    return std::optional(m_state->VersionOf(head));
  });
}

std::vector<Head> Workspace::GetBranches() const { return HeadsOf(*m_state, false); }
std::vector<Head> Workspace::GetTags() const { return HeadsOf(*m_state, true); }

Status Workspace::CreateBranch(std::string_view name, const Id& version) {
  return Try([&]() -> Status {
    if (name.starts_with(kTagPrefix)) {
      return WorkspaceError(ErrorCode::BadName,
                            "the name of branch \"" + std::string(name) + "\" is that of a tag",
                            name);
    }
    return Create(*m_state, "branch", name, std::string(name), version);
  });
}

Status Workspace::CreateTag(std::string_view name, const Id& version) {
  return Try([&] { return Create(*m_state, "tag", name, TagBranch(name), version); });
}

Status Workspace::Switch(std::string_view branch) {
  return Try([&]() -> Status {
    Status status = m_state->NeedNoEdits("switch to another branch");
    if (!status) return status;
    if (branch.starts_with(kTagPrefix)) return NoBranch("branch", branch);
    const Result<cow_ptr<TalVcs::Commit>> head = m_state->FindBranch(branch);
    if (!head) return head.error();
    cow_ptr<Tree> files = RootOf(*head);
    CheckedOut checked_out(*m_state, ToWide(branch));
    const Result<SaveReport> saved = Save(m_state->opened);
    if (!saved) return saved.error();
    checked_out.Keep();
    m_state->lastCheckpoint.reset();
    m_state->BeginDraft(std::move(files));
    return {};
  });
}

Status Workspace::RemoveBranch(std::string_view name) {
  return Try([&]() -> Status {
    if (name.starts_with(kTagPrefix)) return NoBranch("branch", name);
    if (name == GetBranch()) {
      return WorkspaceError(ErrorCode::Denied,
                            "cannot remove branch \"" + std::string(name) + "\": it is current",
                            name);
    }
    return RemoveHead(*m_state, "branch", name, std::string(name));
  });
}

Status Workspace::RemoveTag(std::string_view name) {
  return Try([&] { return RemoveHead(*m_state, "tag", name, TagBranch(name)); });
}

Result<Version> Workspace::Find(std::string_view name) const {
  return Try([&]() -> Result<Version> {
    const Result<cow_ptr<TalVcs::Commit>> head = m_state->FindBranchOrTag(name);
    if (head) return m_state->VersionOf(*head);
    if (head.error().code != ErrorCode::NotFound) return head.error();
    const Result<cow_ptr<TalVcs::Commit>> commit = m_state->FindCommit(Id(ToWide(name)));
    if (!commit) return commit.error();
    return m_state->VersionOf(*commit);
  });
}

}  // namespace TalVcs::Kit
