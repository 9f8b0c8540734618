// A file that appears under its name only when it is complete.
#pragma once

#include <cstdint>
#include <string>

namespace zel::tool {

/// Writes to an unnamed-looking file (".zel-XXXXXX") beside the one it is to become; Commit gives
/// it its name. Until then nothing of that name changes (but where a file system can neither rename
/// without replacing nor link, an empty file takes the name a moment before), and the file is
/// removed when this object goes or when SIGHUP, SIGINT or SIGTERM end the program. At most one
/// object exists at a time.
class PendingFile {
 public:
  /// Checks that `path` can become a new file and starts it.
  /// @param overwrite an existing regular file may be replaced (a link's target, not the link).
  /// @throws Failure
  PendingFile(const std::string& path, bool overwrite);
  ~PendingFile();
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  /// Checks what the constructor checks, and leaves no trace.
  /// @throws Failure
  static void Check(const std::string& path, bool overwrite);

  /// Writes at the current position.
  /// @return 0, or the negative of an errno, which Error() keeps.
  int Write(const std::uint8_t* data, int size);
  /// As lseek.
  std::int64_t Seek(std::int64_t offset, int whence);
  std::int64_t Size() const;
  /// The errno of the first failed write; 0 for none.
  int Error() const { return error_; }

  /// Gives the file its name.
  /// @throws Failure
  void Commit();

 private:
  void Discard();

  std::string path_;    ///< As the user wrote it.
  std::string target_;  ///< Links resolved.
  bool overwrite_;
  int fd_ = -1;
  int error_ = 0;
};

/// Makes SIGHUP, SIGINT and SIGTERM remove the pending file and end the program with 128 plus the
/// signal's number; signals that were ignored at the start stay ignored. Writes beyond a pipe's end
/// or a size limit become errors instead of signals.
void InstallSignalHandlers();

/// While set, a handled signal also clears the current line of standard error.
void SetLineToClear(bool set);

}  // namespace zel::tool
