// Reads, builds and damages the journal of an object store in a folder.
//
// input  := "b" bytes | "r" action* "D" damage*
// action := "h" name LF digit | "d" name LF | "v" name LF value LF | "x" name LF | "n" byte
//         | "k" byte byte        names a pack and its size
//         | "R"                  ends a record
//         | "p" payload 0xFF     a record with these bytes as its payload
// damage := "c" byte byte        cuts the journal there
//         | "f" byte byte byte   changes a byte
//         | "a" bytes 0xFF       adds bytes at the end

#include "input.h"
#include "target.h"

#include <kit/internal/journal.h>
#include <tests/support/text.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace TalVcs;  // NOLINT(google-build-using-namespace): everything here is about it
using Fuzz::Require;
using Kit::Journal;
using Kit::JournalChanges;
using Kit::JournalProblem;
using Kit::JournalState;

bool operator==(const JournalState& a, const JournalState& b) {
  return a.heads == b.heads && a.values == b.values && a.removals == b.removals &&
         a.packs == b.packs && a.removedFiles == b.removedFiles;
}

/// Bytes of any kind are a journal, or are refused. A journal is the same however it is read.
void Read(const std::string& bytes) {
  Journal whole;
  if (whole.Read(bytes) != JournalProblem::None) return;
  Require(whole.GetSize() <= bytes.size(), "a journal is no longer than its bytes");
  Require(whole.HasTornTail() == (whole.GetSize() < bytes.size()), "the rest is a torn tail");
  Journal without_tail;
  Require(without_tail.Read(bytes.substr(0, whole.GetSize())) == JournalProblem::None &&
              !without_tail.HasTornTail() && without_tail.GetState() == whole.GetState(),
          "a journal needs no torn tail");
  Journal again;
  Require(again.Read(Journal::Write(whole.GetState())) == JournalProblem::None &&
              again.GetState() == whole.GetState(),
          "a checkpoint keeps the state");
}

/// A journal that grows, and the states at the ends of its records.
class Session {
 public:
  Session() { Take(Journal::Write(JournalState())); }

  void Build(Fuzz::Input& input);
  void Damage(Fuzz::Input& input);

 private:
  struct Step {
    std::size_t end;
    JournalState state;
  };

  void Take(const std::string& record) {
    m_bytes += record;
    Require(m_journal.Read(m_bytes) == JournalProblem::None && !m_journal.HasTornTail(),
            "what was written is read");
    Require(m_journal.GetState() == m_state, "a record makes its changes");
    m_steps.push_back({m_bytes.size(), m_state});
  }
  void EndRecord();
  void TakePayload(const std::string& payload);
  void CheckDamaged(const std::string& bytes) const;

  std::string m_bytes;
  Journal m_journal;
  JournalState m_state;
  JournalChanges m_changes;
  std::vector<Step> m_steps;
};

void Session::EndRecord() {
  const std::string record = m_journal.MakeRecord(m_changes);
  Journal onward = m_journal;
  Require(onward.ReadOn(record) == JournalProblem::None && onward.GetState() == m_state,
          "a record continues the journal");
  m_changes = JournalChanges();
  Take(record);
}

void Session::TakePayload(const std::string& payload) {
  JournalState next = m_journal.GetState();
  if (!Journal::Apply(payload, next)) return;
  Read(Journal::Write(next));
}

void Session::Build(Fuzz::Input& input) {
  while (!input.IsAtEnd()) {
    switch (input.Byte()) {
      case 'h': {
        const std::string name = input.Line();
        constexpr std::string_view kDigits = "0123456789abcdef";
        const Id id(Testing::Wide(std::string(64, kDigits[input.Byte() % kDigits.size()])));
        const Kit::HeadMove move{name, Id(), id};
        m_changes.Move({&move, 1});
        m_state.heads[name] = id;
        break;
      }
      case 'd': {
        const Kit::HeadMove move{input.Line(), Id(), Id()};
        m_changes.Move({&move, 1});
        m_state.heads.erase(move.name);
        break;
      }
      case 'v': {
        const std::string name = input.Line();
        m_state.values[name] = input.Line();
        m_changes.SetValue(name, m_state.values[name]);
        break;
      }
      case 'x': {
        const std::string name = input.Line();
        m_changes.RemoveValue(name);
        m_state.values.erase(name);
        break;
      }
      case 'n':
        m_state.removals = input.Byte();
        m_changes.SetRemovals(m_state.removals);
        break;
      case 'k': {
        const std::uint32_t number = input.Byte();
        m_state.packs[number] = input.Byte();
        m_changes.SetPack(number, m_state.packs[number]);
        break;
      }
      case 'R':
        EndRecord();
        break;
      case 'p':
        TakePayload(input.Part());
        break;
      case 'D':
        return;
      default:
        break;
    }
  }
}

/// A damaged journal is refused or has one of its states.
void Session::CheckDamaged(const std::string& bytes) const {
  Journal journal;
  if (journal.Read(bytes) != JournalProblem::None) return;
  const auto found = std::find_if(m_steps.begin(), m_steps.end(), [&](const Step& step) {
    return step.end == journal.GetSize() && step.state == journal.GetState();
  });
  Require(found != m_steps.end(), "a damaged journal has a former state");
}

void Session::Damage(Fuzz::Input& input) {
  std::string bytes = m_bytes;
  while (!input.IsAtEnd()) {
    const std::uint8_t kind = input.Byte();
    if (kind == 'a') {
      bytes += input.Part();
    } else if (kind == 'c' || kind == 'f') {
      const std::size_t position = input.Byte() * std::size_t{256} + input.Byte();
      if (position >= bytes.size()) continue;
      if (kind == 'c') {
        bytes.resize(position);
      } else {
        bytes[position] = static_cast<char>(input.Byte());
      }
    }
    CheckDamaged(bytes);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  if (input.Byte() == 'b') {
    Read(input.Rest());
    return 0;
  }
  Session session;
  session.Build(input);
  session.Damage(input);
  return 0;
}
