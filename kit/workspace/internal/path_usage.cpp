// First the folder of each version is found, from the roots down. What the folders on that way name
// besides is outside. Then everything below one name, of all versions together, is visited for one
// name after the other: an object that two of these visits meet is shared.

#include <kit/open/internal/id_map.h>
#include <kit/workspace/internal/path_usage.h>
#include <kit/workspace/internal/read_folders.h>

#include <algorithm>
#include <map>
#include <optional>
#include <span>
#include <utility>

namespace TalVcs::Kit {

namespace {

/// Takes a folder, by its place in the list, and what it contains.
using TakeFolder = std::function<Status(std::size_t index, const FolderRecord& folder)>;

Status ReadInBatches(IObjectStore& store, const std::vector<Id>& ids, const TakeFolder& take) {
  for (std::size_t first = 0; first < ids.size(); first += kFoldersTogether) {
    const std::size_t count = std::min(kFoldersTogether, ids.size() - first);
    const auto folders = ReadFolders(store, std::span(ids).subspan(first, count));
    if (!folders) return folders.error();
    for (std::size_t i = 0; i < count; ++i) {
      Status status = take(first + i, (*folders)[i]);
      if (!status) return status;
    }
  }
  return {};
}

class PathMeasuring {
 public:
  PathMeasuring(IObjectStore& store, Reporter& reporter) : m_store(store), m_reporter(reporter) {}

  Result<std::vector<PathUsage>> Run(std::vector<Id> folders, const std::vector<WideString>& way) {
    m_usage.emplace_back();  // of what is outside
    for (const WideString& name : way) {
      Status status = GoDown(folders, name);
      if (!status) return std::move(status).error();
    }
    Status status = ReadNames(folders);
    if (status) status = VisitAll(m_outside, 0);
    for (const auto& [name, starts] : m_names) {
      if (!status) break;
      m_usage.push_back({ToUtf8(name), {}, {}});
      status = VisitAll(starts, m_usage.size() - 1);
    }
    if (!status) return std::move(status).error();
    CountOwn();
    m_usage.erase(m_usage.begin());
    std::ranges::sort(m_usage, {}, &PathUsage::path);
    return std::move(m_usage);
  }

 private:
  using Starts = std::vector<std::pair<Id, ObjectType>>;

  /// What is known of an object. Labels are indexes into the list of usages.
  struct Object {
    std::size_t lastLabel = 0;
    bool wasMet = false;
    bool isShared = false;
    std::uint64_t sizeBytes = 0;
  };

  Object& At(const Id& id) {
    const auto [number, is_new] =
        m_numbers.Insert(*KeyOf(id), static_cast<std::uint32_t>(m_objects.size()));
    if (is_new) m_objects.emplace_back();
    return m_objects[*number];
  }

  Status GoDown(std::vector<Id>& folders, const WideString& name) {
    IdMap below;
    std::vector<Id> next;
    Status status =
        ReadInBatches(m_store, folders, [&](std::size_t, const FolderRecord& folder) -> Status {
          for (const PackedReference& entry : folder.entries) {
            if (entry.type != ObjectType::Tree || !(entry.name == name)) {
              m_outside.emplace_back(entry.id, entry.type);
            } else if (below.Insert(*KeyOf(entry.id), 0).second) {
              next.push_back(entry.id);
            }
          }
          return m_reporter.Add(1);
        });
    AddToWay(folders);
    folders = std::move(next);
    return status;
  }

  Status ReadNames(const std::vector<Id>& folders) {
    AddToWay(folders);
    return ReadInBatches(m_store, folders, [&](std::size_t, const FolderRecord& folder) -> Status {
      for (const PackedReference& entry : folder.entries) {
        m_names[entry.name].emplace_back(entry.id, entry.type);
      }
      return m_reporter.Add(1);
    });
  }

  /// A folder on the way belongs to no entry. What it contains is visited apart.
  void AddToWay(const std::vector<Id>& folders) {
    for (const Id& id : folders) At(id).isShared = true;
  }

  Status VisitAll(const Starts& starts, std::size_t label) {
    std::vector<Id> folders;
    std::vector<Id> files;
    const auto meet = [&](const Id& id, ObjectType type) {
      Object& object = At(id);
      if (object.wasMet && object.lastLabel == label) return;
      object.isShared = object.isShared || object.wasMet;
      object.wasMet = true;
      object.lastLabel = label;
      (type == ObjectType::Tree ? folders : files).push_back(id);
    };
    for (const auto& [id, type] : starts) meet(id, type);
    while (!folders.empty()) {
      const std::vector<Id> ids = std::exchange(folders, {});
      Status status =
          ReadInBatches(m_store, ids, [&](std::size_t index, const FolderRecord& folder) -> Status {
            Count(ids[index], folder.sizeBytes, label);
            for (const PackedReference& entry : folder.entries) meet(entry.id, entry.type);
            return m_reporter.Add(1);
          });
      if (!status) return status;
    }
    const auto sizes = m_store.Sizes(files);
    if (!sizes) return sizes.error();
    for (std::size_t i = 0; i < files.size(); ++i) {
      Count(files[i], (*sizes)[i].value_or(0), label);
    }
    return m_reporter.Add(files.size());
  }

  void Count(const Id& id, std::uint64_t size_bytes, std::size_t label) {
    At(id).sizeBytes = size_bytes;
    ++m_usage[label].shared.count;
    m_usage[label].shared.sizeBytes += size_bytes;
  }

  void CountOwn() {
    for (const Object& object : m_objects) {
      if (!object.wasMet || object.isShared) continue;
      PathUsage& usage = m_usage[object.lastLabel];
      ++usage.own.count;
      usage.own.sizeBytes += object.sizeBytes;
      --usage.shared.count;
      usage.shared.sizeBytes -= object.sizeBytes;
    }
  }

  IObjectStore& m_store;
  Reporter& m_reporter;
  std::map<WideString, Starts> m_names;
  Starts m_outside;
  IdMap m_numbers;
  std::vector<Object> m_objects;
  std::vector<PathUsage> m_usage;
};

}  // namespace

Result<std::vector<PathUsage>> MeasureEntries(IObjectStore& store, std::vector<Id> roots,
                                              const std::vector<WideString>& folder,
                                              Reporter& reporter) {
  return InPhase(reporter, "contents",
                 [&] { return PathMeasuring(store, reporter).Run(std::move(roots), folder); });
}

}  // namespace TalVcs::Kit
