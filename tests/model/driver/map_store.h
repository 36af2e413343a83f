#pragma once

#include "twins.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace ModelTest {

/// A host's store: a map in memory, which says how often each stream was read.
class MapStore : public TalVcs::IBlobReader, public TalVcs::IBlobWriter {
 public:
  explicit MapStore(Model::Store& streams) : m_streams(streams) {}

  TalVcs::Stream CreateBlobStream(const LibText&) override { return TalVcs::MemStream::Create(0); }
  bool CommitBlobStream(const LibText& path, TalVcs::Stream stream) override {
    TalVcs::StreamIO reader(stream);
    TalVcs::Buffer bytes;
    reader.ReadToEnd(bytes);
    return m_streams.emplace(FromLib(path), FromLib(bytes)).second;
  }
  void RemoveStorage(const LibText&) override { m_streams.clear(); }

  TalVcs::StreamIO OpenBlob(const LibText& path) override {
    const auto found = m_streams.find(FromLib(path));
    if (found == m_streams.end()) return {};
    m_mostReads = std::max(m_mostReads, ++m_reads[found->first]);
    if (m_reads[found->first] > 1) m_readTwice = found->first;
    const TalVcs::Stream stream = TalVcs::MemStream::Create(0);
    TalVcs::Buffer bytes;
    bytes.Append(found->second.data(), found->second.size());
    TalVcs::Stream(stream).Write(bytes);
    TalVcs::Stream(stream).SeekToBegin();
    return TalVcs::StreamIO(stream);
  }
  std::vector<LibText> ListBlobs(const LibText& directory) override {
    std::vector<LibText> names;
    for (const Model::Text& name : Model::BranchNames(m_streams, FromLib(directory))) {
      names.push_back(ToLib(name));
    }
    return names;
  }

  /// A stream that was read more than once, if there is any.
  const std::optional<Model::Text>& GetReadTwice() const { return m_readTwice; }
  /// The largest number of times that any stream was read.
  std::uint64_t GetMostReads() const { return m_mostReads; }

 private:
  Model::Store& m_streams;
  std::map<Model::Text, std::uint64_t> m_reads;
  std::optional<Model::Text> m_readTwice;
  std::uint64_t m_mostReads = 0;
};

}  // namespace ModelTest
