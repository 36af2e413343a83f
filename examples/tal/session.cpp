#include "session.h"

#include "author.h"
#include "counted_io.h"
#include "failure.h"

#include <kit/save_repository.h>

#include <charconv>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <sstream>

namespace fs = std::filesystem;

namespace Tal {
namespace {

using TalVcs::Kit::DirectoryStore;

constexpr const char* kStateFile = "state";  // the store's own: without it there is no store
constexpr const char* kBranchFile = "tal-branch";
constexpr const char* kFreedFile = "tal-freed";
constexpr const char* kFirstBranch = "master";

void CheckStart(const fs::path& start) {
  std::error_code error;
  if (!fs::is_directory(start, error))
    throw Failure("there is no folder \"" + Printable(start.string()) + "\"", ExitCode::Usage);
}

fs::path FindTop(const fs::path& start) {
  CheckStart(start);
  std::error_code error;
  fs::path absolute = fs::absolute(start).lexically_normal();
  if (!absolute.has_filename()) absolute = absolute.parent_path();
  for (fs::path top = absolute;; top = top.parent_path()) {
    if (fs::is_directory(top / Folder::kStoreName, error)) return top;
    if (top == top.parent_path()) break;
  }
  throw Failure("neither \"" + Printable(absolute.string()) +
                "\" nor a folder above it has a history; tal init creates one");
}

std::string ReadSmallFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

/// Writes the file at once: a reader sees the old text or the new one.
void WriteSmallFile(const fs::path& path, const std::string& text) {
  fs::path parked = path;
  parked += ".new";
  std::ofstream file(parked, std::ios::binary);
  file << text;
  file.close();
  std::error_code error;
  if (file) fs::rename(parked, path, error);
  if (!file || error) throw Failure("cannot write \"" + Printable(path.string()) + "\"");
}

/// Makes a repository whose current branch has no name.
///
/// A loader lets a commit without a tree or a parent begin like the current branch's head. No
/// branch of a store can be this one, so commits come in as they were saved, whatever was loaded
/// before.
TalVcs::Repository MakeRepository() {
  TalVcs::Repository repository(
      std::make_unique<TalVcs::MemObjectsStorage>(std::initializer_list<WideView>{WideView()}));
  repository.Checkout(WideView());
  repository.RemoveBranch(WideView());
  return repository;
}

}  // namespace

void Session::Create(const Host& host) {
  CheckStart(host.start);
  const fs::path folder = host.start / Folder::kStoreName;
  DirectoryStore store(host.start);
  // This makes the folder, and keeps others from making a store in it at the same time.
  if (!store.Lock()) throw Failure("cannot create the store: " + Printable(store.LastError()));
  std::error_code error;
  if (fs::exists(fs::symlink_status(folder / kStateFile, error)))
    throw Failure("cannot create the store: the folder has one already");
  WriteSmallFile(folder / kBranchFile, kFirstBranch);
  TalVcs::Serializer(&store, WideString()).CleanUpStorage();
  if (!store.Commit()) throw Failure("cannot create the store: " + Printable(store.LastError()));
}

Session::Session(const Host& host, Access access)
    : m_terminal(host.terminal),
      m_folder(FindTop(host.start)),
      m_store(m_folder.Top()),
      m_repository(MakeRepository()) {
  if (access == Access::Change && !m_store.Lock())
    throw Failure("cannot change the store now: " + Printable(m_store.LastError()));
  Load();
  if (access != Access::Inspect && !CameInWhole())
    throw Failure("the store is damaged: " + DescribeDamage(), ExitCode::Damaged);
}

void Session::Load() {
  const fs::path folder = m_folder.Top() / Folder::kStoreName;
  std::error_code error;
  const bool hasState = fs::exists(folder / kStateFile, error);
  CountedReader reader(m_store, m_terminal, "loading");
  const bool cameIn = TalVcs::Deserializer(&reader, WideString()).Deserialize(&m_repository);
  if (!cameIn || !hasState) {
    m_whyNotWhole = m_store.LastError();
    if (m_whyNotWhole.empty())
      m_whyNotWhole = hasState ? "a branch cannot be read completely"
                               : "it has no state; tal init creates a store";
  }
  const std::string branch = ReadSmallFile(folder / kBranchFile);
  const WideString name = ToWide(branch.empty() ? kFirstBranch : branch);
  m_repository.CreateBranch(name, nullptr);
  m_repository.Checkout(name);
}

std::string Session::DescribeDamage() {
  std::string paths;
  for (const WideString& path : m_store.FindDamage()) paths += "\n  " + Printable(ToUtf8(path));
  if (!paths.empty()) paths = "\nmissing, damaged or unreadable:" + paths;
  return Printable(m_whyNotWhole) + paths;
}

std::string Session::Branch() const { return ToUtf8(m_repository.GetCurentBranch()); }

void Session::Save() {
  for (const auto& [id, commit] : m_repository.GetStorage()->GetCommits()) {
    const std::string lost = WhyLost(*commit);
    if (!lost.empty()) throw Failure(lost);
  }
  CountedWriter writer(m_store, m_terminal, "saving");
  const bool isWritten = TalVcs::Kit::SaveRepository(m_repository, writer, WideString());
  if (isWritten && m_store.Commit()) return;
  if (IsSaved())
    throw Failure("saved, but a loss of power may undo it: " + Printable(m_store.LastError()));
  throw Failure("cannot save the store: " + Printable(m_store.LastError()) +
                "; its previous version is unchanged");
}

void Session::SetBranch(const std::string& name) {
  WriteSmallFile(m_folder.Top() / Folder::kStoreName / kBranchFile, name);
  m_repository.Checkout(ToWide(name));
}

std::uint64_t Session::LastFreed() const {
  const std::string text = ReadSmallFile(m_folder.Top() / Folder::kStoreName / kFreedFile);
  std::uint64_t bytes = 0;
  std::from_chars(text.data(), text.data() + text.size(), bytes);
  return bytes;
}

void Session::SetLastFreed(std::uint64_t bytes) {
  WriteSmallFile(m_folder.Top() / Folder::kStoreName / kFreedFile, std::to_string(bytes));
}

}  // namespace Tal
