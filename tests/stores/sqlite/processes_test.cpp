#ifndef _WIN32

#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/store/document_processes.h>

namespace TalVcs::Kit {

INSTANTIATE_TYPED_TEST_SUITE_P(Sqlite, DocumentProcesses, SqliteStore);

}  // namespace TalVcs::Kit

#endif
