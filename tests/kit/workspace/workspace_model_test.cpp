// Random programs for two workspaces on one store, against a plain model: every version is a map of
// files, merges are decided path by path, and undo and redo are two stacks.

#include <tests/kit/workspace/plain_merge.h>
#include <tests/kit/workspace/workspace_fixture.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>

namespace TalVcs::Testing {
namespace {

using Kit::ErrorCode;

/// A version of the model. Numbers are indexes into the list of all versions; -1 is none.
struct ModelVersion {
  enum class Kind { Edit, Undo, Redo };

  FileTexts files;
  int parent = -1;
  Kind kind = Kind::Edit;
  int other = -1;   // what it undoes or redoes
  int merged = -1;  // the head of another branch
};

/// What one workspace knows and has pending.
struct ModelSession {
  std::map<std::string, int> heads;
  std::string branch;
  FileTexts files;
};

class WorkspaceModel : public WorkspaceTest {
 protected:
  void Run(unsigned seed, int steps) {
    m_random.seed(seed);
    m_versions.clear();
    m_heads.clear();
    m_indexes.clear();
    store = std::make_shared<Kit::MemoryObjectStore>();
    m_workspaces.clear();
    for (int i = 0; i < 2; ++i) {
      m_workspaces.push_back(OpenAgain());
      m_sessions[i] = {{}, "master", {}};
    }
    for (int i = 0; i < steps && !HasFailure(); ++i) Step();
    Kit::Workspace last = OpenAgain();
    for (const auto& [branch, head] : m_heads) CheckLine(last, branch, head);
  }

 private:
  using Preview = Kit::Result<Kit::MergePreview>;

  unsigned Number(unsigned below) { return static_cast<unsigned>(m_random() % below); }

  void Step() {
    m_index = Number(2);
    m_workspace = &m_workspaces[m_index];
    m_session = &m_sessions[m_index];
    const unsigned operation = Number(20);
    SCOPED_TRACE(operation);
    if (operation < 7) {
      Edit();
    } else if (operation < 11) {
      Commit();
    } else {
      StepOnVersions(operation);
    }
    EXPECT_EQ(FilesOf(*m_workspace), m_session->files);
  }

  void StepOnVersions(unsigned operation) {
    switch (operation) {
      case 11:
      case 12:
        return TakeBack(true);
      case 13:
        return TakeBack(false);
      case 14:
        return SwitchOrCreate();
      case 15:
      case 16:
        return Merge();
      case 17:
        return Apply();
      case 18:
        return Reload();
      default:
        return Number(2) == 0 ? Reopen() : Discard();
    }
  }

  int Head() const {
    const auto found = m_session->heads.find(m_session->branch);
    return found == m_session->heads.end() ? -1 : found->second;
  }
  FileTexts FilesAt(int version) const {
    return version < 0 ? FileTexts() : m_versions[static_cast<std::size_t>(version)].files;
  }
  const ModelVersion& At(int version) const {
    return m_versions[static_cast<std::size_t>(version)];
  }
  bool HasEdits() const { return m_session->files != FilesAt(Head()); }
  bool IsBehind() const {
    const auto found = m_heads.find(m_session->branch);
    return (found == m_heads.end() ? -1 : found->second) != Head();
  }

  std::string AnyPath() {
    constexpr const char* kPaths[] = {"a", "b", "d/x", "d/y", "e/f/g"};
    return kPaths[Number(5)];
  }

  void Edit() {
    const std::string path = AnyPath();
    if (Number(4) != 0) {
      const std::string text = std::to_string(Number(4));
      m_workspace->Write(path, text).value();
      m_session->files[path] = text;
    } else if (m_session->files.erase(path) != 0) {
      m_workspace->Remove(path).value();
    } else {
      EXPECT_THAT(m_workspace->Remove(path), FailsWith(ErrorCode::NotFound));
    }
  }

  /// Checks what an operation made of the head, given the version that the model makes.
  void CheckMade(const Kit::Result<std::optional<Version>>& made, ModelVersion version) {
    if (IsBehind()) {
      EXPECT_THAT(made, FailsWith(ErrorCode::HeadMoved));
      return;
    }
    ASSERT_TRUE(made.ok()) << Kit::Describe(made.error());
    ASSERT_TRUE(made->has_value());
    version.parent = Head();
    Add(**made, std::move(version));
  }

  void Add(const Version& made, ModelVersion version) {
    m_session->files = version.files;
    m_versions.push_back(std::move(version));
    const int index = static_cast<int>(m_versions.size()) - 1;
    m_indexes.emplace(made.id.ToString(), index);
    MoveTo(index);
  }

  void MoveTo(int index) {
    m_session->heads[m_session->branch] = index;
    m_heads[m_session->branch] = index;
    m_session->files = FilesAt(index);
  }

