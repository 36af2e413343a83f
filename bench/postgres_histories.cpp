// Pushes, fills and opens repositories on a PostgreSQL server; run by postgres.py.
//
//     talvcs_postgres_histories import FILE               writes the history for git fast-import
//     talvcs_postgres_histories local FOLDER              puts it into a store in an empty folder
//     talvcs_postgres_histories push CONNECTION NAME FOLDER
//                                                         pushes what such a store has
//     talvcs_postgres_histories fill CONNECTION FILES OBJECTS
//     talvcs_postgres_histories open CONNECTION           opens that and reads a file
//     talvcs_postgres_histories connect CONNECTION        connects alone

#include <bench/processor_time.h>
#include <bench/saves.h>
#include <bench/workloads.h>
#include <kit/batch_edit.h>
#include <kit/open/open.h>
#include <kit/open/save.h>
#include <kit/sharing/remote.h>
#include <kit/store/directory_object_store.h>
#include <kit/text.h>
#include <stores/postgres/postgres_store.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace TalVcs::Bench {
namespace {

constexpr char kRepository[] = "filled";

template <class Work>
void PrintSeconds(const char* what, Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  std::printf("%s %.3f s\n", what, seconds.count());
}

std::shared_ptr<Kit::PostgresStore> OpenServer(const std::string& connection,
                                               const std::string& repository) {
  return std::make_shared<Kit::PostgresStore>(
      Kit::PostgresStore::Open(connection, repository).value());
}

/// Makes a store with what the saves of a history add, and its branch.
void MakeLocal(const std::string& folder) {
  auto store = Kit::DirectoryObjectStore::Create(folder).value();
  History history = MakeBenchHistory();
  Saved all;
  for (Saved& saved : SavesOf(history.repository)) {
    all.insert(all.end(), saved.begin(), saved.end());
  }
  store.Write(all).value();
  store.MoveHeads({{Kit::HeadMove{"master", Id(), all.back().id}}}).value();
}

void Push(const std::string& connection, const std::string& name, const std::string& folder) {
  auto local = Kit::DirectoryObjectStore::Open(folder).value();
  Kit::Remote remote(OpenServer(connection, name));
  std::uint64_t objects = 0;
  const WorkTime time = WorkTimer(connection).Measure([&] {
    objects = remote.Push(local, "master").value().writtenObjects;
  });
  std::printf("push of %llu objects %.2f s, processors: client %.2f s and server %.2f s\n",
              static_cast<unsigned long long>(objects), time.seconds, time.clientSeconds,
              time.serverSeconds);
}

/// A commit of `files` files, and further ones that change a third of them, up to so many objects.
void FillServer(const std::string& connection, std::uint32_t files, std::uint64_t objects) {
  const auto store = OpenServer(connection, kRepository);
  Kit::OpenedRepository opened = Kit::Open(store).value();
  std::uint64_t written = 0;
  for (std::uint64_t version = 0; written < objects; ++version) {
    Commit commit(&opened.GetRepository(), false);
    if (const cow_ptr<Commit> head = opened->GetHead()) commit = Commit(head, false);
    Kit::BatchEdit batch;
    for (std::uint32_t file = static_cast<std::uint32_t>(version % 3); file < files;
         file += version == 0 ? 1 : 3) {
      const std::string content = Content(Family::Base, file, version);
      Buffer bytes;
      bytes.Append(content.data(), content.size() / 8);
      batch.AddBlob(Kit::ToWide(Path(file)), Blob(std::move(bytes)));
    }
    batch.ApplyTo(&opened.GetRepository(), commit);
    opened->DoCommit(commit);
    written += Kit::Save(opened).value().writtenObjects;
    opened.Trim();
  }
  std::printf("filled with %llu objects\n", static_cast<unsigned long long>(written));
}

void OpenAndRead(const std::string& connection) {
  std::shared_ptr<Kit::PostgresStore> store;
  PrintSeconds("connect", [&] { store = OpenServer(connection, kRepository); });
  PrintSeconds("open and read a file", [&] {
    Kit::OpenedRepository opened = Kit::Open(store).value();
    const cow_ptr<Commit> head = opened->GetHead();
    if (!head->GetBlob(Kit::ToWide(Path(54321)))) std::abort();
  });
}

int Run(const std::vector<std::string>& arguments) {
  const std::string command = arguments.empty() ? "" : arguments[0];
  if (command == "import" && arguments.size() == 2) {
    std::ofstream out(arguments[1], std::ios::binary);
    WriteFastImport(MakeBenchHistory().repository, out);
    return out.flush() ? 0 : 1;
  }
  if (command == "local" && arguments.size() == 2) {
    MakeLocal(arguments[1]);
  } else if (command == "push" && arguments.size() == 4) {
    Push(arguments[1], arguments[2], arguments[3]);
  } else if (command == "fill" && arguments.size() == 4) {
    FillServer(arguments[1], static_cast<std::uint32_t>(std::stoul(arguments[2])),
               std::stoull(arguments[3]));
  } else if (command == "open" && arguments.size() == 2) {
    OpenAndRead(arguments[1]);
  } else if (command == "connect" && arguments.size() == 2) {
    OpenServer(arguments[1], kRepository);
  } else {
    return 2;
  }
  return 0;
}

}  // namespace
}  // namespace TalVcs::Bench

int main(int count, char** arguments) {
  return TalVcs::Bench::Run(std::vector<std::string>(arguments + 1, arguments + count));
}
