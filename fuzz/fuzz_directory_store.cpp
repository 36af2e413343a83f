// Saves and loads through a directory store on a file system in memory, which lets the store touch
// its own files alone, and compares it with a plain map.
//
// input := options root LF action*       options: 1 waits for the medium, 2 compares contents
//
// The actions stand in `Session::Act`. Their texts are lines of UTF-8.

#include "input.h"
#include "memory_file_system.h"
#include "plain_store.h"
#include "target.h"

#include <kit/directory_store.h>
#include <kit/internal/store_access.h>
#include <kit/text.h>
#include <tests/model/driver/twins.h>
#include <tests/support/bytes.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::MemoryFileSystem;
using Fuzz::Require;
using Model::Text;
using ModelTest::ExpectSame;
using ModelTest::FromLib;
using ModelTest::ToLib;

std::optional<std::string> Read(Kit::DirectoryStore& store, const Text& path) {
  StreamIO stream = store.OpenBlob(ToLib(path));
  if (!stream) return std::nullopt;
  Buffer bytes;
  Require(stream.ReadToEnd(bytes), "a stream of a store can be read");
  return FromLib(bytes);
}

class Session {
 public:
  Session(std::uint8_t options, const Text& root) : m_plain(root) {
    m_options.rootPath = ToLib(root);
    m_options.durable = (options & 1) != 0;
    m_options.compareContents = (options & 2) != 0;
    m_store = Open();
    m_reader = Open();
  }

  void Act(Fuzz::Input& input);
  void Finish();

 private:
  std::unique_ptr<Kit::DirectoryStore> Open() const {
    return std::make_unique<Kit::DirectoryStore>(
        Kit::StoreAccess::Make(MemoryFileSystem::StoreFolder(), m_options, m_files));
  }
  static Text Line(Fuzz::Input& input) { return Model::DecodeUtf8(input.Line()); }

  void Put(const Text& path, std::string bytes);
  void RemoveBelow(const Text& folder);
  void Commit();
  void Abandon();
  void CheckStreams(Kit::DirectoryStore& store, const Model::Store& expected);
  void CheckListing(const Text& folder);
  void CheckDamage();
  void TryState(const std::string& bytes);
  bool Holds(const Model::Store& streams);

  // True if no call has failed since `failures`.
  bool AllWent(int failures) const { return m_files->Failures() == failures; }

  std::shared_ptr<MemoryFileSystem> m_files = std::make_shared<MemoryFileSystem>();
  Kit::DirectoryStoreOptions m_options;
  Fuzz::PlainStore m_plain;
  std::unique_ptr<Kit::DirectoryStore> m_store;
  std::unique_ptr<Kit::DirectoryStore> m_reader;
  // What the reader has to find; nothing once it may have lost its lock.
  std::optional<Model::Store> m_readerStreams;
  // Failed calls when the transaction began; a transaction that failed stays so.
  int m_failures = 0;
  bool m_isWriting = false;
  bool m_hasFailed = false;
};

// Text and content for the same path are the same, as an object's path names its content.
void Session::Put(const Text& path, std::string bytes) {
  const auto object = m_plain.ObjectOf(path);
  if (object && Model::Sha256Hex(bytes) != *object) bytes = *object;
  if (!m_isWriting) m_failures = m_files->Failures();
  m_isWriting = true;
  Stream stream = m_store->CreateBlobStream(ToLib(path));
  stream.Write(Testing::BufferOf(bytes));
  stream.SeekToBegin();
  if (m_store->CommitBlobStream(ToLib(path), stream)) {
    Require(!m_hasFailed, "a transaction that failed takes nothing more");
    m_plain.Put(path, bytes);
  } else {
    Require(m_hasFailed || !AllWent(m_failures), "a stream is taken");
    m_hasFailed = true;
  }
}

void Session::RemoveBelow(const Text& folder) {
  if (m_hasFailed && m_plain.IsWhole(folder)) {
    m_plain.Abandon();
    m_isWriting = m_hasFailed = false;
  }
  if (!m_isWriting) m_failures = m_files->Failures();
  m_isWriting = true;
  m_store->RemoveStorage(ToLib(folder));
  if (!m_hasFailed) m_plain.RemoveBelow(folder);
}

void Session::Commit() {
  const bool done = m_store->Commit();
  if (!m_isWriting) {
    Require(done, "nothing to commit is no failure");
    return;
  }
  Require(!done || !m_hasFailed, "a transaction that failed can't be committed");
  if (done) {
    Require(m_store->IsNewStateInPlace(), "what is committed is in place");
    m_plain.Commit();
  } else {
    Require(m_hasFailed || !AllWent(m_failures), "a transaction is committed");
    // Old or new, whole in either case.
    Require(!m_hasFailed || !m_store->IsNewStateInPlace(), "a failed transaction changes nothing");
    if (m_store->IsNewStateInPlace()) m_plain.Commit();
    m_plain.Abandon();
  }
  m_isWriting = m_hasFailed = false;
  m_files->FailAt(0);
  Require(Holds(m_plain.Streams()), "the store is the old one or the new one");
}

