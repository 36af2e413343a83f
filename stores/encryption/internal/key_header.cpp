// header := magic salt passes memory nonce wrapped digest
// magic  := "TalVcs encryption 1" LF
// salt   := 16 random bytes
// passes, memory := 4 bytes each, little-endian; memory in KiB
// nonce  := 24 random bytes
// wrapped := the key of 32 bytes, encrypted under the key that Argon2id makes of password and salt,
//            with magic, salt, passes and memory as associated data; 48 bytes
// digest := the SHA-256 of all before it, by which damage differs from another password

#include <stores/encryption/internal/key_header.h>

#include <cstdint>
#include <cstring>
#include <utility>

namespace TalVcs::Kit::Encryption {

namespace {

constexpr std::string_view kMagic = "TalVcs encryption 1\n";
constexpr std::string_view kMagicOfAnyVersion = "TalVcs encryption ";
constexpr std::size_t kSaltSize = crypto_pwhash_argon2id_SALTBYTES;
constexpr std::size_t kNonceSize = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t kTagSize = crypto_aead_xchacha20poly1305_ietf_ABYTES;
constexpr std::size_t kDigestSize = crypto_hash_sha256_BYTES;

constexpr std::size_t kSaltAt = kMagic.size();
constexpr std::size_t kPassesAt = kSaltAt + kSaltSize;
constexpr std::size_t kMemoryAt = kPassesAt + 4;
constexpr std::size_t kNonceAt = kMemoryAt + 4;
constexpr std::size_t kWrappedAt = kNonceAt + kNonceSize;
constexpr std::size_t kDigestAt = kWrappedAt + Key::size() + kTagSize;
constexpr std::size_t kSize = kDigestAt + kDigestSize;

constexpr std::uint64_t kKiB = 1024;

unsigned char* At(std::string& bytes, std::size_t position) {
  return reinterpret_cast<unsigned char*>(bytes.data()) + position;
}
const unsigned char* At(std::string_view bytes, std::size_t position) {
  return reinterpret_cast<const unsigned char*>(bytes.data()) + position;
}

void PutNumber(std::string& bytes, std::size_t position, std::uint32_t number) {
  for (int byte = 0; byte < 4; ++byte) {
    bytes[position + static_cast<std::size_t>(byte)] = static_cast<char>(number >> 8 * byte);
  }
}

std::uint32_t NumberAt(std::string_view bytes, std::size_t position) {
  std::uint32_t number = 0;
  for (std::size_t byte = 4; byte-- > 0;) number = number << 8 | *At(bytes, position + byte);
  return number;
}

Error Failed(ErrorCode code, std::string message) {
  Error error;
  error.code = code;
  error.message = "cannot open the encrypted store: " + std::move(message);
  return error;
}

/// Makes a key of the password, by the salt and cost of the header.
Status Derive(std::string_view header, std::string_view password, Key& derived) {
  const std::uint32_t passes = NumberAt(header, kPassesAt);
  const std::uint64_t memory_bytes = NumberAt(header, kMemoryAt) * kKiB;
  if (crypto_pwhash_argon2id(derived.data(), Key::size(), password.data(), password.size(),
                             At(header, kSaltAt), passes, static_cast<std::size_t>(memory_bytes),
                             crypto_pwhash_argon2id_ALG_ARGON2ID13) != 0) {
    return Failed(ErrorCode::Unavailable, "the password needs " +
                                              std::to_string(memory_bytes / kKiB) +
                                              " KiB of memory, which are not free");
  }
  return {};
}

/// Returns what is wrong with a header, other than its key.
Status Check(std::string_view header, const PasswordCost& most) {
  if (!header.starts_with(kMagic) && header.starts_with(kMagicOfAnyVersion)) {
    return Failed(ErrorCode::Unsupported, "it is of another version");
  }
  unsigned char digest[kDigestSize];
  const bool has_size = header.size() == kSize && header.starts_with(kMagic);
  if (has_size) crypto_hash_sha256(digest, At(header, 0), kDigestAt);
  if (!has_size || std::memcmp(digest, At(header, kDigestAt), kDigestSize) != 0) {
    return Failed(ErrorCode::Damaged, "its header is damaged");
  }
  const std::uint32_t passes = NumberAt(header, kPassesAt);
  const std::uint64_t memory_bytes = NumberAt(header, kMemoryAt) * kKiB;
  if (passes < crypto_pwhash_argon2id_OPSLIMIT_MIN ||
      memory_bytes < crypto_pwhash_argon2id_MEMLIMIT_MIN) {
    return Failed(ErrorCode::Damaged, "its header asks for no work");
  }
  if (passes > most.passes || memory_bytes > most.memoryBytes) {
    return Failed(ErrorCode::Unsupported,
                  "it asks for " + std::to_string(passes) + " passes over " +
                      std::to_string(memory_bytes / kKiB) + " KiB, more than the caller allows");
  }
  return {};
}

}  // namespace

Result<std::string> MakeHeader(const Key& key, std::string_view password,
                               const PasswordCost& cost) {
  if (cost.passes < crypto_pwhash_argon2id_OPSLIMIT_MIN ||
      cost.memoryBytes < crypto_pwhash_argon2id_MEMLIMIT_MIN ||
      cost.passes > EncryptedStore::kMostCost.passes ||
      cost.memoryBytes > EncryptedStore::kMostCost.memoryBytes) {
    Error error;
    error.code = ErrorCode::Unsupported;
    error.message = "the cost of a password must be 1 to 16 passes over 8 KiB to 1 GiB";
    return error;
  }
  std::string header(kSize, '\0');
  kMagic.copy(header.data(), kMagic.size());
  randombytes_buf(At(header, kSaltAt), kSaltSize);
  PutNumber(header, kPassesAt, cost.passes);
  PutNumber(header, kMemoryAt, static_cast<std::uint32_t>(cost.memoryBytes / kKiB));
  randombytes_buf(At(header, kNonceAt), kNonceSize);
  Key wrapping;
  if (Status status = Derive(header, password, wrapping); !status) return std::move(status).error();
  crypto_aead_xchacha20poly1305_ietf_encrypt(At(header, kWrappedAt), nullptr, key.data(),
                                             Key::size(), At(header, 0), kNonceAt, nullptr,
                                             At(header, kNonceAt), wrapping.data());
  crypto_hash_sha256(At(header, kDigestAt), At(header, 0), kDigestAt);
  return header;
}

Status OpenHeader(std::string_view header, std::string_view password, const PasswordCost& mostCost,
                  Key& key) {
  if (Status status = Check(header, mostCost); !status) return status;
  Key wrapping;
  if (Status status = Derive(header, password, wrapping); !status) return status;
  if (crypto_aead_xchacha20poly1305_ietf_decrypt(
          key.data(), nullptr, nullptr, At(header, kWrappedAt), Key::size() + kTagSize,
          At(header, 0), kNonceAt, At(header, kNonceAt), wrapping.data()) != 0) {
    return Failed(ErrorCode::Denied, "the password is wrong");
  }
  return {};
}

}  // namespace TalVcs::Kit::Encryption
