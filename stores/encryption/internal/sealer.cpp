#include <kit/text.h>
#include <stores/encryption/internal/sealer.h>

#include <algorithm>
#include <span>
#include <utility>

namespace TalVcs::Kit::Encryption {

namespace {

constexpr std::size_t kNonceSize = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t kTagSize = crypto_aead_xchacha20poly1305_ietf_ABYTES;
constexpr std::uint8_t kRounds = 4;

unsigned char* Raw(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }
const unsigned char* Raw(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::string_view TextOf(const IdBytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string RandomNonce() {
  std::string nonce(kNonceSize, '\0');
  randombytes_buf(nonce.data(), nonce.size());
  return nonce;
}

/// Returns the keyed BLAKE2b of a text.
std::string Digest(const unsigned char* key, std::size_t size, std::string_view text) {
  std::string digest(size, '\0');
  crypto_generichash_blake2b(Raw(digest), size, Raw(text), text.size(), key, Key::size());
  return digest;
}

Error Damaged(const Id& id) {
  Error error;
  error.code = ErrorCode::Damaged;
  error.subject = ToUtf8(id.View());
  error.message = "the encrypted object " + error.subject + " was changed";
  return error;
}

}  // namespace

Sealer::Sealer(const Key& key) {
  std::copy_n(key.data(), Key::size(), m_key.data());
  for (std::size_t purpose = 0; purpose < kPurposes; ++purpose) {
    crypto_kdf_blake2b_derive_from_key(m_keys[purpose].data(), Key::size(), purpose + 1, "TalVcsEn",
                                       m_key.data());
  }
}

// A permutation of the ids that looks random without the key: a Feistel network of four rounds over
// the two halves of an id, whose round function is a keyed digest. A digest of the whole id would
// hide it as well, but a list of branches or objects could not be read then without the objects.
//
//   left, right := right, left xor BLAKE2b(kind round right branch)      four times

void Sealer::Round(char kind, std::uint8_t round, std::string_view branch, const Half& from,
                   Half& changed) const {
  Half digest;
  crypto_generichash_blake2b_state state;
  const unsigned char start[] = {static_cast<unsigned char>(kind), round};
  crypto_generichash_blake2b_init(&state, KeyFor(Purpose::Ids), Key::size(), digest.size());
  crypto_generichash_blake2b_update(&state, start, sizeof(start));
  crypto_generichash_blake2b_update(&state, from.data(), from.size());
  crypto_generichash_blake2b_update(&state, Raw(branch), branch.size());
  crypto_generichash_blake2b_final(&state, digest.data(), digest.size());
  for (std::size_t at = 0; at < changed.size(); ++at) changed[at] ^= digest[at];
}

Id Sealer::Permute(char kind, std::string_view branch, const Id& id) const {
  std::optional<IdBytes> bytes = Encryption::BytesOf(id);
  if (!bytes) return id;
  Half left;
  Half right;
  std::copy_n(bytes->begin(), left.size(), left.begin());
  std::copy_n(bytes->begin() + left.size(), right.size(), right.begin());
  for (std::uint8_t round = 0; round < kRounds; ++round) {
    Round(kind, round, branch, right, left);
    std::swap(left, right);
  }
  std::copy_n(left.begin(), left.size(), bytes->begin());
  std::copy_n(right.begin(), right.size(), bytes->begin() + left.size());
  return IdOf(*bytes);
}

Id Sealer::PermuteBack(char kind, std::string_view branch, const Id& id) const {
  std::optional<IdBytes> bytes = Encryption::BytesOf(id);
  if (!bytes) return id;
  Half left;
  Half right;
  std::copy_n(bytes->begin(), left.size(), left.begin());
  std::copy_n(bytes->begin() + left.size(), right.size(), right.begin());
  for (std::uint8_t round = kRounds; round-- > 0;) {
    std::swap(left, right);
    Round(kind, round, branch, right, left);
  }
  std::copy_n(left.begin(), left.size(), bytes->begin());
  std::copy_n(right.begin(), right.size(), bytes->begin() + left.size());
  return IdOf(*bytes);
}

Id Sealer::SealId(const Id& id) const { return Permute('o', {}, id); }
Id Sealer::OpenId(const Id& sealed) const { return PermuteBack('o', {}, sealed); }
Id Sealer::SealHead(std::string_view branch, const Id& id) const {
  return Permute('h', branch, id);
}
Id Sealer::OpenHead(std::string_view branch, const Id& sealed) const {
  return PermuteBack('h', branch, sealed);
}

// sealed := nonce (24 bytes) ciphertext tag (16 bytes)

std::string Sealer::Encrypt(Purpose purpose, std::string nonce, std::string_view plain,
                            std::string_view bound) const {
  std::string sealed = std::move(nonce);
  sealed.resize(kNonceSize + plain.size() + kTagSize);
  crypto_aead_xchacha20poly1305_ietf_encrypt(Raw(sealed) + kNonceSize, nullptr, Raw(plain),
                                             plain.size(), Raw(bound), bound.size(), nullptr,
                                             Raw(sealed), KeyFor(purpose));
  return sealed;
}

std::optional<std::string> Sealer::Decrypt(Purpose purpose, std::string_view sealed,
                                           std::string_view bound) const {
  if (sealed.size() < kNonceSize + kTagSize) return std::nullopt;
  std::string plain(sealed.size() - kNonceSize - kTagSize, '\0');
  const unsigned char* bytes = Raw(sealed);
  if (crypto_aead_xchacha20poly1305_ietf_decrypt(Raw(plain), nullptr, nullptr, bytes + kNonceSize,
                                                 sealed.size() - kNonceSize, Raw(bound),
                                                 bound.size(), bytes, KeyFor(purpose)) != 0) {
    return std::nullopt;
  }
  return plain;
}

// The nonce of a name is its keyed digest: equal names are encrypted alike, so that a branch is
// found by its name, and two names share a nonce only if their digests of 24 bytes are equal.

std::string Sealer::SealBranch(std::string_view name) const {
  return ToHex(Encrypt(Purpose::Branches, Digest(KeyFor(Purpose::BranchNonces), kNonceSize, name),
                       name, {}));
}

std::optional<std::string> Sealer::OpenBranch(std::string_view sealed) const {
  const std::optional<std::string> bytes = FromHex(sealed);
  return bytes ? Decrypt(Purpose::Branches, *bytes, {}) : std::nullopt;
}

Buffer Sealer::SealObject(const Id& id, const Buffer& packed) {
  const std::vector<std::byte> encoded = m_encoder.Encode(packed);
  const IdBytes bound = *Encryption::BytesOf(id);
  const std::string sealed =
      Encrypt(Purpose::Objects, RandomNonce(),
              {reinterpret_cast<const char*>(encoded.data()), encoded.size()}, TextOf(bound));
  Buffer buffer;
  buffer.Append(sealed.data(), sealed.size());
  return buffer;
}

std::optional<std::string> Sealer::DecryptObject(const Id& id, const Buffer& sealed) const {
  const std::optional<IdBytes> bound = Encryption::BytesOf(id);
  if (!bound) return std::nullopt;
  return Decrypt(Purpose::Objects, BytesFromBuffer(sealed), TextOf(*bound));
}

Result<Buffer> Sealer::OpenObject(const Id& id, const Buffer& sealed) {
  const std::optional<std::string> encoded = DecryptObject(id, sealed);
  if (!encoded) return Damaged(id);
  Result<Buffer> packed = m_decoder.Decode(std::as_bytes(std::span(*encoded)));
  if (packed || packed.error().code == ErrorCode::Unsupported) return packed;
  return Damaged(id);
}

std::optional<std::uint64_t> Sealer::SizeOf(const Id& id, const Buffer& sealed) const {
  const std::optional<std::string> encoded = DecryptObject(id, sealed);
  if (!encoded) return std::nullopt;
  const Result<EncodedHeader> header = ReadEncodedHeader(std::as_bytes(std::span(*encoded)));
  return header ? std::optional(header->sizeBytes) : std::nullopt;
}

std::string Sealer::SealValueName(std::string_view name) const {
  return ToHex(Digest(KeyFor(Purpose::ValueNames), 32, name));
}

std::string Sealer::SealValue(std::string_view name, std::string_view value) const {
  return Encrypt(Purpose::Values, RandomNonce(), value, name);
}

std::optional<std::string> Sealer::OpenValue(std::string_view name, std::string_view sealed) const {
  return Decrypt(Purpose::Values, sealed, name);
}

}  // namespace TalVcs::Kit::Encryption
