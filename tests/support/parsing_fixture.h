#pragma once

#include <gtest/gtest.h>
#include <tests/support/contents.h>
#include <tests/support/memory_blob_io.h>

#include <map>
#include <string>
#include <vector>

namespace TalVcs::Testing {

/// Streams by id for the parsers of packed objects, and a repository that they fill.
class Parsing : public ::testing::Test {
 protected:
  Delegate<StreamIO(const Id&)> Getter() {
    return {this, [](void* self, const Id& id) {
              auto& test = *static_cast<Parsing*>(self);
              test.asked.push_back(Ascii(id));
              const auto found = test.streams.find(Ascii(id));
              return found == test.streams.end() ? StreamIO() : StreamIO(StreamOf(found->second));
            }};
  }
  static Id IdOfText(const std::string& text) { return Id(Wide(text)); }

  cow_ptr<Tree> ParseTree(const std::string& records) {
    streams[FakeId(1)] = Packed("tree", records);
    return Tree::Deserialize(IdOfText(FakeId(1)), &repository, Getter());
  }
  cow_ptr<Commit> ParseCommit(const std::string& text) {
    streams[FakeId(2)] = Packed("commit", text);
    parentId = Id();
    return Commit::Deserialize(IdOfText(FakeId(2)), parentId, &repository, Getter());
  }
  void PutBlob(unsigned n, const std::string& bytes) { streams[FakeId(n)] = Packed("blob", bytes); }

  Repository repository = NewRepository();
  std::map<std::string, std::string> streams;
  std::vector<std::string> asked;
  Id parentId;
};

}  // namespace TalVcs::Testing
