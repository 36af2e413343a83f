#include <kit/diff/internal/json_value.h>
#include <kit/text/escape.h>

#include <algorithm>
#include <functional>

namespace TalVcs::Kit {
namespace {

std::size_t Mix(std::size_t hash, std::size_t other) {
  return (hash ^ other) * 0x9E3779B1U + (hash >> 7U);
}

const JsonMember* FindMember(const JsonValue& object, std::string_view name) {
  const auto found = std::find_if(object.members.begin(), object.members.end(),
                                  [&](const JsonMember& member) { return member.name == name; });
  return found == object.members.end() ? nullptr : &*found;
}

/// Returns the key of an element, or nothing if it has no such member.
std::optional<std::string> KeyOf(const JsonValue& element, std::string_view name) {
  const JsonMember* member = FindMember(element, name);
  if (member == nullptr) return std::nullopt;
  if (member->value.kind == JsonKind::String) return 's' + member->value.characters;
  if (member->value.kind == JsonKind::Number) return 'n' + member->value.spelling;
  return std::nullopt;
}

bool Identifies(std::string_view name, const JsonValue& array) {
  std::vector<std::string> keys;
  for (const JsonValue& element : array.elements) {
    std::optional<std::string> key = KeyOf(element, name);
    if (!key) return false;
    keys.push_back(std::move(*key));
  }
  std::sort(keys.begin(), keys.end());
  return std::adjacent_find(keys.begin(), keys.end()) == keys.end();
}

bool SameMembers(const JsonValue& a, const JsonValue& b) {
  if (a.members.size() != b.members.size()) return false;
  const JsonChildren children = JsonChildren::MembersOf(b);
  return std::all_of(a.members.begin(), a.members.end(), [&](const JsonMember& member) {
    const JsonChild* other = children.Find(member.name);
    return other != nullptr && SameJson(&member.value, other->value);
  });
}

class Writer {
 public:
  Writer(const JsonStyle& style, std::string& text) : m_style(style), m_text(text) {}

  void Write(const JsonValue& value) {
    switch (value.kind) {
      case JsonKind::Null:
        m_text += "null";
        break;
      case JsonKind::False:
        m_text += "false";
        break;
      case JsonKind::True:
        m_text += "true";
        break;
      case JsonKind::Number:
      case JsonKind::String:
        m_text += value.spelling;
        break;
      case JsonKind::Array:
        WriteList('[', ']', value.elements, [&](const JsonValue& element) { Write(element); });
        break;
      case JsonKind::Object:
        WriteList('{', '}', value.members, [&](const JsonMember& member) {
          m_text += member.nameSpelling;
          m_text += m_style.lineEnd.empty() ? ":" : ": ";
          Write(member.value);
        });
        break;
    }
  }

 private:
  template <class Items, class WriteItem>
  void WriteList(char open, char close, const Items& items, WriteItem writeItem) {
    m_text += open;
    ++m_level;
    bool is_first = true;
    for (const auto& item : items) {
      if (!is_first) m_text += ',';
      is_first = false;
      NewLine();
      writeItem(item);
    }
    --m_level;
    if (!is_first) NewLine();
    m_text += close;
  }

  void NewLine() {
    if (m_style.lineEnd.empty()) return;
    m_text += m_style.lineEnd;
    for (std::size_t i = 0; i < m_level; ++i) m_text += m_style.indent;
  }

