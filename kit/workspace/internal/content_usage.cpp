// Each folder is read once and each content is measured once. Then the totals of a folder are those
// of its files and of the folders inside, and the totals of all versions are those of their roots.

#include <kit/open/internal/id_map.h>
#include <kit/workspace/internal/content_usage.h>
#include <kit/workspace/internal/read_folders.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

namespace {

/// Returns the bytes of a content, given those of the packed form "blob SIZE NUL content".
std::uint64_t ContentBytes(std::uint64_t packedBytes) {
  constexpr std::uint64_t kFixed = sizeof("blob ");
  for (std::uint64_t digits = 1; kFixed + digits <= packedBytes; ++digits) {
    const std::uint64_t content = packedBytes - kFixed - digits;
    if (std::to_string(content).size() == digits) return content;
  }
  return 0;
}

void Add(ContentTotals& sum, const ContentTotals& more) {
  sum.files += more.files;
  sum.sizeBytes += more.sizeBytes;
}

class ContentMeasuring {
 public:
  ContentMeasuring(IObjectStore& store, Reporter& reporter)
      : m_store(store), m_reporter(reporter) {}

  Result<ContentUsage> Run(const HistoryGraph& graph) {
    std::vector<std::uint32_t> roots;
    for (const HistoryGraph::Node& version : graph.Nodes()) {
      if (version.hasRoot) roots.push_back(FolderAt(version.root));
    }
    Status status = ReadFolders();
    if (status) status = ReadSizes();
    if (!status) return std::move(status).error();
    ContentUsage usage;
    for (const std::uint64_t size : m_sizes) Add(usage.stored, {1, size});
    for (const std::uint32_t root : roots) Add(usage.apart, TotalsOf(root));
    return usage;
  }

 private:
  enum class State { New, Entered, Done };

  /// A folder, with what is directly in it by number.
  struct Folder {
    std::vector<std::uint32_t> folders;
    std::vector<std::uint32_t> files;
    ContentTotals totals;  // of everything below, when it is done
    State state = State::New;
  };

  /// Returns the number of a folder, which is to be read if it is new.
  std::uint32_t FolderAt(const ObjectKey& id) {
    const auto [number, is_new] =
        m_folderNumbers.Insert(id, static_cast<std::uint32_t>(m_folders.size()));
    if (is_new) {
      m_folders.emplace_back();
      m_folderIds.push_back(IdOf(id));
    }
    return *number;
  }

  std::uint32_t FileAt(const Id& id) {
    const auto [number, is_new] =
        m_fileNumbers.Insert(*KeyOf(id), static_cast<std::uint32_t>(m_files.size()));
    if (is_new) m_files.push_back(id);
    return *number;
  }

  /// Reads folders in the order of their numbers, with those that are found meanwhile.
  Status ReadFolders() {
    for (std::size_t next = 0; next < m_folderIds.size();) {
      const std::size_t count = std::min(kFoldersTogether, m_folderIds.size() - next);
      const auto records = Kit::ReadFolders(m_store, std::span(m_folderIds).subspan(next, count));
      if (!records) return records.error();
      for (const FolderRecord& record : *records) Take(next++, record);
      Status status = m_reporter.Add(count);
      if (!status) return status;
    }
    return {};
  }

  void Take(std::size_t number, const FolderRecord& record) {
    for (const PackedReference& entry : record.entries) {
      if (entry.type == ObjectType::Tree) {
        const std::uint32_t inner = FolderAt(*KeyOf(entry.id));
        m_folders[number].folders.push_back(inner);
      } else {
        m_folders[number].files.push_back(FileAt(entry.id));
      }
    }
  }

  Status ReadSizes() {
    const auto sizes = m_store.Sizes(m_files);
    if (!sizes) return sizes.error();
    for (const auto& packed : *sizes) m_sizes.push_back(packed ? ContentBytes(*packed) : 0);
    return m_reporter.Add(m_files.size());
  }

  /// Adds up a folder after those inside. One that contains itself, as only a damaged store can
  /// have, counts nothing there.
  const ContentTotals& TotalsOf(std::uint32_t root) {
    std::vector<std::uint32_t> stack{root};
    while (!stack.empty()) {
      Folder& folder = m_folders[stack.back()];
      if (folder.state == State::New) {
        folder.state = State::Entered;
        for (const std::uint32_t inner : folder.folders) {
          if (m_folders[inner].state == State::New) stack.push_back(inner);
        }
        continue;
      }
      stack.pop_back();
      if (folder.state == State::Done) continue;
      folder.state = State::Done;
      for (const std::uint32_t file : folder.files) Add(folder.totals, {1, m_sizes[file]});
      for (const std::uint32_t inner : folder.folders) Add(folder.totals, m_folders[inner].totals);
    }
    return m_folders[root].totals;
  }

  IObjectStore& m_store;
  Reporter& m_reporter;
  IdMap m_folderNumbers;
  IdMap m_fileNumbers;
  std::vector<Folder> m_folders;
  std::vector<Id> m_folderIds;
  std::vector<Id> m_files;
  std::vector<std::uint64_t> m_sizes;  // of each file's content
};

}  // namespace

Result<ContentUsage> MeasureContents(IObjectStore& store, const HistoryGraph& graph,
                                     Reporter& reporter) {
  return InPhase(reporter, "contents",
                 [&] { return ContentMeasuring(store, reporter).Run(graph); });
}

}  // namespace TalVcs::Kit
