// Parses one commit, in the notation of streams.h, in the library and in the model, and then what
// the library writes of it.

#include "checks.h"
#include "streams.h"
#include "target.h"

#include <tests/model/driver/comparison.h>
#include <tests/support/bytes.h>

#include <optional>
#include <string>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::StreamWriter;
using ModelTest::CommitTwin;
using ModelTest::FromLib;

/// The commit, and a tree for every id that consists of one small letter.
class Streams : public Model::Load {
 public:
  Streams(Model::Id id, std::string commit) : m_id(std::move(id)), m_commit(std::move(commit)) {}

  std::optional<Model::Bytes> ObjectStream(const Model::Id& id) const override {
    if (id == m_id) return m_commit;
    if (id == StreamWriter::IdOf('0')) return std::string("blob 1\0x", 8);
    if (id.empty() || id != StreamWriter::IdOf(id[0]) || id[0] < 'a' || id[0] > 'z') {
      return std::nullopt;
    }
    return std::string("tree 1") + '\0' + "100644 blob " + id[0] + '\0' + StreamWriter::IdOf('0');
  }

  Delegate<StreamIO(const Id&)> Getter() {
    return {this, [](void* self, const Id& id) {
              const auto bytes = static_cast<Streams*>(self)->ObjectStream(FromLib(id));
              return bytes ? StreamIO(Testing::StreamOf(*bytes)) : StreamIO();
            }};
  }

 private:
  Model::Id m_id;
  std::string m_commit;
};

/// Returns the commit, null if there is none, and the id that it has as its parent's.
CommitTwin Parse(const ModelTest::RepositoryTwin& repository, const std::string& bytes,
                 Id& parentId) {
  const Model::Id id = StreamWriter::IdOf('#');
  Streams streams(id, bytes);
  Model::Id modelParentId;
  const CommitTwin commit = {
      Commit::Deserialize(ModelTest::ToLibId(id), parentId, repository.lib.get(), streams.Getter()),
      Model::Commit::Deserialize(id, modelParentId, repository.model.get(), streams)};
  ModelTest::ExpectSame("parent's id", FromLib(parentId), modelParentId);
  ModelTest::Comparison().Commits(commit.lib, commit.model);
  return commit;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  const ModelTest::RepositoryTwin repository = Fuzz::NewRepository();
  Id parentId;
  const CommitTwin commit = Parse(repository, StreamWriter().Expand(input.Rest()), parentId);
  if (!commit) return 0;
  const std::string written = FromLib(commit.lib->GetPackedData());
  ModelTest::ExpectSame("packed commit", written, commit.model->GetPackedData());

  // What was written reads as the same again, but for zones that two digits can't write, and for a
  // text that a reader takes for a parent, as this commit has none.
  const CommitTwin again = Parse(repository, written, parentId);
  Fuzz::Require(static_cast<bool>(again), "a written commit can be read");
  constexpr std::int64_t kTicksOfHour = 36'000'000'000;
  const std::int64_t hours = commit.lib->GetCommitTimezoneBias().ticks / kTicksOfHour;
  if (hours <= -100 || hours >= 100 || written.find("parent ") != std::string::npos) return 0;
  ModelTest::ExpectSame("commit written twice", FromLib(again.lib->GetPackedData()), written);
  return 0;
}
