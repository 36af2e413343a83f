#include "server_store.h"

#include "failure.h"
#include "interrupt.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace Tal {
namespace {

/// Returns the arguments of this process.
std::vector<std::string> Arguments() {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  std::vector<std::string> arguments;
  for (std::size_t at = 0; at < text.size(); at += arguments.back().size() + 1)
    arguments.emplace_back(text.c_str() + at);
  return arguments;
}

/// Returns the program with stores on servers: beside this one, or where it is installed. Empty if
/// this build has none.
fs::path FindServerProgram() {
  std::error_code error;
  const fs::path folder = fs::read_symlink("/proc/self/exe", error).parent_path();
  for (const fs::path& path : {folder / "tal-servers", folder / TAL_SERVERS_FROM_TAL}) {
    if (!error && access(path.c_str(), X_OK) == 0) return path;
  }
  return {};
}

}  // namespace

std::shared_ptr<TalVcs::Kit::IObjectStore> OpenServer(const std::string&) {
  const fs::path program = FindServerProgram();
  std::vector<std::string> arguments = Arguments();
  if (!program.empty() && !arguments.empty()) {
    StopIfInterrupted();
    std::vector<char*> words;
    for (std::string& argument : arguments) words.push_back(argument.data());
    words.push_back(nullptr);
    execv(program.c_str(), words.data());
  }
  throw Failure("cannot open the remote: this build has no stores on PostgreSQL servers",
                ExitCode::Usage);
}

}  // namespace Tal
