#include <talvcs/foundation/data_encoding.h>
#include <tests/support/bytes.h>
#include <tests/support/memory_blob_io.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace TalVcs::Testing {
namespace {

std::string ToUtf8(const TalStringT<WideChar>& text) {
  return Bytes(TalUtils::DataEncoding::Utf8Encode(text.GetString()));
}

TalStringT<WideChar> FromUtf8(std::string_view text) {
  return TalStringT<WideChar>(TalStringT<char>(TalStringViewT<char>(text)));
}

void Spoil(std::string& bytes, MemoryBlobIo::Fault fault) {
  if (fault == MemoryBlobIo::Fault::Shortened) bytes.resize(bytes.size() / 2);
  if (fault == MemoryBlobIo::Fault::Altered) bytes[bytes.size() / 2] ^= 0x15;
}

}  // namespace

void MemoryBlobIo::SpoilOpen(std::size_t n, Fault fault) {
  m_openPlan = {n, fault};
  m_fired = false;
}

void MemoryBlobIo::SpoilCommit(std::size_t n, Fault fault) {
  m_commitPlan = {n, fault};
  m_fired = false;
}

MemoryBlobIo::Fault MemoryBlobIo::NextFault(Plan& plan) {
  if (plan.fault == Fault::None || plan.countdown-- != 0) return Fault::None;
  m_fired = true;
  return std::exchange(plan.fault, Fault::None);
}

void MemoryBlobIo::Record(const char* call, const std::string& path) {
  if (records) calls.push_back(call + path);
}

std::string MemoryBlobIo::ObjectPath(std::string_view id) {
  return "doc/.vcs/objects/" + std::string(id.substr(0, 2)) + '/' +
         std::string(id.substr(std::min<std::size_t>(2, id.size())));
}

std::string MemoryBlobIo::BranchPath(std::string_view name) {
  return "doc/.vcs/refs/heads/" + std::string(name);
}

void MemoryBlobIo::PutObject(std::string_view id, std::string_view bytes) {
  streams[ObjectPath(id)] = bytes;
}

void MemoryBlobIo::PutBranch(std::string_view name, std::string_view bytes) {
  streams[BranchPath(name)] = bytes;
}

std::size_t MemoryBlobIo::CountOpens(std::string_view id) const {
  return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), "open " + ObjectPath(id)));
}

std::size_t MemoryBlobIo::MostOpensOfOneStream() const {
  std::map<std::string, std::size_t> counts;
  std::size_t most = 0;
  for (const std::string& call : calls) {
    if (call.starts_with("open ")) most = std::max(most, ++counts[call]);
  }
  return most;
}

Stream MemoryBlobIo::CreateBlobStream(const TalStringT<WideChar>& path) {
  Record("create ", ToUtf8(path));
  return MemStream::Create(0);
}

bool MemoryBlobIo::CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) {
  Record("commit ", ToUtf8(path));
  const Fault fault = NextFault(m_commitPlan);
  if (fault == Fault::Missing) return false;
  Buffer bytes;
  if (!StreamIO(stream).ReadToEnd(bytes)) return false;
  std::string& stored = streams[ToUtf8(path)] = Bytes(bytes);
  Spoil(stored, fault);
  return true;
}

void MemoryBlobIo::RemoveStorage(const TalStringT<WideChar>& storagePath) {
  Record("remove ", ToUtf8(storagePath));
  const std::string below = ToUtf8(storagePath) + '/';
  std::erase_if(streams, [&](const auto& stream) { return stream.first.starts_with(below); });
}

StreamIO MemoryBlobIo::OpenBlob(const TalStringT<WideChar>& path) {
  Record("open ", ToUtf8(path));
  const Fault fault = NextFault(m_openPlan);
  const auto found = streams.find(ToUtf8(path));
  if (found == streams.end() || fault == Fault::Missing) {
    return missingReadsAsEmpty ? StreamIO(MemStream::Create(0)) : StreamIO();
  }
  std::string bytes = found->second;
  Spoil(bytes, fault);
  return StreamIO(StreamOf(bytes));
}

std::vector<TalStringT<WideChar>> MemoryBlobIo::ListBlobs(
    const TalStringT<WideChar>& directoryPath) {
  Record("list ", ToUtf8(directoryPath));
  const std::string below = ToUtf8(directoryPath) + '/';
  std::vector<TalStringT<WideChar>> names;
  for (const auto& [path, bytes] : streams) {
    if (path.starts_with(below)) names.push_back(FromUtf8(path.substr(below.size())));
  }
  return names;
}

std::string Packed(std::string_view type, std::string_view data) {
  return std::string(type) + ' ' + std::to_string(data.size()) + '\0' + std::string(data);
}

std::string Record(std::string_view type, std::string_view name, std::string_view id) {
  return (type == "tree" ? "40000 " : "100644 ") + std::string(type) + ' ' + std::string(name) +
         '\0' + std::string(id);
}

std::string CommitText(std::string_view tree, std::string_view parent,
                       std::string_view description) {
  std::string text = "tree " + std::string(tree) + '\n';
  if (!parent.empty()) text += "parent " + std::string(parent) + '\n';
  text += "author Ann <ann@example.org> 1000000000 +0000\n";
  text += "committer Ann <ann@example.org> 1000000000 +0000\n\n";
  return text + std::string(description) + '\n';
}

std::string FakeId(unsigned n) {
  char digits[9];
  std::snprintf(digits, sizeof(digits), "%08x", n + 0x10000000u);
  std::string id;
  while (id.size() < 64) id += digits;
  return id;
}

}  // namespace TalVcs::Testing