  const JsonStyle& m_style;
  std::string& m_text;
  std::size_t m_level = 0;
};

}  // namespace

void UpdateHash(JsonValue& value) {
  const std::hash<std::string_view> hash_of;
  std::size_t hash = static_cast<std::size_t>(value.kind) + 1;
  if (value.kind == JsonKind::String) hash = Mix(hash, hash_of(value.characters));
  if (value.kind == JsonKind::Number) hash = Mix(hash, hash_of(value.spelling));
  for (const JsonValue& element : value.elements) hash = Mix(hash, element.hash);
  std::size_t sum = 0;  // of the members in any order
  for (const JsonMember& member : value.members)
    sum += Mix(hash_of(member.name), member.value.hash);
  value.hash = Mix(hash, sum);
}

bool SameJson(const JsonValue* a, const JsonValue* b) {
  if (a == nullptr || b == nullptr) return a == b;
  if (a->hash != b->hash || a->kind != b->kind) return false;
  switch (a->kind) {
    case JsonKind::Number:
      return a->spelling == b->spelling;
    case JsonKind::String:
      return a->characters == b->characters;
    case JsonKind::Array:
      return std::equal(
          a->elements.begin(), a->elements.end(), b->elements.begin(), b->elements.end(),
          [](const JsonValue& one, const JsonValue& other) { return SameJson(&one, &other); });
    case JsonKind::Object:
      return SameMembers(*a, *b);
    case JsonKind::Null:
    case JsonKind::False:
    case JsonKind::True:
      break;
  }
  return true;
}

JsonStyle StyleOf(std::string_view document) {
  JsonStyle style;
  const std::size_t line_end = document.find('\n');
  if (line_end == std::string_view::npos) return style;
  style.endsWithLine = document.ends_with('\n');
  const bool has_return = line_end > 0 && document[line_end - 1] == '\r';
  style.lineEnd = has_return ? "\r\n" : "\n";
  const std::size_t first = document.find_first_not_of(" \t\r\n", line_end);
  const std::size_t line = first == document.npos ? first : document.rfind('\n', first) + 1;
  if (line != document.npos) style.indent = document.substr(line, first - line);
  if (style.indent.empty()) style.indent = "  ";
  return style;
}

std::string WriteJson(const JsonValue& value, const JsonStyle& style) {
  std::string text;
  Writer(style, text).Write(value);
  if (style.endsWithLine) text += style.lineEnd;
  return text;
}

std::string PointerTo(const std::string& pointer, std::string_view name) {
  return pointer + '/' + ReplaceCharacters(name, {{'~', "~0"}, {'/', "~1"}});
}

std::string PointerTo(const std::string& pointer, std::size_t index) {
  return pointer + '/' + std::to_string(index);
}

JsonChildren JsonChildren::MembersOf(const JsonValue& object) {
  JsonChildren children;
  for (const JsonMember& member : object.members) {
    children.m_list.push_back({member.name, &member, &member.value, children.m_list.size()});
  }
  children.BuildIndex();
  return children;
}

JsonChildren JsonChildren::ElementsOf(const JsonValue& array, std::string_view name) {
  JsonChildren children;
  for (const JsonValue& element : array.elements) {
    children.m_list.push_back(
        {KeyOf(element, name).value_or(""), nullptr, &element, children.m_list.size()});
  }
  children.BuildIndex();
  return children;
}

// The keys of the list stay in place when the vector is moved.
void JsonChildren::BuildIndex() {
  for (const JsonChild& child : m_list) m_index.emplace(child.key, child.index);
}

const JsonChild* JsonChildren::Find(std::string_view key) const {
  const auto found = m_index.find(key);
  return found == m_index.end() ? nullptr : &m_list[found->second];
}

std::optional<std::string> FindIdentity(std::span<const JsonValue* const> arrays,
                                        const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    const auto fits = [&](const JsonValue* array) { return Identifies(name, *array); };
    if (std::all_of(arrays.begin(), arrays.end(), fits)) return name;
  }
  return std::nullopt;
}

bool SameOrder(const JsonChildren& a, const JsonChildren& b) {
  std::size_t next = 0;
  for (const JsonChild& child : a.List()) {
    const JsonChild* other = b.Find(child.key);
    if (other == nullptr) continue;
    if (other->index < next) return false;
    next = other->index;
  }
  return true;
}

}  // namespace TalVcs::Kit
