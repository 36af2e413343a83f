#include <kit/diff/internal/json_reader.h>
#include <kit/merge/json_merge.h>

#include <list>
#include <span>
#include <unordered_map>

// One rule decides a value from the values of root, left and right, each of which may be missing:
//
//   left = right                     left
//   left = root                      right
//   right = root                     left
//   objects on both sides            merged by member
//   arrays with identity on both     merged by element
//   anything else                    conflict

namespace TalVcs::Kit {
namespace {

/// The three versions of a value; null where it does not exist.
struct Versions {
  const JsonValue* root;
  const JsonValue* left;
  const JsonValue* right;
};

/// The children of the three versions of an object or array.
struct ChildVersions {
  JsonChildren root;
  JsonChildren left;
  JsonChildren right;
};

const JsonValue* ValueOf(const JsonChild* child) {
  return child == nullptr ? nullptr : child->value;
}

/// Returns the children of `first` in their order. Each that only `second` has follows the child
/// that it follows there.
std::vector<const JsonChild*> MergeOrder(const JsonChildren& first, const JsonChildren& second) {
  std::list<const JsonChild*> order;
  std::unordered_map<std::string_view, std::list<const JsonChild*>::iterator> places;
  for (const JsonChild& child : first.List()) {
    places.emplace(child.key, order.insert(order.end(), &child));
  }
  auto next = order.begin();
  for (const JsonChild& child : second.List()) {
    const auto found = places.find(child.key);
    if (found != places.end()) {
      next = std::next(found->second);
      continue;
    }
    while (next != order.end() && second.Find((*next)->key) == nullptr) ++next;
    order.insert(next, &child);
  }
  return {order.begin(), order.end()};
}

class JsonMerger {
 public:
  explicit JsonMerger(const JsonMergeOptions& options) : m_options(options) {}

  /// Returns the merged value of a member, nothing if it is removed.
  std::optional<JsonValue> Merge(const Versions& versions, const std::string& pointer) {
    const auto& [root, left, right] = versions;
    if (SameJson(left, right) || SameJson(right, root)) return CopyOf(left);
    if (SameJson(left, root)) return CopyOf(right);
    if (BothAre(JsonKind::Object, versions)) return MergeObjects(versions, pointer);
    if (BothAre(JsonKind::Array, versions)) {
      if (const auto name = IdentityOf(versions)) return MergeArrays(versions, pointer, *name);
    }
    AddConflict(versions, pointer);
    return CopyOf(ChosenOf(versions));
  }

  std::vector<JsonConflict> TakeConflicts() { return std::move(m_conflicts); }

 private:
  static std::optional<JsonValue> CopyOf(const JsonValue* value) {
    return value == nullptr ? std::nullopt : std::optional(*value);
  }
  static bool Is(JsonKind kind, const JsonValue* value) {
    return value != nullptr && value->kind == kind;
  }
  static bool BothAre(JsonKind kind, const Versions& versions) {
    return Is(kind, versions.left) && Is(kind, versions.right);
  }

  const JsonValue* ChosenOf(const Versions& versions) const {
    switch (m_options.conflictSide) {
      case MergeSide::Left:
        return versions.left;
      case MergeSide::Right:
        return versions.right;
      case MergeSide::Root:
        break;
    }
    return versions.root;
  }

  std::optional<std::string> IdentityOf(const Versions& versions) const {
    std::vector<const JsonValue*> arrays{versions.left, versions.right};
    if (Is(JsonKind::Array, versions.root)) arrays.push_back(versions.root);
    return FindIdentity(arrays, m_options.arrays.identityMembers);
  }

