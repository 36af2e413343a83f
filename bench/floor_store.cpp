#include <bench/floor_store.h>

#include <algorithm>
#include <cstring>
#include <set>

namespace TalVcs::Bench {
namespace {

constexpr std::size_t kHexLength = 64;
constexpr std::size_t kCommitLength = 250;

void PutHex(const Digest& id, char* out) {
  constexpr char kDigits[] = "0123456789abcdef";
  for (const std::uint8_t byte : id) {
    *out++ = kDigits[byte >> 4];
    *out++ = kDigits[byte & 15];
  }
}

}  // namespace

std::string PackedHeader(std::string_view type, std::size_t size) {
  return std::string(type) + ' ' + std::to_string(size) + '\0';
}

FloorStore::FloorStore(Keep keep) : m_keep(keep), m_slots(1 << 12) {}

Digest FloorStore::Put(std::string_view type, std::string_view data) {
  const std::string header = PackedHeader(type, data.size());
  TalUtils::Sha256 hash;
  hash.Update(header.data(), header.size());
  hash.Update(data.data(), data.size());
  const Digest id = hash.Finish();
  const std::size_t size = header.size() + data.size();
  ++m_objects;
  m_bytes += size;
  if (m_keep == Keep::Nothing) return id;
  // Without zeros first, as an allocation for bytes that come at once has it.
  Packed packed{id, size, std::unique_ptr<char[]>(new char[size])};
  std::memcpy(packed.bytes.get(), header.data(), header.size());
  std::memcpy(packed.bytes.get() + header.size(), data.data(), data.size());
  m_kept.push_back(std::move(packed));
  if (m_kept.size() * 10 > m_slots.size() * 7) Grow();
  Insert(m_kept.size() - 1);
  return id;
}

std::size_t FloorStore::FirstSlot(const Digest& id) const {
  std::uint64_t hash;
  std::memcpy(&hash, id.data(), sizeof(hash));
  return hash & (m_slots.size() - 1);
}

void FloorStore::Insert(std::size_t index) {
  std::size_t slot = FirstSlot(m_kept[index].id);
  while (m_slots[slot] != 0) {
    if (m_kept[m_slots[slot] - 1].id == m_kept[index].id) return;
    slot = (slot + 1) & (m_slots.size() - 1);
  }
  m_slots[slot] = static_cast<std::uint32_t>(index + 1);
}

void FloorStore::Grow() {
  m_slots.assign(m_slots.size() * 2, 0);
  for (std::size_t i = 0; i + 1 < m_kept.size(); ++i) Insert(i);
}

void FloorStore::Shrink(std::size_t count) {
  for (std::uint32_t& slot : m_slots) {
    if (slot > count) slot = 0;
  }
  m_kept.erase(m_kept.begin() + static_cast<std::ptrdiff_t>(count), m_kept.end());
}

std::string_view FloorStore::GetKept(std::size_t index) const {
  return std::string_view(m_kept[index].bytes.get(), m_kept[index].size);
}

void FloorDirectory::Set(std::string_view name, const Digest& id) {
  const std::size_t nameAt = m_modeAndType.size();
  const std::size_t stride = nameAt + name.size() + 1 + kHexLength;
  std::size_t low = 0;
  std::size_t high = m_text.size() / stride;
  while (low < high) {
    const std::size_t middle = (low + high) / 2;
    if (m_text.compare(middle * stride + nameAt, name.size(), name) < 0) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  const std::size_t at = low * stride;
  if (at == m_text.size() || m_text.compare(at + nameAt, name.size(), name) != 0) {
    std::string record = m_modeAndType;
    record.append(name).append(1 + kHexLength, '\0');
    m_text.insert(at, record);
  }
  PutHex(id, m_text.data() + at + stride - kHexLength);
}

FloorTree::FloorTree(FloorStore& store, std::uint32_t files)
    : m_store(store),
      m_root("40000 tree "),
      m_tops(files / kFilesPerTop + 1, FloorDirectory("40000 tree ")),
      m_leaves(files / kFilesPerLeaf + 1, FloorDirectory("100644 blob ")) {}

void FloorTree::AddFile(std::uint32_t index, std::string_view content) {
  PutFile(index, content);
  StoreLeaf(index / kFilesPerLeaf);
  StoreTop(index / kFilesPerTop);
  m_store.Put("tree", m_root.GetText());
}

void FloorTree::AddTogether(const std::vector<std::uint32_t>& indices,
                            const std::vector<std::string_view>& contents) {
  std::set<std::uint32_t> leaves;
  std::set<std::uint32_t> tops;
  for (std::size_t i = 0; i < indices.size(); ++i) {
    PutFile(indices[i], contents[i]);
    leaves.insert(indices[i] / kFilesPerLeaf);
    tops.insert(indices[i] / kFilesPerTop);
  }
  for (const std::uint32_t leaf : leaves) StoreLeaf(leaf);
  for (const std::uint32_t top : tops) StoreTop(top);
  m_store.Put("tree", m_root.GetText());
}

void FloorTree::Record() { PutCommit(m_store, m_commits++); }

void FloorTree::PutFile(std::uint32_t index, std::string_view content) {
  m_leaves[index / kFilesPerLeaf].Set(LeafName(index), m_store.Put("blob", content));
}

void FloorTree::StoreLeaf(std::uint32_t leaf) {
  m_tops[leaf / 10].Set(MiddleName(leaf), m_store.Put("tree", m_leaves[leaf].GetText()));
}

void FloorTree::StoreTop(std::uint32_t top) {
  m_root.Set(TopName(top * 10), m_store.Put("tree", m_tops[top].GetText()));
}

void PutCommit(FloorStore& store, std::uint32_t number) {
  std::string text(kCommitLength, 'c');
  std::memcpy(text.data(), &number, sizeof(number));
  store.Put("commit", text);
}

}  // namespace TalVcs::Bench
