#include <talvcs/format/internal/commit_format.h>
#include <talvcs/foundation/internal/utf.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace TalVcs {

namespace {

constexpr std::int64_t kTicksPerMinute = 600'000'000;
constexpr std::int64_t kTicksPerHour = 60 * kTicksPerMinute;
// More than all bytes of a text that do not come from its ids and texts.
constexpr std::size_t kFixedBytes = 128;

TalStringViewT<WideChar> UpToZero(TalStringViewT<WideChar> text) {
  const int zero = text.Find(WideChar());
  return zero < 0 ? text : text.Mid(0, zero);
}

/// The end of an info, from the e-mail's end on, in ASCII.
class InfoEnd {
 public:
  // The sign is that of the hours alone, so a negative bias of less than an hour is written with
  // "+". The ids of all commits depend on it.
  InfoEnd(Time time, TimeDelta bias) noexcept {
    const std::int64_t hours = bias.ticks / kTicksPerHour;
    const std::int64_t minutes = bias.ticks / kTicksPerMinute;
    Put("> ");
    PutNumber(static_cast<std::int32_t>(time.ToTimeT()));
    Put(hours < 0 ? " -" : " +");
    PutTwoDigits(std::abs(hours));
    PutTwoDigits(std::abs(minutes) % 60);
  }
  std::string_view Get() const noexcept {
    return {m_bytes, static_cast<std::size_t>(m_end - m_bytes)};
  }

 private:
  void Put(std::string_view text) noexcept { m_end = std::copy(text.begin(), text.end(), m_end); }
  void PutNumber(std::int64_t number) noexcept {
    m_end = std::to_chars(m_end, m_bytes + sizeof(m_bytes), number).ptr;
  }
  void PutTwoDigits(std::int64_t number) noexcept {
    if (number < 10) Put("0");
    PutNumber(number);
  }

  char m_bytes[48];
  char* m_end = m_bytes;
};

/// Writes what follows the role in a line of "author" or "committer", without the line end. `out`
/// takes texts of the commit and ASCII.
template <class Out>
void PutInfo(Out& out, TalStringViewT<WideChar> name, TalStringViewT<WideChar> email,
             std::string_view end) {
  out.Put(" ");
  out.Put(name);
  out.Put(" <");
  out.Put(email);
  out.Put(end);
}

/// Writes UTF-8 to memory that has room for three bytes a unit.
class Utf8Writer {
 public:
  explicit Utf8Writer(char* out) noexcept : m_out(out) {}

  void Put(std::string_view ascii) noexcept {
    std::memcpy(m_out, ascii.data(), ascii.size());
    m_out += ascii.size();
  }
  // U+0000 ends a text where it is written.
  void Put(TalStringViewT<WideChar> text) noexcept {
    m_out =
        TalPlatform::EncodeUtf8UpToZero(text.text, static_cast<std::size_t>(text.length), m_out);
  }
  void PutId(TalStringViewT<WideChar> id) noexcept {
    m_out += TalPlatform::EncodeUtf8(id.text, static_cast<std::size_t>(id.length), m_out);
  }
  char* End() const noexcept { return m_out; }

 private:
  char* m_out;
};

/// Appends to a text.
class TextWriter {
 public:
  explicit TextWriter(TalStringT<WideChar>& text) noexcept : m_text(text) {}

  void Put(std::string_view ascii) {
    for (const char character : ascii) m_text += static_cast<WideChar>(character);
  }
  void Put(TalStringViewT<WideChar> text) { m_text.Append(UpToZero(text)); }

 private:
  TalStringT<WideChar>& m_text;
};

std::size_t MostBytes(const CommitContent& content) noexcept {
  const auto units = [](TalStringViewT<WideChar> text) {
    return static_cast<std::size_t>(text.length);
  };
  return kFixedBytes + TalPlatform::kMaxUtf8BytesPerUnit *
                           (units(content.treeId) + units(content.parentId) +
                            2 * (units(content.authorName) + units(content.authorEmail)) +
                            units(content.description));
}

}  // namespace

CommitText::CommitText(const CommitContent& content) {
  const std::size_t most = MostBytes(content);
  if (most > m_onStack.size()) m_onHeap.resize(most);
  char* const start = m_onHeap.empty() ? m_onStack.data() : m_onHeap.data();
  Utf8Writer out(start);
  out.Put("tree ");
  out.PutId(content.treeId);
  out.Put("\n");
  if (content.hasParent) {
    out.Put("parent ");
    out.PutId(content.parentId);
    out.Put("\n");
  }
  const InfoEnd info_end(content.time, content.bias);
  for (const std::string_view role : {"author", "committer"}) {
    out.Put(role);
    PutInfo(out, content.authorName, content.authorEmail, info_end.Get());
    out.Put("\n");
  }
  out.Put("\n");
  out.Put(content.description);
  out.Put("\n");
  m_bytes = {start, static_cast<std::size_t>(out.End() - start)};
  // Only the id of a host's class can have a zero, which ends the whole text.
  m_bytes = m_bytes.substr(0, m_bytes.find('\0'));
  if (m_bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    TalPlatform::ThrowTextTooLong();
  }
}

Buffer WriteCommitText(const CommitContent& content) {
  const CommitText text(content);
  Buffer buffer;
  buffer.Append(text.Get().data(), text.Get().size());
  return buffer;
}

TalStringT<WideChar> WriteInfoLine(TalStringViewT<WideChar> role, TalStringViewT<WideChar> name,
                                   TalStringViewT<WideChar> email, Time time, TimeDelta bias) {
  TalStringT<WideChar> info(UpToZero(role));
  TextWriter out(info);
  PutInfo(out, name, email, InfoEnd(time, bias).Get());
  return info;
}

}  // namespace TalVcs
