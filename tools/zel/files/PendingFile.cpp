#include "tools/zel/files/PendingFile.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "tools/zel/text/Failure.h"

namespace zel::tool {
namespace {

// What the signal handler reads: an array, because a handler can take no lock to follow a string.
char g_pending[PATH_MAX + 16];
std::atomic<bool> g_hasPending = false;
std::atomic<bool> g_lineToClear = false;

/// Blocks all signals for as long as it lives.
class SignalsHeld {
 public:
  SignalsHeld() {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before_);
  }
  ~SignalsHeld() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
  sigset_t before_;
};

extern "C" void EndBySignal(int signal) {
  if (g_hasPending.load()) unlink(g_pending);
  if (g_lineToClear.load()) {
    constexpr char clear[] = "\r\033[K";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, clear, sizeof(clear) - 1);
  }
  _exit(128 + signal);
}

Failure SystemFailure(const std::string& path, int error) {
  return {path, std::strerror(error)};
}

/// Gives the pending file the name `target`, which somebody may have given to a file meanwhile:
/// that must not be replaced.
/// @return 0 or an errno.
int MoveToNewName(const char* target) {
  if (syscall(SYS_renameat2, AT_FDCWD, g_pending, AT_FDCWD, target, RENAME_NOREPLACE) == 0)
    return 0;
  if (errno == EEXIST) return EEXIST;
  // File systems without that way mostly have hard links, and any can create a file only where
  // there is none.
  if (link(g_pending, target) == 0) {
    unlink(g_pending);
    return 0;
  }
  if (errno == EEXIST) return EEXIST;
  // A signal in between would leave the empty file behind.
  const SignalsHeld held;
  const int placeholder = open(target, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (placeholder < 0) return errno;
  close(placeholder);
  if (rename(g_pending, target) == 0) return 0;
  const int error = errno;
  unlink(target);
  return error;
}

struct Place {
  std::string target;
  std::string folder;
  mode_t mode;
};

/// Where `path` leads, after all the checks that can be made before anything is written.
Place FindPlace(const std::string& path, bool overwrite) {
  if (path.empty()) throw Failure("", "a file needs a name");
  Place place{path, {}, 0};
  struct stat there = {};
  if (lstat(path.c_str(), &there) == 0) {
    if (S_ISLNK(there.st_mode)) {
      char resolved[PATH_MAX];
      if (realpath(path.c_str(), resolved) == nullptr) {
        if (errno == ENOENT) throw Failure(path, "is a link that leads nowhere");
        throw SystemFailure(path, errno);
      }
      place.target = resolved;
      if (stat(resolved, &there) != 0) throw SystemFailure(path, errno);
    }
    if (S_ISDIR(there.st_mode)) throw SystemFailure(path, EISDIR);
    if (!S_ISREG(there.st_mode)) throw Failure(path, "not a regular file");
    if (!overwrite) throw Failure(path, "exists already (--overwrite replaces it)");
    if (access(place.target.c_str(), W_OK) != 0) throw SystemFailure(path, errno);
    place.mode = there.st_mode & 0777;
  } else if (errno != ENOENT) {
    throw SystemFailure(path, errno);
  } else {
    const mode_t mask = umask(0);
    umask(mask);
    place.mode = 0666 & ~mask;
  }
  const std::size_t slash = place.target.rfind('/');
  place.folder = slash == std::string::npos ? "." : place.target.substr(0, slash + 1);
  if (slash != std::string::npos && slash + 1 == place.target.size()) {
    throw SystemFailure(path, EISDIR);
  }
  struct stat folder = {};
  if (stat(place.folder.c_str(), &folder) != 0) {
    throw Failure(path, errno == ENOENT ? "its folder does not exist" : std::strerror(errno));
  }
  if (access(place.folder.c_str(), W_OK | X_OK) != 0) throw SystemFailure(path, errno);
  if (place.target.size() - (slash == std::string::npos ? 0 : slash + 1) > NAME_MAX) {
    throw SystemFailure(path, ENAMETOOLONG);
  }
  return place;
}

}  // namespace

PendingFile::PendingFile(const std::string& path, bool overwrite)
    : path_(path), overwrite_(overwrite) {
  const Place place = FindPlace(path, overwrite);
  target_ = place.target;
  std::random_device random;
  int error;
  do {
    char name[32];
    std::snprintf(name, sizeof(name), ".zel-%08x", random());
    const std::string pending = place.folder + "/" + name;
    if (pending.size() >= sizeof(g_pending)) throw SystemFailure(path, ENAMETOOLONG);
    std::memcpy(g_pending, pending.c_str(), pending.size() + 1);

    // A signal between the two steps would leave the file behind.
    const SignalsHeld held;
    fd_ = open(g_pending, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, place.mode | 0600);
    error = errno;
    g_hasPending = fd_ >= 0;
  } while (fd_ < 0 && error == EEXIST);
  if (fd_ < 0) throw SystemFailure(path, error);
  // A file system without modes does without.
  [[maybe_unused]] const int ignored = fchmod(fd_, place.mode);
}

PendingFile::~PendingFile() {
  Discard();
}

void PendingFile::Check(const std::string& path, bool overwrite) {
  FindPlace(path, overwrite);
}

int PendingFile::Write(const std::uint8_t* data, int size) {
  while (size > 0) {
    const ssize_t written = write(fd_, data, static_cast<std::size_t>(size));
    if (written < 0) {
      if (errno == EINTR) continue;
      if (error_ == 0) error_ = errno;
      return -errno;
    }
    data += written;
    size -= static_cast<int>(written);
  }
  return 0;
}

std::int64_t PendingFile::Seek(std::int64_t offset, int whence) {
  const off_t position = lseek(fd_, offset, whence);
  return position < 0 ? -errno : position;
}

std::int64_t PendingFile::Size() const {
  struct stat there = {};
  return fstat(fd_, &there) == 0 ? there.st_size : -errno;
}

void PendingFile::Commit() {
  const int closed = close(fd_);
  fd_ = -1;
  // Network file systems report a full disk only now.
  if (closed != 0) throw SystemFailure(path_, errno);
  if (overwrite_) {
    if (rename(g_pending, target_.c_str()) != 0) throw SystemFailure(path_, errno);
    g_hasPending = false;
    return;
  }
  if (const int error = MoveToNewName(target_.c_str()); error != 0) {
    if (error == EEXIST) throw Failure(path_, "exists already (--overwrite replaces it)");
    throw SystemFailure(path_, error);
  }
  g_hasPending = false;
}

void PendingFile::Discard() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
  if (g_hasPending.load()) unlink(g_pending);
  g_hasPending = false;
}

void InstallSignalHandlers() {
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    struct sigaction action = {};
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = EndBySignal;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
  }
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}

void SetLineToClear(bool set) {
  g_lineToClear = set;
}

}  // namespace zel::tool
