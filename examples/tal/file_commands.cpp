#include "base64.h"
#include "command_line.h"
#include "command_table.h"
#include "json.h"
#include "paths.h"
#include "session.h"

#include <iostream>

namespace Tal {
namespace {

struct PathOptions {
  std::string revision;
  std::string path;
};

FileTree FilesAt(Session& session, const std::string& revision) {
  return revision.empty() ? session.HeadFiles() : session.FilesOf(session.Find(revision).id);
}

[[noreturn]] void ThrowNothingThere(const std::string& path) {
  throw Failure("the commit has nothing at \"" + Printable(path) + "\"; tal ls lists its files");
}

std::vector<std::string> ListPath(const FileTree& files, const std::string& path) {
  if (files.Find(path)) return {path};
  if (!path.empty() && !files.Contains(path)) ThrowNothingThere(path);
  return files.List(path);
}

ExitCode RunLs(const Host& host, const PathOptions& options) {
  Session session(host, Access::Read);
  const FileTree files = FilesAt(session, options.revision);
  const std::vector<std::string> paths = ListPath(files, NormalPath(options.path));
  if (!host.json) {
    for (const std::string& path : paths) std::cout << Printable(path) << '\n';
    return ExitCode::Done;
  }
  JsonWriter json(std::cout);
  json.BeginArray();
  for (const std::string& path : paths) {
    const BlobPtr blob = files.Find(path);
    json.BeginObject();
    json.Key("path").Text(path);
    json.Key("id").Text(ToUtf8(blob->GetId()));
    json.Key("bytes").Number(static_cast<std::int64_t>(blob->GetData().GetSize()));
    if (files.KindOf(path) != FileKind::File) json.Key("kind").Text(Name(files.KindOf(path)));
    json.EndObject();
  }
  json.EndArray();
  return ExitCode::Done;
}

ExitCode RunCat(const Host& host, const PathOptions& options) {
  Session session(host, Access::Read);
  const std::string path = NormalPath(options.path);
  const BlobPtr blob = FilesAt(session, options.revision).Find(path);
  if (!blob) ThrowNothingThere(path);
  const std::string bytes = Kit::BytesFromBlob(*blob);
  if (!host.json) {
    std::cout.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return ExitCode::Done;
  }
  JsonWriter json(std::cout);
  json.BeginObject();
  json.Key("path").Text(path);
  json.Key("id").Text(ToUtf8(blob->GetId()));
  json.Key("bytes").Number(static_cast<std::int64_t>(bytes.size()));
  json.Key("base64").Text(Base64(bytes));
  json.EndObject();
  return ExitCode::Done;
}

}  // namespace

void AddFileCommands(Commands& commands) {
  static constexpr auto kDeclare = [](Command& command, PathOptions& options) {
    command.Json()
        .Argument("path", options.path, "The path, from the top of the folder")
        .Option("-r,--revision", options.revision,
                "The commit, instead of the head of the current branch");
  };
  commands.Add<PathOptions>("ls", "List the files of a commit", RunLs, kDeclare);
  commands.Add<PathOptions>("cat", "Print a file of a commit", RunCat,
                            [](Command& command, PathOptions& options) {
                              kDeclare(command, options);
                              command.Required("path");
                            });
}

}  // namespace Tal
