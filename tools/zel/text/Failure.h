// How the command ends: results, and the two kinds of trouble.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace zel::tool {

/// Exit codes.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,  ///< Something about a file; one line on standard error says what.
  kUsage = 2,   ///< The command line makes no sense.
  /// The reader of standard output has gone. 128 + SIGPIPE, as for programs that the signal ends.
  kClosedPipe = 141,
};

/// A failure that belongs to a file. Reported as "zel: FILE: reason".
class Failure : public std::runtime_error {
 public:
  Failure(const std::string& file, const std::string& reason)
      : std::runtime_error((file.empty() ? "''" : file) + ": " + reason), reason_(reason) {}

  /// Without the file's name.
  const std::string& reason() const { return reason_; }

 private:
  std::string reason_;
};

/// Standard output is a pipe that nobody reads any more, as after `zel info ... | head -1`. Nothing
/// is said about it.
class ClosedPipe : public std::exception {};

/// A command line that makes no sense.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace zel::tool
