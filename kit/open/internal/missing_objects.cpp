#include <kit/open/internal/errors.h>
#include <kit/open/internal/missing_objects.h>
#include <kit/open/try.h>
#include <talvcs/persistence/packed_object.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

constexpr std::size_t kMostWindow = 1024;
// Packed forms of trees and commits are kept up to this size, and made twice beyond it.
constexpr std::uint64_t kMostKeptBytes = std::uint64_t{16} << 20;

cow_ptr<Tree> RootOf(const Commit& commit) {
  const cow_ptr<CommitTree> tree = commit.GetTree();
  return tree ? tree->GetRoot() : nullptr;
}

// A parent and its trees only save work, so one that can't be read counts as none.
cow_ptr<Commit> ParentOf(const Commit& commit) {
  const Result<cow_ptr<Commit>> parent = Try([&commit] { return commit.GetParent(); });
  return parent ? *parent : nullptr;
}

cow_ptr<Tree> RootOfParent(const cow_ptr<Commit>& parent) {
  const Result<cow_ptr<Tree>> root =
      Try([&parent] { return parent ? RootOf(*parent) : cow_ptr<Tree>(); });
  return root ? *root : nullptr;
}

cow_ptr<Tree> SubtreeOfParent(const cow_ptr<Tree>& known, const TalStringT<WideChar>& name) {
  if (!known) return nullptr;
  const Result<cow_ptr<Tree>> tree = Try([&] { return known->GetLocalTree(name); });
  return tree ? *tree : nullptr;
}

template <class AnyObject>
Id IdOf(const AnyObject& object) {
  return std::visit([](const auto& handle) { return handle->GetId(); }, object);
}

template <class AnyObject>
Buffer Pack(const AnyObject& object) {
  return std::visit([](const auto& handle) { return handle->BuildPackedData(); }, object);
}

}  // namespace

Status MissingObjects::Collect(const std::string& branch, const cow_ptr<Commit>& head) {
  m_branch = &branch;
  const Result<std::vector<cow_ptr<Commit>>> history = MissingHistory(head);
  if (!history) return history.error();
  for (auto at = history->rbegin(); at != history->rend(); ++at) {
    const cow_ptr<Commit>& commit = *at;
    m_commit = ShortId(commit->GetId());
    const cow_ptr<Commit> parent = ParentOf(*commit);
    Status status = CollectTree(RootOf(*commit), RootOfParent(parent));
    if (status) status = Take(commit, nullptr, parent ? parent->GetId() : Id());
    if (!status) return status;
  }
  return {};
}

// Returns the commits down to the first that the store has, newest first. The first look is at the
// head and the second at its parent, where most saves end; then the windows double.
Result<std::vector<cow_ptr<Commit>>> MissingObjects::MissingHistory(const cow_ptr<Commit>& head) {
  std::vector<cow_ptr<Commit>> history;
  bool is_complete = false;
  for (std::size_t window = 1; !is_complete; window = std::min(history.size(), kMostWindow)) {
    const std::size_t first = history.size();
    std::vector<Id> ids;
    // An ancestor that can't be read matters only if the store lacks all of its descendants.
    Status read;
    while (ids.size() < window) {
      const Result<cow_ptr<Commit>> older =
          history.empty() ? head : Try([&history] { return history.back()->GetParent(); });
      if (!older) read = older.error();
      is_complete = !older || !*older;
      if (is_complete) break;
      const Id id = (*older)->GetId();
      const std::optional<ObjectKey> key = KeyOf(id);
      if (!key) {
        m_commit = ShortId(id);
        return Refusal({}, "its id is not one of the library's");
      }
      is_complete = m_known.Contains(*key);
      if (is_complete) break;
      history.push_back(*older);
      ids.push_back(id);
    }
    const Result<std::vector<bool>> missing = AreMissing(ids);
    if (!missing) return missing.error();
    const auto present = std::find(missing->begin(), missing->end(), false);
    if (present != missing->end()) {
      history.resize(first + static_cast<std::size_t>(present - missing->begin()));
      return history;
    }
    if (!read) return read.error();
  }
  return history;
}

Status MissingObjects::CollectTree(const cow_ptr<Tree>& root, const cow_ptr<Tree>& known) {
  if (!root) return {};
  m_frames.clear();
  const std::optional<ObjectKey> key = KeyOf(root->GetId());
  if (!key) return Refusal({}, "the id of its root folder is not one of the library's");
  if (m_known.Contains(*key)) return {};
  const Result<std::vector<bool>> missing = AreMissing({root->GetId()});
  if (!missing) return missing.error();
  Status status;
  if (missing->front()) status = Open({}, root, known);
  while (status && !m_frames.empty()) {
    Frame& frame = m_frames.back();
    if (frame.next < frame.subtrees.size()) {
      const Name name = frame.subtrees[frame.next++];
      const cow_ptr<Tree> tree = frame.tree->GetLocalTree(name);
      if (m_known.Contains(*KeyOf(tree->GetId()))) continue;
      status = Open(name, tree, SubtreeOfParent(frame.known, name));
      continue;
    }
    const Frame closed = std::move(frame);
    m_frames.pop_back();
    status = Take(closed.tree, m_frames.empty() ? nullptr : &closed.name,
                  closed.known ? closed.known->GetId() : Id());
  }
  return status;
}

