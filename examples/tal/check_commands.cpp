#include "commands.h"
#include "history.h"
#include "json.h"
#include "store_size.h"

#include <iostream>

namespace Tal {
namespace {

/// The objects of a store whose bytes don't hash to the id under which they stand.
struct Findings {
  StoreSize size;
  std::vector<std::string> wrong;
};

Findings HashStore(const Host& host, TalVcs::IBlobReader& reader) {
  Findings findings;
  Progress progress(host.terminal, "hashing objects");
  VisitObjects(reader, [&](const std::string& id, TalVcs::StreamIO& stream) {
    TalVcs::Buffer bytes;
    const bool isRead = stream.ReadToEnd(bytes);
    if (!isRead || ToUtf8(TalVcs::Id(bytes)) != id) findings.wrong.push_back(id);
    ++findings.size.objects;
    findings.size.bytes += bytes.GetSize();
    progress.Count(bytes.GetSize());
  });
  return findings;
}

/// Returns the bytes of all objects that the repository holds, as a store has them.
template <class Table>
std::uint64_t PackedBytes(const Table& table) {
  std::uint64_t bytes = 0;
  for (const auto& [id, object] : table) bytes += object->BuildPackedData().GetSize();
  return bytes;
}

/// What the files of all commits would come to if each had its own copy.
StoreSize SizeWithoutSharing(const TalVcs::Repository& repository) {
  StoreSize size;
  for (const HistoryCommit& entry : BuildHistory(repository, nullptr).commits) {
    const TreePtr root = RootOf(entry.commit);
    for (const std::string& path : ListTree(root)) {
      ++size.objects;
      size.bytes += FindBlob(root, path)->GetData().GetSize();
    }
  }
  return size;
}

struct Figures {
  const char* name;
  std::uint64_t count;
  std::uint64_t bytes;
};

}  // namespace

ExitCode RunVerify(const Host& host) {
  Session session(host, Access::Inspect);
  const Findings findings = HashStore(host, session.Reader());
  const TalVcs::Repository& repository = session.Repository();
  const std::uint64_t reached =
      repository.GetCommitCount() + repository.GetTreeCount() + repository.GetBlobCount();
  const bool isWhole = session.CameInWhole() && findings.wrong.empty();
  if (host.json) {
    JsonWriter json(std::cout);
    json.BeginObject();
    json.Key("whole").Bool(isWhole);
    json.Key("reason").Text(Printable(session.WhyNotWhole()));
    json.Key("objects").Number(static_cast<std::int64_t>(findings.size.objects));
    json.Key("bytes").Number(static_cast<std::int64_t>(findings.size.bytes));
    json.Key("reached").Number(static_cast<std::int64_t>(reached));
    json.Key("damaged").BeginArray();
    for (const std::string& id : findings.wrong) json.Text(id);
    json.EndArray();
    json.EndObject();
  }
  for (const std::string& id : findings.wrong)
    host.terminal.Complain("missing or damaged: " + Printable(id));
  if (!isWhole) {
    const std::string& reason = session.WhyNotWhole();
    throw Failure("the store is damaged" + (reason.empty() ? "" : ": " + Printable(reason)),
                  ExitCode::Damaged);
  }
  if (!host.json) {
    std::cout << "whole: " << Plural(findings.size.objects, "object") << ", "
              << FormatBytes(findings.size.bytes) << "; every id is correct; the branches reach "
              << Plural(reached, "object") << '\n';
  }
  return ExitCode::Done;
}

ExitCode RunStat(const Host& host) {
  Session session(host, Access::Read);
  const TalVcs::IObjectsStorage& storage = *session.Repository().GetStorage();
  const Figures figures[] = {
      {"commits", storage.GetCommitCount(), PackedBytes(storage.GetCommits())},
      {"trees", storage.GetTreeCount(), PackedBytes(storage.GetTrees())},
      {"blobs", storage.GetBlobCount(), PackedBytes(storage.GetBlobs())}};
  const StoreSize store = MeasureStore(session.Reader());
  const StoreSize apart = SizeWithoutSharing(session.Repository());
  std::uint64_t reached = 0;
  for (const Figures& figure : figures) reached += figure.bytes;
  std::uint64_t contents = 0;
  for (const auto& [id, blob] : storage.GetBlobs()) contents += blob->GetData().GetSize();
  const std::uint64_t waste = store.bytes > reached ? store.bytes - reached : 0;

  if (host.json) {
    JsonWriter json(std::cout);
    json.BeginObject();
    for (const Figures& figure : figures) {
      json.Key(figure.name).BeginObject();
      json.Key("count").Number(static_cast<std::int64_t>(figure.count));
      json.Key("bytes").Number(static_cast<std::int64_t>(figure.bytes));
      json.EndObject();
    }
    json.Key("branches").Number(static_cast<std::int64_t>(storage.GetRefs().size()));
    json.Key("files_of_all_commits").Number(static_cast<std::int64_t>(apart.objects));
    json.Key("bytes_of_all_commits").Number(static_cast<std::int64_t>(apart.bytes));
    json.Key("store_objects").Number(static_cast<std::int64_t>(store.objects));
    json.Key("store_bytes").Number(static_cast<std::int64_t>(store.bytes));
    json.Key("unreached_bytes").Number(static_cast<std::int64_t>(waste));
    json.Key("last_freed_bytes").Number(static_cast<std::int64_t>(session.LastFreed()));
    json.EndObject();
    return ExitCode::Done;
  }
  for (const Figures& figure : figures)
    std::cout << figure.name << '\t' << figure.count << '\t' << FormatBytes(figure.bytes) << '\n';
  std::cout << "branches\t" << storage.GetRefs().size() << '\n'
            << "sharing\t" << Plural(apart.objects, "file") << " in all commits, "
            << FormatBytes(apart.bytes) << ", stored as " << Plural(figures[2].count, "blob")
            << ", " << FormatBytes(contents) << '\n'
            << "store\t" << Plural(store.objects, "object") << ", " << FormatBytes(store.bytes)
            << ", unreachable: " << FormatBytes(waste) << '\n'
            << "freed\t" << FormatBytes(session.LastFreed()) << " by the last clean-up\n";
  return ExitCode::Done;
}

}  // namespace Tal
