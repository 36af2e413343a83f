#include <stores/postgres/internal/big_endian.h>
#include <stores/postgres/internal/parameters.h>

#include <utility>

// array := dimensions hasNull elementType (length lowerBound)? (size bytes)*
//          each number has four bytes, the highest first; no dimension for an empty array

namespace TalVcs::Kit::Postgres {
namespace {

// The server's numbers of its types.
constexpr std::uint32_t kBytea = 17;
constexpr std::uint32_t kInt8 = 20;
constexpr std::uint32_t kText = 25;
constexpr std::uint32_t kByteaArray = 1001;
constexpr std::uint32_t kInt8Array = 1016;

void AppendHeader(std::string& out, std::uint32_t type, std::size_t count) {
  AppendNumber(out, std::uint32_t{count != 0 ? 1U : 0U});
  AppendNumber(out, std::uint32_t{0});
  AppendNumber(out, type);
  if (count == 0) return;
  AppendNumber(out, static_cast<std::uint32_t>(count));
  AppendNumber(out, std::uint32_t{1});
}

std::string_view TextOf(const ObjectKey& key) noexcept {
  return {reinterpret_cast<const char*>(key.data()), key.size()};
}
std::string_view TextOf(const std::string& bytes) noexcept { return bytes; }
std::string_view TextOf(const std::vector<std::byte>& bytes) noexcept {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

Parameters& Parameters::Append(std::uint32_t type, std::string value) {
  m_types.push_back(type);
  m_values.push_back(std::move(value));
  return *this;
}

Parameters& Parameters::Add(std::int64_t number) {
  std::string value;
  AppendNumber(value, number);
  return Append(kInt8, std::move(value));
}

Parameters& Parameters::Add(std::string_view bytes) { return Append(kBytea, std::string(bytes)); }
Parameters& Parameters::Add(const ObjectKey& key) { return Add(TextOf(key)); }
Parameters& Parameters::AddText(std::string_view text) { return Append(kText, std::string(text)); }

Parameters& Parameters::Add(std::span<const std::int64_t> numbers) {
  std::string value;
  value.reserve(20 + numbers.size() * 12);
  AppendHeader(value, kInt8, numbers.size());
  for (const std::int64_t number : numbers) {
    AppendNumber(value, std::uint32_t{sizeof(number)});
    AppendNumber(value, number);
  }
  return Append(kInt8Array, std::move(value));
}

template <class Values>
Parameters& Parameters::AddByteArrays(const Values& values) {
  std::size_t size = 20;
  for (const auto& each : values) size += 4 + each.size();
  std::string value;
  value.reserve(size);
  AppendHeader(value, kBytea, values.size());
  for (const auto& each : values) {
    AppendNumber(value, static_cast<std::uint32_t>(each.size()));
    value += TextOf(each);
  }
  return Append(kByteaArray, std::move(value));
}

Parameters& Parameters::Add(std::span<const ObjectKey> keys) { return AddByteArrays(keys); }
Parameters& Parameters::Add(std::span<const std::string> values) { return AddByteArrays(values); }
Parameters& Parameters::Add(std::span<const std::vector<std::byte>> values) {
  return AddByteArrays(values);
}

std::vector<const char*> Parameters::Addresses() const {
  std::vector<const char*> addresses;
  addresses.reserve(m_values.size());
  for (const std::string& value : m_values) addresses.push_back(value.data());
  return addresses;
}

std::vector<int> Parameters::Sizes() const {
  std::vector<int> sizes;
  sizes.reserve(m_values.size());
  for (const std::string& value : m_values) sizes.push_back(static_cast<int>(value.size()));
  return sizes;
}

}  // namespace TalVcs::Kit::Postgres
