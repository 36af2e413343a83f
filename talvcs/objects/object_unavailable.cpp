#include <talvcs/foundation/data_encoding.h>
#include <talvcs/objects/object_unavailable.h>

#include <string>

namespace TalVcs {

namespace {

std::string Sentence(const Id& id, ObjectProblem problem) {
  const TalStringT<char> name = TalUtils::DataEncoding::Utf8Encode(id.ToString());
  std::string text = "object ";
  text.append(name.GetString(), static_cast<std::size_t>(name.GetLength()));
  switch (problem) {
    case ObjectProblem::Missing:
      return text + " is missing";
    case ObjectProblem::Unreadable:
      return text + " can't be read";
    case ObjectProblem::Damaged:
      return text + " is damaged";
    case ObjectProblem::NotCanonical:
      break;
  }
  return text + " isn't in the form that the library writes";
}

}  // namespace

ObjectUnavailable::ObjectUnavailable(const Id& id, ObjectProblem problem)
    : std::runtime_error(Sentence(id, problem)), m_id(id), m_problem(problem) {}
ObjectUnavailable::ObjectUnavailable(const ObjectUnavailable& other) noexcept = default;
ObjectUnavailable& ObjectUnavailable::operator=(const ObjectUnavailable& other) noexcept = default;
ObjectUnavailable::~ObjectUnavailable() = default;

}  // namespace TalVcs
