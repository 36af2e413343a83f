#pragma once

#include <talvcs/export.h>
#include <talvcs/objects/id.h>

#include <stdexcept>

namespace TalVcs {

/// Why an object can't be read from a store.
enum class ObjectProblem {
  Missing,       ///< The store has no object of that id.
  Unreadable,    ///< The store has it and can't read it now.
  Damaged,       ///< The bytes don't have the digest that the id says, or are of another type.
  NotCanonical,  ///< The bytes have the digest but not the form that the library writes.
};

/// Thrown where a link of an object on demand can't be followed. The link stays as it was, so the
/// call can be repeated; the repository and its branches are as before it.
class TALVCS_API ObjectUnavailable : public std::runtime_error {
 public:
  /// Says that the object `id` has `problem`.
  ObjectUnavailable(const Id& id, ObjectProblem problem);
  ObjectUnavailable(const ObjectUnavailable& other) noexcept;
  ObjectUnavailable& operator=(const ObjectUnavailable& other) noexcept;
  ~ObjectUnavailable() override;

  /// Returns the id of the object.
  const Id& GetId() const noexcept { return m_id; }
  /// Returns what is wrong with it.
  ObjectProblem GetProblem() const noexcept { return m_problem; }

 private:
  Id m_id;
  ObjectProblem m_problem;
};

}  // namespace TalVcs
