// stream := (blob | commit | tag | reset | other)* "done"?     see git-fast-import(1)
//
// Everything is read into memory first. Then the branches move, and all is saved in one step.

#include "import.h"

#include "../failure.h"
#include "../terminal.h"
#include "../text.h"
#include "change_reader.h"
#include "commit_text.h"
#include "imported_refs.h"
#include "stream_reader.h"
#include "tree_builder.h"

#include <kit/open/save.h>

#include <unordered_map>

namespace Tal {
namespace {

using TalVcs::Blob;
using TalVcs::Commit;
using TalVcs::cow_ptr;
using CommitHandle = cow_ptr<Commit>;

/// What the lines before the files of a commit say.
struct CommitHeader {
  std::string ref;
  std::optional<std::uint64_t> mark;
  GitSignature signature;
  std::string message;
  CommitHandle parent;
  std::vector<TalVcs::Id> merged;
};

class GitImporter {
 public:
  GitImporter(std::istream& in, TalVcs::Kit::OpenedRepository& opened)
      : m_reader(in),
        m_changes(m_reader, m_notes),
        m_opened(opened),
        m_repository(opened.GetRepository()) {}

  GitImportReport Run() {
    while (ReadCommand()) {
    }
    if (m_expectsDone && !m_isDone) m_reader.Fail("the stream ends before its line \"done\"");
    const ImportedRefs::Counts counts = m_refs.MoveBranches(m_repository, m_notes);
    m_report.branches = counts.branches;
    m_report.tags = counts.tags;
    m_report.mergedTags = counts.merged;
    const auto saved = Save(m_opened);
    if (!saved) throw Failure("cannot save what was imported: " + Describe(saved.error()));
    for (const auto& [what, count] : m_notes) {
      m_report.notes.push_back(Plural(count, what.first) + ' ' + what.second);
    }
    return std::move(m_report);
  }

 private:
  bool ReadCommand() {
    const std::string* line = m_reader.Peek();
    if (line == nullptr || m_isDone) return false;
    if (*line == "blob") {
      m_reader.Next();
      ReadBlob();
    } else if (auto commit = m_reader.Take("commit ")) {
      ReadCommit(*commit);
    } else if (auto tag = m_reader.Take("tag ")) {
      ReadTag(*tag);
    } else if (auto reset = m_reader.Take("reset ")) {
      ReadReset(*reset);
    } else if (auto feature = m_reader.Take("feature ")) {
      ReadFeature(*feature);
    } else if (*line == "done") {
      m_isDone = true;
    } else if (line->empty() || *line == "checkpoint" || line->starts_with("progress ") ||
               line->starts_with("option ")) {
      m_reader.Next();
    } else {
      m_reader.Fail("\"" + Shown(*line) + "\" is no command that can be imported");
    }
    return true;
  }

  void ReadFeature(const std::string& feature) {
    if (feature == "done") {
      m_expectsDone = true;
    } else if (feature != "date-format=raw" && feature != "force") {
      m_reader.Fail("the feature \"" + Shown(feature) + "\" is not supported");
    }
  }

  void ReadBlob() {
    const std::optional<std::uint64_t> mark = TakeMark();
    m_reader.Take("original-oid ");
    Blob blob = TalVcs::Kit::BlobFromBytes(m_reader.TakeData());
    if (mark) m_changes.AddBlob(*mark, std::move(blob));
  }

  std::optional<std::uint64_t> TakeMark() {
    const std::optional<std::string> text = m_reader.Take("mark :");
    if (!text) return std::nullopt;
    const std::optional<std::uint64_t> mark = ParseNumber(*text);
    if (!mark) m_reader.Fail("\":" + Shown(*text) + "\" is no mark");
    return mark;
  }

  void ReadCommit(const std::string& ref) {
    const CommitHeader header = ReadHeader(ref);
    TreeBuilder files(m_repository, header.parent ? RootOf(*header.parent) : nullptr);
    while (m_changes.Read(files)) {
    }
    auto commit = std::make_unique<Commit>(header.parent, false);
    commit->ReplaceRoot(&m_repository, files.Finish());
    commit->SetDescription(TextOf(DescriptionOf(header.message, header.merged), "message"));
    commit->SetAuthorName(TextOf(header.signature.name, "author"));
    commit->SetAuthorEmail(TextOf(header.signature.email, "e-mail address"));
    constexpr std::int64_t kTicksOfMinute = 600'000'000;
    commit->SetCommitTime(
        TalVcs::Time::FromTimeT(header.signature.time.time_since_epoch().count()));
    commit->SetCommitTimezoneBias({header.signature.offset.count() * kTicksOfMinute});
    const CommitHandle stored =
        m_repository.SyncWithStorage(CommitHandle(TalVcs::dll_wrapped_shared(std::move(commit))));
    m_refs.Set(ref, stored);
    if (header.mark) m_commits.insert_or_assign(*header.mark, stored);
    ++m_report.commits;
  }

  static cow_ptr<TalVcs::Tree> RootOf(const Commit& commit) {
    const cow_ptr<TalVcs::CommitTree> tree = commit.GetTree();
    return tree ? tree->GetRoot() : nullptr;
  }

