#include <talvcs/merge/resolvers.h>

#include <talvcs/foundation/helpers.h>

#include <optional>
#include <utility>
#include <vector>

namespace TalVcs {

namespace {

using Components = array_view<const TalStringViewT<WideChar>>;

template <class Resolver, class Choice>
Resolver Chain(Resolver first, Resolver second, Choice undecided) {
  return [first = std::move(first), second = std::move(second), undecided](Components path,
                                                                           MergeTrees trees) {
    const Choice choice = first(path, trees);
    return choice == undecided ? second(path, std::move(trees)) : choice;
  };
}

/// Returns the directories on a path, the top first, as far as there are any. Each level is opened
/// once, so that the cost of a search on all levels follows the depth and not its square.
std::vector<cow_ptr<Tree>> DirectoriesOn(cow_ptr<Tree> top, Components path) {
  std::vector<cow_ptr<Tree>> directories;
  for (const auto& name : path) {
    if (!top) return directories;
    cow_ptr<Tree> below = top->GetLocalTree(name);
    directories.push_back(std::exchange(top, std::move(below)));
  }
  if (top) directories.push_back(std::move(top));
  return directories;
}

/// Asks for the time of a directory.
class DirectoryTime {
 public:
  DirectoryTime(std::vector<TalStringT<WideChar>> time_file_paths, BlobTimeGetter read_time)
      : m_paths(std::move(time_file_paths)), m_readTime(std::move(read_time)) {}

  /// Returns the first time found in the directory of that level, if there is one.
  std::optional<Time> ReadTimeAt(const std::vector<cow_ptr<Tree>>& directories,
                                 std::size_t level) const {
    if (level >= directories.size()) return std::nullopt;
    for (const auto& file : m_paths) {
      cow_ptr<Blob> blob = directories[level]->GetDeepBlob(Components(Helpers::SplitVcsPath(file)));
      if (!blob || !m_readTime) continue;
      if (const std::optional<Time> time = m_readTime(std::move(blob))) return time;
    }
    return std::nullopt;
  }

 private:
  std::vector<TalStringT<WideChar>> m_paths;
  BlobTimeGetter m_readTime;
};

/// The side with the later time, a time on one side only being the later one.
ConflictChoice ChooseLater(const std::optional<Time>& left, const std::optional<Time>& right) {
  if (left == right) return ConflictChoice::Undecided;
  if (!right || (left && *right < *left)) return ConflictChoice::Left;
  return ConflictChoice::Right;
}

}  // namespace

ConflictResolver AlwaysChooseRoot() {
  return always_return_t<ConflictChoice>{ConflictChoice::Root};
}

ConflictResolver AlwaysChooseLeft() {
  return always_return_t<ConflictChoice>{ConflictChoice::Left};
}

ConflictResolver AlwaysChooseRight() {
  return always_return_t<ConflictChoice>{ConflictChoice::Right};
}

ConflictResolver ChainResolvers(ConflictResolver first, ConflictResolver second) {
  return Chain(std::move(first), std::move(second), ConflictChoice::Undecided);
}

TreeConflictResolver ChainResolvers(TreeConflictResolver first, TreeConflictResolver second) {
  return Chain(std::move(first), std::move(second), TreeConflictChoice::Undecided);
}

ConflictResolver TimeBasedConflictResolver(std::vector<TalStringT<WideChar>> timeFilePaths,
                                           BlobTimeGetter readTime) {
  return [times = DirectoryTime(std::move(timeFilePaths), std::move(readTime))](Components path,
                                                                                MergeTrees trees) {
    const std::vector<cow_ptr<Tree>> of_left = DirectoriesOn(std::move(trees.left), path);
    std::vector<cow_ptr<Tree>> of_right;
    for (std::size_t level = path.size();; --level) {
      const std::optional<Time> left = times.ReadTimeAt(of_left, level);
      if (level == path.size()) of_right = DirectoriesOn(std::move(trees.right), path);
      const std::optional<Time> right = times.ReadTimeAt(of_right, level);
      const ConflictChoice choice = ChooseLater(left, right);
      if (choice != ConflictChoice::Undecided || level == 0) return choice;
    }
  };
}

}  // namespace TalVcs
