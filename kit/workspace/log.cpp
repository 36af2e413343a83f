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
Result<LogWalk> Begin(WorkspaceState& state, const LogOptions& options, Reporter& reporter) {
  LogWalk walk(options.clockError, reporter);
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
Status SkipPages(WorkspaceState& state, LogWalk& walk, const Id& after, Reporter& reporter) {
  for (;;) {
    const Result<cow_ptr<Commit>> commit = walk.Next();
    if (!commit) return commit.error();
    if (!*commit) break;
    if ((*commit)->GetId() == after) return {};
    state.PassVersion();
    if (Status status = reporter.Add(1); !status) return status;
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
    Reporter reporter(options.progress);
    Result<LogWalk> walk = Begin(*m_state, options, reporter);
    if (!walk) return std::move(walk).error();
    Status status = reporter.Begin("log");
    if (status && options.allBranches && !IsEmpty(options.after)) {
      status = SkipPages(*m_state, *walk, options.after, reporter);
    }
    FilteredLog log(*m_state, *std::move(walk), LogFilter(options, *path), reporter, 1);
    const NamesOfIds names = m_state->NamesOfHeads();
    std::vector<Version> versions;
    while (status && versions.size() < options.limit) {
      const Result<cow_ptr<TalVcs::Commit>> commit = log.Next();
      if (!commit) return commit.error();
      if (!*commit) break;
      versions.push_back(WorkspaceState::VersionOf(*commit, names));
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
    Reporter reporter(options.progress);
    LogWalk walk({}, reporter);
    walk.Add(m_state->GetHead());
    const LogOptions everything;
    FilteredLog log(*m_state, std::move(walk), LogFilter(everything, *wide), reporter, 0);
    const Status status = reporter.Begin("versions");
    if (!status) return status.error();
    return BlameText(
        [&]() -> Result<std::optional<TextVersion>> {
          const Result<cow_ptr<TalVcs::Commit>> commit = log.Next();
          if (!commit) return commit.error();
          if (!*commit) return std::optional<TextVersion>();
          const cow_ptr<Blob> blob = RootOf(*commit)->GetDeepBlob(*wide);
          if (!blob) return std::optional<TextVersion>();
          return std::optional(TextVersion{ToUtf8((*commit)->GetId().View()),
                                           std::string(Bytes(blob->GetData()).text())});
        },
        options);
  });
}

}  // namespace TalVcs::Kit