  CommitHeader ReadHeader(const std::string& ref) {
    CommitHeader header;
    header.ref = ref;
    header.mark = TakeMark();
    m_reader.Take("original-oid ");
    const std::optional<std::string> author = m_reader.Take("author ");
    const std::optional<std::string> committer = m_reader.Take("committer ");
    if (!committer) m_reader.Fail("the commit has no committer");
    header.signature = SignatureOf(author ? *author : *committer);
    if (const auto encoding = m_reader.Take("encoding ")) {
      m_reader.Fail("the message has the encoding " + Shown(*encoding) +
                    "; export with git fast-export --reencode=yes");
    }
    while (m_reader.Take("gpgsig ")) {
      m_reader.TakeData();
      Count("signature", "left out");
    }
    header.message = m_reader.TakeData();
    if (header.message.ends_with('\n')) header.message.pop_back();
    ReadParents(header);
    return header;
  }

  void ReadParents(CommitHeader& header) {
    const std::optional<std::string> from = m_reader.Take("from ");
    header.parent = from ? FindCommit(*from) : m_refs.Find(header.ref);
    while (const std::optional<std::string> merge = m_reader.Take("merge ")) {
      const CommitHandle merged = FindCommit(*merge);
      if (!merged) m_reader.Fail("\"" + Shown(*merge) + "\" is no commit to merge");
      if (!header.parent) {
        header.parent = merged;
      } else {
        header.merged.push_back(merged->GetId());
        m_refs.AddMerged(merged);
      }
    }
  }

  GitSignature SignatureOf(const std::string& text) {
    std::optional<GitSignature> signature = ParseSignature(text);
    if (!signature) m_reader.Fail("\"" + Shown(text) + "\" is no author with a time");
    const auto seconds = signature->time.time_since_epoch().count();
    if (seconds != static_cast<std::int32_t>(seconds)) {
      m_reader.Fail("the time " + std::to_string(seconds) + " has more than 32 bits");
    }
    if (signature->offset.count() < 0 && signature->offset > -std::chrono::hours(1)) {
      signature->offset = {};
      Count("offset", "of less than an hour west of UTC changed to UTC");
    }
    return *std::move(signature);
  }

  void ReadTag(const std::string& name) {
    const std::optional<std::uint64_t> mark = TakeMark();
    const std::optional<std::string> from = m_reader.Take("from ");
    if (!from) m_reader.Fail("the tag has no commit");
    m_reader.Take("original-oid ");
    m_reader.Take("tagger ");
    if (!m_reader.TakeData().empty()) Count("message", "of a tag left out");
    const CommitHandle commit = m_changes.HasBlob(*from) ? nullptr : FindCommit(*from);
    if (!commit) {
      Count("tag", "of something else than a commit left out");
      return;
    }
    m_refs.Set("refs/tags/" + name, commit);
    if (mark) m_commits.insert_or_assign(*mark, commit);
  }

  void ReadReset(const std::string& ref) {
    const std::optional<std::string> from = m_reader.Take("from ");
    if (from && m_changes.HasBlob(*from)) {
      Count("tag", "of something else than a commit left out");
    } else {
      m_refs.Set(ref, from ? FindCommit(*from) : nullptr);
    }
  }

  /// Returns the commit of a mark or a ref; null for the id of zeros, which means none.
  CommitHandle FindCommit(const std::string& name) {
    if (name.size() >= 40 && name.find_first_not_of('0') == name.npos) return nullptr;
    if (name.starts_with(':')) {
      const std::optional<std::uint64_t> mark = ParseNumber(std::string_view(name).substr(1));
      const auto found = mark ? m_commits.find(*mark) : m_commits.end();
      if (found != m_commits.end()) return found->second;
    } else {
      const std::string ref = name.ends_with("^0") ? name.substr(0, name.size() - 2) : name;
      if (const CommitHandle commit = m_refs.Find(ref, m_repository)) return commit;
    }
    m_reader.Fail("there is no commit \"" + Shown(name) + "\" before this line");
  }

  /// Returns a text of a commit. Bytes that are no UTF-8 become U+FFFD, which is counted.
  WideString TextOf(const std::string& text, const std::string& kind) {
    if (text.find('\0') != text.npos) m_reader.Fail("the " + kind + " has a zero byte");
    if (!ToWideExactly(text)) Count(kind, "that was not UTF-8 changed");
    return ToWide(text);
  }

  void Count(const std::string& noun, const std::string& what) { ++m_notes[{noun, what}]; }

  GitStreamReader m_reader;
  ImportNotes m_notes;
  GitChangeReader m_changes;
  TalVcs::Kit::OpenedRepository& m_opened;
  TalVcs::Repository& m_repository;
  std::unordered_map<std::uint64_t, CommitHandle> m_commits;
  ImportedRefs m_refs;
  bool m_expectsDone = false;
  bool m_isDone = false;
  GitImportReport m_report;
};

}  // namespace

GitImportReport ImportGit(std::istream& in, TalVcs::Kit::OpenedRepository& opened) {
  return GitImporter(in, opened).Run();
}

}  // namespace Tal
