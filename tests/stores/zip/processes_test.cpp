#include <stores/zip/zip_store.h>
#include <tests/kit/store/document_processes.h>

namespace TalVcs::Kit {

INSTANTIATE_TYPED_TEST_SUITE_P(Zip, DocumentProcesses, ZipStore);

}  // namespace TalVcs::Kit
