#include <talvcs/merge/resolvers.h>

#include <talvcs/foundation/helpers.h>

#include <utility>

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

/// Asks for the time of a directory.
class DirectoryTime {
 public:
  DirectoryTime(std::vector<TalStringT<WideChar>> time_file_paths, BlobTimeGetter read_time)
      : m_paths(std::move(time_file_paths)), m_readTime(std::move(read_time)) {}

  /// Returns the first time found in the directory at `path` of `top`.
  std::optional<Time> ReadTimeAt(const cow_ptr<Tree>& top, Components path) const {
    const cow_ptr<Tree> directory = top && !path.empty() ? top->GetDeepTree(path) : top;
    if (!directory) return std::nullopt;
    for (const auto& file : m_paths) {
      cow_ptr<Blob> blob = directory->GetDeepBlob(Components(Helpers::SplitVcsPath(file)));
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
    for (;; path = path.without_last(1)) {
      const std::optional<Time> left = times.ReadTimeAt(trees.left, path);
      const std::optional<Time> right = times.ReadTimeAt(trees.right, path);
      const ConflictChoice choice = ChooseLater(left, right);
      if (choice != ConflictChoice::Undecided || path.empty()) return choice;
    }
  };
}

}  // namespace TalVcs
