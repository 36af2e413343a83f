#pragma once

#include <kit/internal/recent_objects.h>
#include <kit/open/internal/damage_list.h>
#include <kit/open/internal/id_map.h>
#include <kit/open/internal/reporter.h>
#include <kit/open/internal/walk_hooks.h>

#include <string>
#include <vector>

namespace TalVcs::Kit {

/// Walks trees by the records of a store: depth first, each object once, children before what
/// names them. Nothing runs in recursion. A directory's subtrees and files are read in batches.
class TreeWalk {
 public:
  /// The root tree of a commit.
  struct Root {
    Id id;
    Id commit;
    Id previous = {};  // the root tree of the parent; empty if there is none or it isn't known
  };

  /// All arguments must outlive the walk.
  TreeWalk(IObjectStore& store, Reporter& reporter, const WalkHooks& hooks, DamageList& damages)
      : m_store(store), m_reporter(reporter), m_hooks(hooks), m_damages(damages) {}

  /// Walks the trees that no earlier call has visited. `branch` is named in what is damaged.
  Status Walk(std::vector<Root> roots, const std::string& branch);

  /// Returns the set of what the tree lacks. The tree must have been visited.
  std::uint32_t DamageOf(const Id& root) const { return *m_trees.Find(*KeyOf(root)); }
  const IdMap& Trees() const noexcept { return m_trees; }
  const IdMap& Files() const noexcept { return m_files; }

 private:
  struct Entry {
    Id id;
    TalStringT<WideChar> name;
    Id previous = {};  // as in StoredObject
  };
  struct Fetched {
    std::size_t position = 0;
    Buffer packed;
    std::optional<ReadProblem> problem;
  };
  /// A tree whose subtrees are being visited.
  struct Frame {
    Entry self;
    Buffer packed;
    std::vector<Entry> trees;
    std::size_t next = 0;
    std::vector<Fetched> fetched;  // ascending positions in `trees`
    std::size_t nextFetched = 0;
    std::vector<std::uint32_t> damage;  // numbers
  };

  static constexpr std::uint64_t kMostRecentBytes = std::uint64_t{16} << 20;

  Status Step();
  Status Finish();
  Status Open(Entry entry, Buffer packed);
  void FindPrevious(Frame& frame, std::vector<Entry>& files);
  Status KeepWanted(std::vector<Entry>& trees, std::vector<Entry>& files);
  Status Fetch(Frame& frame);
  Status ReadFiles(Frame& frame, const std::vector<Entry>& files);
  Status LookForFiles(Frame& frame, const std::vector<Entry>& files);
  void AddFileDamage(Frame& frame, const Entry& file, ReadProblem problem);
  void AddDamage(Frame& frame, std::uint32_t set);
  void NoteReplaced(const Entry& entry, ObjectType type) const;
  Damage DamageAt(const Entry& entry, ObjectType type, ReadProblem problem) const;

  IObjectStore& m_store;
  Reporter& m_reporter;
  const WalkHooks& m_hooks;
  DamageList& m_damages;
  // Values are sets of damages.
  IdMap m_trees;
  IdMap m_files;
  std::vector<Root> m_roots;
  const std::string* m_branch = nullptr;
  std::vector<Frame> m_frames;  // the first one is for the roots
  // Packed forms, for the previous versions of entries.
  RecentObjects<Buffer> m_recentTrees{kMostRecentBytes};
};

}  // namespace TalVcs::Kit
