// stream := "feature done" LF (blob | commit)* reset* "done" LF
// blob   := "blob" LF mark data
// commit := ("reset " ref LF)? "commit " ref LF mark author committer data from? merge* change*
// change := "D " path LF | "M " mode SP mark SP path LF       all that go before all that come
// reset  := "reset " ref LF from                              a branch or tag at its head
//
// The first line of a history needs the reset, because the commit would follow the ref otherwise.

#include "export.h"

#include "../failure.h"
#include "../file_kinds.h"
#include "../terminal.h"
#include "../text.h"
#include "git_names.h"
#include "merged_heads.h"
#include "path_quoting.h"
#include "ref_names.h"

#include <kit/diff/tree_changes.h>

#include <algorithm>
#include <limits>
#include <map>
#include <set>
#include <unordered_map>
#include <unordered_set>

namespace Tal {
namespace {

using TalVcs::Id;
using TalVcs::Kit::Snapshot;
using TalVcs::Kit::TreeChange;
using TalVcs::Kit::TreeChangeKind;
using TalVcs::Kit::Version;
using TalVcs::Kit::Workspace;

template <class T>
T ValueOf(TalVcs::Kit::Result<T> result) {
  if (!result) {
    const TalVcs::Kit::ErrorCode code = result.error().code;
    const bool is_damaged =
        code == TalVcs::Kit::ErrorCode::Damaged || code == TalVcs::Kit::ErrorCode::Unavailable;
    throw Failure("cannot export: " + Describe(result.error()),
                  is_damaged ? ExitCode::Damaged : ExitCode::Differs);
  }
  return *std::move(result);
}

/// A file of a version.
struct FileState {
  Id blob;
  FileKind kind = FileKind::File;
};

/// What differs between two versions.
struct FileChanges {
  std::vector<std::string> removed;
  std::map<std::string, FileState> files;
};

const char* ModeOf(FileKind kind) {
  switch (kind) {
    case FileKind::Executable:
      return "100755";
    case FileKind::Link:
      return "120000";
    case FileKind::File:
      break;
  }
  return "100644";
}

/// All versions, by id and in an order in which each follows its parent and what it merged.
class VersionList {
 public:
  explicit VersionList(std::vector<Version> newestFirst) : m_versions(std::move(newestFirst)) {
    for (std::size_t i = 0; i < m_versions.size(); ++i) m_indexes.emplace(m_versions[i].id, i);
  }

  const Version* Find(const Id& id) const {
    const auto found = m_indexes.find(id);
    return found == m_indexes.end() ? nullptr : &m_versions[found->second];
  }

  /// Returns the parents of the commit in git, each once.
  std::vector<const Version*> ParentsOf(const Version& version) const {
    std::vector<const Version*> parents;
    const auto add = [&](const Id& id) {
      const Version* parent = Find(id);
      if (parent != nullptr && std::ranges::find(parents, parent) == parents.end()) {
        parents.push_back(parent);
      }
    };
    add(version.parent);
    for (const Id& merged : version.merges) add(merged);
    return parents;
  }

  std::vector<const Version*> OldestFirst() const {
    std::vector<const Version*> order;
    std::vector<bool> is_entered(m_versions.size());
    std::vector<std::pair<const Version*, bool>> work;  // the flag: everything before it is done
    for (auto version = m_versions.rbegin(); version != m_versions.rend(); ++version) {
      work.emplace_back(&*version, false);
      while (!work.empty()) {
        const auto [at, is_ready] = work.back();
        work.pop_back();
        if (is_ready) {
          order.push_back(at);
          continue;
        }
        if (is_entered[m_indexes.at(at->id)]) continue;
        is_entered[m_indexes.at(at->id)] = true;
        work.emplace_back(at, true);
        for (const Version* parent : ParentsOf(*at)) work.emplace_back(parent, false);
      }
    }
    return order;
  }

