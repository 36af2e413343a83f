// A program that works on a shared repository, for the tests that kill it, its connection or its
// server. It prints a line for each edit that was acknowledged.

#include <kit/open/clean_up.h>
#include <kit/text.h>
#include <stores/postgres/postgres_store.h>
#include <talvcs/persistence/packed_object.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

using namespace TalVcs;

namespace {

constexpr std::string_view kBranch = "master";

Kit::StoredObject Pack(const std::string& type, const std::string& content) {
  std::string bytes = type + " " + std::to_string(content.size());
  bytes += '\0';
  bytes += content;
  Buffer packed;
  packed.Append(bytes.data(), bytes.size());
  return {Id(packed), packed};
}

int Fail(const Kit::Error& error) {
  std::fprintf(stderr, "%s %s\n", Kit::ToString(error.code), Kit::Describe(error).c_str());
  return 1;
}

Kit::Result<Id> HeadOf(Kit::IObjectStore& store, std::string_view branch) {
  const Kit::Result<std::vector<Kit::Head>> heads = store.Heads();
  if (!heads) return heads.error();
  for (const Kit::Head& head : *heads) {
    if (head.name == branch) return head.id;
  }
  return Id();
}

/// Saves a commit of that message on top of the branch, with no tree, as often as it takes.
Kit::Status Edit(Kit::IObjectStore& store, std::string_view branch, const std::string& message) {
  for (;;) {
    const Kit::Result<Id> head = HeadOf(store, branch);
    if (!head) return head.error();
    std::string text = "tree \n";
    if (!head->View().IsEmpty()) text += "parent " + Kit::ToUtf8(head->View()) + "\n";
    text += "author A <a> 0 +0000\ncommitter A <a> 0 +0000\n\n" + message + "\n";
    const Kit::StoredObject commit = Pack("commit", text);
    Kit::Status status = store.Write({&commit, 1});
    if (!status) return status;
    const Kit::HeadMove move{std::string(branch), *head, commit.id};
    status = store.MoveHeads({&move, 1});
    if (status) return status;
    const Kit::ErrorCode code = status.error().code;
    if (code != Kit::ErrorCode::Conflict && code != Kit::ErrorCode::Busy) return status;
  }
}

/// edit NAME FIRST COUNT BRANCH: saves commits "NAME.FIRST" and so on.
int EditMany(Kit::IObjectStore& store, const std::string& name, int first, int count,
             const std::string& branch) {
  for (int number = first; number < first + count; ++number) {
    const std::string message = name + "." + std::to_string(number);
    if (const Kit::Status status = Edit(store, branch, message); !status) {
      // Whether it has happened is to be seen in the history.
      return Fail(status.error());
    }
    std::printf("%s\n", message.c_str());
    std::fflush(stdout);
  }
  return 0;
}

/// log BRANCH: prints the messages of the history, newest first.
int Log(Kit::IObjectStore& store, std::string_view branch) {
  const Kit::Result<Id> head = HeadOf(store, branch);
  if (!head) return Fail(head.error());
  if (head->View().IsEmpty()) return 0;
  int result = 0;
  const Kit::Status status =
      store.ReadHistory(*head, 1000000, [&](const Id& id, Kit::Result<Buffer> packed) {
        if (!packed || CheckPackedObject(id, *packed)) {
          std::fprintf(stderr, "hole\n");
          result = 3;
          return;
        }
        std::string text(static_cast<std::size_t>(packed->GetSize()), '\0');
        packed->ReadAt(0, text.data(), text.size());
        std::printf("%s", text.c_str() + text.find("\n\n") + 2);
      });
  return status ? result : Fail(status.error());
}

/// churn BRANCH COUNT: makes the branch and removes it again, so many times. Its commits are always
/// the same ones, so others may have written them, and they may be condemned.
int Churn(Kit::IObjectStore& store, const std::string& branch, int count) {
  for (int round = 0; round < count; ++round) {
    for (const std::string message : {"first", "second", "third"}) {
      if (const Kit::Status status = Edit(store, branch, message); !status) {
        return Fail(status.error());
      }
    }
    const Kit::Result<Id> head = HeadOf(store, branch);
    if (!head) return Fail(head.error());
    const Kit::HeadMove removal{branch, *head, Id()};
    if (const Kit::Status status = store.MoveHeads({&removal, 1}); !status) {
      return Fail(status.error());
    }
  }
  return 0;
}

/// read COUNT: reads the histories of all branches, so many times.
int ReadAll(Kit::IObjectStore& store, int count) {
  for (int round = 0; round < count; ++round) {
    const Kit::Result<std::vector<Kit::Head>> heads = store.Heads();
    if (!heads) return Fail(heads.error());
    for (const Kit::Head& head : *heads) {
      std::optional<Kit::Error> hole;
      const Kit::Status status =
          store.ReadHistory(head.id, 100, [&](const Id&, Kit::Result<Buffer> packed) {
            if (!packed) hole = packed.error();
          });
      if (!status) return Fail(status.error());
      if (hole) return Fail(*hole);
    }
  }
  return 0;
}

/// clean GRACE: removes what no branch reaches, once.
int CleanUp(Kit::IObjectStore& store, int grace) {
  const auto removed = Kit::CleanUpGradually(store, {.grace = std::chrono::milliseconds(grace)});
  if (!removed) return Fail(removed.error());
  std::printf("%llu\n", static_cast<unsigned long long>(removed->count));
  return 0;
}

std::vector<Kit::StoredObject> GarbageOf(const std::string& name, int count) {
  std::vector<Kit::StoredObject> objects;
  for (int number = 0; number < count; ++number) {
    objects.push_back(Pack("blob", name + "." + std::to_string(number)));
  }
  return objects;
}

/// garbage NAME COUNT: writes objects that no branch will reach.
int WriteGarbage(Kit::IObjectStore& store, const std::string& name, int count) {
  const Kit::Status status = store.Write(GarbageOf(name, count));
  return status ? 0 : Fail(status.error());
}

/// upload NAME COUNT: writes such objects in three lists, and a branch of that name, while the next
/// list is made. Begins again if the save is refused.
int Upload(Kit::PostgresStore& store, const std::string& name, int count) {
  for (;;) {
    const std::vector<Kit::StoredObject> objects = GarbageOf(name, count);
    Kit::Status status;
    for (std::size_t part = 0; status && part < 3; ++part) {
      const std::size_t begin = objects.size() * part / 3;
      const std::size_t end = objects.size() * (part + 1) / 3;
      status = store.BeginWrite({&objects[begin], &objects[begin] + (end - begin)});
    }
    const Kit::HeadMove move{name, Id(), objects.back().id};
    if (status) status = store.MoveHeads({&move, 1});
    if (status) return 0;
    store.DropWrites();
    if (status.error().code != Kit::ErrorCode::Busy) return Fail(status.error());
  }
}

/// count NAME COUNT: prints how many of these objects can be read.
int CountGarbage(Kit::IObjectStore& store, const std::string& name, int count) {
  std::vector<Id> ids;
  for (const Kit::StoredObject& object : GarbageOf(name, count)) ids.push_back(object.id);
  int found = 0;
  const Kit::Status status = store.Read(ids, [&](const Id& id, const Kit::Result<Buffer>& packed) {
    found += packed && Id(*packed) == id ? 1 : 0;
  });
  std::printf("%d\n", found);
  return status ? 0 : Fail(status.error());
}

/// resume NAME: writes an object, waits for a line, and goes on with a second one and a branch that
/// names it. Prints how the second write went, and how many of both were missing then.
int Resume(Kit::IObjectStore& store, const std::string& name) {
  const std::vector<Kit::StoredObject> objects = GarbageOf(name, 2);
  const std::span<const Kit::StoredObject> both(objects);
  if (const Kit::Status status = store.Write(both.first(1)); !status) return Fail(status.error());
  std::printf("written\n");
  std::fflush(stdout);
  std::getchar();
  Kit::Status status = store.Write(both.last(1));
  const std::string outcome = status ? "Done" : Kit::ToString(status.error().code);
  const Kit::Result<std::vector<Id>> missing = store.Missing({{objects[0].id, objects[1].id}});
  if (!missing) return Fail(missing.error());
  std::printf("%s %zu\n", outcome.c_str(), missing->size());
  status = store.Write(both);
  const Kit::HeadMove move{name, Id(), objects[1].id};
  if (status) status = store.MoveHeads({&move, 1});
  return status ? 0 : Fail(status.error());
}

}  // namespace

