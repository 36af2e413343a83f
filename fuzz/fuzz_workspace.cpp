// Runs a program on two workspaces over one store. Each operation is a byte, followed by what it
// needs: texts, each up to the end of a line, and bytes that choose.
//
// After each operation, what failed has changed nothing, and another session reads what was saved.

#include "input.h"
#include "target.h"

#include <kit/merge/content_merger.h>
#include <kit/open/verify.h>
#include <kit/store/memory_object_store.h>
#include <kit/workspace/workspace.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::Require;
using Kit::Workspace;

constexpr int kMostSteps = 60;

using Files = std::map<std::string, std::string>;

template <class Source>
Files FilesOf(const Source& source) {
  Files files;
  for (const std::string& path : source.ListFiles().value()) {
    files.emplace(path, source.Read(path).value().text());
  }
  return files;
}

class Program {
 public:
  Program(const std::uint8_t* data, std::size_t size) : m_input(data, size) {
    for (int i = 0; i < 2; ++i) m_workspaces.push_back(Open());
  }

  void Run() {
    for (int step = 0; step < kMostSteps && !m_input.IsAtEnd(); ++step) Step();
    Require(Kit::Verify(*m_store)->IsWhole(), "the store is whole");
  }

 private:
  Workspace Open() {
    Kit::WorkspaceOptions options;
    options.author = "Ada";
    options.clock = [this] { return m_now += std::chrono::seconds(30); };
    options.mergers.Add("*.txt", Kit::MakeTextMerger());
    options.mergers.Add("*.json", Kit::MakeJsonMerger());
    return Workspace::Open(m_store, options).value();
  }

  void Step() {
    const std::uint8_t choice = m_input.Byte();
    m_workspace = &m_workspaces[choice >> 7];
    const Files files = FilesOf(*m_workspace);
    const std::vector<Kit::Head> heads = m_store->Heads().value();
    const bool done = Operate(choice & 31);
    if (!done) {
      Require(FilesOf(*m_workspace) == files, "a failed operation leaves the files");
      Require(m_store->Heads().value() == heads, "a failed operation leaves the branches");
    }
    if (m_store->Heads().value() == heads) return;
    const Workspace again = Open();
    Require(FilesOf(again) == FilesAt(again), "another session reads the head");
    Require(again.Log({.allBranches = true, .limit = 100000}).ok(), "every version can be read");
  }

  static Files FilesAt(const Workspace& of) {
    const auto head = of.GetHead().value();
    return head ? FilesOf(of.At(head->id).value()) : Files();
  }

  std::string Path() {
    constexpr const char* kPaths[] = {"a", "b.txt", "c.json", "d/x", "d/y.txt", "d/e/z.json", "d"};
    const std::uint8_t choice = m_input.Byte();
    return choice < 7 * 32 ? kPaths[choice % 7] : m_input.Line();
  }
  std::string Text() {
    std::string text = m_input.Line();
    for (char& c : text) c = c == '|' ? '\n' : c;
    return text;
  }
  std::string Branch() {
    const std::uint8_t choice = m_input.Byte();
    return choice < 128 ? "master" : choice < 240 ? "topic" : m_input.Line();
  }
  /// Returns a version of the log, or what is none.
  Id Version() {
    const auto log = m_workspace->Log({.allBranches = true}).value();
    const std::uint8_t choice = m_input.Byte();
    return choice < log.size() ? log[choice].id : Id();
  }

  bool Operate(unsigned operation) {
    switch (operation) {
      case 0:
      case 1:
      case 2:
        return m_workspace->Write(Path(), Text()).ok();
      case 3:
        return m_workspace->Remove(Path()).ok();
      case 4:
        return m_workspace->Rename(Path(), Path()).ok();
      case 5: {
        const auto version = m_workspace->At(Version());
        return version && m_workspace->CopyFrom(*version, Path(), Path()).ok();
      }
      case 6:
        return m_workspace->Discard(Path()).ok();
      case 7:
        return m_workspace->Checkpoint(Text(), Text(), m_now).ok();
      case 8:
        return m_workspace->Undo().ok();
      case 9:
        return m_workspace->Redo().ok();
      case 10:
        return m_workspace->CreateBranch(Branch(), Version()).ok();
      case 11:
        return m_workspace->Switch(Branch()).ok();
      case 12:
        return Decide(m_workspace->PreviewMerge(Branch()));
      case 13:
        return Decide(m_workspace->PreviewCherryPick(Version()));
      case 14:
        return Decide(m_workspace->PreviewRevert(Version()));
      default:
        return OperateOnAll(operation);
    }
  }

  bool OperateOnAll(unsigned operation) {
    switch (operation) {
      case 15:
        return m_workspace->Restore(Version()).ok();
      case 16: {
        const auto preview = m_workspace->PreviewReload();
        return preview && m_workspace->Reload(Decisions(*preview)).ok();
      }
      case 17:
        return m_workspace->RemoveBranch(Branch()).ok();
      case 18:
        return m_workspace->CreateTag(Text(), Version()).ok();
      case 19:
        return Forget();
      case 20:
        return m_workspace
            ->Rebase(Branch(),
                     [this](const Kit::MergePreview& preview) -> Kit::Result<Kit::Decisions> {
                       return Decisions(preview);
                     })
            .ok();
      case 21:
        *m_workspace = Open();
        return true;
      case 22:
        m_workspace->Trim();
        return m_workspace->MeasureVersions().ok() && m_workspace->MeasurePaths("d").ok();
      default:
        return m_workspace->Commit(Text(), {.isMachineMade = operation == 31}).ok();
    }
  }

  Kit::Decisions Decisions(const Kit::MergePreview& preview) {
    using Kit::Decision;
    Kit::Decisions decisions;
    for (const Kit::Conflict& conflict : preview.conflicts) {
      const Decision choices[] = {Decision::Ours(), Decision::Theirs(), Decision::Base(),
                                  Decision::Content("decided")};
      decisions.emplace(conflict.path, choices[m_input.Byte() % 4]);
    }
    return decisions;
  }

  bool Decide(const Kit::Result<Kit::MergePreview>& preview) {
    return preview && m_workspace->Merge(*preview, Decisions(*preview)).ok();
  }

  // What is left is what the preview said, except that versions may have become equal. The other
  // workspace begins anew: a store in memory keeps nothing for it.
  bool Forget() {
    using Kit::Retention;
    const std::uint8_t count = m_input.Byte();
    const Retention rules[] = {
        Retention::KeepNewest(count), Retention::KeepUnder(std::uint64_t{count} * 16),
        Retention::KeepSince(m_now - std::chrono::seconds(count * 10)),
        Retention::ThinAutosaves(count % 4, count % 3, m_now), Retention::TipsAndForks()};
    const Retention& rule = rules[m_input.Byte() % 5];
    const auto expected = m_workspace->PreviewForget(rule);
    const auto report = m_workspace->Forget(rule);
    if (!report) return false;
    m_workspaces[m_workspace == &m_workspaces[0] ? 1 : 0] = Open();
    const auto left = m_workspace->Log({.allBranches = true, .limit = 100000}).value();
    Require(left.size() <= expected->keptVersions, "no more versions stay than the preview says");
    return true;
  }

  Fuzz::Input m_input;
  std::chrono::sys_seconds m_now = std::chrono::sys_seconds(std::chrono::seconds(1'000'000'000));
  std::shared_ptr<Kit::MemoryObjectStore> m_store = std::make_shared<Kit::MemoryObjectStore>();
  std::vector<Workspace> m_workspaces;
  Workspace* m_workspace = nullptr;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Program(data, size).Run();
  return 0;
}
