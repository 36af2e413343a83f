#include "objects.h"
#include "repository.h"

#include <algorithm>
#include <limits>

namespace Model {
namespace {

constexpr std::int64_t kTicksOfSecond = 10000000;
constexpr std::int64_t kTicksOfMinute = 60 * kTicksOfSecond;

std::int64_t WholeSeconds(std::uint64_t time) {
  const auto ticks = static_cast<std::int64_t>(time);
  const std::int64_t seconds = ticks / kTicksOfSecond;
  return ticks % kTicksOfSecond < 0 ? seconds - 1 : seconds;
}

std::string TwoDigits(std::int64_t number) {
  return (number < 10 ? "0" : "") + std::to_string(number);
}

Bytes PersonLine(const Bytes& role, const Commit& commit) {
  const std::int64_t bias = commit.GetStamp().bias;
  const std::int64_t hours = bias / (60 * kTicksOfMinute);
  const std::int64_t minutes = bias / kTicksOfMinute;
  const auto seconds = static_cast<std::int32_t>(WholeSeconds(commit.GetStamp().time));
  return role + " " + EncodeTerminated(commit.GetAuthorName()) + " <" +
         EncodeTerminated(commit.GetAuthorEmail()) + "> " + std::to_string(seconds) + " " +
         (hours < 0 ? "-" : "+") + TwoDigits(hours < 0 ? -hours : hours) +
         TwoDigits((minutes < 0 ? -minutes : minutes) % 60) + "\n";
}

// The value after the next `key`, up to the line's end, where the next search begins.
std::optional<Bytes> NextValue(const Bytes& text, const Bytes& key, std::int64_t& position) {
  const std::int64_t found = Find(text, key, position);
  if (found < 0) return std::nullopt;
  const std::int64_t start = found + static_cast<std::int64_t>(key.size());
  position = Find(text, "\n", start);
  return Mid(text, start, position - start);
}

}  // namespace

Commit::Commit(const Repository* repository, bool amend)
    : Commit(repository == nullptr ? Handle<Commit>() : repository->GetHead(), amend) {}

Commit::Commit(const Handle<Commit>& head, bool amend) : m_isAmend(amend) {
  if (head) {
    m_tree = head->m_tree;
    m_parent = amend ? head->m_parent : head;
  }
  if (head && amend) {
    SetAuthorName(head->m_authorName);
    SetAuthorEmail(head->m_authorEmail);
    SetDescription(head->m_description);
  }
  if (!m_tree) m_tree = Handle<CommitTree>(CommitTree());
}

void Commit::ResetState() {
  Object::ResetState();
  m_data.reset();
}

const Bytes& Commit::GetData() const {
  if (!m_data) {
    const Id root = m_tree ? m_tree->GetRootId() : Id();
    m_data = "tree " + root + "\n" + (m_parent ? "parent " + m_parent->GetId() + "\n" : "") +
             PersonLine("author", *this) + PersonLine("committer", *this) + "\n" +
             EncodeTerminated(m_description) + "\n";
  }
  return *m_data;
}

void Commit::SetParent(Handle<Commit> parent) {
  m_parent = std::move(parent);
  ResetState();
}

void Commit::SetDescription(const Text& text) {
  m_description = text;
  ResetState();
}

void Commit::SetAuthorName(const Text& text) {
  m_authorName = text;
  ResetState();
}

void Commit::SetAuthorEmail(const Text& text) {
  m_authorEmail = text;
  ResetState();
}

void Commit::SetStamp(const Stamp& stamp) {
  m_stamp = stamp;
  ResetState();
}

Handle<Blob> Commit::AddBlob(Repository* repository, const Text& path, const Blob& blob) {
  Handle<Blob> result = m_tree.write()->AddBlob(repository, path, blob);
  if (result) {
    RebuildTree(repository);
    ResetState();
  }
  return result;
}

Entry Commit::AddObject(Repository* repository, const Text& path, const Id& id) {
  Entry result = m_tree.write()->AddObject(repository, path, id);
  if (result) {
    RebuildTree(repository);
    ResetState();
  }
  return result;
}

bool Commit::RemoveObject(Repository* repository, const Text& path) {
  if (!m_tree || !m_tree.write()->RemoveObject(repository, path)) return false;
  RebuildTree(repository);
  ResetState();
  return true;
}

void Commit::ReplaceRoot(Repository* repository, Handle<Tree> tree) {
  m_tree.write()->ReplaceRoot(repository, std::move(tree));
  RebuildTree(repository);
}

void Commit::RebuildTree(Repository* repository) {
  if (repository == nullptr) return;
  const Id id = m_tree ? m_tree->GetRootId() : Id();
  if (const Handle<Tree> found = repository->GetTreeFromStorage(id)) {
    m_tree.write()->ReplaceRoot(repository, found);
  } else if (m_tree && m_tree->GetRoot()) {
    const Handle<Tree> stored = repository->SyncWithStorage(m_tree->GetRoot());
    m_tree.write()->ReplaceRoot(repository, stored);
  }
}

void CommitTree::ReplaceRoot(Repository* repository, Handle<Tree> tree) {
  if (repository != nullptr && tree) {
    if (const Handle<Tree> found = repository->GetTreeFromStorage(tree->GetId())) tree = found;
  }
  m_root = tree;
}

bool Commit::MakeCommitLinksInOrder(std::vector<Handle<Commit>>& commits, Repository* repository) {
  if (repository == nullptr || commits.empty()) return false;
  commits.back().write()->ResetState();
  commits.back() = repository->SyncWithStorage(commits.back());
  for (std::size_t i = commits.size() - 1; i-- > 0;) {
    if (!commits[i] || !commits[i + 1]) continue;
    commits[i].write()->SetParent(commits[i + 1]);
    commits[i] = repository->SyncWithStorage(commits[i]);
  }
  return true;
}

void Commit::ReadAuthor(const Bytes& author) {
  const std::int64_t a = Find(author, "<");
  const std::int64_t b = Find(author, ">", a);
  m_authorName = DecodeUtf8(Mid(author, 0, a - 1));
  m_authorEmail = DecodeUtf8(Mid(author, a + 1, b - a - 1));
  const Bytes when = Mid(author, b + 2);
  const std::int64_t c = Find(when, " ");
  const Text zone = DecodeUtf8(Mid(when, c + 1));
  const std::int64_t seconds =
      ReadNumber(DecodeUtf8(Mid(when, 0, c)), std::numeric_limits<std::int64_t>::min(),
                 std::numeric_limits<std::int64_t>::max());
  const auto part = [&](std::size_t start, std::size_t count) {
    const Text digits = zone.substr(std::min(start, zone.size()), count);
    return ReadNumber(digits, std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
  };
  const std::int64_t minutes = part(1, 2) * 60 + part(3, 4);
  m_stamp.time = static_cast<std::uint64_t>(seconds) * kTicksOfSecond;
  m_stamp.bias = (zone.starts_with(u'+') ? minutes : -minutes) * kTicksOfMinute;
}

Handle<Commit> Commit::Deserialize(const Id& id, Id& parentId, Repository* repository, Load& load) {
  if (id.empty() || repository == nullptr) return {};
  if (Handle<Commit> found = repository->GetCommitFromStorage(id)) return found;
  if (!load.line.insert(id).second) return {};
  const std::optional<Bytes> text = DataBehindHeader(load.ObjectStream(id), "commit ");
  if (!text || text->empty()) return {};
  std::int64_t position = 0;
  const std::optional<Bytes> treeId = NextValue(*text, "tree ", position);
  if (!treeId) return {};
  parentId = ReadId(NextValue(*text, "parent ", position).value_or(""));
  const Bytes author = NextValue(*text, "author ", position).value_or("");
  const Bytes description = NextValue(*text, "\n\n", position).value_or("");

  Handle<Commit> handle{Commit(repository, false)};
  Commit& commit = *handle.write();
  commit.ReadAuthor(author);
  commit.m_description = DecodeUtf8(description);
  commit.ResetState();
  if (!treeId->empty()) {
    const Handle<Tree> tree = Tree::Deserialize(ReadId(*treeId), repository, load);
    commit.m_tree = tree ? Handle<CommitTree>(CommitTree(tree)) : Handle<CommitTree>();
  }
  commit.RebuildTree(repository);
  return handle;
}

Handle<Tree> Tree::Deserialize(const Id& id, Repository* repository, Load& load) {
  if (id.empty() || repository == nullptr) return {};
  if (Handle<Tree> found = repository->GetTreeFromStorage(id)) return found;
  // While the tree is being read, it counts as unreadable.
  if (!load.openTrees.insert(id).second) return {};
  Handle<Tree> tree = Read(id, repository, load);
  load.openTrees.erase(id);
  return tree;
}

Handle<Tree> Tree::Read(const Id& id, Repository* repository, Load& load) {
  const std::optional<Bytes> text = DataBehindHeader(load.ObjectStream(id), "tree");
  if (!text || text->empty()) return {};
  Handle<Tree> handle{Tree()};
  std::int64_t index = 0;
  const auto size = static_cast<std::int64_t>(text->size());
  const auto next = [&](const Bytes& separator) {
    const std::int64_t found = Find(*text, separator, index);
    const std::int64_t end = found < 0 ? size : found;
    Bytes piece = Mid(*text, index, end - index);
    index = end + 1;
    return piece;
  };
  while (index < size) {
    next(" ");
    const Bytes type = next(" ");
    const Text name = DecodeUtf8(next(Bytes(1, '\0')));
    const Id child = ReadId(Mid(*text, index, 64));
    index += 64;
    if (type == "tree") {
      const Handle<Tree> subtree = Deserialize(child, repository, load);
      if (subtree) handle.write()->AddTree(repository, name, *subtree);
    } else if (type == "blob") {
      Handle<Blob> blob = repository->GetBlobFromStorage(child);
      if (!blob) blob = Blob::Parse(load.ObjectStream(child));
      if (blob) handle.write()->AddBlob(repository, name, *blob);
    } else {
      return {};
    }
  }
  return repository->SyncWithStorage(handle);
}

}  // namespace Model
