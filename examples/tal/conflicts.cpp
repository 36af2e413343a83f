#include "conflicts.h"

#include "parse_time.h"
#include "printing.h"

#include <algorithm>
#include <iostream>
#include <optional>
#include <utility>

namespace Tal {
namespace {

using TalVcs::ConflictChoice;
using TalVcs::ConflictResolver;
using TalVcs::MergeTrees;
using Path = TalVcs::array_view<const WideView>;

std::string JoinPath(Path path) {
  std::string joined;
  for (const WideView component : path) joined += (joined.empty() ? "" : "/") + ToUtf8(component);
  return joined;
}

enum class Side { Nothing, File, Folder };

Side SideAt(const TreePtr& tree, Path path) {
  if (!tree) return Side::Nothing;
  if (tree->GetDeepBlob(path)) return Side::File;
  return tree->GetDeepTree(path) ? Side::Folder : Side::Nothing;
}

std::string Describe(Path path, const MergeTrees& trees) {
  const Side root = SideAt(trees.root, path);
  const auto word = [&](Side side) -> std::string {
    if (side == Side::Folder) return root == Side::Folder ? "changed folder" : "folder";
    if (side == Side::Nothing) return "removed";
    return root == Side::File ? "changed" : "added";
  };
  const std::string left = word(SideAt(trees.left, path));
  const std::string right = word(SideAt(trees.right, path));
  return left == right ? left + " on both sides" : left + " here, " + right + " there";
}

void ShowSides(const Terminal& terminal, Path path, const MergeTrees& trees) {
  FileSides sides{{Change::Kind::Changed, JoinPath(path)}, "", "", "", ""};
  const auto read = [&](const TreePtr& tree) {
    const BlobPtr blob = tree ? tree->GetDeepBlob(path) : nullptr;
    return blob ? TalVcs::Kit::BytesFromBlob(*blob) : std::string();
  };
  sides.before = read(trees.left);
  sides.after = read(trees.right);
  PrintFileDiff(terminal, sides);
  std::cout.flush();
}

ConflictChoice Ask(const Terminal& terminal, Path path, const MergeTrees& trees) {
  for (;;) {
    std::cerr << Printable(JoinPath(path)) << ": " << Describe(path, trees)
              << ". [o]urs, [t]heirs, [b]ase, [d]iff or [q]uit? " << std::flush;
    std::string answer;
    if (!std::getline(std::cin, answer) || answer == "q")
      throw Failure("the merge was cancelled; branches and files are unchanged");
    if (answer == "o") return ConflictChoice::Left;
    if (answer == "t") return ConflictChoice::Right;
    if (answer == "b") return ConflictChoice::Root;
    if (answer == "d") ShowSides(terminal, path, trees);
  }
}

ConflictResolver MakeLastResolver(const Terminal& terminal, const MergeOptions& options) {
  if (options.interactive) {
    return [&terminal](Path path, const MergeTrees& trees) { return Ask(terminal, path, trees); };
  }
  // Where times don't decide and nothing else is asked for, the current branch's side stays.
  if (options.ours) return TalVcs::AlwaysChooseLeft();
  if (options.theirs) return TalVcs::AlwaysChooseRight();
  if (options.base) return TalVcs::AlwaysChooseRoot();
  if (!options.newest.empty()) return TalVcs::AlwaysChooseLeft();
  return TalVcs::always_return_t<ConflictChoice>{ConflictChoice::Undecided};
}

}  // namespace

ConflictResolver MakeResolver(const Terminal& terminal, const MergeOptions& options) {
  ConflictResolver last = MakeLastResolver(terminal, options);
  if (options.newest.empty()) return last;
  const auto readTime = [](const BlobPtr& blob) {
    return ParseTime(TalVcs::Kit::BytesFromBlob(*blob));
  };
  return TalVcs::ChainResolvers(
      TalVcs::TimeBasedConflictResolver({ToWide(options.newest)}, readTime), std::move(last));
}

ConflictResolver Recorded(ConflictResolver resolver, std::shared_ptr<Conflicts> conflicts) {
  return [resolver = std::move(resolver), conflicts = std::move(conflicts)](
             Path path, const MergeTrees& trees) {
    const ConflictChoice choice = resolver(path, trees);
    conflicts->push_back({JoinPath(path), Describe(path, trees), choice});
    return choice == ConflictChoice::Undecided ? ConflictChoice::Left : choice;
  };
}

std::size_t CountUndecided(const Conflicts& conflicts) {
  return static_cast<std::size_t>(std::count_if(
      conflicts.begin(), conflicts.end(),
      [](const Conflict& conflict) { return conflict.choice == ConflictChoice::Undecided; }));
}

const char* Name(ConflictChoice choice) {
  switch (choice) {
    case ConflictChoice::Left:
      return "ours";
    case ConflictChoice::Right:
      return "theirs";
    case ConflictChoice::Root:
      return "base";
    case ConflictChoice::Undecided:
      return "undecided";
  }
  return "";
}

}  // namespace Tal
