#include <stores/postgres/internal/statements.h>

// $1 is the number of the repository wherever there is one. A join with the ids of an array looks
// into one partition for each id.

namespace TalVcs::Kit::Postgres {

const char* TextOf(Sql statement) noexcept {
  switch (statement) {
    case Sql::Begin:
      return "BEGIN ISOLATION LEVEL READ COMMITTED";
    case Sql::Commit:
      return "COMMIT";
    case Sql::Rollback:
    case Sql::Count:
      return "ROLLBACK";
    // A plan for the ids of one call would be made again by each call, and reads whole tables where
    // looking for each id is faster. A server, database or role that doesn't wait for the disk
    // would lose heads that were acknowledged.
    case Sql::SetUp:
      return "SELECT set_config('lock_timeout', $1, false), "
             "set_config('plan_cache_mode', 'force_generic_plan', false), "
             "set_config('synchronous_commit', coalesce(nullif("
             "current_setting('synchronous_commit'), 'off'), 'on'), false)";

    case Sql::ReadVersion:
      return "SELECT version FROM talvcs.meta";
    case Sql::FindSchema:
      return "SELECT 1 FROM pg_catalog.pg_namespace WHERE nspname = 'talvcs'";
    case Sql::FindRepository:
      return "SELECT number FROM talvcs.repositories WHERE name = $1";
    case Sql::InsertRepository:
      return "INSERT INTO talvcs.repositories (name) VALUES ($1) ON CONFLICT DO NOTHING";
    case Sql::ReadState:
      return "SELECT epoch, removals FROM talvcs.repositories WHERE number = $1";
    case Sql::LockShared:
      return "SELECT epoch, removals, pass FROM talvcs.repositories WHERE number = $1 FOR SHARE";
    // For this transaction alone. The next one that waits for the disk, or a standby, waits for
    // this one as well: the log of the server is in one order.
    case Sql::CommitLater:
      return "SELECT set_config('synchronous_commit', 'off', true)";
    case Sql::LockExclusive:
      return "SELECT epoch, removals FROM talvcs.repositories WHERE number = $1 FOR UPDATE";
    case Sql::BeginPass:
      return "UPDATE talvcs.repositories SET pass = pass + 1 WHERE number = $1 RETURNING pass";
    case Sql::RaiseEpoch:
      return "UPDATE talvcs.repositories SET epoch = epoch + 1 WHERE number = $1";
    case Sql::RaiseRemovals:
      return "UPDATE talvcs.repositories SET epoch = epoch + 1, removals = removals + 1 "
             "WHERE number = $1";

    case Sql::FindMissing:
      return "SELECT w.id FROM unnest($2) AS w (id) WHERE NOT EXISTS (SELECT FROM talvcs.objects o "
             "WHERE o.repository = $1 AND o.id = w.id) OR EXISTS (SELECT FROM talvcs.condemned c "
             "WHERE c.repository = $1 AND c.id = w.id)";
    case Sql::ReadObjects:
      return "SELECT o.id, o.size, o.pieces, o.data FROM unnest($2) AS w (id) "
             "JOIN talvcs.objects o ON o.repository = $1 AND o.id = w.id";
    case Sql::ReadPieces:
      return "SELECT piece, data FROM talvcs.pieces WHERE repository = $1 AND id = $2 "
             "AND piece >= $3 AND piece < $4 ORDER BY piece";
    // $3 is the most commits. One whose parent isn't in its row ends the line: it has none, it is
    // large, or an older version of the store has written it.
    case Sql::ReadHistory:
      return "WITH RECURSIVE line (id, depth) AS (SELECT $2, 1::int8 UNION ALL "
             "SELECT o.parent, l.depth + 1 FROM line l JOIN talvcs.objects o "
             "ON o.repository = $1 AND o.id = l.id WHERE o.parent IS NOT NULL AND l.depth < $3) "
             "SELECT o.id, o.size, o.pieces, o.data FROM line l JOIN talvcs.objects o "
             "ON o.repository = $1 AND o.id = l.id ORDER BY l.depth";
    // $2 is the name of a branch, which is empty for the one that the setting with the key $3
    // names, or else $4. Returns its head and the root of that.
    case Sql::ReadOpened:
      return "WITH head (id) AS (SELECT target FROM talvcs.heads WHERE repository = $1 AND name = "
             "CASE WHEN $2 <> '' THEN $2 ELSE coalesce((SELECT value FROM talvcs.settings "
             "WHERE repository = $1 AND key = $3), $4) END), "
             "wanted (id) AS (SELECT id FROM head UNION ALL SELECT o.root FROM head h "
             "JOIN talvcs.objects o ON o.repository = $1 AND o.id = h.id) "
             "SELECT o.id, o.size, o.pieces, o.data FROM wanted w "
             "JOIN talvcs.objects o ON o.repository = $1 AND o.id = w.id WHERE o.pieces = 0";
    case Sql::ReadSizes:
      return "SELECT o.id, o.size FROM unnest($2) AS w (id) "
             "JOIN talvcs.objects o ON o.repository = $1 AND o.id = w.id";
    case Sql::ListObjects:
      return "SELECT id FROM talvcs.objects WHERE repository = $1 AND id > $2 ORDER BY id LIMIT $3";
    case Sql::ListNewObjects:
      return "SELECT id FROM talvcs.objects WHERE repository = $1 AND pass >= $2";

    // $3 is the epoch of the writer's lease, or -1 for a writer that has none yet. Mostly nothing
    // is condemned, and the server needn't look for each id.
    case Sql::SaveCondemned:
      return "DELETE FROM talvcs.condemned c USING unnest($2) AS w (id) WHERE c.repository = $1 "
             "AND c.id = w.id AND EXISTS (SELECT FROM talvcs.condemned WHERE repository = $1) "
             "AND ($3 < 0 OR $3 = (SELECT epoch FROM talvcs.repositories WHERE number = $1))";
    // $7 is the epoch of the lease. What an old lease adds is condemned from the beginning.
    case Sql::InsertObjects:
      return "WITH added AS (INSERT INTO talvcs.objects "
             "(repository, id, pass, size, pieces, data, parent, root) "
             "SELECT $1, n.id, (SELECT pass FROM talvcs.repositories WHERE number = $1), n.size, "
             "0, n.data, nullif(n.parent, ''), nullif(n.root, '') "
             "FROM unnest($2, $3, $4, $5, $6) AS n (id, size, data, parent, root) "
             "ON CONFLICT DO NOTHING RETURNING id) "
             "INSERT INTO talvcs.condemned (repository, id, since) "
             "SELECT $1, a.id, clock_timestamp() FROM added a WHERE $7 >= 0 AND $7 <> (SELECT "
             "epoch "
             "FROM talvcs.repositories WHERE number = $1) ON CONFLICT DO NOTHING";
    // Fails if an object is there.
    case Sql::CopyObjects:
      return "COPY talvcs.objects (repository, id, pass, size, pieces, data, parent, root) "
             "FROM STDIN WITH (FORMAT binary)";
    case Sql::InsertLarge:
      return "WITH added AS (INSERT INTO talvcs.objects (repository, id, pass, size, pieces) "
             "SELECT $1, $2, pass, $3, $4 FROM talvcs.repositories WHERE number = $1 "
             "ON CONFLICT DO NOTHING RETURNING id), "
             "doomed AS (INSERT INTO talvcs.condemned (repository, id, since) "
             "SELECT $1, a.id, clock_timestamp() FROM added a WHERE $5 >= 0 AND $5 <> (SELECT "
             "epoch "
             "FROM talvcs.repositories WHERE number = $1) ON CONFLICT DO NOTHING) "
             "SELECT id FROM added";
    case Sql::InsertPieces:
      return "INSERT INTO talvcs.pieces (repository, id, piece, data) "
             "SELECT $1, $2, n.piece, n.data FROM unnest($3, $4) AS n (piece, data)";

    case Sql::CountLive:
      return "SELECT count(*) FROM unnest($2) AS w (id) JOIN talvcs.objects o "
             "ON o.repository = $1 AND o.id = w.id WHERE NOT EXISTS (SELECT FROM talvcs.condemned "
             "c "
             "WHERE c.repository = $1 AND c.id = w.id)";
    case Sql::CountThere:
      return "SELECT count(*) FROM unnest($2) AS w (id) JOIN talvcs.objects o "
             "ON o.repository = $1 AND o.id = w.id";

    case Sql::Condemn:
      return "INSERT INTO talvcs.condemned (repository, id, since) "
             "SELECT $1, w.id, clock_timestamp() FROM unnest($2) AS w (id) ON CONFLICT DO NOTHING";
    // $2 is the grace in milliseconds. The inner select keeps the number small, the outer condition
    // is checked again for a row that another transaction has changed.
    case Sql::TakeDue:
      return "DELETE FROM talvcs.condemned c USING (SELECT id FROM talvcs.condemned "
             "WHERE repository = $1 AND since <= clock_timestamp() - $2 * interval '1 millisecond' "
             "ORDER BY id LIMIT $3) d WHERE c.repository = $1 AND c.id = d.id "
             "AND c.since <= clock_timestamp() - $2 * interval '1 millisecond' RETURNING c.id";
    case Sql::ForgetCondemned:
      return "DELETE FROM talvcs.condemned c USING unnest($2) AS w (id) "
             "WHERE c.repository = $1 AND c.id = w.id";
    case Sql::DeletePieces:
      return "DELETE FROM talvcs.pieces p USING unnest($2) AS w (id) "
             "WHERE p.repository = $1 AND p.id = w.id";
    case Sql::DeleteObjects:
      return "WITH gone AS (DELETE FROM talvcs.objects o USING unnest($2) AS w (id) "
             "WHERE o.repository = $1 AND o.id = w.id RETURNING o.size) "
             "SELECT count(*), coalesce(sum(size), 0)::int8 FROM gone";

    case Sql::ReadHeads:
      return "SELECT name, target FROM talvcs.heads WHERE repository = $1 ORDER BY name";
    case Sql::LockHeads:
      return "SELECT key, target FROM talvcs.heads WHERE repository = $1 AND key = ANY ($2) "
             "ORDER BY key FOR UPDATE";
    case Sql::InsertHeads:
      return "INSERT INTO talvcs.heads (repository, key, name, target) "
             "SELECT $1, n.key, n.name, n.target FROM unnest($2, $3, $4) AS n (key, name, target)";
    case Sql::UpdateHeads:
      return "UPDATE talvcs.heads h SET target = n.target FROM unnest($2, $3) AS n (key, target) "
             "WHERE h.repository = $1 AND h.key = n.key";
    case Sql::DeleteHeads:
      return "DELETE FROM talvcs.heads WHERE repository = $1 AND key = ANY ($2)";

    case Sql::ReadValue:
      return "SELECT value FROM talvcs.settings WHERE repository = $1 AND key = $2";
    case Sql::SetValue:
      return "INSERT INTO talvcs.settings (repository, key, value) VALUES ($1, $2, $3) "
             "ON CONFLICT (repository, key) DO UPDATE SET value = excluded.value";
    case Sql::DeleteValue:
      return "DELETE FROM talvcs.settings WHERE repository = $1 AND key = $2";

    case Sql::Notify:
      return "SELECT pg_notify('talvcs_heads', $1)";
    case Sql::Listen:
      return "LISTEN talvcs_heads";
  }
  return "";
}

}  // namespace TalVcs::Kit::Postgres
