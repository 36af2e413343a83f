#pragma once

#include "changes.h"
#include "history.h"
#include "json.h"
#include "terminal.h"

#include <string>
#include <string_view>
#include <vector>

namespace Tal {

/// Writes a commit's head lines as text, or its fields as members of the object that is open.
void PrintCommit(const Terminal& terminal, const HistoryCommit& commit);
void PrintCommitFields(JsonWriter& json, const TalVcs::Commit& commit,
                       const std::vector<std::string>& branches);

/// The two contents of a changed file. A side that has no file has no id and no bytes.
struct FileSides {
  Change change;
  std::string beforeId;
  std::string afterId;
  std::string before;
  std::string after;
};

/// Writes the lines that differ, with a few lines around them.
void PrintFileDiff(const Terminal& terminal, const FileSides& sides);

/// Writes the file's path, kind of change, ids and counts of lines as an object.
void PrintFileDiffJson(JsonWriter& json, const FileSides& sides);

}  // namespace Tal
