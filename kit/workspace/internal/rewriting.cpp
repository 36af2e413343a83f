#include <kit/open/internal/object_writer.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/message.h>
#include <kit/workspace/internal/thinning.h>

#include <algorithm>
#include <memory>
#include <unordered_map>
#include <utility>

namespace TalVcs::Kit {

namespace {

// A commit that was made holds those before it until their part of the history is written.
constexpr std::size_t kCommitsTogether = 1024;

/// Makes the commits of a history that change, each after those that it names. Nothing but their
/// ids stays in memory.
class Rewriting {
 public:
  using Index = HistoryGraph::Index;

  Rewriting(WorkspaceState& state, const ThinnedHistory& history, Reporter& reporter)
      : m_state(state),
        m_history(history),
        m_graph(history.Graph()),
        m_writer(*state.store, reporter),
        m_ids(m_graph.Count()) {}

  Result<std::vector<BranchMove>> Run() {
    for (Index i = 0; i < m_graph.Count(); ++i) {
      if (!m_history.IsKept(i)) continue;
      m_ids[i] = m_graph[i].id;
      Status status = m_history.IsChanged(i) ? MakeAgain(i) : Status();
      if (status && m_commits.size() >= kCommitsTogether) status = EndPart();
      if (!status) return std::move(status).error();
    }
    Status status = EndPart();
    if (!status) return std::move(status).error();
    return Moves();
  }

 private:
  Result<cow_ptr<Commit>> FindCommit(Index index) {
    const auto found = m_commits.find(index);
    if (found != m_commits.end()) return found->second;
    return m_state.FindCommit(IdOf(m_ids[index]));
  }

  Status MakeAgain(Index index) {
    const Result<cow_ptr<Commit>> old = m_state.FindCommit(IdOf(m_graph[index].id));
    if (!old) return old.error();
    // The copy's root isn't read.
    auto commit = std::make_unique<Commit>(**old);
    const Index parent = m_history.ParentOf(index);
    if (parent == HistoryGraph::kNone) {
      commit->SetParent(nullptr);
    } else {
      Result<cow_ptr<Commit>> found = FindCommit(parent);
      if (!found) return std::move(found).error();
      commit->SetParent(*std::move(found));
    }
    AnnotatedMessage message = ParseDescription(ToUtf8(commit->GetDesciption()));
    Annotations annotations = NewAnnotations(index, message.annotations);
    if (annotations != message.annotations) {
      message.annotations = std::move(annotations);
      const Result<WideString> text = CheckedText(DescriptionOf(message), "message");
      if (!text) return text.error();
      commit->SetDescription(*text);
    }
    const Id id = commit->GetId();
    m_ids[index] = *KeyOf(id);
    Status status = m_writer.Add({id, commit->BuildPackedData(), ParentIdOf(parent)});
    m_commits.emplace(index, cow_ptr<Commit>(dll_wrapped_shared(std::move(commit))));
    return status;
  }

  Id ParentIdOf(Index parent) const {
    return parent == HistoryGraph::kNone ? Id() : IdOf(m_ids[parent]);
  }

  Annotations NewAnnotations(Index index, Annotations annotations) const {
    annotations.merges.clear();
    for (const Index merged : m_history.MergesOf(index)) {
      const Id id = IdOf(m_ids[merged]);
      if (std::ranges::find(annotations.merges, id) == annotations.merges.end()) {
        annotations.merges.push_back(id);
      }
    }
    // An undo without its version, and the first version that is left, can't be taken back.
    if (m_history.IsCut(index)) annotations.isMachineMade = true;
    const HistoryGraph::Node& node = m_graph[index];
    for (const auto& [id, target] : {std::pair(&annotations.undoes, node.undoes),
                                     std::pair(&annotations.redoes, node.redoes)}) {
      if (target == HistoryGraph::kNone) continue;
      const bool is_kept = target < index && m_history.IsKept(target);
      if (!is_kept) annotations.isMachineMade = true;
      *id = is_kept ? IdOf(m_ids[target]) : Id();
    }
    return annotations;
  }

  /// Writes what was made, which is read again where it is needed.
  Status EndPart() {
    Status status = m_writer.Flush();
    m_commits.clear();
    m_state.GetStorage().Trim();
    return status;
  }

  Result<std::vector<BranchMove>> Moves() {
    std::vector<BranchMove> moves;
    for (const HistoryGraph::Branch& branch : m_graph.Branches()) {
      if (m_ids[branch.head] == m_graph[branch.head].id) continue;
      Result<cow_ptr<Commit>> head = FindCommit(branch.head);
      if (!head) return std::move(head).error();
      moves.push_back({branch.name, *std::move(head)});
    }
    return moves;
  }

  WorkspaceState& m_state;
  const ThinnedHistory& m_history;
  const HistoryGraph& m_graph;
  ObjectWriter m_writer;
  std::vector<ObjectKey> m_ids;                          // what each kept version became
  std::unordered_map<Index, cow_ptr<Commit>> m_commits;  // those that were made and not written
};

}  // namespace

Result<std::vector<BranchMove>> WriteThinnedHistory(WorkspaceState& state,
                                                    const ThinnedHistory& history,
                                                    Reporter& reporter) {
  return InPhase(reporter, "write", [&] { return Rewriting(state, history, reporter).Run(); });
}

}  // namespace TalVcs::Kit
