#include <gtest/gtest.h>
#include <kit/open/copy.h>
#include <talvcs/persistence/packed_object.h>
#include <tests/kit/open/histories.h>
#include <tests/kit/open/passing_store.h>
#include <tests/support/bytes.h>

#include <map>
#include <set>
#include <unordered_map>

// The previous versions that saves and copies pass to a store. Objects are shown by what they hold:
// a blob by its text, a folder by its entries, a commit by its description.

namespace TalVcs::Kit {
namespace {

using namespace TalVcs::Testing;

/// Object and previous version; the empty text for none.
using Hints = std::map<std::string, std::string>;

class RecordingStore final : public PassingStore {
 public:
  Status Write(std::span<const StoredObject> objects) override {
    for (const StoredObject& object : objects) {
      const std::string shown = Show(object);
      m_shown[object.id] = shown;
      const auto previous = m_shown.find(object.previous);
      m_hints[shown] = previous != m_shown.end() ? previous->second : Ascii(object.previous);
    }
    return PassingStore::Write(objects);
  }

  /// Returns the hints since the last call.
  Hints Take() { return std::exchange(m_hints, Hints()); }

 private:
  std::string Show(const StoredObject& object) const {
    const std::string packed = Bytes(object.packed);
    const ObjectType type = GetPackedType(object.packed).value();
    if (type == ObjectType::Blob) return packed.substr(packed.find('\0') + 1);
    if (type == ObjectType::Commit) {
      const std::size_t description = packed.find("\n\n") + 2;
      return "commit " + packed.substr(description, packed.size() - 1 - description);
    }
    struct Listing {
      const RecordingStore* store;
      std::string text;
    } listing{this, "{"};
    VisitReferences(object.packed, {&listing, [](void* to, const PackedReference& reference) {
                                      auto& target = *static_cast<Listing*>(to);
                                      target.text += Ascii(reference.name) + "=" +
                                                     target.store->m_shown.at(reference.id) + " ";
                                    }});
    listing.text.back() = '}';
    return listing.text;
  }

  std::unordered_map<Id, std::string> m_shown;
  Hints m_hints;
};

/// Puts commits on "master", of which each saves to the store, or is copied to it by way of
/// another.
class PreviousVersions : public testing::TestWithParam<bool> {
 protected:
  void Commit(const Files& files, std::string_view description) {
    AddCommit(m_repository, "master", files, description);
  }

  /// Returns the hints for what the store lacked.
  Hints Written() {
    if (!GetParam()) {
      Save(m_repository, m_store).value();
    } else {
      MemoryObjectStore source;
      Save(m_repository, source).value();
      Copy(source, m_store).value();
    }
    return m_store.Take();
  }

  Repository m_repository = NewRepository();
  RecordingStore m_store;
};

std::string NameOf(const testing::TestParamInfo<bool>& way) { return way.param ? "Copy" : "Save"; }

INSTANTIATE_TEST_SUITE_P(All, PreviousVersions, testing::Bool(), NameOf);

TEST_P(PreviousVersions, FirstCommitHasNone) {
  Commit({{"a/b", "text"}, {"c", "other"}}, "first");
  EXPECT_EQ(Written(), (Hints{{"text", ""},
                              {"other", ""},
                              {"{b=text}", ""},
                              {"{a={b=text} c=other}", ""},
                              {"commit first", ""}}));
}

TEST_P(PreviousVersions, EditsHaveTheVersionOfTheirPath) {
  Commit({{"a/b", "one"}, {"c", "left"}}, "first");
  Commit({{"a/b", "two"}}, "second");
  Commit({{"a/b", "three"}, {"d", "new"}}, "third");
  EXPECT_EQ(Written(), (Hints{{"one", ""},
                              {"left", ""},
                              {"{b=one}", ""},
                              {"{a={b=one} c=left}", ""},
                              {"commit first", ""},
                              {"two", "one"},
                              {"{b=two}", "{b=one}"},
                              {"{a={b=two} c=left}", "{a={b=one} c=left}"},
                              {"commit second", "commit first"},
                              {"three", "two"},
                              {"new", ""},
                              {"{b=three}", "{b=two}"},
                              {"{a={b=three} c=left d=new}", "{a={b=two} c=left}"},
                              {"commit third", "commit second"}}));
}

TEST_P(PreviousVersions, RenamedFileHasNone) {
  Commit({{"before", "text"}}, "first");
  Commit({{"before", ""}, {"after", "edited"}}, "second");
  const Hints hints = Written();
  EXPECT_EQ(hints.at("edited"), "");
  EXPECT_EQ(hints.at("{after=edited}"), "{before=text}");
}

TEST_P(PreviousVersions, FolderThatReturnsAfterALongTimeHasItsLastVersion) {
  Commit({{"a/b", "one"}, {"c", "0"}}, "first");
  for (int edit = 1; edit < 200; ++edit) Commit({{"c", std::to_string(edit)}}, "between");
  Commit({{"a/b", "two"}}, "last");
  const Hints hints = Written();
  EXPECT_EQ(hints.at("two"), "one");
  EXPECT_EQ(hints.at("{b=two}"), "{b=one}");
  EXPECT_EQ(hints.at("199"), "198");
}

TEST(PreviousVersionsOfASave, AreThoseOfTheCommitThatTheStoreHas) {
  auto store = std::make_shared<RecordingStore>();
  Repository repository = NewRepository();
  AddCommit(repository, "master", {{"a/b", "one"}, {"c", "left"}}, "first");
  Save(repository, *store).value();
  store->Take();
  OpenedRepository opened = Open(store).value();
  AddCommit(opened.GetRepository(), "master", {{"a/b", "two"}}, "second");
  Save(opened).value();
  EXPECT_EQ(store->Take(), (Hints{{"two", "one"},
                                  {"{b=two}", "{b=one}"},
                                  {"{a={b=two} c=left}", "{a={b=one} c=left}"},
                                  {"commit second", "commit first"}}));
}

// The trees that the target has already aren't read from the source, except for the root's id.
TEST(PreviousVersionsOfACopy, OfWhatTheTargetHasOnlyRootsAndCommitsAreKnown) {
  RecordingStore target;
  Repository repository = NewRepository();
  AddCommit(repository, "master", {{"a/b", "one"}}, "first");
  Save(repository, target).value();
  target.Take();
  AddCommit(repository, "master", {{"a/b", "two"}}, "second");
  Copy(*StoreOf(repository), target).value();
  EXPECT_EQ(target.Take(), (Hints{{"two", ""},
                                  {"{b=two}", ""},
                                  {"{a={b=two}}", "{a={b=one}}"},
                                  {"commit second", "commit first"}}));
}

}  // namespace
}  // namespace TalVcs::Kit