void Session::Abandon() {
  m_store->Abandon();
  m_plain.Abandon();
  m_isWriting = m_hasFailed = false;
}

bool Session::Holds(const Model::Store& streams) {
  const std::unique_ptr<Kit::DirectoryStore> store = Open();
  for (const auto& [path, bytes] : streams) {
    if (Read(*store, path) != bytes) return false;
  }
  for (const Text& name : FromLib(store->ListBlobs(ToLib(m_plain.BranchPath(u""))))) {
    if (!streams.contains(m_plain.BranchPath(name))) return false;
  }
  return true;
}

void Session::CheckStreams(Kit::DirectoryStore& store, const Model::Store& expected) {
  for (const auto& [path, bytes] : expected) {
    const int failures = m_files->Failures();
    const auto read = Read(store, path);
    if (AllWent(failures)) Require(read == bytes, "a stream comes back");
  }
  const auto read = Read(store, m_plain.BranchPath(u"no such branch\uFFFF"));
  Require(!read, "a stream that isn't there can't be opened");
}

void Session::CheckListing(const Text& folder) {
  const int failures = m_files->Failures();
  const std::vector<Text> names = FromLib(m_store->ListBlobs(ToLib(folder)));
  if (AllWent(failures)) ExpectSame("listing", names, m_plain.List(folder));
}

void Session::CheckDamage() {
  const int failures = m_files->Failures();
  const std::vector<Text> damaged = FromLib(m_store->FindDamage());
  if (AllWent(failures)) ExpectSame("damage", damaged, m_plain.Damaged());
}

// A state of any bytes gives a store or a refusal. What is a store stands there as it would be
// written.
void Session::TryState(const std::string& bytes) {
  Abandon();
  m_files->FailAt(0);
  const MemoryFileSystem::Content content = m_files->GetContent();
  m_files->PutState(bytes);
  {
    const std::unique_ptr<Kit::DirectoryStore> store = Open();
    const Text branches = m_plain.BranchPath(u"");
    for (const Text& name : FromLib(store->ListBlobs(ToLib(branches)))) {
      Read(*store, m_plain.BranchPath(name));
    }
    store->FindDamage();
    store->RemoveStorage(TAL_WIDE("no such folder"));
    const bool taken = store->Commit();
    Require(taken == store->LastError().empty(), "a refusal has a reason");
    Require(m_files->State() == bytes, "a state is read in the form in which it is written alone");
  }
  m_files->CheckHostFiles();
  m_files->SetContent(content);
}

void Session::Act(Fuzz::Input& input) {
  switch (input.Byte()) {
    case 'b': {  // a branch, or what a host calls so
      const Text name = Line(input);
      return Put(m_plain.BranchPath(name), input.Line());
    }
    case 'p': {  // any path
      const Text path = Line(input);
      return Put(path, input.Line());
    }
    case 'o': {  // an object
      const std::string bytes =
          Model::Blob(std::string(1, static_cast<char>(input.Byte()))).GetPackedData();
      return Put(m_plain.ObjectPath(Model::Sha256Hex(bytes)), bytes);
    }
    case 'f':  // what looks like one, or doesn't
      return Put(m_plain.ObjectPath(std::string(64, static_cast<char>(input.Byte()))), "fake");
    case 'R':
      return RemoveBelow(m_plain.StoragePath());
    case 'X':
      return RemoveBelow(Line(input));
    case 'C':
      return Commit();
    case 'A':
      return Abandon();
    case 'N':
      Abandon();
      m_store = Open();
      return;
    case 'S':
      return CheckStreams(*m_store, m_plain.Streams());
    case 'L':
      return CheckListing(m_plain.BranchPath(u""));
    case 'l':
      return CheckListing(Line(input));
    case 'F':
      return CheckDamage();
    case 'K': {  // the reader takes in the state of this moment
      const int failures = m_files->Failures();
      m_reader->ListBlobs(ToLib(m_plain.BranchPath(u"")));
      m_readerStreams = AllWent(failures) ? std::optional(m_plain.Streams()) : std::nullopt;
      return;
    }
    case 'V':
      if (m_readerStreams) CheckStreams(*m_reader, *m_readerStreams);
      return;
    case 'x':
      return m_files->FailAt(input.Byte());
    case 'd': {  // a state, with or without the digest that it ends with
      const bool whole = input.Byte() % 2 != 0;
      std::string bytes = input.Part();
      if (whole) bytes += Model::Sha256Hex(bytes) + '\n';
      return TryState(bytes);
    }
    default:
      return;
  }
}

void Session::Finish() {
  Abandon();
  m_files->FailAt(0);
  Require(Holds(m_plain.Streams()), "the store holds what was committed");
  if (m_readerStreams) CheckStreams(*m_reader, *m_readerStreams);
  m_files->CheckHostFiles();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr int kMostActions = 100;
  Fuzz::Input input(data, size);
  const std::uint8_t options = input.Byte();
  Session session(options, Model::DecodeUtf8(input.Line()));
  for (int action = 0; action < kMostActions && !input.IsAtEnd(); ++action) session.Act(input);
  session.Finish();
  return 0;
}
