#pragma once

#include "changes.h"
#include "history.h"
#include "terminal.h"

#include <kit/text/json_writer.h>

#include <string>
#include <string_view>
#include <vector>

namespace Tal {

/// How times are printed: as dates, or as ages such as "3 days ago".
enum class Times { Dates, Ages };

/// Writes a version's head lines and message as text.
void PrintVersion(const Terminal& terminal, const Kit::Version& version,
                  Times times = Times::Dates);

/// Writes a version's fields as members of the object that is open.
void PrintVersionFields(Kit::JsonWriter& json, Session& session, const Kit::Version& version);

/// Returns the description of a version for people and for JSON: the message without a line end.
std::string DescriptionOf(const Kit::Version& version);

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
void PrintFileDiffJson(Kit::JsonWriter& json, const FileSides& sides);

/// Writes a change as a line of text, or as an object.
void PrintChange(const Terminal& terminal, const Change& change);
void PrintChangeJson(Kit::JsonWriter& json, const Change& change);

}  // namespace Tal
