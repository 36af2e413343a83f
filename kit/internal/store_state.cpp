#include <kit/internal/store_state.h>
#include <talvcs/foundation/data_encoding.h>
#include <talvcs/foundation/helpers.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <utility>

// The layout of the file, as docs/formats.md describes it:
//
//     state  := "TalVcs store 1" LF  count " objects" LF key*  count " streams" LF stream*  digest
//     key    := the 32 bytes of an id; ascending
//     stream := size " " size LF path bytes; sizes of path and bytes; ascending by path
//     digest := the SHA-256 of all before it, 64 hexadecimal digits, LF
//
// Counts and sizes are decimal, paths UTF-8 with lone surrogates in their three-byte form.

namespace TalVcs::Kit {

namespace {

constexpr std::string_view kTitle = "TalVcs store 1\n";
constexpr std::size_t kDigestLineSize = kIdLength + 1;

void Append(Buffer& buffer, std::string_view text) { buffer.Append(text.data(), text.size()); }

std::string DigestLine(const Buffer& bytes) {
  return ToUtf8(Helpers::ComputeEncodedSHA256Hash(bytes)) + '\n';
}

/// Takes pieces from the start of a text; after a mismatch it takes nothing more.
class Scanner {
 public:
  explicit Scanner(std::string_view text) noexcept : m_rest(text) {}

  bool IsGood() const noexcept { return m_good; }
  bool IsAtEnd() const noexcept { return m_rest.empty(); }

  std::string_view Take(std::uint64_t size) {
    Require(size <= m_rest.size());
    const std::string_view taken = m_rest.substr(0, m_good ? static_cast<std::size_t>(size) : 0);
    m_rest.remove_prefix(taken.size());
    return taken;
  }

  void Expect(std::string_view text) { Require(Take(text.size()) == text); }

  void Require(bool holds) noexcept { m_good = m_good && holds; }

  std::uint64_t TakeNumber() {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(m_rest.data(), m_rest.data() + m_rest.size(), number);
    Require(error == std::errc());
    const std::string_view digits = Take(static_cast<std::uint64_t>(end - m_rest.data()));
    Require(digits.size() == 1 || !digits.starts_with('0'));
    return m_good ? number : 0;
  }

 private:
  std::string_view m_rest;
  bool m_good = true;
};

}  // namespace

std::optional<ObjectKey> KeyFromHex(std::string_view digits) { return BytesOfIdText(digits); }

std::string HexFromKey(const ObjectKey& key) {
  return ToUtf8(TalUtils::DataEncoding::HexEncode(key.data(), key.size()));
}

bool StoreState::HasObject(const ObjectKey& key) const {
  return std::binary_search(objects.begin(), objects.end(), key);
}

Buffer StoreState::Encode() const {
  Buffer bytes;
  Append(bytes, kTitle);
  Append(bytes, std::to_string(objects.size()) + " objects\n");
  if (!objects.empty()) bytes.Append(objects.data(), objects.size() * sizeof(ObjectKey));
  Append(bytes, std::to_string(streams.size()) + " streams\n");
  for (const auto& [path, data] : streams) {
    const std::string name = ToUtf8(path);
    Append(bytes, std::to_string(name.size()) + ' ' + std::to_string(data.GetSize()) + '\n' + name);
    bytes.Append(data);
  }
  Append(bytes, DigestLine(bytes));
  return bytes;
}

std::optional<StoreState> StoreState::Decode(const Buffer& bytes) {
  const std::string text = BytesFromBuffer(bytes);
  if (text.size() < kDigestLineSize) return std::nullopt;
  const std::string_view body = std::string_view(text).substr(0, text.size() - kDigestLineSize);
  Buffer digested;
  Append(digested, body);
  if (DigestLine(digested) != text.substr(body.size())) return std::nullopt;

  StoreState state;
  Scanner scanner(body);
  scanner.Expect(kTitle);
  const std::uint64_t objects = scanner.TakeNumber();
  scanner.Expect(" objects\n");
  for (std::uint64_t index = 0; index < objects && scanner.IsGood(); ++index) {
    const std::string_view bytesOfKey = scanner.Take(sizeof(ObjectKey));
    ObjectKey key{};
    std::copy(bytesOfKey.begin(), bytesOfKey.end(), key.begin());
    scanner.Require(state.objects.empty() || state.objects.back() < key);
    state.objects.push_back(key);
  }
  const std::uint64_t streams = scanner.TakeNumber();
  scanner.Expect(" streams\n");
  for (std::uint64_t index = 0; index < streams && scanner.IsGood(); ++index) {
    const std::uint64_t nameSize = scanner.TakeNumber();
    scanner.Expect(" ");
    const std::uint64_t dataSize = scanner.TakeNumber();
    scanner.Expect("\n");
    const std::optional<WideString> path = ToWideExactly(scanner.Take(nameSize));
    Buffer data;
    Append(data, scanner.Take(dataSize));
    scanner.Require(path && (state.streams.empty() || state.streams.rbegin()->first < *path));
    if (scanner.IsGood()) state.streams.emplace_hint(state.streams.end(), *path, std::move(data));
  }
  if (!scanner.IsGood() || !scanner.IsAtEnd()) return std::nullopt;
  return state;
}

std::string StoreState::DigestOf(const Buffer& bytes) {
  std::string digest(kDigestLineSize - 1, '\0');
  const std::uint64_t size = bytes.GetSize();
  if (size >= kDigestLineSize) bytes.ReadAt(size - kDigestLineSize, digest.data(), digest.size());
  return digest;
}

}  // namespace TalVcs::Kit