 private:
  std::vector<Version> m_versions;
  std::unordered_map<Id, std::size_t> m_indexes;
};

class GitExporter {
 public:
  GitExporter(const Workspace& workspace, std::ostream& out)
      : m_workspace(workspace),
        m_out(out),
        m_versions(ValueOf(workspace.Log(
            {.allBranches = true, .limit = std::numeric_limits<std::uint64_t>::max()}))) {}

  GitExportReport Run() {
    const std::vector<GitRef> refs = ListGitRefs(m_workspace);
    const std::vector<const Version*> versions = m_versions.OldestFirst();
    for (const Version* version : versions) {
      const std::vector<const Version*> parents = m_versions.ParentsOf(*version);
      for (std::size_t i = 1; i < parents.size(); ++i) m_merged.insert(parents[i]->id);
    }
    AssignRefs(refs);
    m_out << "feature done\n";
    for (const Version* version : versions) WriteVersion(*version);
    for (const GitRef& ref : refs) {
      if (!IsMergedTag(ref)) WriteRef(ref);
    }
    m_out << "done\n";
    if (!m_out.flush()) throw Failure("cannot write the stream for git");
    AddNote(m_changedPersons, "version", "has an author without \"<\", \">\" and line ends");
    AddNote(m_changedTimes, "version", "has another time or offset, as git can't hold it");
    return std::move(m_report);
  }

 private:
  /// Each version gets the ref along whose first parents it was reached first.
  void AssignRefs(const std::vector<GitRef>& refs) {
    for (const GitRef& ref : refs) {
      const std::string& name = IsMergedTag(ref) ? refs.front().ref : ref.ref;
      const Version* version = m_versions.Find(ref.head);
      while (version != nullptr && m_refs.emplace(version->id, name).second) {
        version = m_versions.Find(version->parent);
      }
    }
  }

  /// True for a tag of `import-git` that git doesn't need, because a merge keeps the commit.
  bool IsMergedTag(const GitRef& ref) const {
    return ref.ref == "refs/tags/" + MergedTagOf(ref.head) && m_merged.contains(ref.head);
  }

  void WriteVersion(const Version& version) {
    const Snapshot files = ValueOf(m_workspace.At(version.id));
    const std::vector<const Version*> parents = m_versions.ParentsOf(version);
    const Snapshot before =
        parents.empty() ? Snapshot() : ValueOf(m_workspace.At(parents.front()->id));
    const FileChanges changes = ChangesBetween(before, files);
    for (const auto& [path, file] : changes.files) WriteContent(path, file.blob, files);

    const std::string& ref = m_refs.at(version.id);
    if (parents.empty()) m_out << "reset " << ref << '\n';
    m_out << "commit " << ref << "\nmark :" << MarkOf(version.id) << '\n';
    const std::string person = PersonOf(version);
    m_out << "author " << person << "committer " << person;
    WriteData(version.message + '\n');
    for (const Version* parent : parents) {
      m_out << (parent == parents.front() ? "from :" : "merge :") << MarkOf(parent->id) << '\n';
    }
    for (const std::string& path : changes.removed) m_out << "D " << PathOf(path) << '\n';
    for (const auto& [path, file] : changes.files) {
      m_out << "M " << ModeOf(file.kind) << " :" << MarkOf(file.blob) << ' ' << PathOf(path)
            << '\n';
    }
    ++m_report.versions;
  }

  static FileKinds KindsOf(const Snapshot& files) {
    if (!ValueOf(files.Contains(FileKinds::kKindsName))) return {};
    return FileKinds(ValueOf(files.Read(FileKinds::kKindsName)).text());
  }

