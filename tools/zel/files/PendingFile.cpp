#include "tools/zel/files/PendingFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string_view>

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

/// Renames a file in `folder`, unless there is one of the name `target`: somebody may have made one
/// meanwhile, and it must stay.
/// @return 0 or an errno.
int MoveToNewName(int folder, const char* file, const char* target) {
  if (syscall(SYS_renameat2, folder, file, folder, target, RENAME_NOREPLACE) == 0) return 0;
  if (errno == EEXIST) return EEXIST;
  // File systems without this call mostly have hard links.
  if (linkat(folder, file, folder, target, 0) == 0) {
    unlinkat(folder, file, 0);
    return 0;
  }
  if (errno == EEXIST) return EEXIST;
  // All can create a file only where there is none. A signal before the rename would leave the
  // empty file behind.
  const SignalsHeld held;
  const int placeholder = openat(folder, target, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (placeholder < 0) return errno;
  close(placeholder);
  if (renameat(folder, file, folder, target) == 0) return 0;
  const int error = errno;
  unlinkat(folder, target, 0);
  return error;
}

/// True if `name` in `folder` is the open file.
bool IsName(int folder, const char* name, int file) {
  struct stat named = {};
  struct stat opened = {};
  return fstatat(folder, name, &named, AT_SYMLINK_NOFOLLOW) == 0 && fstat(file, &opened) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

/// True for names such as ".zel-0123abcd".
bool IsPendingName(std::string_view name) {
  return name.size() == 13 && name.starts_with(".zel-") &&
         name.find_first_not_of("0123456789abcdef", 5) == std::string_view::npos;
}

/// Removes the pending files of runs that were killed: nobody holds their locks. A file is locked
/// right after it was made, so young ones are left alone.
void RemoveLeftovers(int folder) {
  constexpr std::time_t kYoung = 10;  // seconds
  const int listed = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR* const entries = listed >= 0 ? fdopendir(listed) : nullptr;
  if (entries == nullptr) {
    if (listed >= 0) close(listed);
    return;
  }
  while (const dirent* entry = readdir(entries)) {
    struct stat info = {};
    if (!IsPendingName(entry->d_name)) continue;
    const int file = openat(folder, entry->d_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) continue;
    const bool isOurs = fstat(file, &info) == 0 && S_ISREG(info.st_mode) &&
                        info.st_uid == geteuid() && std::time(nullptr) - info.st_mtime > kYoung;
    if (isOurs && flock(file, LOCK_EX | LOCK_NB) == 0 && IsName(folder, entry->d_name, file)) {
      unlinkat(folder, entry->d_name, 0);
    }
    close(file);
  }
  closedir(entries);
}

/// True for the errors of file systems that cannot sync.
bool IsUnsyncable(int error) {
  return error == EINVAL || error == ENOSYS || error == EROFS || error == ENOTSUP;
}

std::string FolderOf(const std::string& file) {
  const std::size_t name = file.rfind('/') + 1;  // 0 without a slash.
  return name == 0 ? "." : file.substr(0, name);
}

/// Makes a new name in `folder` survive a power failure. The file is complete and has its name:
/// where the folder may not be read, or cannot be synced, that must do.
void SyncFolder(int folder) {
  const int synced = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (synced < 0) return;
  fsync(synced);
  close(synced);
}

bool g_syncs = true;

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
  folder_ = open(place.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (folder_ < 0) throw SystemFailure(path, errno);
  target_ = place.target.substr(place.target.rfind('/') + 1);
  RemoveLeftovers(folder_);
  Create(place.mode);
}

PendingFile::~PendingFile() {
  if (!pending_.empty()) unlinkat(folder_, pending_.c_str(), 0);
  SetFileToRemove(-1, nullptr);
  if (fd_ >= 0) close(fd_);
  if (folder_ >= 0) close(folder_);
}

void PendingFile::Create(unsigned mode) {
  std::random_device random;
  int error = EEXIST;
  while (fd_ < 0 && error == EEXIST) {
    char name[32];
    std::snprintf(name, sizeof(name), ".zel-%08x", random());
    // A signal between the two steps would leave the file behind.
    const SignalsHeld held;
    fd_ = openat(folder_, name, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode | 0600);
    error = errno;
    if (fd_ < 0) continue;
    SetFileToRemove(folder_, name);
    pending_ = name;
  }
  if (fd_ < 0) {
    close(folder_);  // No destructor follows.
    throw SystemFailure(path_, error);
  }
  // Some file systems have no locks, some no modes.
  flock(fd_, LOCK_EX | LOCK_NB);
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

int PendingFile::ReadAt(std::int64_t offset, std::uint8_t* data, int size) const {
  while (size > 0) {
    const ssize_t got = pread(fd_, data, static_cast<std::size_t>(size), offset);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -errno;
    if (got == 0) return 0;
    data += got;
    offset += got;
    size -= static_cast<int>(got);
  }
  return 0;
}

std::int64_t PendingFile::Size() const {
  struct stat there = {};
  return fstat(fd_, &there) == 0 ? there.st_size : -errno;
}

void PendingFile::Commit() {
  // After a power failure, the name must not stand for data that never reached the disk.
  if (g_syncs && fsync(fd_) != 0 && !IsUnsyncable(errno)) throw SystemFailure(path_, errno);
  if (!IsName(folder_, pending_.c_str(), fd_)) {
    pending_.clear();  // Not ours to remove.
    throw Failure(path_, "another program has replaced the file that was being written");
  }
  // Network file systems report a full disk when a file is closed. The lock stays until
  // the file has its name.
  const int locked = dup(fd_);
  if (locked < 0) throw SystemFailure(path_, errno);
  const int closed = close(fd_);
  fd_ = locked;
  if (closed != 0) throw SystemFailure(path_, errno);
  int error = 0;
  if (!overwrite_) {
    error = MoveToNewName(folder_, pending_.c_str(), target_.c_str());
  } else if (renameat(folder_, pending_.c_str(), folder_, target_.c_str()) != 0) {
    error = errno;
  }
  if (error == EEXIST && !overwrite_) throw ExistsAlready(path_);
  if (error != 0) throw SystemFailure(path_, error);
  pending_.clear();
  SetFileToRemove(-1, nullptr);
  if (g_syncs) SyncFolder(folder_);
}

void PendingFile::NeverSync() {
  g_syncs = false;
}

}  // namespace zel::tool
