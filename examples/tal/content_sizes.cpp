#include "content_sizes.h"

#include <unordered_map>
#include <utility>
#include <vector>

namespace Tal {
namespace {

using TalVcs::Id;

/// A folder of some version, with its content by number.
struct FolderNode {
  std::vector<std::size_t> folders;
  std::vector<std::size_t> files;
  ContentSize size;  // of all that is below
};

/// Collects the folders and files of versions, each once.
class Collector {
 public:
  /// Returns the number of a folder, which is read at the next step of `ReadAll` if it is new.
  std::size_t Add(const TreePtr& tree) {
    const auto [found, is_new] = m_folders.emplace(tree->GetId(), m_nodes.size());
    if (is_new) {
      m_nodes.emplace_back();
      m_pending.emplace_back(found->second, tree);
    }
    return found->second;
  }

  void ReadAll() {
    while (!m_pending.empty()) {
      const auto [number, tree] = std::move(m_pending.back());
      m_pending.pop_back();
      FolderNode node;
      for (const WideString& name : tree->GetLocalSubtreePaths())
        node.folders.push_back(Add(tree->GetLocalTree(name)));
      for (const WideString& name : tree->GetLocalBlobPaths()) {
        const Id id = tree->GetLocalBlob(name)->GetId();
        const auto [file, is_new] = m_files.emplace(id, m_ids.size());
        if (is_new) m_ids.push_back(id);
        node.files.push_back(file->second);
      }
      m_nodes[number] = std::move(node);
    }
  }

  const std::vector<Id>& FileIds() const noexcept { return m_ids; }

  /// Returns what is below a folder, given the bytes of the files. A folder is done after those
  /// inside, which a work list sees to.
  const ContentSize& SizeOf(std::size_t root, const std::vector<std::uint64_t>& bytes) {
    m_isDone.resize(m_nodes.size(), false);
    std::vector<std::size_t> stack{root};
    while (!stack.empty()) {
      const std::size_t at = stack.back();
      const std::size_t height = stack.size();
      for (const std::size_t inner : m_nodes[at].folders) {
        if (!m_isDone[inner]) stack.push_back(inner);
      }
      if (stack.size() > height) continue;
      stack.pop_back();
      if (!m_isDone[at]) AddUp(at, bytes);
    }
    return m_nodes[root].size;
  }

 private:
  void AddUp(std::size_t at, const std::vector<std::uint64_t>& bytes) {
    ContentSize size;
    size.files = m_nodes[at].files.size();
    for (const std::size_t file : m_nodes[at].files) size.bytes += bytes[file];
    for (const std::size_t inner : m_nodes[at].folders) {
      size.files += m_nodes[inner].size.files;
      size.bytes += m_nodes[inner].size.bytes;
    }
    m_nodes[at].size = size;
    m_isDone[at] = true;
  }

  std::unordered_map<Id, std::size_t> m_folders;
  std::unordered_map<Id, std::size_t> m_files;
  std::vector<FolderNode> m_nodes;
  std::vector<Id> m_ids;
  std::vector<bool> m_isDone;
  std::vector<std::pair<std::size_t, TreePtr>> m_pending;
};

/// Returns the bytes of a content, given those of the packed form "blob SIZE NUL content".
std::uint64_t ContentBytes(std::uint64_t packedBytes) {
  constexpr std::uint64_t kFixed = sizeof("blob ");
  for (std::uint64_t digits = 1; kFixed + digits <= packedBytes; ++digits) {
    const std::uint64_t content = packedBytes - kFixed - digits;
    if (std::to_string(content).size() == digits) return content;
  }
  return 0;
}

}  // namespace

ContentSizes MeasureContents(Session& session) {
  Kit::Workspace& document = session.Document();
  Collector collector;
  std::vector<std::size_t> roots;
  for (const Kit::Version& version :
       document.Log({.allBranches = true, .limit = UINT64_MAX}).value()) {
    roots.push_back(collector.Add(document.At(version.id).value().GetTree()));
    collector.ReadAll();
  }
  ContentSizes sizes;
  std::vector<std::uint64_t> bytes;
  for (const auto& packed : session.Store().Sizes(collector.FileIds()).value()) {
    bytes.push_back(packed ? ContentBytes(*packed) : 0);
    ++sizes.shared.files;
    sizes.shared.bytes += bytes.back();
  }
  for (const std::size_t root : roots) {
    const ContentSize& size = collector.SizeOf(root, bytes);
    sizes.apart.files += size.files;
    sizes.apart.bytes += size.bytes;
  }
  return sizes;
}

}  // namespace Tal