  static FileChanges ChangesBetween(const Snapshot& before, const Snapshot& files) {
    FileChanges result;
    const FileKinds kinds = KindsOf(files);
    for (const TreeChange& change : ValueOf(TalVcs::Kit::FindTreeChanges(
             before.GetTree(), files.GetTree(), {.findMoves = false, .findLikeMoves = false}))) {
      if (change.path == FileKinds::kKindsName) {
        AddKinds(KindsOf(before), kinds, files, result);
      } else if (change.kind == TreeChangeKind::Removed) {
        result.removed.push_back(change.path);
      } else {
        result.files[change.path] = {change.after, kinds.Of(change.path)};
      }
    }
    return result;
  }

  /// Adds the files of which the kind alone has changed.
  static void AddKinds(const FileKinds& before, const FileKinds& after, const Snapshot& files,
                       FileChanges& result) {
    std::set<std::string> paths;
    for (const FileKinds* kinds : {&before, &after}) {
      for (const auto& [path, kind] : kinds->GetAll()) paths.insert(path);
    }
    for (const std::string& path : paths) {
      if (before.Of(path) == after.Of(path)) continue;
      const auto id = files.GetTree()->GetIdByPath(ToWide(path));
      if (id && files.GetTree()->GetDeepBlob(ToWide(path))) {
        result.files[path] = {*id, after.Of(path)};
      }
    }
  }

  void WriteContent(const std::string& path, const Id& blob, const Snapshot& files) {
    if (m_marks.contains(blob)) return;
    m_out << "blob\nmark :" << MarkOf(blob) << '\n';
    WriteData(ValueOf(files.Read(path)).text());
  }

  std::string PersonOf(const Version& version) {
    const std::string person = GitPerson(version.author) + " <" + GitPerson(version.email);
    const std::string time = GitTime(version.time, version.offset);
    if (person != version.author + " <" + version.email) ++m_changedPersons;
    if (!time.starts_with(std::to_string(version.time.time_since_epoch().count()) + ' ') ||
        (version.offset.count() != 0 && time.ends_with("+0000"))) {
      ++m_changedTimes;
    }
    return person + "> " + time + '\n';
  }

  /// Returns the path as the stream has it.
  std::string PathOf(const std::string& path) {
    const std::string other = GitPath(path);
    if (other != path && m_replaced.insert(path).second) {
      m_report.notes.push_back("the file " + Printable(path) + " is " + Printable(other) +
                               " in git");
    }
    return QuoteGitPath(other);
  }

  void WriteRef(const GitRef& ref) {
    const bool is_tag = ref.ref.starts_with("refs/tags/");
    const std::string prefix = is_tag ? "refs/tags/" : "refs/heads/";
    ++(is_tag ? m_report.tags : m_report.branches);
    m_out << "reset " << ref.ref << "\nfrom :" << MarkOf(ref.head) << "\n\n";
    if (ref.ref != prefix + ref.name) {
      m_report.notes.push_back((is_tag ? "the tag " : "the branch ") + Printable(ref.name) +
                               " is " + Printable(ref.ref) + " in git");
    }
  }

  void WriteData(std::string_view data) { m_out << "data " << data.size() << '\n' << data << '\n'; }

  std::uint64_t MarkOf(const Id& id) {
    return m_marks.emplace(id, m_marks.size() + 1).first->second;
  }

  void AddNote(std::uint64_t count, std::string_view noun, const std::string& what) {
    if (count > 0) m_report.notes.push_back(Plural(count, noun) + ": git " + what);
  }

  const Workspace& m_workspace;
  std::ostream& m_out;
  const VersionList m_versions;
  std::unordered_map<Id, std::string> m_refs;
  std::unordered_map<Id, std::uint64_t> m_marks;
  std::unordered_set<Id> m_merged;
  std::set<std::string> m_replaced;  // paths that are others in git
  std::uint64_t m_changedPersons = 0;
  std::uint64_t m_changedTimes = 0;
  GitExportReport m_report;
};

}  // namespace

GitExportReport ExportGit(const Workspace& workspace, std::ostream& out) {
  return GitExporter(workspace, out).Run();
}

}  // namespace Tal
