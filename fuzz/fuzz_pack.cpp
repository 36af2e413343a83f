// Reads packs and their indexes, and lets a store in a folder use damaged ones.
//
// input  := "s" byte byte bytes  scans a pack with these bytes, of which so many are kept
//         | "x" bytes            opens an index with these bytes
//         | "X" bytes            the same, each page with the check that it must have
//         | "o" action*          a store
// action := "w" text LF          writes an object, with the one before as its previous version
//         | "h"                  moves the branch to the last object
//         | "r" byte             removes the objects whose number has a bit in common with the byte
//         | "n"                  opens another store object
//         | "e" byte             lets a call of the file system fail
//         | "f" byte byte byte   changes a byte of the newest pack
//         | "c" byte byte        cuts the newest pack there
//         | "a" text LF          adds bytes to the newest pack

#include "input.h"
#include "memory_file_system.h"
#include "target.h"

#include <kit/internal/checksum.h>
#include <kit/internal/little_endian.h>
#include <kit/internal/pack_index.h>
#include <kit/internal/pack_record.h>
#include <kit/internal/store_access.h>
#include <kit/text.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::Require;

/// A file that has the bytes of a text.
class TextFile final : public Kit::OpenedFile {
 public:
  explicit TextFile(std::string text) : m_text(std::move(text)) {}

  std::error_code ReadAt(std::uint64_t position, char* target, std::size_t size,
                         std::size_t& count) override {
    count = position < m_text.size() ? m_text.copy(target, size, position) : 0;
    return {};
  }
  std::error_code GetSize(std::uint64_t& size) override {
    size = m_text.size();
    return {};
  }

 private:
  std::string m_text;
};

/// Any bytes have records that follow each other, whole ones as they were written.
void Scan(std::uint64_t kept, const std::string& bytes) {
  TextFile file(bytes);
  Kit::PackScanner scanner(file, 0, bytes.size(), kept);
  std::uint64_t end = 0;
  while (const std::optional<Kit::ScannedRecord> record = scanner.Next()) {
    Require(record->position >= end, "records follow each other");
    Require(record->position == end || end < kept, "only kept bytes are skipped");
    end = record->position + record->bytes.size();
    Require(end <= bytes.size() && end == scanner.Position(), "a record is in the pack");
    Require(record->bytes == bytes.substr(record->position, record->bytes.size()),
            "a record has the bytes of the pack");
    std::string again;
    Kit::AppendPackRecord(again, record->key, record->Encoded());
    Require((again == record->bytes) == record->isWhole, "a whole record has its check");
    Require(record->isWhole || record->position < kept, "damage is found in kept bytes alone");
  }
  Require(!scanner.Error(), "nothing fails");
}

/// Puts the checks into the pages.
std::string WithChecks(std::string bytes) {
  constexpr std::size_t kBody = Kit::PackIndex::kPageSize - 4;
  std::string checked;
  for (std::size_t at = 0; at < bytes.size(); at += kBody) {
    std::string page = bytes.substr(at, kBody);
    page.resize(kBody, '\0');
    Kit::PutNumber(page, Kit::ChecksumOf(page), 4);
    checked += page;
  }
  return checked;
}

/// Any bytes are an index, or none, or are found to be damaged.
void OpenIndex(const std::string& bytes) {
  const auto index = Kit::PackIndex::Open(std::make_unique<TextFile>(bytes));
  if (!index) return;
  Require(index->GetCount() <= bytes.size() / 16, "an index has its entries");
  std::vector<Kit::PackIndexEntry> entries;
  if (index->ReadAll(entries)) {
    Require(entries.size() == index->GetCount(), "all entries are read");
  }
  for (std::uint64_t prefix : {std::uint64_t{0}, ~std::uint64_t{0}, std::uint64_t{1} << 63}) {
    std::vector<std::uint64_t> places;
    index->Find(prefix, places);
    Require(places.size() <= index->GetCount(), "an entry is found once");
  }
}

/// A store, and what was written to it.
class Session {
 public:
  Session() : m_files(std::make_shared<Fuzz::MemoryFileSystem>()) {
    m_store = Kit::StoreAccess::Create(Fuzz::MemoryFileSystem::StoreFolder(), Options(), m_files);
  }

  void Run(Fuzz::Input& input) {
    while (!input.IsAtEnd()) Act(input);
    m_files->FailAt(0);
    Reopen();
    Check();
    m_files->CheckHostFiles();
  }

 private:
  struct Object {
    Id id;
    std::string bytes;
    bool written;  // for certain, and not removed
  };