// Collects the files of a tree that the store lacks, and notes the subtrees that it lacks.
Status MissingObjects::Open(Name name, cow_ptr<Tree> tree, cow_ptr<Tree> known) {
  std::vector<Name> names = tree->GetLocalBlobDiffs(known);
  for (Name& subtree : tree->GetLocalTreeDiffs(known)) names.push_back(std::move(subtree));
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  m_frames.push_back({std::move(name), std::move(tree), std::move(known), {}, 0});
  Frame& frame = m_frames.back();
  std::vector<Id> ids;
  std::vector<Name> asked;
  for (Name& entry : names) {
    const std::optional<Id> id = frame.tree->GetIdByPath(entry);
    if (!id) continue;  // the parent's tree alone has it
    const std::optional<ObjectKey> key = KeyOf(*id);
    if (!key) return Refusal(PathOf(entry), "its id is not one of the library's");
    if (entry.Find(TalStringT<WideChar>(TalStringViewT<WideChar>(TAL_WIDE("\0"), 1))) >= 0) {
      return Refusal(PathOf(entry), "its name has U+0000 in it");
    }
    if (m_known.Contains(*key)) continue;
    ids.push_back(*id);
    asked.push_back(std::move(entry));
  }
  const Result<std::vector<bool>> missing = AreMissing(ids);
  if (!missing) return missing.error();
  for (std::size_t index = 0; index < asked.size(); ++index) {
    if (!(*missing)[index] || m_known.Contains(*KeyOf(ids[index]))) continue;
    Status status = CollectEntry(frame, asked[index]);
    if (!status) return status;
  }
  return {};
}

Status MissingObjects::CollectEntry(Frame& frame, const Name& name) {
  if (const cow_ptr<Blob> blob = frame.tree->GetLocalBlob(name)) {
    // The differences between the trees were found by their entries, which need no read.
    const std::optional<Id> previous =
        frame.known ? frame.known->GetIdByPath(name) : std::optional<Id>();
    return Take(blob, &name, previous.value_or(Id()));
  }
  if (!frame.tree->GetLocalTree(name)) return Refusal(PathOf(name), "its object is gone");
  frame.subtrees.push_back(name);
  return {};
}

// Checks an object that the store lacks and puts it on the list. `name` is that of an entry of the
// open tree, or null. `previous` is the id of the version in the parent, or empty.
Status MissingObjects::Take(AnyObject object, const Name* name, Id previous) {
  const Id id = IdOf(object);
  Buffer packed = Pack(object);
  if (CheckPackedObject(id, packed)) {
    return Refusal(name ? PathOf(*name) : std::string(),
                   "its packed form is not one that the library writes");
  }
  m_known.Insert(*KeyOf(id), 0);
  const std::uint64_t size_bytes = packed.GetSize();
  if (m_keptBytes + size_bytes > kMostKeptBytes) packed = Buffer();
  m_keptBytes += packed.GetSize();
  m_objects.push_back({std::move(object), std::move(packed), std::move(previous)});
  return m_reporter.Add(1, size_bytes);
}

// Returns for each id whether the store lacks it, and remembers those that it has.
Result<std::vector<bool>> MissingObjects::AreMissing(const std::vector<Id>& ids) {
  std::vector<bool> result(ids.size(), false);
  if (ids.empty()) return result;
  const Result<std::vector<Id>> missing = m_store.Missing(ids);
  if (!missing) return missing.error();
  IdMap lacked;
  for (const Id& id : *missing) lacked.Insert(*KeyOf(id), 0);
  for (std::size_t index = 0; index < ids.size(); ++index) {
    const ObjectKey key = *KeyOf(ids[index]);
    result[index] = lacked.Contains(key);
    if (!result[index]) m_known.Insert(key, 0);
  }
  return result;
}

Status MissingObjects::WriteTo(ObjectWriter& writer) {
  for (Collected& collected : m_objects) {
    Buffer packed = std::move(collected.packed);
    if (packed.IsEmpty()) packed = Pack(collected.object);
    Status status =
        writer.Add({IdOf(collected.object), std::move(packed), std::move(collected.previous)});
    if (!status) return status;
  }
  return writer.Flush();
}

Error MissingObjects::Refusal(const std::string& path, const std::string& reason) const {
  return MakeError(ErrorCode::Unsupported,
                   "cannot save " + Quoted("/" + path) + " of commit " + m_commit + " of branch " +
                       Quoted(*m_branch) + ": " + reason,
                   path.empty() ? *m_branch : path, "nothing was written");
}

// Returns the path of an entry of the tree that is open. The first tree is the root.
std::string MissingObjects::PathOf(const Name& name) const {
  std::string path;
  for (std::size_t level = 1; level < m_frames.size(); ++level) {
    path += ToUtf8(m_frames[level].name) + '/';
  }
  return path + ToUtf8(name);
}

}  // namespace TalVcs::Kit
