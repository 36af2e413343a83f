#include <tests/on_demand/lockstep.h>
#include <tests/support/contents.h>

#include <optional>

// The operations that edit trees and make commits.

namespace TalVcs::Testing {

namespace {

bool HasBlob(const Commit& commit, const std::string& path) {
  return static_cast<bool>(commit.GetBlob(Wide(path)));
}
bool HasTree(const Commit& commit, const std::string& path) {
  return static_cast<bool>(commit.GetTree(Wide(path)));
}
bool HasBlob(const Tree& tree, const std::string& path) {
  return static_cast<bool>(tree.GetDeepBlob(Wide(path)));
}
bool HasTree(const Tree& tree, const std::string& path) {
  return static_cast<bool>(tree.GetDeepTree(Wide(path)));
}

/// Removes files that stand where the path needs a directory, and a directory that stands at its
/// end, so that no blob hides a subtree.
template <class Target>
void ClearPath(Target& target, Repository& repository, const std::string& path) {
  for (std::size_t slash = path.find('/'); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    const std::string directory = path.substr(0, slash);
    if (HasBlob(target, directory)) target.RemoveObject(&repository, Wide(directory));
  }
  if (HasTree(target, path)) target.RemoveObject(&repository, Wide(path));
}

/// Removes what stands at the path as well, which may become a directory.
template <class Target>
void ClearAll(Target& target, Repository& repository, const std::string& path) {
  ClearPath(target, repository, path);
  if (HasBlob(target, path)) target.RemoveObject(&repository, Wide(path));
}

struct Edit {
  enum class Kind { Add, Remove, AddById };
  Kind kind;
  std::string path;
  std::string content;
  Id id;
};

std::string Apply(const Edit& edit, Commit& draft, Repository& repository) {
  switch (edit.kind) {
    case Edit::Kind::Add:
      ClearPath(draft, repository, edit.path);
      return IdOf(draft.AddBlob(&repository, Wide(edit.path), BlobOf(edit.content)));
    case Edit::Kind::Remove:
      return draft.RemoveObject(&repository, Wide(edit.path)) ? "removed" : "not there";
    case Edit::Kind::AddById:
      break;
  }
  ClearAll(draft, repository, edit.path);
  const cow_ptr<Object> added = draft.AddObject(&repository, Wide(edit.path), edit.id);
  return added ? Ascii(added->GetId()) : "no object";
}

// Both at once: of a name with " <", a commit that was read has a part in its e-mail.
void SetAuthor(Commit& draft, const std::string& name) {
  draft.SetAuthorName(Wide(name));
  draft.SetAuthorEmail(Wide("host@example.org"));
}

std::string ParentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(0, slash);
}

}  // namespace

std::vector<Operation> Lockstep::PickEdits(std::size_t repository, std::size_t draft) {
  std::vector<Operation> edits;
  do {
    Edit edit{Edit::Kind::Add, PickPath(), PickContent(), Id()};
    if (m_random.OneIn(4)) {
      edit.kind = Edit::Kind::Remove;
      if (m_random.OneIn(3)) edit.path = ParentOf(edit.path);
    } else if (m_random.OneIn(10)) {
      edit.kind = Edit::Kind::AddById;
      edit.id = PickStoredId(repository, m_random.OneIn(2));
    }
    edits.push_back([=](Side& side) {
      return Apply(edit, *side.drafts[draft], *side.repositories[repository]);
    });
  } while (!m_random.OneIn(3));
  return edits;
}

void Lockstep::MakeDraft() {
  const std::size_t repository = PickRepository();
  const std::size_t draft = repository;
  const bool amend = m_random.OneIn(4);
  const Version version = PickVersion(repository);
  const bool on_head = m_random.OneIn(2);
  const std::string text = PickText();
  Both([=](Side& side) {
    auto made = on_head ? std::make_unique<Commit>(side.repositories[repository].get(), amend)
                        : std::make_unique<Commit>(side.Find(version), amend);
    if (!amend) {
      made->SetDescription(Wide(text));
      SetAuthor(*made, "Ann <the \"first\"");
    }
    side.drafts[draft] = std::move(made);
    return std::string();
  });
}

void Lockstep::EditDraft() {
  const std::size_t draft = PickRepository();
  for (const Operation& edit : PickEdits(PickRepository(), draft)) Both(edit);
  Both([=](Side& side) {
    const auto tree = side.drafts[draft]->GetTree();
    return tree ? IdOf(tree->GetRoot()) : "no tree";
  });
}

