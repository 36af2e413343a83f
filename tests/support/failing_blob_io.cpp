#include <tests/support/failing_blob_io.h>

#include <tests/support/text.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace TalVcs::Testing {
namespace {

using Fault = FailingBlobIo::Fault;

template <class Number>
Number Spoilt(Number number, Fault fault) {
  switch (fault) {
    case Fault::Failed:
      return 0;
    case Fault::Shortened:
      return number / 2;
    case Fault::Altered:
      return number + 1;
    case Fault::None:
      break;
  }
  return number;
}

void Alter(char* bytes, std::size_t size, Fault fault) {
  if (fault == Fault::Altered && size != 0) bytes[size / 2] ^= 0x15;
}

}  // namespace

/// A stream over bytes of its own, without any short cut, so that each step is a call.
class FailingBlobIo::FailingStream final : public TalUtils::IStream {
 public:
  FailingStream(FailingBlobIo& owner, std::string bytes)
      : m_owner(owner), m_bytes(std::move(bytes)) {}

  std::size_t Read(void* data, std::size_t size) override {
    const Fault fault = m_owner.NextFault("Read");
    const std::size_t there = m_bytes.size() - std::min(m_position, m_bytes.size());
    std::size_t count = std::min(size, there);
    if (fault == Fault::Failed || fault == Fault::Shortened) count = Spoilt(count, fault);
    if (count != 0) std::memcpy(data, m_bytes.data() + m_position, count);
    Alter(static_cast<char*>(data), count, fault);
    m_position += count;
    return count;
  }

  std::size_t Write(const void* data, std::size_t size) override {
    const Fault fault = m_owner.NextFault("Write");
    std::string bytes(static_cast<const char*>(data), size);
    if (fault == Fault::Failed || fault == Fault::Shortened) bytes.resize(Spoilt(size, fault));
    Alter(bytes.data(), bytes.size(), fault);
    if (m_bytes.size() < m_position + bytes.size()) m_bytes.resize(m_position + bytes.size());
    m_bytes.replace(m_position, bytes.size(), bytes);
    m_position += bytes.size();
    return bytes.size();
  }

  bool Seek(std::uint64_t position) override {
    const Fault fault = m_owner.NextFault("Seek");
    if (fault == Fault::Failed) return false;
    m_position = static_cast<std::size_t>(Spoilt(position, fault));
    return true;
  }

  std::uint64_t GetPosition() const override {
    return Spoilt<std::uint64_t>(m_position, m_owner.NextFault("GetPosition"));
  }
  std::uint64_t GetSize() const override {
    return Spoilt<std::uint64_t>(m_bytes.size(), m_owner.NextFault("GetSize"));
  }

 private:
  FailingBlobIo& m_owner;
  std::string m_bytes;
  std::size_t m_position = 0;
};

void FailingBlobIo::Spoil(std::size_t number, Fault fault) {
  m_countdown = number;
  m_fault = fault;
  m_fired = false;
}

FailingBlobIo::Fault FailingBlobIo::NextFault(const char* call) {
  if (m_fault == Fault::None || m_countdown-- != 0) return Fault::None;
  m_fired = true;
  spoilt = call;
  return std::exchange(m_fault, Fault::None);
}

Stream FailingBlobIo::CreateBlobStream(const TalStringT<WideChar>& /*path*/) {
  const Fault fault = NextFault("CreateBlobStream");
  if (fault == Fault::Failed || fault == Fault::Shortened) return Stream();
  const char* const old = fault == Fault::Altered ? "bytes of another" : "";
  return Stream(std::make_shared<FailingStream>(*this, old));
}

bool FailingBlobIo::CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) {
  const Fault fault = NextFault("CommitBlobStream");
  Buffer read;
  StreamIO reader(stream);
  if (fault == Fault::Failed || !reader || !reader.ReadToEnd(read)) {
    ++refused;
    return false;
  }
  std::string bytes(static_cast<std::size_t>(read.GetSize()), '\0');
  read.ReadAt(0, bytes.data(), bytes.size());
  if (fault == Fault::Shortened) bytes.resize(bytes.size() / 2);
  Alter(bytes.data(), bytes.size(), fault);
  streams[Ascii(path)] = std::move(bytes);
  return true;
}

void FailingBlobIo::RemoveStorage(const TalStringT<WideChar>& storagePath) {
  const Fault fault = NextFault("RemoveStorage");
  if (fault == Fault::Failed) return;
  const std::string below = Ascii(storagePath) + '/';
  std::size_t kept = fault == Fault::Shortened ? streams.size() / 2 : 0;
  std::erase_if(streams, [&](const auto& stream) {
    if (!stream.first.starts_with(below)) return false;
    if (kept != 0) --kept;
    return kept == 0;
  });
}

StreamIO FailingBlobIo::OpenBlob(const TalStringT<WideChar>& path) {
  const Fault fault = NextFault("OpenBlob");
  const auto found = streams.find(Ascii(path));
  if (found == streams.end() || fault == Fault::Failed) return StreamIO();
  std::string bytes = found->second;
  if (fault == Fault::Shortened) bytes.resize(bytes.size() / 2);
  Alter(bytes.data(), bytes.size(), fault);
  return StreamIO(Stream(std::make_shared<FailingStream>(*this, std::move(bytes))));
}

std::vector<TalStringT<WideChar>> FailingBlobIo::ListBlobs(
    const TalStringT<WideChar>& directoryPath) {
  const Fault fault = NextFault("ListBlobs");
  const std::string below = Ascii(directoryPath) + '/';
  std::vector<TalStringT<WideChar>> names;
  for (const auto& [path, bytes] : streams) {
    if (path.starts_with(below)) names.push_back(Wide(path.substr(below.size())));
  }
  if (fault == Fault::Failed) names.clear();
  if (fault == Fault::Shortened) names.resize(names.size() / 2);
  if (fault == Fault::Altered && !names.empty()) names.front() += '!';
  return names;
}

}  // namespace TalVcs::Testing
