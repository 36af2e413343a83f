#include <kit/diff/internal/json_reader.h>
#include <kit/diff/json_diff.h>

#include <array>

namespace TalVcs::Kit {
namespace {

class JsonComparison {
 public:
  explicit JsonComparison(const JsonArrayOptions& options) : m_options(options) {}

  void Compare(const JsonValue& before, const JsonValue& after, const std::string& pointer) {
    if (SameJson(before, after)) return;
    if (before.kind == JsonKind::Object && after.kind == JsonKind::Object) {
      CompareChildren(JsonChildren::MembersOf(before), JsonChildren::MembersOf(after), pointer);
      return;
    }
    if (before.kind == JsonKind::Array && after.kind == JsonKind::Array) {
      const std::array arrays{&before, &after};
      if (const auto name = FindIdentity(arrays, m_options.identityMembers)) {
        const JsonChildren old_elements = JsonChildren::ElementsOf(before, *name);
        const JsonChildren new_elements = JsonChildren::ElementsOf(after, *name);
        if (!SameOrder(old_elements, new_elements)) {
          Add(JsonChangeKind::Reordered, pointer, &before, &after);
        }
        CompareChildren(old_elements, new_elements, pointer);
        return;
      }
    }
    Add(JsonChangeKind::Changed, pointer, &before, &after);
  }

  std::vector<JsonChange> Take() { return std::move(m_changes); }

 private:
  void CompareChildren(const JsonChildren& before, const JsonChildren& after,
                       const std::string& pointer) {
    for (const JsonChild& child : after.List()) {
      if (const JsonChild* old = before.Find(child.key)) {
        Compare(*old->value, *child.value, PointerOf(child, pointer));
      } else {
        Add(JsonChangeKind::Added, PointerOf(child, pointer), nullptr, child.value);
      }
    }
    for (const JsonChild& child : before.List()) {
      if (after.Find(child.key) != nullptr) continue;
      Add(JsonChangeKind::Removed, PointerOf(child, pointer), child.value, nullptr);
    }
  }

  static std::string PointerOf(const JsonChild& child, const std::string& pointer) {
    return child.member != nullptr ? PointerTo(pointer, child.member->name)
                                   : PointerTo(pointer, child.index);
  }

  void Add(JsonChangeKind kind, const std::string& pointer, const JsonValue* before,
           const JsonValue* after) {
    const auto text = [](const JsonValue* value) {
      return value == nullptr ? std::string() : WriteJson(*value);
    };
    m_changes.push_back({kind, pointer, text(before), text(after)});
  }

  const JsonArrayOptions& m_options;
  std::vector<JsonChange> m_changes;
};

}  // namespace

Result<std::vector<JsonChange>> DiffJson(std::string_view before, std::string_view after,
                                         const JsonArrayOptions& options) {
  const Result<JsonValue> old_value = ReadJson(before, "before");
  if (!old_value) return old_value.error();
  const Result<JsonValue> new_value = ReadJson(after, "after");
  if (!new_value) return new_value.error();
  JsonComparison comparison(options);
  comparison.Compare(*old_value, *new_value, "");
  return comparison.Take();
}

}  // namespace TalVcs::Kit
