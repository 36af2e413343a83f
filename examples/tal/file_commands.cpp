#include "base64.h"
#include "commands.h"
#include "json.h"

#include <filesystem>
#include <iostream>

namespace Tal {
namespace {

TreePtr TreeOf(const Session& session, TalVcs::Repository& repository,
               const std::string& revision) {
  if (revision.empty() && !session.Head()) return nullptr;
  return RootOf(FindCommit(repository, revision.empty() ? "HEAD" : revision));
}

/// Returns the path as the history has it: "./a//b/" as "a/b".
std::string Normal(const std::string& path) {
  std::string normal = std::filesystem::path(path).lexically_normal().generic_string();
  while (normal.ends_with('/')) normal.pop_back();
  return normal == "." ? "" : normal;
}

[[noreturn]] void ThrowNothingThere(const std::string& path) {
  throw Failure("the commit has nothing at \"" + Printable(path) + "\"; tal ls lists its files");
}

}  // namespace

ExitCode RunLs(const Host& host, const PathOptions& options) {
  Session session(host, Access::Read);
  const TreePtr root = TreeOf(session, session.Repository(), options.revision);
  std::vector<std::string> paths;
  const std::string top = Normal(options.path);
  if (FindBlob(root, top)) {
    paths.push_back(top);
  } else {
    const TreePtr tree = top.empty() || !root ? root : root->GetDeepTree(ToWide(top));
    if (!tree && !top.empty()) ThrowNothingThere(top);
    for (const std::string& path : ListTree(tree))
      paths.push_back(top.empty() ? path : top + "/" + path);
  }

  if (!host.json) {
    for (const std::string& path : paths) std::cout << Printable(path) << '\n';
    return ExitCode::Done;
  }
  JsonWriter json(std::cout);
  json.BeginArray();
  for (const std::string& path : paths) {
    const BlobPtr blob = FindBlob(root, path);
    json.BeginObject();
    json.Key("path").Text(path);
    json.Key("id").Text(ToUtf8(blob->GetId()));
    json.Key("bytes").Number(static_cast<std::int64_t>(blob->GetData().GetSize()));
    json.EndObject();
  }
  json.EndArray();
  return ExitCode::Done;
}

ExitCode RunCat(const Host& host, const PathOptions& options) {
  Session session(host, Access::Read);
  const TreePtr root = TreeOf(session, session.Repository(), options.revision);
  const std::string path = Normal(options.path);
  const BlobPtr blob = FindBlob(root, path);
  if (!blob) ThrowNothingThere(path);
  const std::string bytes = TalVcs::Kit::BytesFromBlob(*blob);
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

}  // namespace Tal
