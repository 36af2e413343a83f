// Searches the model of crash_protocol.py with states of 16 bytes, a hundred times as fast.
//
// Usage: talvcs_crash_search GRAPH [--no-reader]
//
// The words and the rules are those of store_protocol.py and crash_protocol.py, which say why. It
// finds as many states and steps as they do, which the test compares. A search ends at a harm, and
// prints it.

#include "crash_state.h"
#include "crash_steps.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string_view>
#include <vector>

namespace CrashProtocol {
namespace {

/// Returns what is wrong in the state, or null.
const char* HarmOf(const Graph& graph, const State& state) {
  const auto& objects = state.stored.objects;
  for (const Place& place : state.places) {
    if (!place.isSent && place.head != place.acknowledged)
      return "a head isn't the acknowledged one";
    if (place.head != kNone && objects[place.head] != What::Live) return "a head isn't live";
  }
  if (state.read != kNone && objects[state.read] == What::Absent)
    return "the reader misses an object";
  for (Byte object = 0; object < graph.objects; ++object) {
    const Byte child = graph.child[object];
    if (objects[object] == What::Live && child != kNone && objects[child] != What::Live) {
      return "a live object names one that isn't";
    }
  }
  return nullptr;
}

/// The states that were met, in this order.
class Met {
 public:
  Met() : m_slots(std::size_t{1} << 20, kFree) {}

  void Add(const Packed& state) {
    std::uint32_t& slot = SlotOf(state);
    if (slot != kFree) return;
    if (m_states.size() == kFree) std::abort();
    slot = static_cast<std::uint32_t>(m_states.size());
    m_states.push_back(state);
    if (m_states.size() * 2 > m_slots.size()) Grow();
  }
  const std::deque<Packed>& States() const { return m_states; }

 private:
  static constexpr std::uint32_t kFree = 0xFFFFFFFF;

  std::uint32_t& SlotOf(const Packed& state) {
    std::uint64_t hash = (state.words[0] * 0x9E3779B97F4A7C15U) ^ state.words[1];
    hash = (hash ^ hash >> 29) * 0xBF58476D1CE4E5B9U;
    std::size_t at = (hash ^ hash >> 32) & (m_slots.size() - 1);
    while (m_slots[at] != kFree && m_states[m_slots[at]] != state) {
      at = (at + 1) & (m_slots.size() - 1);
    }
    return m_slots[at];
  }

  void Grow() {
    std::vector<std::uint32_t>(m_slots.size() * 2, kFree).swap(m_slots);
    for (std::size_t index = 0; index < m_states.size(); ++index) {
      SlotOf(m_states[index]) = static_cast<std::uint32_t>(index);
    }
  }

  std::deque<Packed> m_states;  // which, unlike a vector, grows without a copy
  std::vector<std::uint32_t> m_slots;
};

/// Returns an empty repository, one with a branch, and one with a branch's remains.
std::array<State, 3> Beginnings(const Graph& graph) {
  std::array<State, 3> states;
  const Byte commit = graph.commits[0];
  for (Byte at = commit; at != kNone; at = graph.child[at]) {
    states[1].stored.objects[at] = states[2].stored.objects[at] = What::Live;
  }
  states[1].places[1].head = states[1].places[1].acknowledged = commit;
  return states;
}

int Search(const Graph& graph, bool reads) {
  Met met;
  std::uint64_t steps = 0;
  auto emit = [&](const State& state) {
    ++steps;
    met.Add(Pack(state));
  };
  for (const State& state : Beginnings(graph)) emit(state);
  steps = 0;
  Steps<decltype(emit)> next(graph, reads, emit);
  for (std::size_t index = 0; index < met.States().size(); ++index) {
    const State state = Unpack(met.States()[index]);
    if (const char* const harm = HarmOf(graph, state)) {
      std::printf("%s: harm: %s\n", graph.name.data(), harm);
      return 1;
    }
    next.From(state);
  }
  std::printf("%s: %llu states, %llu steps\n", graph.name.data(),
              static_cast<unsigned long long>(met.States().size()),
              static_cast<unsigned long long>(steps));
  return 0;
}

}  // namespace
}  // namespace CrashProtocol

int main(int count, char** arguments) {
  const bool reads = count == 2;
  if (!reads && (count != 3 || std::string_view(arguments[2]) != "--no-reader")) return 2;
  for (const CrashProtocol::Graph& graph : CrashProtocol::kGraphs) {
    if (graph.name == arguments[1]) return CrashProtocol::Search(graph, reads);
  }
  return 2;
}
