#pragma once

#include <talvcs/objects/id.h>

#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// What a workspace writes into the description of a commit for itself.
struct Annotations {
  bool isMachineMade = false;
  bool isCheckpoint = false;
  std::string gesture;
  Id undoes;
  Id redoes;
  std::vector<Id> merges;

  friend bool operator==(const Annotations&, const Annotations&) = default;
};

/// A message with its annotations.
struct AnnotatedMessage {
  std::string message;
  Annotations annotations;
};

/// Returns the description of a commit: the message as it is, or with a line of annotations.
std::string DescriptionOf(const AnnotatedMessage& message);

/// Returns what a description consists of. Every message comes back as it was.
AnnotatedMessage ParseDescription(std::string_view description);

}  // namespace TalVcs::Kit
