#pragma once

#include <talvcs/persistence/blob_io.h>

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace TalVcs::Testing {

/// A store in a map, reader and writer in one, of whose calls one goes wrong. The calls on its
/// streams count as well. Paths are as ASCII text.
class FailingBlobIo final : public IBlobWriter, public IBlobReader {
 public:
  /// What becomes of a call: nothing is done and that is said; half of it is done; all of it is
  /// done, but with another byte, name, size or place.
  enum class Fault { None, Failed, Shortened, Altered };

  std::map<std::string, std::string> streams;

  /// Spoils call number `number` from now on, counted from 0.
  void Spoil(std::size_t number, Fault fault);
  /// True once a call has been spoilt; its name is then in `spoilt`.
  bool HasFired() const noexcept { return m_fired; }
  std::string spoilt;

  /// Number of streams that weren't taken.
  int refused = 0;

  Stream CreateBlobStream(const TalStringT<WideChar>& path) override;
  bool CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) override;
  void RemoveStorage(const TalStringT<WideChar>& storagePath) override;
  StreamIO OpenBlob(const TalStringT<WideChar>& path) override;
  std::vector<TalStringT<WideChar>> ListBlobs(const TalStringT<WideChar>& directoryPath) override;

 private:
  class FailingStream;

  Fault NextFault(const char* call);

  std::size_t m_countdown = 0;
  Fault m_fault = Fault::None;
  bool m_fired = false;
};

}  // namespace TalVcs::Testing
