// A far store answers one question about many ids as fast as one about a single id. The heads of
// all branches are read together, because most of them are near a known commit. A history that
// goes on is read in windows of 1, 2, 4 and so on commits, down to the first one that is known.

#include <kit/open/internal/errors.h>
#include <kit/sharing/internal/new_history.h>

#include <iterator>
#include <optional>
#include <utility>

namespace TalVcs::Kit {

namespace {

// A far target is asked about windows of this size and more. Most pushes are smaller.
constexpr std::size_t kLeastWindowToAsk = 16;

// How a commit is known to be in the target: it was read here, the caller says so, or the target
// was asked, which has some object of that id.
constexpr std::uint32_t kSeen = 0;
constexpr std::uint32_t kOfCaller = 1;
constexpr std::uint32_t kAsked = 2;

/// Makes a record of what a store passed for a commit.
Result<CommitRecord> RecordOf(const Id& id, Result<Buffer> packed) {
  const std::optional<ReadProblem> problem = CheckRecord(id, ObjectType::Commit, packed);
  if (problem) return UnreadableObject(id, *problem);
  CommitRecord commit;
  commit.id = id;
  commit.packed = *std::move(packed);
  VisitReferences(commit.packed, {&commit, [](void* object, const PackedReference& reference) {
                                    auto& record = *static_cast<CommitRecord*>(object);
                                    const bool is_root = reference.type == ObjectType::Tree;
                                    (is_root ? record.root : record.parent) = reference.id;
                                  }});
  return commit;
}

}  // namespace

Status NewHistory::Read(std::span<const Id> heads, std::span<const Id> known) {
  for (const Id& id : known) {
    if (IsObjectId(id)) m_known.Insert(*KeyOf(id), kOfCaller);
  }
  Status status = m_reporter.Begin("history");
  if (status) status = ReadHeads(heads);
  for (const Id& head : heads) {
    if (status) status = AddLine(head);
  }
  if (status) status = CheckAskedEnds();
  return status ? m_reporter.End() : status;
}

/// Enters those of `ids` that the target has into the known ones.
Status NewHistory::NoteKnown(std::span<const Id> ids) {
  if (ids.empty()) return {};
  const Result<std::vector<Id>> missing = m_to.Missing(ids);
  if (!missing) return missing.error();
  IdMap lacking;
  for (const Id& id : *missing) lacking.Insert(*KeyOf(id), 0);
  for (const Id& id : ids) {
    if (!lacking.Contains(*KeyOf(id))) m_known.Insert(*KeyOf(id), kAsked);
  }
  return {};
}

void NewHistory::NoteEnd(const Id& id) {
  std::uint32_t* const source = m_known.Find(*KeyOf(id));
  const std::uint32_t known = std::exchange(*source, kSeen);
  if (known == kOfCaller) m_knownEnds.push_back(id);
  if (known == kAsked && m_far == FarStore::Source) m_askedEnds.push_back(id);
}

/// Fails if a history that is fetched ends at a tree or a file that the near store has.
Status NewHistory::CheckAskedEnds() {
  if (m_askedEnds.empty()) return {};
  return ReadEach(m_to, m_askedEnds, [this](std::size_t index, const Result<Buffer>& packed) {
    const Id& id = m_askedEnds[index];
    const bool is_other = packed && GetPackedType(*packed) != ObjectType::Commit;
    if (!is_other) return Status();
    return Status(UnreadableObject(id, *CheckRecord(id, ObjectType::Commit, packed)));
  });
}

Status NewHistory::ReadHeads(std::span<const Id> heads) {
  std::vector<Id> wanted;
  IdMap asked;
  for (const Id& head : heads) {
    const std::optional<ObjectKey> key = KeyOf(head);
    if (!key) return UnreadableObject(head, {ErrorCode::Damaged, "a branch names no object"});
    if (!m_known.Contains(*key) && asked.Insert(*key, 0).second) wanted.push_back(head);
  }
  if (m_far == FarStore::Source) {
    Status status = NoteKnown(wanted);
    if (!status) return status;
    std::erase_if(wanted, [this](const Id& id) { return IsKnown(id); });
  }
  std::vector<Id> parents;
  Status status =
      wanted.empty() ? Status() : ReadEach(m_from, wanted, [&](std::size_t index, auto packed) {
        Result<CommitRecord> commit = RecordOf(wanted[index], std::move(packed));
        if (!commit) return Status(std::move(commit).error());
        if (!commit->parent.View().IsEmpty()) parents.push_back(commit->parent);
        m_read.emplace(commit->id, *std::move(commit));
        return m_reporter.Add(1);
      });
  if (!status || m_far == FarStore::Target) return status;
  std::erase_if(parents, [this](const Id& id) { return IsKnown(id); });
  return NoteKnown(parents);
}

Status NewHistory::AddLine(const Id& head) {
  std::vector<CommitRecord> line;  // newest first
  Id at = head;
  while (!at.View().IsEmpty() && !IsKnown(at)) {
    const auto found = m_read.find(at);
    if (found == m_read.end()) {
      Status status = ReadLine(at, line);
      if (!status) return status;
      break;
    }
    at = found->second.parent;
    line.push_back(found->second);
  }
  if (!at.View().IsEmpty() && IsKnown(at)) NoteEnd(at);
  for (const CommitRecord& commit : line) m_known.Insert(*KeyOf(commit.id), kSeen);
  m_commits.insert(m_commits.end(), std::make_move_iterator(line.rbegin()),
                   std::make_move_iterator(line.rend()));
  return {};
}

Status NewHistory::ReadLine(const Id& first, std::vector<CommitRecord>& line) {
  CommitReader reader(m_from, first);
  while (!reader.AtEnd()) {
    Result<std::vector<CommitRecord>> window = reader.Next();
    if (!window) return window.error();
    const std::size_t before = line.size();
    const Result<bool> goes_on = TakeNew(*std::move(window), line);
    if (!goes_on) return goes_on.error();
    Status status = m_reporter.Add(line.size() - before);
    if (!status || !*goes_on) return status;
  }
  return {};
}

/// Appends the commits before the first known one. Returns false if there is a known one.
Result<bool> NewHistory::TakeNew(std::vector<CommitRecord> window,
                                 std::vector<CommitRecord>& line) {
  std::size_t count = 0;
  std::vector<Id> ids;
  for (; count < window.size() && !IsKnown(window[count].id); ++count) {
    const CommitRecord& commit = window[count];
    if (commit.problem) return UnreadableObject(commit.id, *commit.problem);
    ids.push_back(commit.id);
  }
  bool goes_on = count == window.size();
  if (goes_on && (m_far == FarStore::Source || window.size() >= kLeastWindowToAsk)) {
    const Status status = NoteKnown(ids);
    if (!status) return status.error();
    count = 0;
    while (count < window.size() && !IsKnown(window[count].id)) ++count;
    goes_on = count == window.size();
  }
  if (!goes_on) NoteEnd(window[count].id);
  line.insert(line.end(), std::make_move_iterator(window.begin()),
              std::make_move_iterator(window.begin() + static_cast<std::ptrdiff_t>(count)));
  return goes_on;
}

}  // namespace TalVcs::Kit
