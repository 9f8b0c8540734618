#include "tools/zel/files/PendingFile.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "tools/zel/files/Interruption.h"
#include "tools/zel/text/Failure.h"

namespace zel::tool {
namespace {

Failure SystemFailure(const std::string& path, int error) {
  return {path, std::strerror(error)};
}

Failure ExistsAlready(const std::string& path) {
  return {path, "exists already (--overwrite replaces it)"};
}

/// Renames a file, unless there is one of the name `target`: somebody may have made one meanwhile,
/// and it must stay.
/// @return 0 or an errno.
int MoveToNewName(const char* file, const char* target) {
  if (syscall(SYS_renameat2, AT_FDCWD, file, AT_FDCWD, target, RENAME_NOREPLACE) == 0) return 0;
  if (errno == EEXIST) return EEXIST;
  // File systems without this call mostly have hard links.
  if (link(file, target) == 0) {
    unlink(file);
    return 0;
  }
  if (errno == EEXIST) return EEXIST;
  // All can create a file only where there is none. A signal before the rename would leave the
  // empty file behind.
  const SignalsHeld held;
  const int placeholder = open(target, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (placeholder < 0) return errno;
  close(placeholder);
  if (rename(file, target) == 0) return 0;
  const int error = errno;
  unlink(target);
  return error;
}

/// True for the errors of file systems that cannot sync.
bool IsUnsyncable(int error) {
  return error == EINVAL || error == ENOSYS || error == EROFS || error == ENOTSUP;
}

std::string FolderOf(const std::string& file) {
  const std::size_t name = file.rfind('/') + 1;  // 0 without a slash.
  return name == 0 ? "." : file.substr(0, name);
}

/// Makes a new name in the folder of `file` survive a power failure. The file is complete and has
/// its name: where the folder may not be read, or cannot be synced, that must do.
void SyncFolder(const std::string& file) {
  const int folder = open(FolderOf(file).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return;
  fsync(folder);
  close(folder);
}

/// Where a new file goes, and the mode that it gets.
struct Place {
  std::string target;
  std::string folder;
  mode_t mode;
};

mode_t ModeOfNewFiles() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

/// Follows the link `path`.
/// @throws Failure
std::string TargetOfLink(const std::string& path) {
  char resolved[PATH_MAX];
  if (realpath(path.c_str(), resolved) != nullptr) return resolved;
  if (errno == ENOENT) throw Failure(path, "is a link that leads nowhere");
  throw SystemFailure(path, errno);
}

/// Finds out what is at `path` now, and whether it may be replaced. Leaves the folder empty.
/// @throws Failure
Place FindTarget(const std::string& path, bool overwrite) {
  struct stat there = {};
  if (lstat(path.c_str(), &there) != 0) {
    if (errno != ENOENT) throw SystemFailure(path, errno);
    return {path, {}, ModeOfNewFiles()};
  }
  Place place{path, {}, 0};
  if (S_ISLNK(there.st_mode)) {
    place.target = TargetOfLink(path);
    if (stat(place.target.c_str(), &there) != 0) throw SystemFailure(path, errno);
  }
  if (S_ISDIR(there.st_mode)) throw SystemFailure(path, EISDIR);
  if (!S_ISREG(there.st_mode)) throw Failure(path, "not a regular file");
  if (!overwrite) throw ExistsAlready(path);
  if (access(place.target.c_str(), W_OK) != 0) throw SystemFailure(path, errno);
  place.mode = there.st_mode & 0777;
  return place;
}

/// Makes all checks that can be made before anything is written.
/// @throws Failure
Place FindPlace(const std::string& path, bool overwrite) {
  if (path.empty()) throw Failure("", "a file needs a name");
  Place place = FindTarget(path, overwrite);
  const std::size_t name = place.target.rfind('/') + 1;  // 0 without a slash.
  place.folder = FolderOf(place.target);
  if (name == place.target.size()) throw SystemFailure(path, EISDIR);
  struct stat folder = {};
  if (stat(place.folder.c_str(), &folder) != 0) {
    throw Failure(path, errno == ENOENT ? "its folder does not exist" : std::strerror(errno));
  }
  if (access(place.folder.c_str(), W_OK | X_OK) != 0) throw SystemFailure(path, errno);
  if (place.target.size() - name > NAME_MAX) throw SystemFailure(path, ENAMETOOLONG);
  return place;
}

}  // namespace

PendingFile::PendingFile(const std::string& path, bool overwrite)
    : path_(path), overwrite_(overwrite) {
  const Place place = FindPlace(path, overwrite);
  target_ = place.target;
  Create(place.folder, place.mode);
}

PendingFile::~PendingFile() {
  if (fd_ >= 0) close(fd_);
  if (!pending_.empty()) unlink(pending_.c_str());
  SetFileToRemove(nullptr);
}

void PendingFile::Create(const std::string& folder, unsigned mode) {
  std::random_device random;
  int error = EEXIST;
  while (fd_ < 0 && error == EEXIST) {
    char name[32];
    std::snprintf(name, sizeof(name), "/.zel-%08x", random());
    const std::string pending = folder + name;
    if (pending.size() >= PATH_MAX) throw SystemFailure(path_, ENAMETOOLONG);
    // A signal between the two steps would leave the file behind.
    const SignalsHeld held;
    fd_ = open(pending.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode | 0600);
    error = errno;
    if (fd_ < 0) continue;
    SetFileToRemove(pending.c_str());
    pending_ = pending;
  }
  if (fd_ < 0) throw SystemFailure(path_, error);
  // Some file systems have no modes.
  [[maybe_unused]] const int ignored = fchmod(fd_, mode);
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
  if (position >= 0) return position;
  // Muxers ignore the result and would write to the wrong place.
  if (error_ == 0) error_ = errno;
  return -errno;
}

std::int64_t PendingFile::Size() const {
  struct stat there = {};
  return fstat(fd_, &there) == 0 ? there.st_size : -errno;
}

void PendingFile::Commit() {
  // After a power failure, the name must not stand for data that never reached the disk.
  if (fsync(fd_) != 0 && !IsUnsyncable(errno)) throw SystemFailure(path_, errno);
  const int closed = close(fd_);
  fd_ = -1;
  // Network file systems report a full disk only now.
  if (closed != 0) throw SystemFailure(path_, errno);
  int error = 0;
  if (!overwrite_) {
    error = MoveToNewName(pending_.c_str(), target_.c_str());
  } else if (rename(pending_.c_str(), target_.c_str()) != 0) {
    error = errno;
  }
  if (error == EEXIST && !overwrite_) throw ExistsAlready(path_);
  if (error != 0) throw SystemFailure(path_, error);
  pending_.clear();
  SetFileToRemove(nullptr);
  SyncFolder(target_);
}

}  // namespace zel::tool
