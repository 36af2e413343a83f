#include "session.h"

#include "author.h"
#include "failure.h"

#include <kit/directory_store.h>

#include <charconv>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace Tal {
namespace {

constexpr const char* kBranchFile = "tal-branch";
constexpr const char* kFreedFile = "tal-freed";
constexpr const char* kFirstBranch = "master";

fs::path FindTop(const fs::path& start) {
  std::error_code error;
  const fs::path absolute = fs::absolute(start).lexically_normal();
  for (fs::path top = absolute;; top = top.parent_path()) {
    if (fs::is_directory(top / Folder::kStoreName, error)) return top;
    if (top == top.parent_path()) break;
  }
  throw Failure("neither \"" + Printable(absolute.string()) +
                "\" nor a folder above it has a history; make one with tal init");
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
std::unique_ptr<TalVcs::Repository> MakeRepository() {
  auto repository = std::make_unique<TalVcs::Repository>(
      std::unique_ptr<TalVcs::IObjectsStorage>(new TalVcs::MemObjectsStorage({WideView()})));
  repository->Checkout(WideView());
  repository->RemoveBranch(WideView());
  return repository;
}

}  // namespace

class Session::Store : public TalVcs::Kit::DirectoryStore {
 public:
  using DirectoryStore::DirectoryStore;
};

void Session::Create(const Host& host) {
  const fs::path folder = host.start / Folder::kStoreName;
  std::error_code error;
  if (!fs::create_directory(folder, error)) {
    throw Failure(error ? "cannot make \"" + Printable(folder.string()) + "\": " + error.message()
                        : "there is a store already");
  }
  WriteSmallFile(folder / kBranchFile, kFirstBranch);
}

Session::Session(const Host& host, Access access)
    : m_host(host), m_folder(FindTop(host.start)), m_repository(MakeRepository()) {
  static_cast<void>(access);
  m_store = std::make_unique<Store>(m_folder.Top());
  Load();
}

Session::~Session() = default;

void Session::Load() {
  if (!TalVcs::Deserializer(m_store.get(), WideString()).Deserialize(m_repository.get()))
    throw Failure("the store is damaged: a branch doesn't come in whole", ExitCode::Damaged);
  const std::string branch = ReadSmallFile(m_folder.Top() / Folder::kStoreName / kBranchFile);
  const WideString name = ToWide(branch.empty() ? kFirstBranch : branch);
  m_repository->CreateBranch(name, nullptr);
  m_repository->Checkout(name);
}

TalVcs::Repository& Session::Repository() noexcept { return *m_repository; }
const Folder& Session::WorkFolder() const noexcept { return m_folder; }
TalVcs::IBlobReader& Session::Reader() noexcept { return *m_store; }
std::string Session::Branch() const { return ToUtf8(m_repository->GetCurentBranch()); }

void Session::Save() {
  const TalVcs::IObjectsStorage& storage = *m_repository->GetStorage();
  for (const auto& [id, commit] : storage.GetCommits()) {
    const std::string lost = WhyLost(*commit);
    if (!lost.empty()) throw Failure(lost);
  }
  const bool written = TalVcs::Serializer(m_store.get(), WideString()).Serialize(&storage);
  if (!written || !m_store->Commit()) throw Failure("the store can't be saved");
}

void Session::SetBranch(const std::string& name) {
  WriteSmallFile(m_folder.Top() / Folder::kStoreName / kBranchFile, name);
  m_repository->Checkout(ToWide(name));
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