  JsonValue MergeObjects(const Versions& versions, const std::string& pointer) {
    ChildVersions children{
        {}, JsonChildren::MembersOf(*versions.left), JsonChildren::MembersOf(*versions.right)};
    if (Is(JsonKind::Object, versions.root)) {
      children.root = JsonChildren::MembersOf(*versions.root);
    }
    JsonValue result;
    result.kind = JsonKind::Object;
    for (const JsonChild* child : MergeOrder(children.left, children.right)) {
      std::optional<JsonValue> value =
          Merge(VersionsOf(child->key, children), PointerTo(pointer, child->member->name));
      if (!value) continue;
      result.members.push_back(
          {child->member->name, child->member->nameSpelling, std::move(*value)});
    }
    UpdateHash(result);
    return result;
  }

  JsonValue MergeArrays(const Versions& versions, const std::string& pointer,
                        const std::string& name) {
    ChildVersions children{{},
                           JsonChildren::ElementsOf(*versions.left, name),
                           JsonChildren::ElementsOf(*versions.right, name)};
    if (Is(JsonKind::Array, versions.root)) {
      children.root = JsonChildren::ElementsOf(*versions.root, name);
    }
    const bool only_right_reordered =
        SameOrder(children.root, children.left) && !SameOrder(children.root, children.right);
    const std::vector<const JsonChild*> order = only_right_reordered
                                                    ? MergeOrder(children.right, children.left)
                                                    : MergeOrder(children.left, children.right);
    JsonValue result;
    result.kind = JsonKind::Array;
    for (const JsonChild* child : order) {
      const Versions element = VersionsOf(child->key, children);
      const std::size_t conflicts_before = m_conflicts.size();
      std::optional<JsonValue> value = Merge(element, PointerTo(pointer, result.elements.size()));
      if (value) {
        result.elements.push_back(std::move(*value));
      } else if (m_conflicts.size() > conflicts_before) {
        m_conflicts.back().pointer = PointerTo(pointer, "-");
      }
    }
    UpdateHash(result);
    return result;
  }

  static Versions VersionsOf(const std::string& key, const ChildVersions& children) {
    return {ValueOf(children.root.Find(key)), ValueOf(children.left.Find(key)),
            ValueOf(children.right.Find(key))};
  }

  void AddConflict(const Versions& versions, const std::string& pointer) {
    const auto text = [](const JsonValue* value) {
      return value == nullptr ? std::nullopt : std::optional(WriteJson(*value));
    };
    m_conflicts.push_back(
        {pointer, text(versions.root), text(versions.left), text(versions.right)});
  }

  const JsonMergeOptions& m_options;
  std::vector<JsonConflict> m_conflicts;
};

Result<JsonMerge> MergeDocuments(std::optional<std::string_view> root, std::string_view left,
                                 std::string_view right, const JsonMergeOptions& options) {
  std::optional<JsonValue> root_value;
  if (root) {
    Result<JsonValue> value = ReadJson(*root, "root");
    if (!value) return value.error();
    root_value = std::move(*value);
  }
  const Result<JsonValue> left_value = ReadJson(left, "left");
  if (!left_value) return left_value.error();
  const Result<JsonValue> right_value = ReadJson(right, "right");
  if (!right_value) return right_value.error();

  JsonMerger merger(options);
  const std::optional<JsonValue> merged =
      merger.Merge({root_value ? &*root_value : nullptr, &*left_value, &*right_value}, "");
  JsonMerge result;
  result.conflicts = merger.TakeConflicts();
  if (!merged || SameJson(*merged, *left_value)) {
    result.text = left;
  } else if (SameJson(*merged, *right_value)) {
    result.text = right;
  } else {
    result.text = WriteJson(*merged, StyleOf(left));
  }
  return result;
}

}  // namespace

Result<JsonMerge> MergeJson(std::string_view root, std::string_view left, std::string_view right,
                            const JsonMergeOptions& options) {
  return MergeDocuments(root, left, right, options);
}

Result<JsonMerge> MergeAddedJson(std::string_view left, std::string_view right,
                                 const JsonMergeOptions& options) {
  return MergeDocuments(std::nullopt, left, right, options);
}

}  // namespace TalVcs::Kit
