#include <talvcs/objects/object.h>

#include <gtest/gtest.h>
#include <tests/support/objects.h>

#include <string>
#include <utility>

namespace TalVcs::Testing {
namespace {

// SHA-256 of "note 3", a zero byte and "abc".
constexpr char kNoteId[] = "a955929d5608db592271b0f98e521e8473c6c18c9a497b422a677e392c5f8112";
// SHA-256 of "note 4", a zero byte and "abcd".
constexpr char kLongerNoteId[] = "8fcb15b567a69e10dd8be4b23fc491a2b03a80d17de214ea3b9b7ae296ebb522";

/// A class of object that the library doesn't know; counts how often its data is asked for.
class Note : public Object {
 public:
  explicit Note(std::string_view bytes, std::string header = "note")
      : m_data(BufferOf(bytes)), m_header(std::move(header)) {}

  TalStringT<char> GetHeader() const override { return TalStringViewT<char>(m_header); }
  TalStringT<char> GetStoragePrefix() const override { return "100000"; }
  const Buffer& GetData() const override {
    ++m_asked;
    return m_data;
  }

  void Add(std::string_view bytes) {
    m_data.Append(bytes.data(), bytes.size(), 1);
    ResetState();
  }
  int Asked() const { return m_asked; }

 private:
  Buffer m_data;
  std::string m_header;
  mutable int m_asked = 0;
};

/// An object that is equal to nothing.
class Stranger final : public Note {
 public:
  Stranger() : Note("stranger") {}
  bool operator==(const IObject&) const override { return false; }
};

/// An object whose packed form is made in its own way.
class Packer final : public Note {
 public:
  Packer() : Note("ignored"), m_packed(BufferOf("abc")) {}
  const Buffer& GetPackedData() const override { return m_packed; }

 private:
  Buffer m_packed;
};

TEST(ObjectPackedData, IsTypeSizeZeroAndData) {
  EXPECT_EQ(Bytes(Note("abc").GetPackedData()), std::string("note 3\0abc", 10));
  EXPECT_EQ(Bytes(Note("").GetPackedData()), std::string("note 0\0", 7));
}

TEST(ObjectPackedData, AcceptsTypeWordsOfAnyLength) {
  const std::string word(200, 'w');
  EXPECT_EQ(Bytes(Note("abc", word).GetPackedData()), word + std::string(" 3\0abc", 6));
  EXPECT_EQ(Bytes(Note("abc", "").GetPackedData()), std::string(" 3\0abc", 6));
}

TEST(ObjectPackedData, IsMadeOnceBetweenResets) {
  Note note("abc");
  const Buffer* const packed = &note.GetPackedData();
  const int asked = note.Asked();
  EXPECT_EQ(&note.GetPackedData(), packed);
  note.GetId();
  note.GetId();
  EXPECT_EQ(note.Asked(), asked);
}

/// An object that has its data made anew at each call, and notes the calls.
class Maker final : public Object {
 public:
  TalStringT<char> GetHeader() const override {
    m_calls += "type ";
    m_data = BufferOf("spoiled");
    return "note";
  }
  TalStringT<char> GetStoragePrefix() const override { return "100000"; }
  const Buffer& GetData() const override {
    m_calls += "data ";
    m_data = BufferOf("abc");
    return m_data;
  }
  const std::string& Calls() const { return m_calls; }

 private:
  mutable Buffer m_data;
  mutable std::string m_calls;
};

TEST(ObjectPackedData, AsksForTheDataBeforeAndAfterTheType) {
  const Maker maker;
  EXPECT_EQ(Bytes(maker.GetPackedData()), std::string("note 3\0abc", 10));
  EXPECT_EQ(maker.Calls(), "data type data ");
  EXPECT_EQ(IdOf(maker), kNoteId);
  EXPECT_EQ(maker.Calls(), "data type data ");
}

TEST(ObjectId, IsTheDigestOfThePackedForm) { EXPECT_EQ(IdOf(Note("abc")), kNoteId); }

TEST(ObjectId, HashesTheOverriddenPackedData) {
  EXPECT_EQ(IdOf(Packer()), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

/// Has its id computed without a packed form.
class Quick final : public Note {
 public:
  using Note::Note;
  Id GetId() const override {
    const TalStringT<char> type = GetHeader();
    return IdOfData(type, GetData());
  }
};

TEST(ObjectId, AcceptsTypeWordsOfAnyLength) {
  EXPECT_EQ(IdOf(Quick("abc")), kNoteId);
  EXPECT_EQ(IdOf(Quick("abc", std::string(32, 'n'))),
            "73e49a6f1865e7c8c0e01fd4368e7eebd37959ee4ac3cbf06c1e6c17656bbb20");
  EXPECT_EQ(IdOf(Quick("abc", std::string(33, 'n'))),
            "90988ea6b5b064a399570528ed696899cdad09ba4d265bb67cc2c6713e06b0d5");
  EXPECT_EQ(IdOf(Quick("abc", std::string(200, 'n'))),
            "6051b2a01e3028899a28634e5e9bb1be2a61ee4ba3f36284970fecbd91e6bd0d");
}

TEST(ObjectResetState, DropsIdAndPackedForm) {
  Note note("abc");
  EXPECT_EQ(IdOf(note), kNoteId);
  note.Add("d");
  EXPECT_EQ(Bytes(note.GetPackedData()), std::string("note 4\0abcd", 11));
  EXPECT_EQ(IdOf(note), kLongerNoteId);
}

TEST(ObjectCopy, StartsWithTheCachesOfItsSource) {
  const Note note("abc");
  note.GetId();
  const Note copy(note);
  EXPECT_EQ(copy.Asked(), note.Asked());
  EXPECT_EQ(IdOf(copy), kNoteId);
  EXPECT_EQ(copy.Asked(), note.Asked());
}

TEST(ObjectCopy, AssignmentTakesTheCachesOver) {
  const Note source("abc");
  Note target("something else");
  source.GetId();
  target.GetId();
  target = source;
  const int asked = target.Asked();
  EXPECT_EQ(IdOf(target), kNoteId);
  EXPECT_EQ(target.Asked(), asked);
}

TEST(ObjectEquality, ComparesIdsOfAnyClass) {
  const Note blob_like("hello", "blob");
  const Blob blob = BlobOf("hello");
  const IObject& first = blob_like;
  EXPECT_TRUE(first == blob);
  EXPECT_FALSE(first != blob);
  EXPECT_TRUE(blob == blob_like);
}

TEST(ObjectEquality, ObjectsOfDifferentTypesDiffer) {
  const Note note("hello");
  const Blob blob = BlobOf("hello");
  EXPECT_FALSE(note == blob);
  EXPECT_TRUE(note != blob);
}

TEST(ObjectEquality, InequalityFollowsAnOverriddenEquality) {
  const Stranger stranger;
  const IObject& other = stranger;
  EXPECT_FALSE(stranger == other);
  EXPECT_TRUE(stranger != other);
}

TEST(ObjectEquality, WorksOnObjectsOfOneClassAsHostsWriteIt) {
  const Blob first = BlobOf("same");
  const Blob second = BlobOf("same");
  const Tree tree;
  EXPECT_TRUE(first == second);
  EXPECT_FALSE(first != second);
  EXPECT_TRUE(first != tree);
}

TEST(ObjectToString, ShowsOneCharacterForEachByte) {
  EXPECT_EQ(Ascii(Note(std::string_view("a\0\xC3\xA9\x80", 5)).ToString()),
            "note 5\\u005C0a\\u005C0\\uFFC3\\uFFA9\\uFF80");
}

}  // namespace
}  // namespace TalVcs::Testing
