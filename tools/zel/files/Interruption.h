// What a signal that ends the command cleans up first.
#pragma once

#include <csignal>

namespace zel::tool {

/// Makes the signals by which others end a program (SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1,
/// SIGXCPU ...) clean up and end it with 128 plus the signal's number. Signals that were ignored at
/// the start stay ignored. Writing to a pipe that nobody reads, or beyond a size limit, becomes an
/// error instead of a signal. Call once, at the start.
void InstallSignalHandlers();

/// Sets the file that a handled signal removes, instead of the one set before; null for none.
/// Hold signals from before the file exists until this has returned.
/// @param folder the open folder of the file
/// @param name shorter than NAME_MAX; copied
void SetFileToRemove(int folder, const char* name);

/// While set, a handled signal also clears the current line of standard error.
void SetLineToClear(bool set);

/// Erases the line of a terminal and moves to its start.
inline constexpr char kClearLine[] = "\r\033[K";

/// Blocks all signals for as long as it lives.
class SignalsHeld {
 public:
  SignalsHeld();
  ~SignalsHeld();
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
  sigset_t before_;
};

}  // namespace zel::tool