  void Commit() {
    const auto made = m_workspace->Commit("edit");
    if (!HasEdits()) {
      EXPECT_EQ(made.value(), std::nullopt);
    } else {
      CheckMade(made, {m_session->files});
    }
  }

  /// Returns the versions of the line that can be undone and redone, the next one last.
  std::pair<std::vector<int>, std::vector<int>> Stacks() const {
    std::vector<int> line;
    for (int at = Head(); at >= 0; at = At(at).parent) line.push_back(at);
    std::pair<std::vector<int>, std::vector<int>> stacks;
    for (auto at = line.rbegin(); at != line.rend(); ++at) {
      switch (At(*at).kind) {
        case ModelVersion::Kind::Edit:
          stacks.first.push_back(*at);
          stacks.second.clear();
          break;
        case ModelVersion::Kind::Undo:
          stacks.first.pop_back();
          stacks.second.push_back(*at);
          break;
        case ModelVersion::Kind::Redo:
          stacks.first.push_back(At(At(*at).other).other);
          stacks.second.pop_back();
          break;
      }
    }
    return stacks;
  }

  void TakeBack(bool undoes) {
    const auto stacks = Stacks();
    const std::vector<int>& stack = undoes ? stacks.first : stacks.second;
    const auto made = undoes ? m_workspace->Undo() : m_workspace->Redo();
    if (stack.empty()) {
      EXPECT_EQ(made.value(), std::nullopt);
      return;
    }
    const int target = stack.back();
    const ModelMerge merge =
        MergeFiles(FilesAt(target), FilesAt(Head()), FilesAt(At(target).parent));
    if (HasEdits() || !merge.conflicts.empty()) {
      EXPECT_THAT(made, FailsWith(ErrorCode::Undecided));
      return;
    }
    const auto kind = undoes ? ModelVersion::Kind::Undo : ModelVersion::Kind::Redo;
    CheckMade(made, {merge.files, -1, kind, target});
  }

  void SwitchOrCreate() {
    const std::string name = Number(2) == 0 ? "master" : "topic";
    if (!m_session->heads.contains(name)) {
      const Kit::Status made = m_workspace->CreateBranch(name);
      if (Head() < 0) {
        EXPECT_THAT(made, FailsWith(ErrorCode::NotFound));
      } else if (m_heads.contains(name) && m_heads[name] != Head()) {
        EXPECT_THAT(made, FailsWith(ErrorCode::HeadMoved));
      } else {
        EXPECT_TRUE(made.ok());
        m_heads[name] = m_session->heads[name] = Head();
      }
      return;
    }
    const Kit::Status switched = m_workspace->Switch(name);
    if (HasEdits()) {
      EXPECT_THAT(switched, FailsWith(ErrorCode::Undecided));
      return;
    }
    EXPECT_TRUE(switched.ok());
    m_session->branch = name;
    m_session->files = FilesAt(Head());
  }

  std::set<int> Ancestors(int version) const {
    std::set<int> all;
    std::vector<int> pending{version};
    while (!pending.empty()) {
      const int at = pending.back();
      pending.pop_back();
      if (at < 0 || !all.insert(at).second) continue;
      pending.push_back(At(at).parent);
      pending.push_back(At(at).merged);
    }
    return all;
  }

  std::vector<int> MergeBases(int first, int second) const {
    const std::set<int> of_first = Ancestors(first);
    std::vector<int> common;
    for (const int at : Ancestors(second)) {
      if (of_first.contains(at)) common.push_back(at);
    }
    std::vector<int> newest;
    for (const int at : common) {
      const bool is_below = std::any_of(common.begin(), common.end(), [&](int above) {
        return above != at && Ancestors(above).contains(at);
      });
      if (!is_below) newest.push_back(at);
    }
    return newest;
  }

  /// Decides each conflict by chance, in the workspace's terms and in the model's.
  Kit::Decisions Decide(const Kit::MergePreview& preview, const FileTexts& theirs,
                        ModelMerge& merge) {
    Kit::Decisions decisions;
    std::set<std::string> paths;
    for (const Kit::Conflict& conflict : preview.conflicts) {
      paths.insert(conflict.path);
      const bool takes_theirs = Number(2) == 0;
      decisions.emplace(conflict.path,
                        takes_theirs ? Kit::Decision::Theirs() : Kit::Decision::Ours());
      if (!takes_theirs) continue;
      merge.files.erase(conflict.path);
      if (const std::string* text = TextAt(theirs, conflict.path)) {
        merge.files.emplace(conflict.path, *text);
      }
    }
    EXPECT_EQ(paths, merge.conflicts);
    return decisions;
  }

