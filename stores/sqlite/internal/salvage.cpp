#include <stores/sqlite/internal/copy_file.h>
#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/head_table.h>
#include <stores/sqlite/internal/object_table.h>
#include <stores/sqlite/internal/raw_document.h>
#include <stores/sqlite/internal/salvage.h>
#include <stores/sqlite/internal/values.h>

#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace TalVcs::Kit::Sqlite {
namespace {

constexpr std::uint64_t kMostPendingBytes = std::uint64_t{8} << 20;

Error Cancelled(const std::string& name) {
  Error error = MakeError(ErrorCode::Cancelled, Task::Save, name, "cancelled");
  error.message = "salvaging \"" + error.subject + "\" was cancelled";
  return error;
}

/// Puts what a damaged document has into a new one, within a transaction that is open.
class Salvager {
 public:
  Salvager(RawDocument& source, Database& target, const SqliteOptions& options,
           const Progress& progress, const std::string& name)
      : m_source(source),
        m_target(target),
        m_objects(target, options.compress),
        m_progress(progress),
        m_name(name) {}

  Status Run() {
    Status status = TakePages();
    if (status) status = CopyObjects();
    if (status) status = PutHeads();
    if (status) status = PutValues();
    return status;
  }

  const SqliteSalvage& Found() const noexcept { return m_salvage; }

 private:
  Status TakePages() {
    CopyProgress taken(m_progress, "search", m_source.CountPages());
    if (!taken.Call()) return Cancelled(m_name);
    for (std::uint64_t page = 0; page < m_source.CountPages(); ++page) {
      m_source.TakePage(page);
      if (!taken.Add(m_source.PageBytes())) return Cancelled(m_name);
    }
    return taken.Call() ? Status() : Status(Cancelled(m_name));
  }

  /// A base has a lower number than its differences as a rule, so that one pass is enough.
  Status CopyObjects() {
    std::vector<ObjectKey> rest = m_source.Keys();
    CopyProgress copied(m_progress, "copy", rest.size());
    if (!copied.Call()) return Cancelled(m_name);
    for (std::uint64_t before = 0; !rest.empty() && before != rest.size();) {
      before = rest.size();
      std::vector<ObjectKey> lost;
      for (const ObjectKey& key : rest) {
        std::optional<RawDocument::Found> found = m_source.Read(key);
        if (!found) {
          lost.push_back(key);
          if (!copied.CallIfDue()) return Cancelled(m_name);
          continue;
        }
        const std::uint64_t size = found->packed.GetSize();
        if (Status status = Put(key, *std::move(found)); !status) return status;
        if (!copied.Add(size)) return Cancelled(m_name);
      }
      rest = std::move(lost);
    }
    m_salvage.lostObjects = rest.size();
    if (Status status = Flush(); !status) return status;
    return copied.Call() ? Status() : Status(Cancelled(m_name));
  }

  Status Put(const ObjectKey& key, RawDocument::Found found) {
    ++m_salvage.objects;
    m_pending.Add(key, found.packed, found.base);
    return m_pending.SizeBytes() < kMostPendingBytes ? Status() : Flush();
  }

  Status Flush() {
    Status status = m_objects.Insert(m_pending.Entries());
    m_pending.Clear();
    return status;
  }

  Status PutHeads() {
    m_salvage.heads = m_source.ChooseHeads();
    m_salvage.hasAllHeads = m_source.HasAllHeads();
    AddTips();
    std::vector<HeadMove> moves;
    for (const Head& head : m_salvage.heads) moves.push_back({head.name, Id(), head.id});
    return HeadTable(m_target).Apply(moves);
  }

  /// Gives what no branch may lead to new names. Even if the sum of the branches fits, they may be
  /// those of an older state, or lead to commits that are lost.
  void AddTips() {
    std::unordered_set<std::string> names;
    for (const Head& head : m_salvage.heads) names.insert(head.name);
    std::uint64_t number = 0;
    for (const Id& tip : m_source.Tips()) {
      std::string name;
      do {
        name = "salvaged/" + std::to_string(++number);
      } while (names.contains(name));
      m_salvage.heads.push_back({std::move(name), tip});
    }
    std::sort(m_salvage.heads.begin(), m_salvage.heads.end(),
              [](const Head& a, const Head& b) { return a.name < b.name; });
  }

  Status PutValues() {
    for (const auto& [name, value] : m_source.Values()) {
      Status status = PutValue(m_target, name, std::as_bytes(std::span(value)));
      if (!status) return status;
      ++m_salvage.values;
    }
    return {};
  }

  RawDocument& m_source;
  Database& m_target;
  ObjectTable m_objects;
  const Progress& m_progress;
  const std::string& m_name;
  PendingObjects m_pending;
  SqliteSalvage m_salvage;
};

}  // namespace

Result<SqliteSalvage> SalvageDocument(const std::filesystem::path& path,
                                      const std::filesystem::path& target,
                                      const SqliteOptions& options, const Progress& progress) {
  const std::string name = path.string();
  std::error_code failure;
  if (!std::filesystem::is_regular_file(path, failure)) {
    return MakeError(ErrorCode::NotFound, Task::Open, name, "there is no such file");
  }
  Status status = CheckFree(target);
  if (status) status = CheckFree(CopyNameOf(target));
  if (!status) return std::move(status).error();
  RawDocument source(path);
  if (!source.IsOpen()) {
    return MakeError(ErrorCode::Denied, Task::Open, name, "it can't be read");
  }
  CopyFile copy(target);
  SqliteSalvage salvage;
  status = copy.Make(options, [&](Database& document) {
    Salvager salvager(source, document, options, progress, name);
    Status filled = salvager.Run();
    salvage = salvager.Found();
    return filled;
  });
  if (!status) return std::move(status).error();
  failure = copy.MoveToNew(target, options.durable);
  if (!failure) return salvage;
  Error error =
      MakeError(ErrorCode::Unavailable, Task::Save, target.string(), "its copy can't be renamed");
  error.cause = failure.message();
  return error;
}

}  // namespace TalVcs::Kit::Sqlite
