#pragma once

#include <kit/store/opening_store.h>
#include <stores/postgres/internal/background_writes.h>
#include <stores/postgres/internal/lease.h>
#include <stores/postgres/internal/object_table.h>
#include <stores/postgres/internal/session.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace TalVcs::Kit::Postgres {

/// What an open `PostgresStore` is.
class Repository {
 public:
  Repository(const std::string& connection, std::string_view name, PostgresOptions options)
      : m_session(connection, std::string(name), options),
        m_objects(m_session, m_lease, options.compress) {}
  Repository(const Repository&) = delete;
  Repository& operator=(const Repository&) = delete;

  Status Open() { return m_session.Open(); }
  ObjectTable& Objects() noexcept { return m_objects; }
  /// While writes in the background go on, no other function of this class may be called.
  BackgroundWrites& Writes() noexcept { return m_writes; }

  Result<std::vector<Head>> Heads();
  Result<StoreOpening> ReadOpening(std::string_view branch, std::string_view valueName,
                                   std::string_view otherwise);
  Status MoveHeads(std::span<const HeadMove> moves);
  Status List(const IdSink& sink);
  Result<RemovedObjects> RemoveUnmarked(const MarkObjects& mark);
  Result<RemovedObjects> RemoveGradually(const MarkObjects& mark, std::chrono::milliseconds grace);
  Result<std::optional<std::string>> Value(std::string_view name);
  Status SetValue(std::string_view name, std::optional<std::string_view> value);
  Result<std::vector<Head>> WaitForHeads(std::span<const Head> seen,
                                         std::chrono::milliseconds timeout);

 private:
  // Inside an attempt.
  Result<std::vector<Head>> ReadHeads();
  Result<std::vector<Head>> HeadsIn(const Rows& rows) const;
  Status MoveOnce(std::span<const HeadMove> moves, bool& is_sent);
  Status CheckHeads(std::span<const HeadMove> moves, const Rows& rows);
  Result<RemovedObjects> RemoveOnce(const MarkObjects& mark);
  Result<std::vector<ObjectKey>> ListKeys();

  // What a clean-up beside others has marked.
  struct Marked {
    const MarkObjects& mark;
    std::unordered_set<Id> heads;
    std::vector<ObjectKey> keys;  // in order
    bool isBegun = false;         // the mark is called once at least
  };
  Result<std::int64_t> BeginPass();
  Status MarkHeads(const std::vector<Head>& heads, Marked& marked);
  Status CondemnUnmarked(std::int64_t pass, const std::vector<ObjectKey>& listed, Marked& marked);
  Status CondemnOnce(std::int64_t pass, const std::vector<ObjectKey>& listed, Marked& marked,
                     bool mayMark, bool& isDone);
  Result<RemovedObjects> RemoveDue(std::chrono::milliseconds grace);
  Result<RemovedObjects> RemoveDueOnce(std::chrono::milliseconds grace, bool& isDone);

  bool HaveMoved(std::span<const HeadMove> moves, std::span<const Head> actual);
  bool IsDescendant(const Id& id, const Id& ancestor);
  Status WaitForLog();

  Session m_session;
  Lease m_lease;
  ObjectTable m_objects;
  BackgroundWrites m_writes{
      [this](std::span<const StoredObject> objects) { return m_objects.Write(objects); }};
};

}  // namespace TalVcs::Kit::Postgres
