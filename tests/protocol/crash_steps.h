// The steps of crash_protocol.py. Why they are as they are is explained there and in
// store_protocol.py.

#pragma once

#include "crash_state.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <optional>

namespace CrashProtocol {

/// Calls `emit` with the state after each step that is possible.
template <class Emit>
class Steps {
 public:
  Steps(const Graph& graph, bool reads, Emit& emit)
      : m_graph(graph), m_reads(reads), m_emit(emit) {}

  void From(const State& state) {
    Crashes(state);
    for (std::size_t index = 0; index < kWriters; ++index) WriterSteps(state, index);
    CleanerSteps(state);
    if (m_reads) ReaderSteps(state);
  }

 private:
  // Crashes

  void Crashes(const State& state) {
    Crash(state, state.stored);
    for (std::size_t index = 0; index < state.unsavedCount; ++index) {
      Crash(state, state.unsaved[index]);
    }
  }

  void Crash(const State& state, const Stored& stored) {
    State after = WithoutUnsaved(state);
    after.stored = stored;
    for (Place& place : after.places) place.isConnected = place.writer.at == At::Idle;
    if (!(after == state)) m_emit(after);
  }

  static State WithoutUnsaved(State state) {
    state.unsaved = {};
    state.unsavedCount = 0;
    return state;
  }

  // Writers

  void WriterSteps(const State& state, std::size_t index) {
    const Place& place = state.places[index];
    const At at = place.writer.at;
    if (place.isSent && place.head == place.writer.commit) return m_emit(Ended(state, index));
    const bool is_move = at == At::Move || (at == At::Idle && place.head != kNone);
    if (is_move) CrashInMove(state, index);
    Attempt(state, index, [&](State after) {
      if (is_move && after.places[index].head != place.head) {
        State lost = WithoutUnsaved(state);
        lost.places[index].head = after.places[index].head;
        lost.stored.objects = after.stored.objects;
        CrashInMove(lost, index);
        m_emit(Ended(WithoutUnsaved(after), index));
      } else if (at == At::Write && !(after.stored == state.stored)) {
        if (!state.isPass) after.stored.made = state.stored.made;
        after.unsaved = state.unsaved;
        if (state.unsavedCount == kMostUnsaved) std::abort();
        after.unsaved[state.unsavedCount] = state.stored;
        after.unsavedCount = static_cast<Byte>(state.unsavedCount + 1);
        State lost = state;
        lost.stored = after.stored;
        lost.unsaved = after.unsaved;
        lost.unsavedCount = after.unsavedCount;
        Crashes(lost);
        m_emit(after);
      } else {
        m_emit(after);
      }
    });
  }

  void CrashInMove(State state, std::size_t index) {
    state.places[index].isSent = true;
    Crashes(state);
  }

  static State Ended(State state, std::size_t index) {
    Place& place = state.places[index];
    place = {Writer(), place.head, true, false, place.head};
    return state;
  }

  /// Calls `next` with the states after a step of the writer, with the checks of one that has lost
  /// its connection.
  template <class Next>
  void Attempt(const State& state, std::size_t index, Next next) {
    const Place& place = state.places[index];
    const Writer& writer = place.writer;
    State checked = state;
    if (!place.isConnected && writer.at == At::Write && writer.isCurrent) {
      const auto objects = Renewed(state, writer);
      if (!objects) return next(StartedOver(state, index));
      checked.stored.objects = *objects;
      checked.places[index].isConnected = true;
    } else if (!place.isConnected && writer.at == At::Move) {
      checked.places[index].writer.isCurrent = false;
    }
    switch (writer.at) {
      case At::Idle:
        return Begin(checked, index, next);
      case At::Look:
        return next(Looked(checked, index));
      case At::Write:
        return next(Written(checked, index));
      case At::Move:
        return next(Moved(state, checked, index));
    }
  }

  template <class Next>
  void Begin(const State& state, std::size_t index, Next next) {
    State after = state;
    Place& place = after.places[index];
    if (place.head != kNone) {
      place.head = kNone;
      return next(after);
    }
    for (const Byte commit : m_graph.commits) {
      if (commit == kNone) continue;
      place.writer = Beginning(commit);
      next(after);
    }
  }

  static Writer Beginning(Byte commit) { return {At::Look, commit, commit, 0, 0, 0, true}; }

  State Looked(State state, std::size_t index) {
    Writer& writer = state.places[index].writer;
    const Byte wanted = writer.next;
    writer.next = kNone;
    if (state.stored.objects[wanted] == What::Live) {
      writer.skipped |= Only(wanted);
    } else {
      writer.missing |= Only(wanted);
      writer.next = m_graph.child[wanted];
    }
    if (writer.next == kNone) writer.at = writer.missing != 0 ? At::Write : At::Move;
    return state;
  }