/// Usage: worker CONNECTION REPOSITORY COMMAND ARGUMENT...
int main(int count, char** values) {
  const std::vector<std::string> arguments(values + 1, values + count);
  if (arguments.size() < 3) return 2;
  Kit::Result<Kit::PostgresStore> store = Kit::PostgresStore::Open(
      arguments[0], arguments[1],
      {.busyTimeout = std::chrono::seconds(20), .connectTimeout = std::chrono::seconds(20)});
  if (!store) return Fail(store.error());
  const std::string& command = arguments[2];
  const auto number = [&](std::size_t index) { return std::atoi(arguments.at(index).c_str()); };
  if (command == "edit") {
    const std::string branch = arguments.size() > 6 ? arguments[6] : std::string(kBranch);
    return EditMany(*store, arguments.at(3), number(4), number(5), branch);
  }
  if (command == "log") return Log(*store, arguments.size() > 3 ? arguments[3] : kBranch);
  if (command == "churn") return Churn(*store, arguments.at(3), number(4));
  if (command == "read") return ReadAll(*store, number(3));
  if (command == "clean") return CleanUp(*store, number(3));
  if (command == "garbage") return WriteGarbage(*store, arguments.at(3), number(4));
  if (command == "upload") return Upload(*store, arguments.at(3), number(4));
  if (command == "resume") return Resume(*store, arguments.at(3));
  if (command == "count") return CountGarbage(*store, arguments.at(3), number(4));
  return 2;
}
