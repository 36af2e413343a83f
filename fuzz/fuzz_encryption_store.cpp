// Opens and reads encrypted stores.
//
// input := "h" bytes            a header
//        | "k" byte byte bytes  passes, memory and the rest of a header with the right digest
//        | "r" bytes            an encrypted object
//        | "e" bytes            an encoded object, which is encrypted under the right key
//        | "n" bytes            the encrypted name of a branch
//        | "v" bytes            an encrypted value
//        | "b" name LF value    a branch and a value in clear

#include "target.h"

#include <kit/store/fault_injection_store.h>
#include <kit/store/memory_object_store.h>
#include <sodium.h>
#include <stores/encryption/encrypted_store.h>
#include <stores/encryption/internal/id_bytes.h>
#include <tests/support/text.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::Require;
using Kit::EncryptedStore;
using Kit::ErrorCode;
using Kit::MemoryObjectStore;
using Kit::PasswordCost;

constexpr std::string_view kHeaderName = "talvcs.encryption";
// A header for the password "correct horse", and the key that objects have under it.
constexpr std::string_view kHeader =
    "54616c56637320656e6372797074696f6e20310a73616c74206f662031362062797465730200000040000000646566"
    "6768696a6b6c6d6e6f707172737475767778797a7b8055bb84b17b27e40df1b260d95836c803e63c9a1af4af3617df"
    "28e9a7585602eced507cc7c966de09dbe2c3d3c60917cd77544368cd49257bc4562e89a4b6a9fe8010242aa5ff2069"
    "97a8d052917cc9";
constexpr std::string_view kObjectKey =
    "f104704207974a9b145abb071b535c8546315b728d592921568dc10204464a2d";
constexpr std::string_view kId = "8aec4e4876f854f688d0ebfc8f37598f38e5fd6903cccc850ca36591175aeb60";

std::string FromHex(std::string_view digits) { return *Kit::Encryption::FromHex(digits); }

const unsigned char* Raw(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

Buffer BufferOf(std::string_view bytes) {
  Buffer buffer;
  buffer.Append(bytes.data(), bytes.size());
  return buffer;
}

/// A store below, and the encrypted one over it.
struct Stores {
  std::shared_ptr<MemoryObjectStore> below = std::make_shared<MemoryObjectStore>();
  std::optional<EncryptedStore> store;

  Stores() {
    below->SetValue(kHeaderName, FromHex(kHeader)).value();
    store = EncryptedStore::Open(below, "correct horse").value();
  }
};

/// Another header opens no store.
void OpenHeader(const std::string& header, ErrorCode allowed) {
  const auto below = std::make_shared<MemoryObjectStore>();
  below->SetValue(kHeaderName, header).value();
  const auto opened =
      EncryptedStore::Open(below, "correct horse", PasswordCost{std::uint64_t{64} << 10, 2});
  if (opened) {
    Require(header == FromHex(kHeader), "only the right header opens the store");
    return;
  }
  const ErrorCode code = opened.error().code;
  Require(code == ErrorCode::Damaged || code == ErrorCode::Unsupported || code == allowed,
          "a header fails by its damage");
}

void OpenHeaderWithDigest(std::string_view fields) {
  std::string header = FromHex(kHeader);
  if (fields.size() > 1) {
    header[36] = fields[0];
    header[40] = fields[1];
    fields.remove_prefix(2);
  }
  header.replace(44, std::min<std::size_t>(fields.size(), 72), fields.substr(0, 72));
  header.resize(116);
  std::array<unsigned char, crypto_hash_sha256_BYTES> digest;
  crypto_hash_sha256(digest.data(), Raw(header), header.size());
  header.append(digest.begin(), digest.end());
  OpenHeader(header, ErrorCode::Denied);
}

/// Reads an object that the store below has as `record`. Returns whether it was read.
bool ReadRecord(const std::string& record) {
  Stores stores;
  const Id id(Testing::Wide(kId));
  // The place of the object is where the store itself puts it.
  stores.store->Write({{Kit::StoredObject{id, BufferOf("x")}}}).value();
  std::vector<Id> sealed;
  stores.below
      ->List([&](std::span<const Id> ids) {
        sealed.assign(ids.begin(), ids.end());
        return true;
      })
      .value();
  const auto faulty = std::make_shared<Kit::FaultInjectionStore>(stores.below);
  faulty->ReplaceObject(sealed.front(), BufferOf(record));
  EncryptedStore store = EncryptedStore::Open(faulty, "correct horse").value();
  std::optional<std::uint64_t> size;
  store
      .Read({&id, 1},
            [&](const Id& found, const Kit::Result<Buffer>& packed) {
              Require(found == id, "an object is passed under its id");
              Require(packed.ok() || packed.error().code == ErrorCode::Damaged ||
                          packed.error().code == ErrorCode::Unsupported,
                      "a record fails by its damage");
              if (packed) size = packed->GetSize();
            })
      .value();
  if (size)
    Require(store.Sizes({&id, 1}).value().front() == size, "the size is that of the object");
  return size.has_value();
}

void ReadEncoded(std::string_view encoded) {
  std::string record(24 + encoded.size() + 16, '\0');
  const std::string bound = FromHex(kId);
  const std::string key = FromHex(kObjectKey);
  crypto_aead_xchacha20poly1305_ietf_encrypt(reinterpret_cast<unsigned char*>(record.data()) + 24,
                                             nullptr, Raw(encoded), encoded.size(), Raw(bound),
                                             bound.size(), nullptr, Raw(record), Raw(key));
  ReadRecord(record);
}

void ReadBranch(const std::string& name) {
  Stores stores;
  stores.below->MoveHeads({{Kit::HeadMove{name, Id(), Id(Testing::Wide(kId))}}}).value();
  const auto heads = stores.store->Heads();
  Require(!heads && heads.error().code == ErrorCode::Damaged && heads.error().heads.empty(),
          "a name that was not encrypted is damaged");
}

void ReadValue(const std::string& value) {
  Stores stores;
  stores.below->SetValue("0de4a85b6cf19ffdc69f190ab70b5881fdb4659d1cd7dbdb6e5a4b620bb45df5", value)
      .value();
  const auto read = stores.store->Value("branch");
  Require(!read && read.error().code == ErrorCode::Damaged,
          "a value that was not encrypted is damaged");
}

void KeepBranchAndValue(const std::string& name, const std::string& value) {
  Stores stores;
  const Id id(Testing::Wide(kId));
  stores.store->MoveHeads({{Kit::HeadMove{name, Id(), id}}}).value();
  Require(stores.store->Heads().value() == std::vector<Kit::Head>{{name, id}},
          "a branch comes back");
  stores.store->SetValue(name, value).value();
  Require(stores.store->Value(name).value() == value, "a value comes back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string rest(data + 1, data + size);
  switch (data[0]) {
    case 'h':
      OpenHeader(rest, ErrorCode::Damaged);
      break;
    case 'k':
      OpenHeaderWithDigest(rest);
      break;
    case 'r':
      Require(!ReadRecord(rest), "a record that was not encrypted is damaged");
      break;
    case 'e':
      ReadEncoded(rest);
      break;
    case 'n':
      ReadBranch(rest);
      break;
    case 'v':
      ReadValue(rest);
      break;
    case 'b': {
      const std::size_t end = std::min(rest.find('\n'), rest.size());
      KeepBranchAndValue(rest.substr(0, end), rest.substr(end));
      break;
    }
    default:
      break;
  }
  return 0;
}
