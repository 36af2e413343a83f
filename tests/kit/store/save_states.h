#pragma once

#include <tests/kit/store/document_states.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace TalVcs::Testing {

/// Prints the error, if there is one. Returns the status for the system.
inline int PrintFailure(const Kit::Status& status) {
  if (status) return 0;
  std::fprintf(stderr, "%s\n", Kit::Describe(status.error()).c_str());
  return 1;
}

/// A host of one save, for tests that let its system calls fail:
///
///     PROGRAM FILE old|new   saves that state; the new one stands on the old one
///     PROGRAM FILE describe  prints the state
///
/// `Store` is a store with `Store::Open(path)` that makes a missing file. Returns the status for
/// the system, after it has printed what failed.
template <class Store>
int SaveStates(int count, char** arguments) {
  if (count != 3) return 2;
  const std::string_view action = arguments[2];
  Kit::Result<Store> store = Store::Open(arguments[1]);
  if (action == "describe") {
    const std::string state = store ? DescribeStore(*store) : Kit::ToString(store.error().code);
    std::fputs(state.c_str(), stdout);
    return 0;
  }
  Kit::Status status = store ? Kit::Status() : Kit::Status(store.error());
  if (status && action == "old") {
    status = SaveOldState(*store);
  } else if (status && DescribeStore(*store) != kNewState) {
    status = SaveNewState(*store);
  }
  return PrintFailure(status);
}

}  // namespace TalVcs::Testing
