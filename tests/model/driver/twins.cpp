#include "twins.h"

namespace ModelTest {

LibText ToLib(const Model::Text& text) {
  const std::basic_string<TalVcs::WideChar> units(text.begin(), text.end());
  return LibText(units.data(), static_cast<int>(units.size()));
}

TalVcs::Blob BlobOf(const Model::Bytes& data) {
  TalVcs::Buffer buffer;
  // Two segments, where there are bytes for both.
  const std::size_t half = data.size() / 2;
  buffer.Append(data.data(), half);
  buffer.Append(data.data() + half, data.size() - half);
  return TalVcs::Blob(buffer);
}

TalVcs::Id ToLibId(const Model::Id& id) { return TalVcs::Id(ToLib(Model::DecodeUtf8(id))); }

Model::Text FromLib(TalVcs::TalStringViewT<TalVcs::WideChar> text) {
  return Model::Text(text.text, text.text + text.length);
}

Model::Id FromLib(const TalVcs::Id& id) {
  const auto view = id.View();
  Model::Id text;
  for (int i = 0; i < view.length; ++i) {
    if (view.text[i] >= 0x80) return Model::EncodeUtf8(FromLib(view));
    text += static_cast<char>(view.text[i]);
  }
  return text;
}

Model::Bytes FromLib(const TalVcs::Buffer& buffer) {
  Model::Bytes bytes;
  for (const auto& segment : buffer.LockForRead()) {
    bytes.append(static_cast<const char*>(segment.GetData()), segment.GetSize());
  }
  return bytes;
}

std::vector<Model::Text> FromLib(const std::vector<LibText>& texts) {
  std::vector<Model::Text> result;
  result.reserve(texts.size());
  for (const LibText& text : texts) result.push_back(FromLib(text));
  return result;
}

Model::Stamp StampOf(const TalVcs::Commit& commit) {
  return {commit.GetCommitTime().ticks, commit.GetCommitTimezoneBias().ticks};
}

std::string Show(const Model::Text& text) { return Show(Model::EncodeUtf8(text)); }

std::string Show(const std::string& bytes) {
  std::string shown = "\"";
  for (const char c : bytes) shown += c == '\0' ? "\\0" : c == '\n' ? "\\n" : std::string(1, c);
  return shown + "\"";
}

std::string Show(std::uint64_t number) { return std::to_string(number); }

std::string Show(const std::vector<Model::Text>& texts) {
  std::string shown = "[";
  for (const Model::Text& text : texts) shown += (shown.size() > 1 ? ", " : "") + Show(text);
  return shown + "]";
}

}  // namespace ModelTest