  static Kit::DirectoryObjectStoreOptions Options() {
    return {.busyTimeout = std::chrono::milliseconds(0)};
  }

  void Act(Fuzz::Input& input) {
    switch (input.Byte()) {
      case 'w':
        Write(input.Line());
        break;
      case 'h':
        Move();
        break;
      case 'r':
        Remove(input.Byte());
        break;
      case 'n':
        Reopen();
        break;
      case 'e':
        m_files->FailAt(input.Byte());
        break;
      case 'f': {
        const std::size_t at = input.Byte() * std::size_t{256} + input.Byte();
        const char byte = static_cast<char>(input.Byte());
        Damage([at, byte](std::string& pack) {
          if (at < pack.size()) pack[at] = byte;
        });
        break;
      }
      case 'c': {
        const std::size_t at = input.Byte() * std::size_t{256} + input.Byte();
        Damage([at](std::string& pack) { pack.resize(std::min(at, pack.size())); });
        break;
      }
      case 'a': {
        const std::string more = input.Line();
        Damage([&more](std::string& pack) { pack += more; });
        break;
      }
      default:
        break;
    }
  }

  void Write(const std::string& text) {
    Buffer packed;
    packed.Append(text.data(), text.size());
    if (packed.IsEmpty() || !m_store) return;
    const Kit::StoredObject object{Id(packed), packed,
                                   m_objects.empty() ? Id() : m_objects.back().id};
    const bool done = m_store->Write({&object, 1}).ok();
    m_objects.push_back({object.id, text, done});
  }

  void Move() {
    if (!m_store || m_objects.empty()) return;
    const Kit::Result<std::vector<Kit::Head>> heads = m_store->Heads();
    if (!heads) return;
    const Id before = heads->empty() ? Id() : heads->front().id;
    const Kit::HeadMove move{"master", before, m_objects.back().id};
    static_cast<void>(m_store->MoveHeads({&move, 1}));
  }

  void Remove(std::uint8_t bits) {
    if (!m_store) return;
    std::vector<Id> kept;
    for (std::size_t number = 0; number < m_objects.size(); ++number) {
      Object& object = m_objects[number];
      if ((number & bits) == 0) {
        kept.push_back(object.id);
      }
    }
    const auto mark = [&kept](std::span<const Kit::Head>) { return Kit::Result(kept); };
    const bool removed = m_store->RemoveUnmarked(mark).ok();
    for (Object& object : m_objects) {
      const bool stays = std::find(kept.begin(), kept.end(), object.id) != kept.end();
      if (!stays) object.written = false;
      if (removed && !stays && !m_damaged) {
        Require(!m_store->Missing({&object.id, 1}).value().empty(), "what was removed is missing");
      }
    }
  }

  void Reopen() {
    m_store = Kit::Error();
    m_store = Kit::StoreAccess::Open(Fuzz::MemoryFileSystem::StoreFolder(), Options(), m_files);
  }

  template <class Change>
  void Damage(Change change) {
    Fuzz::MemoryFileSystem::Content content = m_files->GetContent();
    for (auto file = content.files.rbegin(); file != content.files.rend(); ++file) {
      if (!file->first.ends_with(".pack")) continue;
      change(file->second);
      m_damaged = true;
      break;
    }
    m_files->SetContent(content);
  }

  /// Each object comes back as it was written, or with an error if something was damaged.
  void Check() {
    Require(m_store.ok() || m_files->State().empty(), "a store can be opened");
    if (!m_store) return;
    for (const Object& object : m_objects) {
      const auto take = [&](const Id&, Kit::Result<Buffer> packed) {
        if (packed) {
          Require(Kit::BytesFromBuffer(*packed) == object.bytes, "an object comes back");
        } else {
          Require(m_damaged || !object.written, "what was written is there");
        }
      };
      Require(m_store->Read({&object.id, 1}, take).ok(), "a read succeeds");
    }
  }

  std::shared_ptr<Fuzz::MemoryFileSystem> m_files;
  Kit::Result<Kit::DirectoryObjectStore> m_store = Kit::Error();
  std::vector<Object> m_objects;
  bool m_damaged = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  switch (input.Byte()) {
    case 's': {
      const std::uint64_t kept = input.Byte() * std::uint64_t{256} + input.Byte();
      Scan(kept, input.Rest());
      break;
    }
    case 'x':
      OpenIndex(input.Rest());
      break;
    case 'X':
      OpenIndex(WithChecks(input.Rest()));
      break;
    default:
      Session().Run(input);
      break;
  }
  return 0;
}
