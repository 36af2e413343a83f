#pragma once

#include <kit/text/result.h>

namespace TalVcs::Kit::Sqlite {

class Database;

/// Checks that the file is a document of a version that this build knows. Makes an empty file a new
/// document if `create` says so.
///
/// Fails with `Unsupported` for another application's file and for a newer version, with `NotFound`
/// for an empty file that isn't to be made a document.
Status PrepareSchema(Database& database, bool create);

}  // namespace TalVcs::Kit::Sqlite
