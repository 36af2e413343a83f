#include "session.h"

#include "failure.h"
#include "file_handle.h"
#include "remotes.h"
#include "store_files.h"

#include <kit/text/result.h>

#include <sys/file.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <utility>

namespace fs = std::filesystem;

namespace Tal {
namespace {

constexpr const char* kFormerBranchFile = "tal-branch";  // versions before kept the branch there
constexpr const char* kLockFile = "tal-lock";

/// Returns how far the clocks here are from UTC now.
std::chrono::minutes LocalOffset() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  localtime_r(&now, &parts);
  return std::chrono::minutes(parts.tm_gmtoff / 60);
}

Kit::WorkspaceOptions MakeOptions(Kit::IObjectStore& store, const fs::path& storePath) {
  Kit::WorkspaceOptions options;
  options.offset = LocalOffset();
  options.mergers.Add("*", MakeMerger());
  if (!store.Value("branch").value()) {
    const std::string former = ReadSmallFile(storePath / kFormerBranchFile);
    for (const Kit::Head& head : store.Heads().value()) {
      if (head.name == former) options.branch = former;
    }
  }
  return options;
}

}  // namespace

/// Keeps other commands from changing the folder and its store. Ends with the process.
class Session::Lock {
 public:
  explicit Lock(const fs::path& storePath)
      : m_file(open((storePath / kLockFile).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
    const std::string what = "cannot change the store now: ";
    if (!m_file.IsOpen()) throw Failure(what + std::strerror(errno));
    if (flock(m_file.Get(), LOCK_EX | LOCK_NB) != 0)
      throw Failure(what + "another command is changing it; try again when that has ended");
  }

 private:
  FileHandle m_file;
};

void CheckStart(const fs::path& start) {
  std::error_code error;
  if (!fs::is_directory(start, error))
    throw Failure("there is no folder \"" + Printable(start.string()) + "\"", ExitCode::Usage);
}

fs::path FindTop(const fs::path& start) {
  CheckStart(start);
  std::error_code error;
  // As the system resolves it: ".." after a symbolic link leads above the link's target.
  const fs::path absolute = fs::canonical(start, error);
  if (error)
    throw Failure("cannot open the folder \"" + Printable(start.string()) +
                  "\": " + error.message());
  for (fs::path top = absolute;; top = top.parent_path()) {
    if (fs::is_directory(top / Folder::kStoreName, error)) return top;
    if (top == top.parent_path()) break;
  }
  throw Failure("neither \"" + Printable(absolute.string()) +
                "\" nor a folder above it has a history; tal init creates one");
}

std::shared_ptr<Kit::IObjectStore> OpenWholeStore(const fs::path& top) {
  std::shared_ptr<Kit::IObjectStore> store = OpenStore(top);
  const std::string place = LazyPlace(top);
  return place.empty() ? store : OpenLazy(std::move(store), place);
}

Session::Session(const Host& host, Access access)
    : m_host(host), m_access(access), m_folder(FindTop(host.start)) {
  if (access == Access::Change) m_lock = std::make_unique<Lock>(m_folder.StorePath());
  m_store = OpenWholeStore(m_folder.Top());
  m_visible = m_store;
  if (access == Access::Read) return;
  m_staged = std::make_shared<StagedStore>(m_store);
  m_visible = m_staged;
}

Session::~Session() = default;

Kit::Workspace& Session::Document() {
  if (!m_document) {
    const Kit::WorkspaceOptions options = MakeOptions(*m_visible, m_folder.StorePath());
    m_document.emplace(Kit::Workspace::Open(m_visible, options).value());
  }
  return *m_document;
}

Kit::OpenedRepository Session::OpenRepository() {
  return Kit::Open(m_visible, {.branch = Head() ? Branch() : std::string()}).value();
}

FileTree Session::HeadFiles() {
  const std::optional<Kit::Version> head = Head();
  return head ? FilesOf(head->id) : FileTree();
}

FileTree Session::FilesOf(const TalVcs::Id& version) {
  return FileTree(Document().At(version).value().GetTree());
}

FileTree Session::FilesBefore(const Kit::Version& version) {
  return version.parent.View().IsEmpty() ? FileTree() : FilesOf(version.parent);
}

void Session::Save() {
  if (m_access != Access::Change) return;
  const Kit::Status status = m_staged->Publish();
  m_isSaved = status.ok();
  if (status) return;
  // The error of the last step may leave the new heads in place.
  const auto wanted = m_staged->Heads();
  const auto actual = m_store->Heads();
  m_isSaved = wanted && actual && *wanted == *actual;
  const Kit::Error& error = status.error();
  const std::string reason = Printable(Kit::Describe(error));
  if (m_isSaved) throw Failure("saved, but a loss of power may undo it: " + reason);
  throw Failure((reason.starts_with("cannot save") ? "" : "cannot save: ") + reason +
                (error.unchanged.empty() ? "; the store has its previous version" : ""));
}

}  // namespace Tal
