#include <kit/open/internal/reporter.h>
#include <kit/open/try.h>
#include <kit/text.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/log_walk.h>
#include <kit/workspace/workspace.h>

#include <utility>

namespace TalVcs::Kit {

namespace {

/// Begins where the options say, with the first version of the page or, of several histories, with
/// their heads.
Result<LogWalk> Begin(WorkspaceState& state, const LogOptions& options) {
  LogWalk walk;
  if (options.allBranches) {
    for (const auto& [name, id] : state.GetStorage().GetHeadIds()) {
      walk.Add(state.GetRepository().GetHead(name));
    }
    return walk;
  }
  if (!IsEmpty(options.after)) {
    const Result<cow_ptr<Commit>> last = state.FindCommit(options.after);
    if (!last) return last.error();
    walk.Add((*last)->GetParent());
  } else if (!IsEmpty(options.from)) {
    Result<cow_ptr<Commit>> first = state.FindCommit(options.from);
    if (!first) return std::move(first).error();
    walk.Add(*std::move(first));
  } else if (options.branch.empty()) {
    walk.Add(state.GetHead());
  } else {
    Result<cow_ptr<Commit>> head = state.FindBranchOrTag(options.branch);
    if (!head) return std::move(head).error();
    walk.Add(*std::move(head));
  }
  return walk;
}

/// Leaves out what the pages before had.
Status SkipPages(WorkspaceState& state, LogWalk& walk, const Id& after) {
  while (const cow_ptr<Commit> commit = walk.Next()) {
    if (commit->GetId() == after) return {};
    state.PassVersion();
  }
  return WorkspaceError(ErrorCode::NotFound,
                        "there is no version \"" + ToUtf8(after.View()) + "\" to go on after",
                        ToUtf8(after.View()));
}

}  // namespace

Result<std::vector<Version>> Workspace::Log(const LogOptions& options) const {
  return Try([&]() -> Result<std::vector<Version>> {
    const Result<WideString> path = CheckedFolder(options.path);
    if (!path) return path.error();
    Result<LogWalk> walk = Begin(*m_state, options);
    if (!walk) return walk.error();
    if (options.allBranches && !IsEmpty(options.after)) {
      const Status skipped = SkipPages(*m_state, *walk, options.after);
      if (!skipped) return skipped.error();
    }
    LogFilter filter(options, *path);
    const NamesOfIds names = m_state->NamesOfHeads();
    Reporter reporter(options.progress);
    Status status = reporter.Begin("log");
    std::vector<Version> versions;
    while (status && versions.size() < options.limit) {
      const cow_ptr<TalVcs::Commit> commit = walk->Next();
      if (!commit) break;
      if (filter.Takes(*commit)) versions.push_back(WorkspaceState::VersionOf(commit, names));
      status = reporter.Add(1);
      m_state->PassVersion();
    }
    if (status) status = reporter.End();
    if (!status) return status.error();
    return versions;
  });
}

Result<Kit::Blame> Workspace::BlameFile(std::string_view path, const BlameOptions& options) const {
  return Try([&]() -> Result<Kit::Blame> {
    const Result<WideString> wide = CheckedPath(path);
    if (!wide) return wide.error();
    const Snapshot files(RootOf(m_state->GetHead()));
    const Result<Bytes> text = files.Read(path);
    if (!text) return text.error();
    LogWalk walk;
    walk.Add(m_state->GetHead());
    const LogOptions everything;
    LogFilter filter(everything, *wide);
    return BlameText(
        [&]() -> Result<std::optional<TextVersion>> {
          cow_ptr<TalVcs::Commit> commit = walk.Next();
          while (commit && !filter.Takes(*commit)) {
            m_state->PassVersion();
            commit = walk.Next();
          }
          if (!commit) return std::optional<TextVersion>();
          const cow_ptr<Blob> blob = RootOf(commit)->GetDeepBlob(*wide);
          if (!blob) return std::optional<TextVersion>();
          return std::optional(TextVersion{ToUtf8(commit->GetId().View()),
                                           std::string(Bytes(blob->GetData()).text())});
        },
        options);
  });
}

}  // namespace TalVcs::Kit