  State Written(State state, std::size_t index) {
    Writer& writer = state.places[index].writer;
    const Byte wanted = Lowest(writer.missing);
    What& what = state.stored.objects[wanted];
    if (what == What::Absent) {
      what = writer.isCurrent ? What::Live : What::Condemned;
      state.stored.made |= Only(wanted);
    } else if (writer.isCurrent) {
      what = What::Live;
    }
    writer.missing &= static_cast<Set>(~Only(wanted));
    writer.written |= Only(wanted);
    if (writer.missing == 0) writer.at = At::Move;
    return state;
  }

  State Moved(const State& state, State checked, std::size_t index) {
    Place& place = checked.places[index];
    if (!place.writer.isCurrent) {
      const auto objects = Renewed(checked, place.writer);
      if (!objects) return StartedOver(state, index);
      checked.stored.objects = *objects;
    }
    place.head = place.writer.commit;
    place.writer = Writer();
    return checked;
  }

  static State StartedOver(State state, std::size_t index) {
    Place& place = state.places[index];
    place.writer = Beginning(place.writer.commit);
    place.isConnected = true;
    place.isSent = false;
    return state;
  }

  /// Returns the objects after a check of all that the save relies on; none if some is gone.
  std::optional<std::array<What, kMostObjects>> Renewed(const State& state, const Writer& writer) {
    std::array<What, kMostObjects> objects = state.stored.objects;
    for (Byte object = 0; object < m_graph.objects; ++object) {
      if (Has(writer.written, object) && objects[object] == What::Absent) return std::nullopt;
      if (Has(writer.skipped, object) && objects[object] != What::Live) return std::nullopt;
      if (Has(writer.written, object)) objects[object] = What::Live;
    }
    return objects;
  }

  // The cleaner

  void CleanerSteps(const State& state) {
    State after = state;
    switch (state.pass) {
      case Pass::Idle:
        after = WithoutUnsaved(state);
        after.stored.made = 0;
        after.isPass = true;
        after.pass = Pass::List;
        return m_emit(after);
      case Pass::List:
        after.pass = Pass::Mark;
        for (Byte object = 0; object < m_graph.objects; ++object) {
          if (state.stored.objects[object] != What::Absent) after.listed |= Only(object);
        }
        return m_emit(after);
      case Pass::Mark:
        after.pass = Pass::Condemn;
        after.marked = Reached(state);
        return m_emit(after);
      case Pass::Condemn:
        return Condemn(state);
      case Pass::Remove:
        return Remove(state);
    }
  }

  void Condemn(const State& state) {
    State after = WithoutUnsaved(state);
    const auto seen = static_cast<Set>(state.listed | state.stored.made);
    const auto marked = static_cast<Set>(state.marked | Reached(state));
    for (Byte object = 0; object < m_graph.objects; ++object) {
      What& what = after.stored.objects[object];
      if (!Has(seen, object) || Has(marked, object) || what != What::Live) continue;
      what = What::Condemned;
      if (state.read != kNone) after.kept |= Only(object);
    }
    for (Place& place : after.places) place.writer.isCurrent = false;
    // Without the answer, the cleaner condemns again what is unmarked then.
    Crashes(after);
    after.stored.made = 0;
    after.pass = Pass::Remove;
    after.listed = 0;
    after.marked = 0;
    after.isPass = false;
    m_emit(after);
  }

  void Remove(const State& state) {
    for (Byte object = 0; object < m_graph.objects; ++object) {
      if (state.stored.objects[object] != What::Condemned || Has(state.kept, object)) continue;
      State after = WithoutUnsaved(state);
      after.stored.objects[object] = What::Absent;
      m_emit(after);
    }
    State after = state;
    after.pass = Pass::Idle;
    m_emit(after);
  }

  Set Reached(const State& state) const {
    Set reached = 0;
    for (const Place& place : state.places) {
      for (Byte at = place.head; at != kNone; at = m_graph.child[at]) reached |= Only(at);
    }
    return reached;
  }

  // The reader

  void ReaderSteps(const State& state) {
    State after = state;
    if (state.read == kNone) {
      after.read = state.places[0].head;
      if (after.read != kNone) m_emit(after);
      after.read = state.places[1].head;
      if (after.read != kNone && after.read != state.places[0].head) m_emit(after);
      return;
    }
    if (state.stored.objects[state.read] == What::Absent) return;  // the harm of this state
    after.read = m_graph.child[state.read];
    if (after.read == kNone) after.kept = 0;
    m_emit(after);
  }

  const Graph& m_graph;
  const bool m_reads;
  Emit& m_emit;
};

}  // namespace CrashProtocol
