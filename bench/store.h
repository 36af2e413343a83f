#pragma once

#include <talvcs/talvcs.h>

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace TalVcs::Bench {

/// A store that lays all streams one after the other into one buffer, whose memory is there
/// already: a save costs what the library does, and one copy of each byte.
///
/// A path isn't looked up while streams are written, nor is one stream open beside another.
class StreamStore final : public IBlobWriter, public IBlobReader {
 public:
  /// Makes room for `capacity` bytes. A save that needs more fails.
  explicit StreamStore(std::size_t capacity);
  ~StreamStore() override;

  Stream CreateBlobStream(const TalStringT<WideChar>& path) override;
  bool CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) override;
  void RemoveStorage(const TalStringT<WideChar>& storagePath) override;
  StreamIO OpenBlob(const TalStringT<WideChar>& path) override;
  std::vector<TalStringT<WideChar>> ListBlobs(const TalStringT<WideChar>& directoryPath) override;

  /// Makes the table by which `OpenBlob` finds what was written.
  void BuildIndex();

  std::size_t GetStreamCount() const { return m_written.size(); }

 private:
  class Window;
  struct Written {
    TalStringT<WideChar> path;
    std::size_t offset;
    std::size_t size;
  };

  std::string m_bytes;
  std::size_t m_used = 0;
  std::shared_ptr<Window> m_window;
  std::vector<Written> m_written;
  std::unordered_map<TalStringT<WideChar>, std::size_t> m_index;
};

/// A store that keeps the library's own buffers, without copying a byte.
class SharingStore final : public IBlobWriter, public IBlobReader {
 public:
  Stream CreateBlobStream(const TalStringT<WideChar>& path) override;
  bool CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) override;
  void RemoveStorage(const TalStringT<WideChar>& storagePath) override;
  StreamIO OpenBlob(const TalStringT<WideChar>& path) override;
  std::vector<TalStringT<WideChar>> ListBlobs(const TalStringT<WideChar>& directoryPath) override;

  /// Does nothing: this store finds its streams by their paths at all times.
  void BuildIndex() {}

  std::size_t GetStreamCount() const { return m_streams.size(); }

 private:
  std::unordered_map<TalStringT<WideChar>, Buffer> m_streams;
};

}  // namespace TalVcs::Bench
