#include <kit/open/copy.h>
#include <kit/open/internal/errors.h>
#include <kit/open/internal/head_moves.h>
#include <kit/open/internal/history_walk.h>
#include <kit/open/internal/object_writer.h>
#include <kit/store/internal/parent_of.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

constexpr std::size_t kCommitsTogether = 256;
constexpr std::size_t kObjectsReadBackTogether = 256;

/// Returns the heads of the branches to copy.
Result<std::vector<Head>> ChooseHeads(IObjectStore& from, const std::vector<std::string>& names) {
  Result<std::vector<Head>> heads = from.Heads();
  if (!heads || names.empty()) return heads;
  std::vector<Head> chosen;
  const HeadIndex known(*heads);
  for (const std::string& name : names) {
    if (!known.Contains(name)) {
      return MakeError(ErrorCode::NotFound,
                       "cannot copy branch " + Quoted(name) + ": there is no such branch", name);
    }
    chosen.push_back({name, known.IdOf(name)});
  }
  return chosen;
}

Error RemovedMeanwhile() {
  return MakeError(ErrorCode::Busy,
                   "cannot copy: a clean-up has removed copied objects from the target", {},
                   "no branch of the target was moved");
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
    if (m_options.readBack) m_writer.KeepIds();
    Result<HistoryReport> source = walk.Run(*heads);
    if (!source) {
      // The next copy needn't read again what was read, whether or not it can be written now.
      [[maybe_unused]] const Status ignored = m_writer.Flush();
      return source.error();
    }
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
    const std::vector<HeadMove> moves = MovesTo(*actual, report);
    if (m_options.readBack) status = ReadBack(moves);
    if (status && !moves.empty()) status = MoveHeadsSurely(m_to, moves);
    if (!status) return status.error();
    report.writtenObjects = m_writer.WrittenObjects();
    report.writtenBytes = m_writer.WrittenBytes();
    return report;
  }

 private:
  // Refuses early what would drop commits from a branch of the target.
  Status CheckTargets(std::span<const Head> heads, std::span<const Head> actual) {
    if (m_options.replaceHeads) return {};
    const HeadIndex there(actual);
    for (const Head& head : heads) {
      const Id target = there.IdOf(head.name);
      if (target.View().IsEmpty() || target == head.id) continue;
      const Result<bool> follows = IsAncestor(m_from, target, head.id);
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
      Id parent = ParentOf(packed[index]).value_or(Id());
      status = m_writer.Add({m_commits[index], std::move(packed[index]), std::move(parent)});
    }
    m_commits.clear();
    return status;
  }

  std::vector<HeadMove> MovesTo(std::span<const Head> actual, CopyReport& report) const {
    std::vector<HeadMove> moves;
    const HeadIndex there(actual);
    for (const BranchReport& branch : report.source.branches) {
      if (branch.state != BranchState::Whole || branch.head.View().IsEmpty()) continue;
      report.heads.push_back({branch.name, branch.head});
      const Id target = there.IdOf(branch.name);
      if (!(target == branch.head)) moves.push_back({branch.name, target, branch.head});
    }
    return moves;
  }

  // Lets the target keep what was written, and begins a new save with the look at the heads: as
  // long as a commit is there, everything below it is.
  Status ReadBack(std::span<const HeadMove> moves) {
    Status status = m_reporter.Begin("read back", m_writer.WrittenIds().size());
    if (status) status = m_to.MoveHeads({});
    if (!status) return status;
    std::vector<Id> heads;
    for (const HeadMove& move : moves) heads.push_back(move.desired);
    const Result<std::vector<Id>> missing = m_to.Missing(heads);
    if (!missing) return missing.error();
    if (!missing->empty()) return RemovedMeanwhile();
    const std::vector<ObjectKey>& written = m_writer.WrittenIds();
    for (std::size_t first = 0; status && first < written.size();
         first += kObjectsReadBackTogether) {
      std::vector<Id> ids;
      const std::size_t last = std::min(written.size(), first + kObjectsReadBackTogether);
      for (std::size_t index = first; index < last; ++index) ids.push_back(IdOf(written[index]));
      status = ReadEach(m_to, ids, [&](std::size_t index, Result<Buffer> packed) {
        return CheckWritten(ids[index], packed);
      });
    }
    return status ? m_reporter.End() : status;
  }

  Status CheckWritten(const Id& id, const Result<Buffer>& packed) {
    const auto problem = CheckRecord(id, packed);
    if (!problem) return m_reporter.Add(1, packed->GetSize());
    if (problem->code == ErrorCode::NotFound) return RemovedMeanwhile();
    const ErrorCode code =
        problem->code == ErrorCode::Unavailable ? problem->code : ErrorCode::Damaged;
    return MakeError(code,
                     "object " + ShortId(id) +
                         " was copied and can't be read from the target: " + problem->reason,
                     TextOf(id), "no branch of the target was moved");
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
