#include <tests/support/forest.h>

#include <algorithm>

namespace TalVcs::Testing {

std::string Forest::Drawing() const {
  std::string drawing;
  for (int commit = 0; commit < Size(); ++commit) {
    const int parent = parents[static_cast<std::size_t>(commit)];
    if (parent >= 0) drawing += NameOf(parent) + '-';
    drawing += NameOf(commit) + "; ";
  }
  return drawing;
}

std::vector<int> Forest::LineOf(int commit) const {
  std::vector<int> line;
  for (; commit >= 0; commit = parents[static_cast<std::size_t>(commit)]) line.push_back(commit);
  return line;
}

std::string Forest::ChainOf(int commit, const std::set<int>& kept) const {
  std::string chain;
  for (const int ancestor : LineOf(commit)) {
    if (!kept.contains(ancestor)) continue;
    chain = NameOf(ancestor) + (chain.empty() ? "" : "-") + chain;
  }
  return chain;
}

std::string Forest::ChainOf(int commit) const {
  const std::vector<int> line = LineOf(commit);
  return ChainOf(commit, std::set<int>(line.begin(), line.end()));
}

Forest RandomForest(std::mt19937& random, int size) {
  Forest forest;
  const int reach = 1 + Below(random, 6);
  for (int commit = 0; commit < size; ++commit) {
    const int newest = std::min(reach, commit);
    const bool isRoot = newest == 0 || Below(random, 10) == 0;
    forest.parents.push_back(isRoot ? -1 : commit - 1 - Below(random, newest));
  }
  return forest;
}

std::vector<Forest> AllForests(int size) {
  std::vector<Forest> all{Forest{}};
  for (std::size_t next = 0; next < all.size(); ++next) {
    const Forest smaller = all[next];
    if (smaller.Size() == size) continue;
    for (int parent = -1; parent < smaller.Size(); ++parent) {
      all.push_back(smaller);
      all.back().parents.push_back(parent);
    }
  }
  return all;
}

}  // namespace TalVcs::Testing
