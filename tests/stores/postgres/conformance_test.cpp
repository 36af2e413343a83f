#include <stores/postgres/postgres_store.h>
#include <tests/kit/store/object_store_suite.h>
#include <tests/stores/postgres/server.h>

#include <chrono>
#include <memory>

namespace TalVcs::Kit {
namespace {

/// Opens a repository of its own again and again.
StoreOpener MakeRepository(PostgresOptions options) {
  options.busyTimeout = std::chrono::milliseconds(20);
  return [name = Testing::NewRepositoryName(), options] {
    return std::make_unique<PostgresStore>(Testing::OpenStore(name, options));
  };
}

INSTANTIATE_TEST_SUITE_P(Postgres, ObjectStoreSuite,
                         testing::Values(StoreKind{[] { return MakeRepository({}); }, true}));

}  // namespace
}  // namespace TalVcs::Kit
