// The states of crash_protocol.py. Its words are explained there and in store_protocol.py.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace CrashProtocol {

using Byte = std::uint8_t;
using Set = std::uint8_t;  // of objects, one bit for each

constexpr std::size_t kMostObjects = 3;
constexpr std::size_t kWriters = 2;
constexpr Byte kNone = 3;  // in place of an object

enum class What : Byte { Absent, Live, Condemned };
enum class At : Byte { Idle, Look, Write, Move };
enum class Pass : Byte { Idle, List, Mark, Condemn, Remove };

struct Graph {
  std::string_view name;
  std::size_t objects;
  std::array<Byte, kMostObjects> child;  // the object that each one names
  std::array<Byte, 2> commits;           // the second one may be none
};

constexpr Graph kGraphs[] = {
    {"pair", 2, {kNone, 0, kNone}, {1, kNone}},
    {"chain", 3, {kNone, 0, 1}, {2, kNone}},
    {"fork", 3, {kNone, 0, 0}, {1, 2}},
};

constexpr Set Only(Byte object) { return static_cast<Set>(1U << object); }
constexpr bool Has(Set set, Byte object) { return (set >> object & 1U) != 0; }
constexpr Byte Lowest(Set set) {
  Byte object = 0;
  while (!Has(set, object)) ++object;
  return object;
}

/// What is in the server's files, besides heads and the flag of a pass, which wait for the disk.
struct Stored {
  std::array<What, kMostObjects> objects{};
  Set made = 0;  // uploaded since the pass began

  friend bool operator==(const Stored&, const Stored&) = default;
};

struct Writer {
  At at = At::Idle;
  Byte commit = kNone;
  Byte next = kNone;  // the object to look for; no object of these graphs names two
  Set missing = 0;
  Set written = 0;
  Set skipped = 0;
  bool isCurrent = false;

  friend bool operator==(const Writer&, const Writer&) = default;
};

/// A writer's part of a state, with its branch.
struct Place {
  Writer writer;
  Byte head = kNone;
  bool isConnected = true;
  bool isSent = false;
  Byte acknowledged = kNone;

  friend bool operator==(const Place&, const Place&) = default;
};

/// Each upload changes an object from absent to condemned or live, or from condemned to live.
constexpr std::size_t kMostUnsaved = 2 * kMostObjects;

struct State {
  Stored stored;
  std::array<Place, kWriters> places;
  Pass pass = Pass::Idle;
  Set listed = 0;
  Set marked = 0;
  Byte read = kNone;  // the object that the reader reads next
  Set kept = 0;
  bool isPass = false;
  std::array<Stored, kMostUnsaved> unsaved;  // oldest first
  Byte unsavedCount = 0;

  friend bool operator==(const State&, const State&) = default;
};

// A state takes 125 bits in two words. One description of the fields serves both directions.

struct Packed {
  std::array<std::uint64_t, 2> words{};

  friend bool operator==(const Packed&, const Packed&) = default;
};

class Packer {
 public:
  template <class Value>
  void operator()(Value value, unsigned bits) {
    m_word |= static_cast<std::uint64_t>(value) << m_at;
    m_at += bits;
  }
  std::uint64_t Word() const { return m_word; }

 private:
  std::uint64_t m_word = 0;
  unsigned m_at = 0;
};

class Unpacker {
 public:
  explicit Unpacker(std::uint64_t word) : m_word(word) {}

  template <class Value>
  void operator()(Value& value, unsigned bits) {
    value = static_cast<Value>(m_word & ((std::uint64_t{1} << bits) - 1));
    m_word >>= bits;
  }

 private:
  std::uint64_t m_word;
};

template <class AnyState, class Fields>
void VisitFirstWord(AnyState& state, Fields& fields) {
  for (auto& what : state.stored.objects) fields(what, 2);
  fields(state.unsavedCount, 3);
  for (std::size_t index = 0; index < state.unsavedCount; ++index) {
    for (auto& what : state.unsaved[index].objects) fields(what, 2);
    fields(state.unsaved[index].made, 3);
  }
}

template <class AnyState, class Fields>
void VisitSecondWord(AnyState& state, Fields& fields) {
  fields(state.stored.made, 3);
  fields(state.pass, 3);
  fields(state.listed, 3);
  fields(state.marked, 3);
  fields(state.read, 2);
  fields(state.kept, 3);
  fields(state.isPass, 1);
  for (auto& place : state.places) {
    auto& writer = place.writer;
    fields(writer.at, 2);
    fields(writer.commit, 2);
    fields(writer.next, 2);
    fields(writer.missing, 3);
    fields(writer.written, 3);
    fields(writer.skipped, 3);
    fields(writer.isCurrent, 1);
    fields(place.head, 2);
    fields(place.isConnected, 1);
    fields(place.isSent, 1);
    fields(place.acknowledged, 2);
  }
}

inline Packed Pack(const State& state) {
  Packer first;
  Packer second;
  VisitFirstWord(state, first);
  VisitSecondWord(state, second);
  return {{first.Word(), second.Word()}};
}

inline State Unpack(const Packed& packed) {
  State state;
  Unpacker first(packed.words[0]);
  Unpacker second(packed.words[1]);
  VisitFirstWord(state, first);
  VisitSecondWord(state, second);
  return state;
}

}  // namespace CrashProtocol
