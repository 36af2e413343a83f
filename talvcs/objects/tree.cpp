#include <talvcs/objects/tree.h>

#include <talvcs/directory/internal/tree_walk.h>
#include <talvcs/foundation/internal/exact_type.h>
#include <talvcs/objects/internal/packed_id.h>

#include <unordered_map>
#include <utility>

namespace TalVcs {

Tree::Tree() noexcept = default;

Tree::Tree(const Tree& other) = default;

// The source keeps its caches, as the base class has copies only.
Tree::Tree(Tree&& other)
    : Object((other.CompleteCaches(), other)),
      m_entries(std::move(other.m_entries)),
      m_treeData(std::move(other.m_treeData)) {}

// In both assignments the old entries end last: they may be what keeps `other` alive.
Tree& Tree::operator=(const Tree& other) {  // NOLINT(modernize-use-equals-default)
  Object::operator=(other);
  m_treeData = other.m_treeData;
  m_entries = other.m_entries;
  return *this;
}

Tree& Tree::operator=(Tree&& other) {
  if (this == &other) return *this;
  other.CompleteCaches();
  Object::operator=(other);
  m_treeData = std::move(other.m_treeData);
  m_entries = std::move(other.m_entries);
  return *this;
}

Tree::~Tree() = default;

Id Tree::GetId() const {
  if (!HasId()) {
    if (!TalUtils::IsExactly<Tree>(*this)) return Object::GetId();
    CacheId(IdOfDigest(TreeEntries::ComputeDigest(m_entries.get())));
  }
  return CachedId();
}

TalStringT<char> Tree::GetHeader() const { return kType; }
TalStringT<char> Tree::GetStoragePrefix() const { return kMode; }

const Buffer& Tree::GetData() const {
  if (m_treeData.IsEmpty()) m_treeData = BuildData();
  return m_treeData;
}

Buffer Tree::BuildData() const {
  Buffer data;
  AppendRecordsTo(data);
  return data;
}

void Tree::AppendRecordsTo(Buffer& target) const {
  if (!m_entries) return;
  target.ReserveSegments(m_entries->Chunks().size());
  m_entries->VisitChunks(
      0, [&target](const EntryChunk& chunk, std::size_t) { chunk.AppendRecordsTo(target); });
}

Buffer Tree::BuildPackedData() const {
  if (!TalUtils::IsExactly<Tree>(*this)) return GetPackedData();
  if (!CachedPackedData().IsEmpty()) return CachedPackedData();
  const PackedHeader header = TreeEntries::HeaderOf(m_entries.get());
  Buffer packed;
  packed.Append(header.GetData(), header.GetSize(), 1);
  AppendRecordsTo(packed);
  return packed;
}

void Tree::ResetState() {
  Object::ResetState();
  m_treeData = Buffer();
}

std::uint64_t Tree::GetLocalObjectCount() const noexcept {
  return m_entries ? m_entries->Count() : 0;
}

std::uint64_t Tree::GetLocalBlobCount() const noexcept {
  return m_entries ? m_entries->Count() - m_entries->TreeCount() : 0;
}

bool Tree::IsEmpty() const noexcept { return !m_entries; }

// Counts each different subtree once, below before above: shared subtrees can make the number of
// paths exponential.
std::uint64_t Tree::GetDeepBlobCount() const {
  std::unordered_map<const Tree*, std::uint64_t> counts;
  std::vector<const Tree*> open{this};
  while (!open.empty()) {
    const Tree* tree = open.back();
    if (counts.contains(tree)) {
      open.pop_back();  // it was open twice, as two entries name it
      continue;
    }
    std::uint64_t count = tree->GetLocalBlobCount();
    const std::size_t before = open.size();
    if (tree->m_entries && tree->m_entries->TreeCount() != 0) {
      tree->m_entries->ExpectSubtrees();
      for (const EntryChunk* chunk : tree->m_entries->Chunks()) {
        for (std::size_t index = 0; index < chunk->Count(); ++index) {
          if (chunk->Kind(index) != EntryKind::Tree) continue;
          const Tree* child = OpenTree(EntryRef(tree->m_entries.get(), chunk, index));
          if (child == nullptr) continue;
          const auto known = counts.find(child);
          if (known == counts.end()) {
            open.push_back(child);
          } else {
            count += known->second;
          }
        }
      }
    }
    if (open.size() != before) continue;
    counts[tree] = count;
    open.pop_back();
  }
  return counts[this];
}

}  // namespace TalVcs
