#include <kit/open/copy.h>
#include <kit/open/internal/errors.h>
#include <kit/open/internal/head_moves.h>
#include <kit/open/internal/history_walk.h>
#include <kit/open/internal/object_writer.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

constexpr std::size_t kCommitsTogether = 256;

/// Returns the heads of the branches to copy.
Result<std::vector<Head>> ChooseHeads(IObjectStore& from, const std::vector<std::string>& names) {
  Result<std::vector<Head>> heads = from.Heads();
  if (!heads || names.empty()) return heads;
  std::vector<Head> chosen;
  for (const std::string& name : names) {
    const auto found = std::find_if(heads->begin(), heads->end(),
                                    [&name](const Head& head) { return head.name == name; });
    if (found == heads->end()) {
      return MakeError(ErrorCode::NotFound,
                       "cannot copy branch " + Quoted(name) + ": there is no such branch", name);
    }
    chosen.push_back(*found);
  }
  return chosen;
}

/// True if `ancestor` is in the history of `head`.
Result<bool> Follows(IObjectStore& store, const Id& head, const Id& ancestor) {
  CommitReader reader(store, head);
  while (!reader.AtEnd()) {
    const Result<std::vector<CommitRecord>> window = reader.Next();
    if (!window) return window.error();
    for (const CommitRecord& commit : *window) {
      if (commit.id == ancestor) return true;
    }
  }
  return false;
}

/// Returns the id of the parent that a packed commit names, or the empty id.
Id ParentOf(const Buffer& commit) {
  Id parent;
  VisitReferences(commit, {&parent, [](void* id, const PackedReference& reference) {
                             if (reference.type == ObjectType::Commit) {
                               *static_cast<Id*>(id) = reference.id;
                             }
                           }});
  return parent;
}

/// One attempt to copy branches.
class Copying {
 public:
  Copying(IObjectStore& from, IObjectStore& to, const CopyOptions& options)
      : m_from(from),
        m_to(to),
        m_options(options),
        m_reporter(options.progress),
        m_writer(to, m_reporter) {}

  Result<CopyReport> Run() {
    const Result<std::vector<Head>> heads = ChooseHeads(m_from, m_options.branches);
    if (!heads) return heads.error();
    const Result<std::vector<Head>> actual = m_to.Heads();
    if (!actual) return actual.error();
    Status status = CheckTargets(*heads, *actual);
    if (!status) return status.error();
    HistoryWalk walk(m_from, m_reporter, Hooks());
    Result<HistoryReport> source = walk.Run(*heads);
    if (!source) return source.error();
    status = WriteCommits();
    if (status) status = m_writer.Flush();
    if (!status) return status.error();
    if (!source->IsWhole() && m_options.policy == DamagePolicy::Stop) {
      Error error = ErrorOfDamage(*source);
      error.unchanged = "no branch of the target was moved";
      return error;
    }
    CopyReport report;
    report.source = *std::move(source);
    status = MoveHeads(*actual, report);
    if (!status) return status.error();
    report.writtenObjects = m_writer.WrittenObjects();
    report.writtenBytes = m_writer.WrittenBytes();
    return report;
  }

 private:
  // Refuses early what would drop commits from a branch of the target.
  Status CheckTargets(std::span<const Head> heads, std::span<const Head> actual) {
    if (m_options.replaceHeads) return {};
    for (const Head& head : heads) {
      const Id target = HeadOf(actual, head.name);
      if (target.View().IsEmpty() || target == head.id) continue;
      const Result<bool> follows = Follows(m_from, head.id, target);
      if (!follows) return follows.error();
      if (*follows) continue;
      const HeadMove move{head.name, target, head.id};
      return ConflictOf({&move, 1}, actual, head.name, "the target has commits that it would lose");
    }
    return {};
  }

  WalkHooks Hooks() {
    WalkHooks hooks;
    hooks.findsPrevious = true;
    hooks.wanted = [this](std::span<const Id> ids) { return m_to.Missing(ids); };
    // What lacks something below is not written, so that what a store has is complete.
    hooks.objectRead = [this](const StoredObject& object, bool is_whole) {
      return is_whole ? m_writer.Add(object) : Status();
    };
    hooks.commitDone = [this](const Id& commit, bool is_whole) {
      if (is_whole) m_commits.push_back(commit);
      return m_commits.size() < kCommitsTogether ? Status() : WriteCommits();
    };
    return hooks;
  }

  // Reads the commits whose trees are copied a second time, and writes them, oldest first.
  Status WriteCommits() {
    std::vector<Buffer> packed(m_commits.size());
    Status status =
        ReadEach(m_from, m_commits, [&](std::size_t index, Result<Buffer> read) -> Status {
          const Id& id = m_commits[index];
          const auto problem = CheckRecord(id, ObjectType::Commit, read);
          if (!problem) {
            packed[index] = *std::move(read);
            return {};
          }
          return MakeError(problem->code,
                           "cannot copy commit " + ShortId(id) + ": " + problem->reason, TextOf(id),
                           "no branch of the target was moved");
        });
    for (std::size_t index = 0; status && index < m_commits.size(); ++index) {
      Id parent = ParentOf(packed[index]);
      status = m_writer.Add({m_commits[index], std::move(packed[index]), std::move(parent)});
    }
    m_commits.clear();
    return status;
  }

  Status MoveHeads(std::span<const Head> actual, CopyReport& report) {
    std::vector<HeadMove> moves;
    for (const BranchReport& branch : report.source.branches) {
      if (branch.state != BranchState::Whole || branch.head.View().IsEmpty()) continue;
      report.heads.push_back({branch.name, branch.head});
      const Id target = HeadOf(actual, branch.name);
      if (!(target == branch.head)) moves.push_back({branch.name, target, branch.head});
    }
    return moves.empty() ? Status() : MoveHeadsSurely(m_to, moves);
  }

  IObjectStore& m_from;
  IObjectStore& m_to;
  const CopyOptions& m_options;
  Reporter m_reporter;
  ObjectWriter m_writer;
  std::vector<Id> m_commits;  // whose trees are written and that aren't written themselves
};

}  // namespace

Result<CopyReport> Copy(IObjectStore& from, IObjectStore& to, const CopyOptions& options) {
  for (int attempt = 1;; ++attempt) {
    Result<CopyReport> report = Copying(from, to, options).Run();
    if (report || report.error().code != ErrorCode::Busy || attempt == kMostAttempts) return report;
  }
}

}  // namespace TalVcs::Kit
