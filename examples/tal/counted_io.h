#pragma once

#include "terminal.h"
#include "text.h"

#include <string>
#include <vector>

namespace Tal {

/// Passes the reading of a store on, and shows how far it has got.
class CountedReader : public TalVcs::IBlobReader {
 public:
  CountedReader(TalVcs::IBlobReader& reader, const Terminal& terminal, const std::string& label)
      : m_reader(reader), m_progress(terminal, label) {}

  TalVcs::StreamIO OpenBlob(const WideString& path) override {
    TalVcs::StreamIO stream = m_reader.OpenBlob(path);
    m_progress.Count(stream.GetSize());
    return stream;
  }

  std::vector<WideString> ListBlobs(const WideString& directoryPath) override {
    return m_reader.ListBlobs(directoryPath);
  }

 private:
  TalVcs::IBlobReader& m_reader;
  Progress m_progress;
};

/// Passes the writing of a store on, and shows how far it has got.
class CountedWriter : public TalVcs::IBlobWriter {
 public:
  CountedWriter(TalVcs::IBlobWriter& writer, const Terminal& terminal, const std::string& label)
      : m_writer(writer), m_progress(terminal, label) {}

  TalVcs::Stream CreateBlobStream(const WideString& path) override {
    return m_writer.CreateBlobStream(path);
  }

  bool CommitBlobStream(const WideString& path, TalVcs::Stream stream) override {
    m_progress.Count(TalVcs::StreamIO(stream).GetSize());
    return m_writer.CommitBlobStream(path, stream);
  }

  void RemoveStorage(const WideString& storagePath) override {
    m_writer.RemoveStorage(storagePath);
  }

 private:
  TalVcs::IBlobWriter& m_writer;
  Progress m_progress;
};

}  // namespace Tal
