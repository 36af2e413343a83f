#include <bench/measure.h>
#include <bench/peer_repository.h>
#include <git2/sys/mempack.h>
#include <git2/sys/odb_backend.h>
#include <git2/sys/repository.h>

#include <algorithm>
#include <cstring>
#include <unordered_set>

namespace TalVcs::Bench {
namespace {

struct HashId {
  std::size_t operator()(const git_oid& id) const {
    std::size_t hash;
    std::memcpy(&hash, id.id, sizeof(hash));
    return hash;
  }
};
struct EqualIds {
  bool operator()(const git_oid& a, const git_oid& b) const { return git_oid_equal(&a, &b) != 0; }
};

/// Collects the objects below commits.
class Reacher {
 public:
  explicit Reacher(PeerRepository& repository) : m_repository(repository) {}

  void AddCommits(const git_oid& head) {
    git_revwalk* walk;
    Check(git_revwalk_new(&walk, m_repository.Get()));
    Check(git_revwalk_push(walk, &head));
    git_oid id;
    while (git_revwalk_next(&id, walk) == 0) {
      order.push_back(id);
      AddTree(*git_commit_tree_id(m_repository.GetCommit(id).get()));
    }
    git_revwalk_free(walk);
  }

  std::vector<git_oid> order;

 private:
  void AddTree(const git_oid& id) {
    if (!m_seen.insert(id).second) return;
    order.push_back(id);
    const GitTree tree = m_repository.GetTree(id);
    for (std::size_t i = 0; i < git_tree_entrycount(tree.get()); ++i) {
      const git_tree_entry* const entry = git_tree_entry_byindex(tree.get(), i);
      if (git_tree_entry_type(entry) == GIT_OBJECT_TREE) {
        AddTree(*git_tree_entry_id(entry));
      } else if (m_seen.insert(*git_tree_entry_id(entry)).second) {
        AddBlob(*git_tree_entry_id(entry));
      }
    }
  }

  void AddBlob(const git_oid& id) {
    git_blob* blob;
    Check(git_blob_lookup(&blob, m_repository.Get(), &id));
    git_blob_free(blob);
    order.push_back(id);
  }

  PeerRepository& m_repository;
  std::unordered_set<git_oid, HashId, EqualIds> m_seen;
};

}  // namespace

void Check(int result) {
  if (result >= 0) return;
  const git_error* const error = git_error_last();
  Require(false, error != nullptr ? error->message : "libgit2 failed");
}

PeerRepository::PeerRepository() {
  Check(git_repository_new(&m_repository));
  Check(git_odb_new(&m_database));
  Check(git_mempack_new(&m_objects));
  Check(git_odb_add_backend(m_database, m_objects, 1));
  Check(git_repository_set_odb(m_repository, m_database));
  git_config* config;
  Check(git_config_new(&config));
  Check(git_repository_set_config(m_repository, config));
  git_config_free(config);
}

PeerRepository::~PeerRepository() {
  git_odb_free(m_database);
  git_repository_free(m_repository);
}

git_oid PeerRepository::PutBlob(std::string_view bytes) {
  git_oid id;
  Check(git_blob_create_from_buffer(&id, m_repository, bytes.data(), bytes.size()));
  return id;
}

git_oid PeerRepository::Write(const GitBuilder& builder) {
  git_oid id;
  Check(git_treebuilder_write(&id, builder.get()));
  return id;
}

git_oid PeerRepository::Edit(git_tree* base, const std::vector<PeerEdit>& edits) {
  std::vector<git_tree_update> updates;
  for (const PeerEdit& edit : edits) {
    const auto action = edit.remove ? GIT_TREE_UPDATE_REMOVE : GIT_TREE_UPDATE_UPSERT;
    updates.push_back({action, edit.blob, GIT_FILEMODE_BLOB, edit.path.c_str()});
  }
  git_oid id;
  Check(git_tree_create_updated(&id, m_repository, base, updates.size(), updates.data()));
  return id;
}

git_oid PeerRepository::Record(const git_oid& tree, const std::vector<git_oid>& parents,
                               std::uint32_t number) {
  git_signature* author;
  Check(git_signature_new(&author, std::string(kAuthorName).c_str(),
                          std::string(kAuthorEmail).c_str(), kFirstTime + number, 0));
  std::vector<GitCommit> commits;
  std::vector<const git_commit*> pointers;
  for (const git_oid& parent : parents) {
    commits.push_back(GetCommit(parent));
    pointers.push_back(commits.back().get());
  }
  git_oid id;
  Check(git_commit_create(&id, m_repository, nullptr, author, author, nullptr,
                          (Message(number) + '\n').c_str(), GetTree(tree).get(), pointers.size(),
                          pointers.data()));
  git_signature_free(author);
  return id;
}

GitTree PeerRepository::GetTree(const git_oid& id) {
  git_tree* tree;
  Check(git_tree_lookup(&tree, m_repository, &id));
  return GitTree(tree);
}

GitCommit PeerRepository::GetCommit(const git_oid& id) {
  git_commit* commit;
  Check(git_commit_lookup(&commit, m_repository, &id));
  return GitCommit(commit);
}

GitBuilder PeerRepository::MakeBuilder() {
  git_treebuilder* builder;
  Check(git_treebuilder_new(&builder, m_repository, nullptr));
  return GitBuilder(builder);
}

git_oid PeerRepository::BuildTree(const std::vector<std::string>& contents) {
  const auto count = static_cast<std::uint32_t>(contents.size());
  const auto insert = [](const GitBuilder& builder, const std::string& name, git_oid id,
                         git_filemode_t mode) {
    Check(git_treebuilder_insert(nullptr, builder.get(), name.c_str(), &id, mode));
  };
  const GitBuilder root = MakeBuilder();
  for (std::uint32_t top = 0; top < count; top += kFilesPerTop) {
    const GitBuilder middle = MakeBuilder();
    for (std::uint32_t leaf = top; leaf < std::min(count, top + kFilesPerTop);
         leaf += kFilesPerLeaf) {
      const GitBuilder directory = MakeBuilder();
      for (std::uint32_t i = leaf; i < std::min(count, leaf + kFilesPerLeaf); ++i) {
        insert(directory, LeafName(i), PutBlob(contents[i]), GIT_FILEMODE_BLOB);
      }
      insert(middle, MiddleName(leaf / kFilesPerLeaf), Write(directory), GIT_FILEMODE_TREE);
    }
    insert(root, TopName(top / kFilesPerLeaf), Write(middle), GIT_FILEMODE_TREE);
  }
  return Write(root);
}

git_oid PeerRepository::Replay(git_oid head, const HistoryPlan& plan,
                               const std::vector<std::vector<std::string>>& contents, bool perFile,
                               std::uint32_t number) {
  git_oid tree = *git_commit_tree_id(GetCommit(head).get());
  for (std::size_t c = 0; c < plan.size(); ++c) {
    std::vector<PeerEdit> edits;
    for (std::size_t i = 0; i < plan[c].size(); ++i) {
      edits.push_back({Path(plan[c][i].index), PutBlob(contents[c][i])});
      if (!perFile && i + 1 < plan[c].size()) continue;
      tree = Edit(GetTree(tree).get(), edits);
      edits.clear();
    }
    head = Record(tree, {head}, number + static_cast<std::uint32_t>(c));
  }
  return head;
}

std::vector<git_oid> PeerRepository::Reach(const git_oid& head) {
  Reacher reacher(*this);
  reacher.AddCommits(head);
  return std::move(reacher.order);
}

void PeerRepository::Reset() { Check(git_mempack_reset(m_objects)); }

}  // namespace TalVcs::Bench
