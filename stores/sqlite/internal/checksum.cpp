#include <kit/store/object_key.h>
#include <stores/sqlite/internal/checksum.h>

#include <optional>
#include <string>

namespace TalVcs::Kit::Sqlite {

std::uint64_t Checksum(std::string_view name, std::span<const std::byte> value) {
  std::string bytes(name);
  bytes += '\0';
  bytes.append(reinterpret_cast<const char*>(value.data()), value.size());
  Buffer buffer;
  buffer.Append(bytes.data(), bytes.size());
  const ObjectKey digest = *KeyOf(Id(buffer));
  std::uint64_t sum = 0;
  for (std::size_t index = 0; index < sizeof(sum); ++index) sum = sum << 8 | digest[index];
  return sum;
}

std::uint64_t ChecksumOfHead(std::string_view name, const Id& id) {
  const std::optional<ObjectKey> key = KeyOf(id);
  return key ? Checksum(name, std::as_bytes(std::span(*key))) : 0;
}

}  // namespace TalVcs::Kit::Sqlite
