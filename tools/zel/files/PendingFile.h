// A file that appears under its name only when it is complete.
#pragma once

#include <cstdint>
#include <string>

namespace zel::tool {

/// Writes to a file ".zel-XXXXXXXX" in the folder of the file that it will become. Commit gives it
/// that name; until then nothing of that name changes. The folder stays open: renaming it, or
/// putting another one in its place, changes nothing. Files that killed runs have left in it are
/// removed. (A file system that can neither rename
/// without replacing nor link gets an empty file of the name a moment before.) Without Commit the
/// file is removed, by the destructor or by the signals of InstallSignalHandlers. At most one
/// object exists at a time.
class PendingFile {
 public:
  /// Starts the file that will become `path`.
  /// @param overwrite whether an existing regular file may be replaced; of a link, its target.
  /// @throws Failure
  PendingFile(const std::string& path, bool overwrite);
  ~PendingFile();
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  /// Makes the constructor's checks and creates nothing.
  /// @throws Failure
  static void Check(const std::string& path, bool overwrite);

  /// Writes at the current position.
  /// @return 0, or the negative of an errno, which error() keeps.
  int Write(const std::uint8_t* data, int size);
  /// As lseek; the negative of an errno, which error() keeps, after a failure.
  std::int64_t Seek(std::int64_t offset, int whence);
  /// Copies what was written from `offset` on, as far as there is so much, without moving.
  /// @return 0, or the negative of an errno
  int ReadAt(std::int64_t offset, std::uint8_t* data, int size) const;
  /// In bytes; the negative of an errno after a failure.
  std::int64_t Size() const;
  /// The errno of the first failed write or seek; 0 for none.
  int error() const { return error_; }

  /// Ends the file, waits until it is on the disk, and gives it its name.
  /// @throws Failure
  void Commit();
  /// Makes Commit of all files leave out the wait for the disk. Not while another thread commits.
  static void NeverSync();

 private:
  void Create(unsigned mode);

  std::string path_;    ///< As the user wrote it.
  int folder_ = -1;     ///< Of the target, links resolved.
  std::string target_;  ///< The name in that folder.
  bool overwrite_;
  std::string pending_;  ///< The name until Commit; empty when there is no such file.
  int fd_ = -1;          ///< Locked, which tells others that the file is in use.
  int error_ = 0;
};

}  // namespace zel::tool
