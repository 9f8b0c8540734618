#include "tools/zel/files/Interruption.h"

#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstring>

namespace zel::tool {
namespace {

// A signal handler must not take locks or follow objects that may be in the middle of a change, so
// the name is a plain array.
int g_folder = -1;
char g_file[NAME_MAX + 1];
std::atomic<bool> g_hasFile = false;
std::atomic<bool> g_lineToClear = false;

// Signals that other processes or resource limits send. Faults of the program itself (SIGSEGV ...)
// are not among them: nothing can be cleaned up reliably after one.
constexpr int kEndingSignals[] = {SIGHUP,  SIGINT,  SIGQUIT, SIGTERM, SIGALRM, SIGVTALRM, SIGPROF,
                                  SIGUSR1, SIGUSR2, SIGXCPU, SIGIO,   SIGPWR,  SIGSTKFLT};

extern "C" void EndBySignal(int signal) {
  if (g_hasFile.load()) unlinkat(g_folder, g_file, 0);
  if (g_lineToClear.load()) {
    [[maybe_unused]] const ssize_t written =
        write(STDERR_FILENO, kClearLine, sizeof(kClearLine) - 1);
  }
  _exit(128 + signal);
}

void HandleUnlessIgnored(int signal) {
  struct sigaction action = {};
  if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) return;
  action = {};
  action.sa_handler = EndBySignal;
  action.sa_flags = SA_RESTART;
  sigaction(signal, &action, nullptr);
}

}  // namespace

void InstallSignalHandlers() {
  for (const int signal : kEndingSignals) HandleUnlessIgnored(signal);
  for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) HandleUnlessIgnored(signal);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}

void SetFileToRemove(int folder, const char* name) {
  g_hasFile = false;
  if (name == nullptr) return;
  g_folder = folder;
  std::strncpy(g_file, name, sizeof(g_file) - 1);
  g_hasFile = true;
}

void SetLineToClear(bool set) {
  g_lineToClear = set;
}

SignalsHeld::SignalsHeld() {
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, &before_);
}

SignalsHeld::~SignalsHeld() {
  sigprocmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace zel::tool
