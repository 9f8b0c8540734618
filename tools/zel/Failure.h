// How the command ends: results, and the two kinds of trouble.
#pragma once

#include <stdexcept>
#include <string>

namespace zel::tool {

/// Exit codes.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,  ///< Something about a file; one line on standard error says what.
  kUsage = 2,   ///< The command line makes no sense.
};

/// A failure that belongs to a file. Reported as "zel: FILE: reason".
class Failure : public std::runtime_error {
 public:
  Failure(const std::string& file, const std::string& reason)
      : std::runtime_error(file + ": " + reason) {}
};

/// A command line that makes no sense.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace zel::tool
