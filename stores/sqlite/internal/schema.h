#pragma once

#include <kit/text/result.h>

namespace TalVcs::Kit::Sqlite {

class Database;

/// Checks that the file is a document of a version that this build knows, with the tables of that
/// version. Makes an empty file a new document if `create` says so. In a host's database, only the
/// tables with the store's prefix count.
///
/// Fails with `Unsupported` for another application's file and for a newer version, with `NotFound`
/// for an empty file that isn't to be made a document, with `Damaged` for other tables than those
/// of a document.
Status PrepareSchema(Database& database, bool create);

/// Brings the tables up to the version of this build. Needs a write transaction. Cost: independent
/// of the size of the document.
Status UpdateSchema(Database& database);

}  // namespace TalVcs::Kit::Sqlite
