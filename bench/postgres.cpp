// Measures the store on a PostgreSQL server against bare statements of the same bytes; run by
// postgres.py.

#include <bench/processor_time.h>
#include <kit/store/object_codec.h>
#include <kit/text.h>
#include <libpq-fe.h>
#include <stores/postgres/postgres_store.h>
#include <talvcs/format/id_text.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

using namespace TalVcs;
using Bench::WorkTime;

namespace {

using Server = std::unique_ptr<PGconn, decltype(&PQfinish)>;

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(1);
}

void Require(const Kit::Status& status) {
  if (!status) Fail(Kit::Describe(status.error()));
}

/// Returns files of words, 2 KB each on average, in their packed form.
std::vector<Kit::StoredObject> MakeObjects(int count) {
  std::mt19937 random(1);
  std::vector<Kit::StoredObject> objects;
  for (int number = 0; number < count; ++number) {
    const std::size_t size = random() % 4096;
    std::string content = std::to_string(number);
    while (content.size() < size) content += " word" + std::to_string(random() % 5000);
    std::string bytes = "blob " + std::to_string(content.size());
    bytes += '\0';
    bytes += content;
    Buffer packed;
    packed.Append(bytes.data(), bytes.size());
    objects.push_back({Id(packed), packed});
  }
  return objects;
}

void Run(PGconn* server, const char* text) {
  PGresult* const result = PQexec(server, text);
  const ExecStatusType status = PQresultStatus(result);
  if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) Fail(PQerrorMessage(server));
  PQclear(result);
}

void AppendNumber(std::string& out, std::uint64_t number, int bytes) {
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
    out.push_back(static_cast<char>(number >> shift & 0xFF));
  }
}

/// Copies the encoded forms into a table with the same key, in one COPY.
void CopyBare(PGconn* server, const std::vector<Kit::StoredObject>& objects) {
  Run(server,
      "BEGIN; CREATE TABLE bare (id bytea PRIMARY KEY, data bytea); "
      "ALTER TABLE bare ALTER COLUMN data SET STORAGE EXTERNAL");
  PQclear(PQexec(server, "COPY bare FROM STDIN WITH (FORMAT binary)"));
  Kit::ObjectEncoder encoder;
  std::string out("PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0", 19);
  for (const Kit::StoredObject& object : objects) {
    const std::vector<std::byte> data = encoder.Encode(object.packed);
    const IdBytes id = *BytesOfIdText(object.id.View());
    AppendNumber(out, 2, 2);
    AppendNumber(out, id.size(), 4);
    out.append(reinterpret_cast<const char*>(id.data()), id.size());
    AppendNumber(out, data.size(), 4);
    out.append(reinterpret_cast<const char*>(data.data()), data.size());
    if (out.size() < (std::size_t{1} << 20)) continue;
    if (PQputCopyData(server, out.data(), static_cast<int>(out.size())) != 1) Fail("COPY");
    out.clear();
  }
  AppendNumber(out, 0xFFFF, 2);
  PQputCopyData(server, out.data(), static_cast<int>(out.size()));
  PQputCopyEnd(server, nullptr);
  while (PGresult* const result = PQgetResult(server)) PQclear(result);
  Run(server, "COMMIT");
}

/// Reads all rows of a table by one SELECT.
void SelectBare(PGconn* server) {
  PGresult* const result =
      PQexecParams(server, "SELECT id, data FROM bare", 0, nullptr, nullptr, nullptr, nullptr, 1);
  Kit::ObjectDecoder decoder;
  for (int row = 0; row < PQntuples(result); ++row) {
    const auto* const data = reinterpret_cast<const std::byte*>(PQgetvalue(result, row, 1));
    const auto size = static_cast<std::size_t>(PQgetlength(result, row, 1));
    if (!decoder.Decode({data, size})) Fail("SELECT");
  }
  PQclear(result);
}

/// One for each round.
using Times = std::vector<WorkTime>;
using Take = double (*)(const WorkTime&);

double Median(std::vector<double> numbers) {
  std::sort(numbers.begin(), numbers.end());
  return numbers[numbers.size() / 2];
}