// Puts a directory of another version, or of the other repository, into a draft.
void Lockstep::AddForeignTree() {
  const std::size_t repository = PickRepository();
  const std::size_t draft = repository;
  const Version version = PickVersion(PickRepository());
  const std::string from = ParentOf(PickPath());
  const std::string to = ParentOf(PickPath());
  Both([=](Side& side) {
    const cow_ptr<Commit> source = side.Find(version);
    const cow_ptr<CommitTree> subtree = source ? source->GetTree(Wide(from)) : nullptr;
    if (!subtree) return std::string("no subtree");
    Repository& target = *side.repositories[repository];
    Commit& commit = *side.drafts[draft];
    ClearAll(commit, target, to);
    CommitTree root = commit.GetTree() ? *commit.GetTree() : CommitTree();
    const std::string added = IdOf(root.AddTree(&target, Wide(to), *subtree->GetRoot()));
    commit.ReplaceRoot(&target, root.GetRoot());
    commit.SetDescription(Wide("with a directory of another version"));
    return added + IdOf(root.GetRoot());
  });
}

void Lockstep::ReplaceRoot() {
  const std::size_t repository = PickRepository();
  const std::size_t draft = repository;
  const Version version = PickVersion(repository);
  const bool empty = m_random.OneIn(3);
  Both([=](Side& side) {
    cow_ptr<Tree> root = empty ? Make<Tree>() : side.FindRoot(version);
    side.drafts[draft]->ReplaceRoot(side.repositories[repository].get(), root);
    SetAuthor(*side.drafts[draft], "B");
    return IdOf(root);
  });
}

void Lockstep::CommitDraft() {
  const std::size_t repository = PickRepository();
  const std::size_t draft = repository;
  Both([=](Side& side) {
    return IdOf(side.repositories[repository]->DoCommit(*side.drafts[draft]));
  });
}

// A commit in one go. If a read fails, all of it is repeated.
void Lockstep::CommitQuickly() {
  const std::size_t repository = PickRepository();
  const bool amend = m_random.OneIn(6);
  const std::string text = PickText();
  const bool twice = m_random.OneIn(15);
  const std::vector<Operation> edits = PickEdits(repository, repository);
  const bool empty_directory = m_random.OneIn(12);
  Both([=](Side& side) {
    Repository& target = *side.repositories[repository];
    side.drafts[repository] = std::make_unique<Commit>(&target, amend);
    Commit& draft = *side.drafts[repository];
    if (!amend) draft.SetDescription(Wide(text));
    if (!amend) SetAuthor(draft, "Bob <");
    std::string result;
    for (const Operation& edit : edits) result += edit(side) + ' ';
    if (empty_directory) {
      ClearAll(draft, target, "empty");
      CommitTree root = draft.GetTree() ? *draft.GetTree() : CommitTree();
      root.AddTree(&target, TAL_WIDE("empty"), Tree());
      draft.ReplaceRoot(&target, root.GetRoot());
      SetAuthor(draft, "Bob <");
    }
    result += IdOf(target.DoCommit(draft));
    if (twice) {
      Commit again(draft);
      result += IdOf(target.DoCommit(again));
    }
    side.drafts[repository] = std::make_unique<Commit>();
    return result;
  });
}

// A host edits a tree that it got by a handle. The stored instance stays as it is.
void Lockstep::EditHeldTree() {
  if (m_ordinary.trees.empty()) return;
  const std::size_t held = m_random.Below(m_ordinary.trees.size());
  const std::size_t repository = PickRepository();
  const std::string path = PickPath();
  const std::string content = PickContent();
  const bool remove = m_random.OneIn(3);
  Both([=](Side& side) {
    cow_ptr<Tree>& tree = side.trees[held];
    Repository& target = *side.repositories[repository];
    if (!tree) return std::string("no tree");
    if (remove) {
      const bool removed = tree.write()->RemoveObject(&target, Wide(path));
      return std::to_string(removed) + IdOf(tree);
    }
    Tree& edited = *tree.write();
    ClearPath(edited, target, path);
    const std::string added = IdOf(edited.AddBlob(&target, Wide(path), BlobOf(content)));
    return added + IdOf(tree);
  });
}

}  // namespace TalVcs::Testing
