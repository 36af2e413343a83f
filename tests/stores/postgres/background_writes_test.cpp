// Writes of a store on a PostgreSQL server that were to go on in the background, on a system that
// has no thread for them.

#if defined(__linux__)

#include <gtest/gtest.h>
#include <pthread.h>
#include <stores/postgres/postgres_store.h>
#include <tests/stores/postgres/server.h>
#include <tests/support/bytes.h>

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

namespace TalVcs::Kit {
namespace {

using Testing::BufferOf;

/// Lets the system refuse each new thread, for whose stack there is no room.
class WithoutThreads {
 public:
  WithoutThreads() {
    constexpr std::size_t kPage = std::size_t{1} << 16;
    pthread_getattr_default_np(&m_former);
    pthread_attr_t huge;
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, std::numeric_limits<std::size_t>::max() / 2 / kPage * kPage);
    pthread_setattr_default_np(&huge);
    pthread_attr_destroy(&huge);
  }
  WithoutThreads(const WithoutThreads&) = delete;
  WithoutThreads& operator=(const WithoutThreads&) = delete;
  ~WithoutThreads() {
    pthread_setattr_default_np(&m_former);
    pthread_attr_destroy(&m_former);
  }

 private:
  pthread_attr_t m_former{};
};

StoredObject ObjectOf(std::string_view packed) {
  const Buffer buffer = BufferOf(packed);
  return {Id(buffer), buffer};
}

class PostgresWithoutThreads : public testing::Test {
 protected:
  void SetUp() override {
    EXPECT_THROW(std::thread([] {}).join(), std::system_error) << "the system has threads";
  }

  const StoredObject m_one = ObjectOf("blob 3 one");
  const std::string m_name = Testing::NewRepositoryName();
  PostgresStore m_store = Testing::OpenStore(m_name, {});
  const WithoutThreads m_none;
};

TEST_F(PostgresWithoutThreads, BegunWriteIsDoneWhenTheCallReturns) {
  ASSERT_TRUE(m_store.BeginWrite({m_one}).ok());
  PostgresStore other = Testing::OpenStore(m_name, {});
  EXPECT_TRUE(other.Missing({&m_one.id, 1}).value().empty());
  EXPECT_TRUE(m_store.FinishWrites().ok());
  EXPECT_TRUE(m_store.MoveHeads({{HeadMove{"master", Id(), m_one.id}}}).ok());
}

TEST_F(PostgresWithoutThreads, FailureOfABegunWriteIsReturnedAndStays) {
  EXPECT_EQ(m_store.BeginWrite({{Id(), m_one.packed}}).error().code, ErrorCode::BadName);
  EXPECT_EQ(m_store.Heads().error().code, ErrorCode::BadName);
  EXPECT_EQ(m_store.FinishWrites().error().code, ErrorCode::BadName);
  EXPECT_TRUE(m_store.Heads().value().empty());
}

}  // namespace
}  // namespace TalVcs::Kit

#endif