double Median(const Times& times, Take take) {
  std::vector<double> numbers;
  for (const WorkTime& time : times) numbers.push_back(take(time));
  return Median(numbers);
}

/// Returns the median of the ratios of two measurements that took turns.
double Ratio(const Times& times, const Times& against, Take take) {
  std::vector<double> ratios;
  for (std::size_t round = 0; round < times.size(); ++round) {
    ratios.push_back(take(times[round]) / take(against[round]));
  }
  return Median(ratios);
}

double TimeOf(const WorkTime& time) { return time.seconds; }
double ClientOf(const WorkTime& time) { return time.clientSeconds; }
double ServerOf(const WorkTime& time) { return time.serverSeconds; }
double ProcessorsOf(const WorkTime& time) { return time.ProcessorSeconds(); }

/// Prints the medians of two measurements, and of their ratio in each round.
void Print(const char* name, const Times& times, const char* bare, const Times& against) {
  std::printf("%s %.2f s, %s %.2f s, ratio %.2f\n", name, Median(times, TimeOf), bare,
              Median(against, TimeOf), Ratio(times, against, TimeOf));
  std::printf(
      "  processors: %s client %.2f s and server %.2f s, %s client %.2f s and server %.2f s, "
      "ratio %.2f\n",
      name, Median(times, ClientOf), Median(times, ServerOf), bare, Median(against, ClientOf),
      Median(against, ServerOf), Ratio(times, against, ProcessorsOf));
}

/// Saves as a host does: what is missing, in batches of a few megabytes, then the head.
void Save(Kit::PostgresStore& store, const std::vector<Kit::StoredObject>& objects,
          const std::vector<Id>& ids) {
  if (store.Missing(ids).value().size() != ids.size()) Fail("the repository isn't empty");
  constexpr std::size_t kBatch = 2048;
  for (std::size_t first = 0; first < objects.size(); first += kBatch) {
    Require(
        store.Write(std::span(objects).subspan(first, std::min(kBatch, objects.size() - first))));
  }
  Require(store.MoveHeads({{Kit::HeadMove{"master", Id(), objects.front().id}}}));
}

void ReadAll(Kit::PostgresStore& store, const std::vector<Id>& ids) {
  std::size_t found = 0;
  Require(store.Read(ids, [&](const Id&, Kit::Result<Buffer> packed) { found += packed.ok(); }));
  if (found != ids.size()) Fail("objects are missing");
}

}  // namespace

/// Usage: talvcs_postgres_bench CONNECTION COUNT ROUNDS
int main(int count, char** arguments) {
  if (count != 4) return 2;
  const std::string connection = arguments[1];
  const std::vector<Kit::StoredObject> objects = MakeObjects(std::atoi(arguments[2]));
  std::uint64_t bytes = 0;
  std::vector<Id> ids;
  for (const Kit::StoredObject& object : objects) {
    bytes += object.packed.GetSize();
    ids.push_back(object.id);
  }
  std::printf("objects %zu, packed bytes %llu\n", objects.size(),
              static_cast<unsigned long long>(bytes));
  const Server server(PQconnectdb(connection.c_str()), &PQfinish);
  Run(server.get(), "SET client_min_messages = warning");
  Bench::WorkTimer timer(connection);
  Times copy, save, select, read, look;
  for (int round = 0; round < std::atoi(arguments[3]); ++round) {
    Run(server.get(), "DROP TABLE IF EXISTS bare");
    copy.push_back(timer.Measure([&] { CopyBare(server.get(), objects); }));
    const std::string name = "bench " + std::to_string(round);
    Kit::PostgresStore store = Kit::PostgresStore::Open(connection, name).value();
    save.push_back(timer.Measure([&] { Save(store, objects, ids); }));
    Run(server.get(), "ANALYZE");
    select.push_back(timer.Measure([&] { SelectBare(server.get()); }));
    read.push_back(timer.Measure([&] { ReadAll(store, ids); }));
    look.push_back(timer.Measure([&] {
      if (!store.Missing(ids).value().empty()) Fail("objects are missing");
    }));
  }
  Print("save", save, "COPY", copy);
  Print("read", read, "SELECT", select);
  std::printf("look for all of them %.2f s\n", Median(look, TimeOf));
  return 0;
}
