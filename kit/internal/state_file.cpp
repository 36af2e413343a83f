#include <kit/internal/state_file.h>
#include <kit/internal/store_paths.h>
#include <kit/text.h>
#include <talvcs/persistence/path_builder.h>

#include <charconv>
#include <utility>

namespace TalVcs::Kit {

namespace {

// No store writes a larger file: a journal ends before, and a state that a `DirectoryStore` wrote
// has room for 60 million objects. A damaged file system may name any size.
constexpr std::uint64_t kMostStateBytes = std::uint64_t{2} << 30;

Buffer BufferFrom(std::string_view bytes) {
  Buffer buffer;
  buffer.Append(bytes.data(), bytes.size());
  return buffer;
}

Error MayHaveHappened(Error error) {
  error.code = ErrorCode::Unknown;
  error.unchanged = "the change is in place but may not outlive a loss of power";
  return error;
}

}  // namespace

Status StateFile::Refuse(JournalProblem problem) {
  m_hasJournal = false;
  if (problem == JournalProblem::Unsupported) {
    m_folder.Fail("cannot read", m_folder.StatePath(), "it is of a later version",
                  ErrorCode::Unsupported);
  } else {
    m_folder.Fail("cannot read", m_folder.StatePath(), "its content is damaged");
  }
  return m_folder.LastFailure();
}

Status StateFile::Refresh() {
  if (!m_hasJournal) return ReadWhole();
  // The journal was replaced if it doesn't have the same end at the same place.
  Buffer buffer;
  const std::uint64_t from = m_journal.GetSize() - Journal::kDigestSize;
  if (m_folder.Files().ReadFileFrom(m_folder.StatePath(), from, buffer)) return ReadWhole();
  const std::string bytes = BytesFromBuffer(buffer);
  if (!bytes.starts_with(m_journal.GetEnd())) return ReadWhole();
  const JournalProblem problem =
      m_journal.ReadOn(std::string_view(bytes).substr(Journal::kDigestSize));
  return problem == JournalProblem::None ? Status() : Refuse(problem);
}

Status StateFile::ReadWhole() {
  m_hasJournal = false;
  m_former.reset();
  const StoreFolder::Path path = m_folder.StatePath();
  std::uint64_t size = 0;
  if (!m_folder.Files().GetFileSize(path, size) && size > kMostStateBytes) {
    m_folder.Fail("cannot read", path, "it is larger than the state of any store");
    return m_folder.LastFailure();
  }
  Buffer bytes;
  const std::error_code error = m_folder.Files().ReadFile(path, bytes);
  if (error == std::errc::no_such_file_or_directory) {
    if (m_folder.HasObjectFiles()) {
      m_folder.Fail("cannot read", path, "it is missing, although the store has objects");
    } else {
      m_folder.Fail("cannot find", path, error.message(), ErrorCode::NotFound);
    }
    return m_folder.LastFailure();
  }
  if (error) {
    m_folder.Fail("cannot read", path, error);
    return m_folder.LastFailure();
  }
  const std::string text = BytesFromBuffer(bytes);
  if (!Journal::IsJournal(text)) {
    std::optional<StoreState> former = StoreState::Decode(bytes);
    return former ? TakeFormer(std::move(*former), bytes) : Refuse(JournalProblem::Damaged);
  }
  const JournalProblem problem = m_journal.Read(text);
  if (problem != JournalProblem::None) return Refuse(problem);
  m_hasJournal = true;
  return {};
}

// Branches become heads, other streams values under their paths. The number of removals is made of
// the digest, so that two states differ in it and no journal reaches it by counting.
Status StateFile::TakeFormer(StoreState state, const Buffer& bytes) {
  m_state = JournalState();
  const std::string digest = StoreState::DigestOf(bytes);
  std::from_chars(digest.data(), digest.data() + 16, m_state.removals, 16);
  const std::string prefix = ToUtf8(PrefixBelow(PathBuilder(ToWide(m_rootPath)).GetBranchesPath()));
  for (const auto& [path, content] : state.streams) {
    std::string name = ToUtf8(path);
    std::string text = BytesFromBuffer(content);
    if (!name.starts_with(prefix)) {
      m_state.values.emplace(std::move(name), std::move(text));
      continue;
    }
    if (!KeyFromHex(text)) return Refuse(JournalProblem::Damaged);
    m_state.heads.emplace(name.substr(prefix.size()), Id(ToWide(text)));
  }
  m_former = std::move(state);
  return {};
}

Status StateFile::Record(const JournalChanges& changes) {
  const std::string record = m_journal.MakeRecord(changes);
  if (!record.empty() && !m_journal.HasTornTail() && !m_journal.HasOutgrownCheckpoint()) {
    return Append(record);
  }
  JournalState next = m_journal.GetState();
  Journal::Apply(changes.GetPayload(), next);
  return Replace(next);
}

Status StateFile::Append(const std::string& record) {
  const StoreFolder::Path path = m_folder.StatePath();
  std::error_code error = m_folder.Files().AppendFile(path, BufferFrom(record));
  if (error) {
    m_folder.Fail("cannot write", path, error);
    Error failure = m_folder.LastFailure();
    failure.unchanged = "the store is as it was";
    // The whole record may be there all the same.
    const std::uint64_t size = m_journal.GetSize();
    if (!Refresh() || m_journal.GetSize() != size) return MayHaveHappened(std::move(failure));
    return failure;
  }
  m_journal.ReadOn(record);
  if (m_folder.IsDurable()) error = m_folder.Files().SyncFile(path);
  if (!error) return {};
  m_folder.Fail("cannot sync", path, error);
  return MayHaveHappened(m_folder.LastFailure());
}

Status StateFile::Replace(const JournalState& state) {
  const std::string bytes = Journal::Write(state);
  if (bytes.empty()) {
    m_folder.Fail("cannot write", m_folder.StatePath(), "the store has too many branches or values",
                  ErrorCode::Unsupported);
    return m_folder.LastFailure();
  }
  const StoreFolder::Replaced replaced = m_folder.ReplaceStateFile(BufferFrom(bytes));
  if (replaced == StoreFolder::Replaced::No) {
    Error failure = m_folder.LastFailure();
    failure.unchanged = "the store is as it was";
    return failure;
  }
  m_former.reset();
  m_hasJournal = m_journal.Read(bytes) == JournalProblem::None;
  if (replaced == StoreFolder::Replaced::Yes) return {};
  return MayHaveHappened(m_folder.LastFailure());
}

}  // namespace TalVcs::Kit
