#pragma once

#include "failure.h"
#include "session.h"

#include <cstddef>
#include <string>
#include <vector>

/// The commands of the program, one function each. They throw `Failure` where they can't go on.
namespace Tal {

struct CommitOptions {
  std::string message;
  std::string author;
  std::string email;
  bool allowEmpty = false;
};

struct LogOptions {
  std::string start;
  std::size_t limit = 0;  ///< 0 for all
  bool all = false;
  bool graph = false;
};

struct PathOptions {
  std::string revision;
  std::string path;
};

struct DiffOptions {
  std::vector<std::string> sides;
  bool namesOnly = false;
};

struct BranchOptions {
  std::string name;
  std::string start;
  bool remove = false;
};

struct SwitchOptions {
  std::string name;
  bool create = false;
  bool restore = false;
};

struct MergeOptions {
  std::string branch;
  std::string newest;  ///< path of the file that holds the time
  bool ours = false;
  bool theirs = false;
  bool base = false;
  bool interactive = false;
  bool dryRun = false;
  std::string author;
  std::string email;
};

struct RebaseOptions {
  std::string onto;
  std::string branch;
  std::string other;
};

struct GraphOptions {
  bool dot = false;
  bool svg = false;
  std::string output;
};

ExitCode RunInit(const Host& host);
ExitCode RunStatus(const Host& host);
ExitCode RunCommit(const Host& host, const CommitOptions& options);

ExitCode RunLog(const Host& host, const LogOptions& options);
ExitCode RunGraph(const Host& host, const GraphOptions& options);
ExitCode RunShow(const Host& host, const std::string& revision);
ExitCode RunLs(const Host& host, const PathOptions& options);
ExitCode RunCat(const Host& host, const PathOptions& options);
ExitCode RunDiff(const Host& host, const DiffOptions& options);

ExitCode RunBranch(const Host& host, const BranchOptions& options);
ExitCode RunSwitch(const Host& host, const SwitchOptions& options);
ExitCode RunMerge(const Host& host, const MergeOptions& options);

ExitCode RunRebase(const Host& host, const RebaseOptions& options);
ExitCode RunForget(const Host& host, const std::string& revision);
ExitCode RunSimplify(const Host& host);
ExitCode RunCollect(const Host& host);

ExitCode RunVerify(const Host& host);
ExitCode RunStat(const Host& host);

}  // namespace Tal
