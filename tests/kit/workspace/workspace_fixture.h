#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kit/store/memory_object_store.h>
#include <kit/workspace/workspace.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// Workspaces on a store in memory, whose clock goes on by a minute for each version.
namespace TalVcs::Testing {

/// Paths and texts.
using FileTexts = std::map<std::string, std::string>;

/// Returns all files of a workspace or a snapshot.
template <class Source>
FileTexts FilesOf(const Source& source) {
  FileTexts files;
  for (const std::string& path : source.ListFiles().value()) {
    files.emplace(path, source.Read(path).value().text());
  }
  return files;
}

class WorkspaceTest : public testing::Test {
 protected:
  using Seconds = std::chrono::seconds;
  using Version = Kit::Version;

  WorkspaceTest() : workspace(OpenAgain()) {}

  /// Opens another workspace on the store.
  Kit::Workspace OpenAgain(const std::string& author = {}) {
    Kit::WorkspaceOptions options;
    options.author = author;
    options.clock = [this] { return now += Seconds(60); };
    return Kit::Workspace::Open(store, options).value();
  }

  /// Writes files, removes those without bytes, and makes a version of that.
  static Version CommitFiles(Kit::Workspace& target, const FileTexts& files,
                             const std::string& message, const std::string& author = {}) {
    for (const auto& [path, text] : files) {
      if (text.empty()) {
        target.Remove(path).value();
      } else {
        target.Write(path, text).value();
      }
    }
    return target.Commit(message, {.author = author}).value().value();
  }
  Version CommitFiles(const FileTexts& files, const std::string& message) {
    return CommitFiles(workspace, files, message);
  }

  /// Returns the summaries of a log, newest first.
  static std::vector<std::string> Summaries(const Kit::Workspace& of,
                                            const Kit::LogOptions& options = {}) {
    std::vector<std::string> summaries;
    for (const Version& version : of.Log(options).value()) summaries.push_back(version.summary);
    return summaries;
  }

  std::chrono::sys_seconds now = std::chrono::sys_seconds(Seconds(1000000000));
  std::shared_ptr<Kit::MemoryObjectStore> store = std::make_shared<Kit::MemoryObjectStore>();
  Kit::Workspace workspace;
};

/// Matches a result or status that has failed with a code.
MATCHER_P(FailsWith, code, "") {
  if (arg.ok()) return false;
  *result_listener << Kit::Describe(arg.error());
  return arg.error().code == code;
}

}  // namespace TalVcs::Testing
