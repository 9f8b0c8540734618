// How the command ends: its exit codes and its exceptions.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace zel::tool {

/// Exit codes.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,  ///< One line on standard error says which file failed, and why.
  kUsage = 2,   ///< The command line is wrong.
  /// Nobody reads standard output any more. 128 + SIGPIPE, as if the signal had ended the program.
  kClosedPipe = 141,
};

/// A failure with a file, reported as "zel: FILE: reason".
class Failure : public std::runtime_error {
 public:
  Failure(const std::string& file, const std::string& reason)
      : std::runtime_error((file.empty() ? "''" : file) + ": " + reason), reason_(reason) {}

  /// Without the file's name.
  const std::string& reason() const { return reason_; }

 private:
  std::string reason_;
};

/// Standard output is a pipe that nobody reads any more, as after `zel info ... | head -1`. It is
/// not reported.
class ClosedPipe : public std::exception {};

/// A wrong command line.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace zel::tool
