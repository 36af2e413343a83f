#include "command_line.h"
#include "command_table.h"
#include "history.h"
#include "interrupt.h"
#include "paths.h"
#include "session.h"

#include <kit/diff/blame.h>
#include <kit/text/base64.h>
#include <kit/text/json_writer.h>

#include <iostream>
#include <optional>

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

/// Throws why there is no file at a path.
[[noreturn]] void ThrowNoFile(const FileTree& files, const std::string& path) {
  if (path.empty() || files.Contains(path))
    throw Failure("\"" + (path.empty() ? "." : Printable(path)) +
                  "\" is a folder, not a file; tal ls lists its files");
  ThrowNothingThere(path);
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
    for (const std::string& path : paths) {
      StopIfInterrupted();
      std::cout << Printable(path) << '\n';
    }
    return ExitCode::Done;
  }
  Kit::JsonWriter json(std::cout);
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
  const FileTree files = FilesAt(session, options.revision);
  const BlobPtr blob = files.Find(path);
  if (!blob) ThrowNoFile(files, path);
  const std::string bytes = Kit::BytesFromBlob(*blob);
  if (!host.json) {
    std::cout.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return ExitCode::Done;
  }
  Kit::JsonWriter json(std::cout);
  json.BeginObject();
  json.Key("path").Text(path);
  json.Key("id").Text(ToUtf8(blob->GetId()));
  json.Key("bytes").Number(static_cast<std::int64_t>(bytes.size()));
  json.Key("base64").Text(Kit::EncodeBase64(bytes));
  json.EndObject();
  return ExitCode::Done;
}

/// Returns the texts of a file, from a version on, one call after another.
Kit::NextOlderVersion OlderTexts(Session& session, std::vector<Kit::Version> versions,
                                 const std::string& path) {
  return [&session, path, versions = std::move(versions),
          at = std::size_t{0}]() mutable -> Kit::Result<std::optional<Kit::TextVersion>> {
    if (at == versions.size()) return std::optional<Kit::TextVersion>();
    const Kit::Version& version = versions[at++];
    const Kit::Snapshot files = session.Document().At(version.id).value();
    const BlobPtr blob = files.GetTree()->GetDeepBlob(ToWide(path));
    if (!blob) return std::optional<Kit::TextVersion>();
    return std::optional(Kit::TextVersion{IdOf(version), Kit::BytesFromBlob(*blob)});
  };
}

ExitCode RunBlame(const Host& host, const PathOptions& options) {
  Session session(host, Access::Read);
  const Kit::Version start = session.FindOrHead(options.revision);
  const std::string path = NormalPath(options.path);
  const FileTree files = session.FilesOf(start.id);
  const BlobPtr blob = files.Find(path);
  if (!blob) ThrowNoFile(files, path);
  if (Kit::IsBinary(Kit::BytesFromBlob(*blob)))
    throw Failure("\"" + Printable(path) + "\" is not text, so it has no lines");
  const std::vector<Kit::Version> versions =
      session.Document().Log({.from = start.id, .path = path, .limit = UINT64_MAX}).value();
  const Kit::Blame blame =
      Kit::BlameText(OlderTexts(session, versions, path), {.progress = ShowProgress(host.terminal)})
          .value();
  Kit::ShortIds ids(session.Document());
  for (const Kit::Version& version : versions) ids.Add(version.id);
  std::optional<Kit::JsonWriter> json;
  if (host.json) json.emplace(std::cout).BeginArray();
  for (std::size_t i = 0; i < blame.lines.size(); ++i) {
    StopIfInterrupted();
    const Kit::BlamedLine& line = blame.lines[i];
    const Kit::Version& version = versions[line.version];
    std::string_view text = line.text;
    if (text.ends_with('\n')) text.remove_suffix(1);
    if (json) {
      json->BeginObject();
      json->Key("line").Number(static_cast<std::int64_t>(i) + 1);
      json->Key("commit").Text(IdOf(version));
      json->Key("author").Text(version.author);
      json->Key("time").Text(FormatTime(version));
      json->Key("text").Text(text);
      json->EndObject();
    } else {
      std::cout << host.terminal.Paint(Colour::Yellow, ids.Of(version.id)) << ' '
                << Printable(version.author) << ' ' << FormatTime(version).substr(0, 10) << ' '
                << i + 1 << ") " << Printable(text) << '\n';
    }
  }
  if (json) json->EndArray();
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
  commands.Add<PathOptions>("blame", "Show which commit has added each line of a file", RunBlame,
                            [](Command& command, PathOptions& options) {
                              kDeclare(command, options);
                              command.Required("path");
                            });
}

}  // namespace Tal