  void Merge() {
    const std::string other = m_session->branch == "master" ? "topic" : "master";
    const Preview preview = m_workspace->PreviewMerge(other);
    if (!m_session->heads.contains(other)) {
      EXPECT_THAT(preview, FailsWith(ErrorCode::NotFound));
      return;
    }
    const int theirs = m_session->heads[other];
    const std::vector<int> bases = MergeBases(Head(), theirs);
    if (HasEdits() || bases.size() != 1) return;
    ModelMerge merge = MergeFiles(FilesAt(bases[0]), FilesAt(Head()), FilesAt(theirs));
    EXPECT_EQ(preview->isUpToDate, bases[0] == theirs);
    if (bases[0] == theirs) {
      EXPECT_EQ(m_workspace->Merge(*preview).value(), std::nullopt);
      return;
    }
    const Kit::Decisions decisions = Decide(*preview, FilesAt(theirs), merge);
    const auto made = m_workspace->Merge(*preview, decisions);
    // A save finds out that the branch is where it is to go.
    const bool is_there =
        m_heads.contains(m_session->branch) && m_heads[m_session->branch] == theirs;
    if (preview->isFastForward && (!IsBehind() || is_there)) {
      EXPECT_EQ(m_indexes.at((*made.value()).id.ToString()), theirs);
      MoveTo(theirs);
      return;
    }
    CheckMade(made, {merge.files, -1, ModelVersion::Kind::Edit, -1, theirs});
  }

  /// Brings in or takes back any version of any branch.
  void Apply() {
    if (m_versions.empty() || HasEdits()) return;
    const int version = static_cast<int>(Number(static_cast<unsigned>(m_versions.size())));
    const auto id = std::find_if(m_indexes.begin(), m_indexes.end(),
                                 [&](const auto& entry) { return entry.second == version; });
    const bool reverts = Number(2) == 0;
    const FileTexts after = FilesAt(version);
    const FileTexts before = FilesAt(At(version).parent);
    const FileTexts& theirs = reverts ? before : after;
    ModelMerge merge = MergeFiles(reverts ? after : before, FilesAt(Head()), theirs);
    const Preview preview = reverts ? m_workspace->PreviewRevert(Id(id->first))
                                    : m_workspace->PreviewCherryPick(Id(id->first));
    const Kit::Decisions decisions = Decide(preview.value(), theirs, merge);
    const auto made = m_workspace->Merge(*preview, decisions);
    if (merge.files == FilesAt(Head())) {
      EXPECT_EQ(made.value(), std::nullopt);
    } else {
      CheckMade(made, {merge.files});
    }
  }

  void Reload() {
    const auto actual = m_heads.find(m_session->branch);
    const int head = actual == m_heads.end() ? -1 : actual->second;
    EXPECT_EQ(m_workspace->IsBehind().value(), m_heads != m_session->heads);
    ModelMerge merge = MergeFiles(FilesAt(Head()), m_session->files, FilesAt(head));
    const Kit::Decisions decisions =
        Decide(m_workspace->PreviewReload().value(), FilesAt(head), merge);
    if (!decisions.empty()) {
      EXPECT_THAT(m_workspace->Reload(), FailsWith(ErrorCode::Undecided));
    }
    m_workspace->Reload(decisions).value();
    m_session->heads = m_heads;
    m_session->files = merge.files;
  }

  void Reopen() {
    *m_workspace = OpenAgain();
    m_session->heads = m_heads;
    m_session->branch = m_workspace->GetBranch();
    m_session->files = FilesAt(Head());
  }

  void Discard() {
    m_workspace->Discard();
    m_session->files = FilesAt(Head());
  }

  void CheckLine(const Kit::Workspace& of, const std::string& branch, int head) {
    int at = head;
    for (const Version& version : of.Log({.branch = branch, .limit = 10000}).value()) {
      ASSERT_GE(at, 0);
      EXPECT_EQ(m_indexes.at(version.id.ToString()), at);
      EXPECT_EQ(FilesOf(of.At(version.id).value()), At(at).files);
      at = At(at).parent;
    }
    EXPECT_EQ(at, -1);
  }

  std::mt19937 m_random;
  std::vector<ModelVersion> m_versions;
  std::map<std::string, int> m_heads;
  std::map<TalStringT<WideChar>, int> m_indexes;
  std::vector<Kit::Workspace> m_workspaces;
  ModelSession m_sessions[2];
  unsigned m_index = 0;
  Kit::Workspace* m_workspace = nullptr;
  ModelSession* m_session = nullptr;
};

// TALVCS_WORKSPACE_PROGRAMS sets the number of programs.
TEST_F(WorkspaceModel, RandomProgramsDoWhatThePlainModelDoes) {
  const char* wish = std::getenv("TALVCS_WORKSPACE_PROGRAMS");
  const int programs = wish == nullptr ? 100 : std::atoi(wish);
  for (int seed = 1; seed <= programs && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Run(static_cast<unsigned>(seed), 60);
  }
}

}  // namespace
}  // namespace TalVcs::Testing
