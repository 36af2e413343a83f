#pragma once

#include <talvcs/talvcs.h>

#include <string>
#include <unordered_map>
#include <vector>

namespace TalVcs::Bench {

/// A store that lays all streams one behind the other into one buffer, whose memory is there already:
/// a save costs what the library does, and one copy of each byte.
class StreamStore final : public IBlobWriter, public IBlobReader {
 public:
  /// Makes room for `capacity` bytes. A save that needs more fails.
  explicit StreamStore(std::size_t capacity);

  Stream CreateBlobStream(const TalStringT<WideChar>& path) override;
  bool CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) override;
  void RemoveStorage(const TalStringT<WideChar>& storagePath) override;
  StreamIO OpenBlob(const TalStringT<WideChar>& path) override;
  std::vector<TalStringT<WideChar>> ListBlobs(const TalStringT<WideChar>& directoryPath) override;

  std::size_t GetStreamCount() const { return m_streams.size(); }
  std::size_t GetUsedBytes() const { return m_used; }

 private:
  class Window;
  struct Range {
    std::size_t offset;
    std::size_t size;
  };

  std::string m_bytes;
  std::size_t m_used = 0;
  std::unordered_map<TalStringT<WideChar>, Range> m_streams;
};

/// A store that keeps the library's own buffers, without copying a byte.
class SharingStore final : public IBlobWriter, public IBlobReader {
 public:
  Stream CreateBlobStream(const TalStringT<WideChar>& path) override;
  bool CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) override;
  void RemoveStorage(const TalStringT<WideChar>& storagePath) override;
  StreamIO OpenBlob(const TalStringT<WideChar>& path) override;
  std::vector<TalStringT<WideChar>> ListBlobs(const TalStringT<WideChar>& directoryPath) override;

  std::size_t GetStreamCount() const { return m_streams.size(); }

 private:
  std::unordered_map<TalStringT<WideChar>, Buffer> m_streams;
};

}  // namespace TalVcs::Bench
