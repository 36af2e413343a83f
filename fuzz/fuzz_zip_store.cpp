// Opens bytes as a document in a zip archive, reads all of it, and changes it.
//
// input := "r" archive                          any bytes
//        | "b" action* "D" damage*              a document that is built and then damaged
// action := "o" bytes 0xFF | "h" name LF byte | "v" name LF value LF
// damage := "c" byte byte | "f" byte byte byte  cuts the archive there, changes a byte

#include "input.h"
#include "target.h"

#include <stores/zip/zip_store.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::Require;

// Far more than an archive of the size of an input can contain without a lie.
constexpr std::uint64_t kMostObjectBytes = std::uint64_t{8} << 20;

/// A folder of this process, in memory where the system has such a place.
class Folder {
 public:
  Folder() {
    const bool has_memory = ::access("/dev/shm", W_OK) == 0;
    std::string path = has_memory ? "/dev/shm/fuzz-zip-XXXXXX" : "/tmp/fuzz-zip-XXXXXX";
    Require(::mkdtemp(path.data()) != nullptr, "a folder is made");
    m_path = path;
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }

  std::filesystem::path File() const { return m_path / "document.zip"; }
  std::string Read() const {
    std::ifstream file(File(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void Write(const std::string& bytes) const {
    std::filesystem::remove(File());
    std::ofstream(File(), std::ios::binary) << bytes;
  }
  Kit::Result<Kit::ZipStore> Open(bool create) const {
    return Kit::ZipStore::Open(
        File(), {.create = create, .durable = false, .mostObjectBytes = kMostObjectBytes});
  }

 private:
  std::filesystem::path m_path;
};

struct Content {
  std::vector<Kit::Head> heads;
  std::vector<Id> whole;  // objects whose bytes fit their ids

  friend bool operator==(const Content&, const Content&) = default;
};

Content ContentOf(Kit::ZipStore& store, const std::vector<Kit::Head>& heads) {
  Content content;
  content.heads = heads;
  std::vector<Id> ids;
  const Kit::Status listed = store.List([&](std::span<const Id> some) {
    ids.insert(ids.end(), some.begin(), some.end());
    return true;
  });
  Require(listed.ok(), "an archive that is open has a list of objects");
  const Kit::Status read = store.Read(ids, [&](const Id& id, Kit::Result<Buffer> packed) {
    Require(!packed || packed->GetSize() <= kMostObjectBytes, "an object is as large as allowed");
    if (packed && Id(*packed) == id) content.whole.push_back(id);
  });
  Require(read.ok(), "each object is passed by itself");
  return content;
}

/// Bytes of any kind are a document or are refused. A save keeps all that can be read.
void Check(const Folder& folder) {
  Kit::Result<Kit::ZipStore> store = folder.Open(false);
  if (!store) return;
  const Kit::Result<std::vector<Kit::Head>> heads = store->Heads();
  if (!heads) {
    Require(!store->SetValue("fuzz", "saved").ok(), "no save over a state that isn't known");
    return;
  }
  const Content before = ContentOf(*store, *heads);
  if (!store->SetValue("fuzz", "saved").ok()) return;
  Kit::Result<Kit::ZipStore> again = folder.Open(false);
  Require(again.ok(), "what was saved opens");
  const Kit::Result<std::vector<Kit::Head>> kept = again->Heads();
  Require(kept.ok() && ContentOf(*again, *kept) == before, "a save keeps heads and objects");
  Require(again->Value("fuzz").value() == "saved", "a save has its value");
}

void Build(Fuzz::Input& input, const Folder& folder) {
  Kit::ZipStore store = folder.Open(true).value();
  std::vector<Kit::Head> heads;
  while (!input.IsAtEnd()) {
    const std::uint8_t action = input.Byte();
    if (action == 'D') return;
    if (action == 'o') {
      Kit::StoredObject object;
      const std::string bytes = input.Part();
      object.packed.Append(bytes.data(), bytes.size());
      object.id = Id(object.packed);
      // No bytes have no digest as their id.
      Require(store.Write({{object}}).ok() == !bytes.empty(), "an object is written");
    } else if (action == 'h') {
      Kit::HeadMove move;
      move.name = input.Line();
      const Id id(Buffer(input.Byte()));
      for (const Kit::Head& head : heads) {
        if (head.name == move.name) move.expected = head.id;
      }
      move.desired = id;
      Require(store.MoveHeads({{move}}).ok(), "a head moves");
      heads = store.Heads().value();
    } else if (action == 'v') {
      const std::string name = input.Line();
      const std::string value = input.Line();
      Require(store.SetValue(name, value).ok(), "a value is set");
      Require(store.Value(name).value() == value, "a value comes back");
    }
  }
}

void Damage(Fuzz::Input& input, const Folder& folder) {
  std::string bytes = folder.Read();
  while (!input.IsAtEnd()) {
    const std::uint8_t kind = input.Byte();
    const std::size_t position = input.Byte() * std::size_t{256} + input.Byte();
    if (position >= bytes.size()) continue;
    if (kind == 'c') bytes.resize(position);
    if (kind == 'f') bytes[position] = static_cast<char>(input.Byte());
  }
  folder.Write(bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Folder folder;
  std::filesystem::remove(folder.File());
  Fuzz::Input input(data, size);
  if (input.Byte() == 'r') {
    folder.Write(input.Rest());
  } else {
    Build(input, folder);
    Damage(input, folder);
  }
  Check(folder);
  return 0;
}
