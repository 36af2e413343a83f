#pragma once

#include <kit/store/object_codec.h>
#include <kit/text/result.h>
#include <stores/encryption/internal/id_bytes.h>
#include <stores/encryption/internal/secret.h>
#include <talvcs/foundation/names.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit::Encryption {

/// Encrypts and decrypts what a store holds. "Sealed" is what the store below sees; `Open...` is
/// the reverse of `Seal...` and refuses what no `Seal...` has made under the same key.
class Sealer {
 public:
  /// Derives a key for each purpose from `key`.
  explicit Sealer(const Key& key);

  /// Returns the key that the others come from.
  const Key& GetKey() const noexcept { return m_key; }

  /// The id under which an object is stored. An id that isn't an object's stays as it is.
  Id SealId(const Id& id) const;
  Id OpenId(const Id& sealed) const;

  /// The id that a branch has as its head. The sealed id of another branch opens as an id that no
  /// object has.
  Id SealHead(std::string_view branch, const Id& id) const;
  Id OpenHead(std::string_view branch, const Id& sealed) const;

  /// The name of a branch. The same name gives the same sealed name.
  std::string SealBranch(std::string_view name) const;
  std::optional<std::string> OpenBranch(std::string_view sealed) const;

  /// An object, for the id that it is stored under.
  Buffer SealObject(const Id& id, const Buffer& packed);
  Result<Buffer> OpenObject(const Id& id, const Buffer& sealed);
  /// Returns the size of the packed form, or none if the object is damaged.
  std::optional<std::uint64_t> SizeOf(const Id& id, const Buffer& sealed) const;

  /// The name of a value, which can't be opened, and the value of that name.
  std::string SealValueName(std::string_view name) const;
  std::string SealValue(std::string_view name, std::string_view value) const;
  std::optional<std::string> OpenValue(std::string_view name, std::string_view sealed) const;

 private:
  /// What a derived key is for.
  enum class Purpose : std::uint8_t { Objects, Ids, BranchNonces, Branches, ValueNames, Values };
  static constexpr std::size_t kPurposes = 6;

  const unsigned char* KeyFor(Purpose purpose) const {
    return m_keys[static_cast<std::size_t>(purpose)].data();
  }
  std::string Encrypt(Purpose purpose, std::string nonce, std::string_view plain,
                      std::string_view bound) const;
  std::optional<std::string> Decrypt(Purpose purpose, std::string_view sealed,
                                     std::string_view bound) const;
  std::optional<std::string> DecryptObject(const Id& id, const Buffer& sealed) const;
  Id Permute(char kind, std::string_view branch, const Id& id) const;
  Id PermuteBack(char kind, std::string_view branch, const Id& id) const;
  using Half = std::array<unsigned char, 16>;
  void Round(char kind, std::uint8_t round, std::string_view branch, const Half& from,
             Half& changed) const;

  Key m_key;
  std::array<Key, kPurposes> m_keys;
  ObjectEncoder m_encoder;
  ObjectDecoder m_decoder;
};

}  // namespace TalVcs::Kit::Encryption
