#include <talvcs/foundation/helpers.h>

#include <talvcs/foundation/data_encoding.h>
#include <talvcs/foundation/internal/path_components.h>
#include <talvcs/foundation/internal/sha256.h>

#include <algorithm>
#include <limits>
#include <string>

namespace TalVcs::Helpers {

namespace {

TalStringT<WideChar> EncodeDigest(TalUtils::Sha256& hash) {
  const TalUtils::Sha256::Digest digest = hash.Finish();
  return TalUtils::DataEncoding::HexEncode(digest.data(), digest.size());
}

}  // namespace

TalStringT<WideChar> ComputeEncodedSHA256Hash(const void* data, std::size_t size) {
  if (data == nullptr) return {};
  TalUtils::Sha256 hash;
  hash.Update(data, size);
  return EncodeDigest(hash);
}

TalStringT<WideChar> ComputeEncodedSHA256Hash(const Buffer& data) {
  if (data.IsEmpty()) return {};
  TalUtils::Sha256 hash;
  hash.Update(data);
  return EncodeDigest(hash);
}

void AppendToBuffer(Buffer& target, const Buffer& source) { target.Append(source); }

void AppendToBuffer(Buffer& target, TalStringViewT<char> text) {
  target.Append(text.text, static_cast<std::size_t>(text.length), 1);
}

void AppendToBuffer(Buffer& target, TalStringViewT<WideChar> text) {
  const TalStringT<WideChar> terminated(text);
  AppendToBuffer(target, TalUtils::DataEncoding::Utf8Encode(terminated));
}

TalStringT<char> StringAFromBuffer(const Buffer& data) {
  constexpr std::uint64_t kMost = std::numeric_limits<int>::max();
  const auto size = static_cast<std::size_t>(std::min(data.GetSize(), kMost));
  if (data.GetSegmentCount() == 1) {
    const void* bytes = data.GetSegment(0).data();
    return TalStringT<char>(static_cast<const char*>(bytes), static_cast<int>(size));
  }
  std::string bytes(size, '\0');
  data.ReadAt(0, bytes.data(), size);
  return TalStringT<char>(bytes.data(), static_cast<int>(size));
}

TalStringT<char> StreamToStringA(StreamIO& stream) {
  Buffer bytes;
  if (!stream.ReadToEnd(bytes)) return {};
  return StringAFromBuffer(bytes);
}

bool ShiftObjectIdentifier(StreamIO& stream, TalStringViewT<char> expected) {
  int matched = 0;
  bool matches = true;
  for (char byte = '\1'; byte != '\0';) {
    if (!stream.Read(&byte, 1)) return false;
    if (!matches || matched == expected.length) continue;
    matches = byte != '\0' && byte == expected.text[matched];
    if (matches) ++matched;
  }
  return matched == expected.length;
}

std::vector<TalStringViewT<WideChar>> SplitVcsPath(TalStringViewT<WideChar> path) {
  std::vector<TalStringViewT<WideChar>> components;
  TalUtils::VisitComponents(path, [&](auto component) { components.push_back(component); });
  return components;
}

}  // namespace TalVcs::Helpers
