#include "streams.h"

namespace Fuzz {

std::string StreamWriter::IdFor(char character) const {
  const auto index = static_cast<std::size_t>(static_cast<unsigned char>(character) - 'A');
  return character >= 'A' && index < m_ids.size() ? m_ids[index] : IdOf(character);
}

std::string StreamWriter::Expand(const std::string& text) const {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\1' && i + 1 < text.size()) {
      bytes += IdFor(text[++i]);
    } else if (text[i] == '\2') {
      const std::string rest = Expand(text.substr(i + 1));
      const std::size_t zero = rest.find('\0');
      return bytes + std::to_string(zero == std::string::npos ? 0 : rest.size() - zero - 1) + rest;
    } else {
      bytes += text[i];
    }
  }
  return bytes;
}

Model::Id StreamWriter::Add(const std::string& bytes) {
  m_ids.push_back(Model::Sha256Hex(bytes));
  return m_ids.back();
}

Model::Store ReadStore(Input& input, StreamWriter& writer, const Model::Text& rootPath) {
  Model::Store store;
  for (std::string part = input.Part(); !part.empty(); part = input.Part()) {
    if (part[0] == 'b') {
      Input branch(part.substr(1));
      const Model::Text name = Model::DecodeUtf8(branch.Line());
      store[Model::JoinPath(Model::BranchesPath(rootPath), name)] = writer.Expand(branch.Rest());
      continue;
    }
    const std::string bytes = writer.Expand(part.substr(1));
    const Model::Id digest = writer.Add(bytes);
    const Model::Id id = part[0] == 'o' ? digest : Model::ReadId(StreamWriter::IdOf(part[0]));
    store[Model::ObjectPath(rootPath, id)] = bytes;
  }
  return store;
}

}  // namespace Fuzz
