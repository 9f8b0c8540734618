// A decoder module that has been taken over: it tries what a decoder has no need of, and says what
// became of it.
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "zel/platform/Types.h"

namespace {

void Try(const char* what, long result) {
  std::fprintf(stderr, "%s: %s\n", what, result >= 0 ? "done" : std::strerror(errno));
}

}  // namespace

extern "C" ZEL_API HRESULT DllGetClassObject(const _GUID&, const _GUID&, void**) {
  Try("input", open(std::getenv("ZEL_INPUT"), O_RDONLY));
  Try("secret", open(std::getenv("ZEL_SECRET"), O_RDONLY));
  Try("other folder", open(std::getenv("ZEL_NEW_FILE"), O_WRONLY | O_CREAT, 0600));
  Try("socket", socket(AF_INET, SOCK_STREAM, 0));
  Try("other process", ptrace(PTRACE_SEIZE, getppid(), nullptr, nullptr));
  const pid_t child = fork();
  if (child == 0) _exit(0);
  Try("child", child);
  if (child > 0) waitpid(child, nullptr, 0);
  Try("program", execl("/bin/echo", "echo", "program: done", nullptr));
  return E_FAIL;
}
