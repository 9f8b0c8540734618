#include "tools/zel/files/Confinement.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#ifdef ZEL_HAS_SECCOMP
#include <sched.h>
#include <seccomp.h>
#endif

#include "media/Utf8.h"
#include "tools/zel/files/Modules.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/List.h"
#include "zel/platform/Zel_Log.h"

namespace zel::tool {
namespace {

// LeakSanitizer stops the program's threads from a process of its own.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kIsPossible = false;
#else
constexpr bool kIsPossible = true;
#endif

bool isWanted = true;

constexpr std::uint64_t kRead = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
// The output appears beside its place and is renamed.
constexpr std::uint64_t kWrite = kRead | LANDLOCK_ACCESS_FS_WRITE_FILE |
                                 LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_REMOVE_FILE;
// Of the first version of Landlock, which all later ones know: all but links between folders.
constexpr std::uint64_t kHandled = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1) - 1;
// Libraries and fonts are here, with what finds them; FFmpeg asks for the processors.
constexpr const char* kSystemFolders[] = {"/usr",
                                          "/lib",
                                          "/lib64",
                                          "/etc",
                                          "/var/cache/fontconfig",
                                          "/dev/null",
                                          "/dev/urandom",
                                          "/proc",
                                          "/sys/devices/system"};

int LandlockVersion() {
  return static_cast<int>(
      syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION));
}

[[noreturn]] void FailSystem(const std::string& what) {
  throw Failure("", "the sandbox cannot be set up (" + what + ": " + std::strerror(errno) +
                        "); --no-sandbox leaves it out");
}

/// A set of rules that the kernel holds.
class Landlock {
 public:
  Landlock() {
    const landlock_ruleset_attr handled{kHandled};
    rules_ = static_cast<int>(syscall(SYS_landlock_create_ruleset, &handled, sizeof(handled), 0));
    if (rules_ < 0) FailSystem("Landlock");
  }
  ~Landlock() { close(rules_); }
  Landlock(const Landlock&) = delete;
  Landlock& operator=(const Landlock&) = delete;

  /// Allows `access` to a file, or to all in a folder. What is not there needs no right.
  void Allow(const std::string& path, std::uint64_t access) {
    const int place = open(path.c_str(), O_PATH | O_CLOEXEC);
    if (place < 0) return;
    landlock_path_beneath_attr rule{};
    rule.allowed_access = access;
    rule.parent_fd = place;
    long result = syscall(SYS_landlock_add_rule, rules_, LANDLOCK_RULE_PATH_BENEATH, &rule, 0);
    if (result != 0 && errno == EINVAL) {
      // A single file has no rights of folders.
      rule.allowed_access &= LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE;
      result = syscall(SYS_landlock_add_rule, rules_, LANDLOCK_RULE_PATH_BENEATH, &rule, 0);
    }
    const int error = errno;
    close(place);
    // Pipes and the like have no rules; the command refuses them anyway.
    errno = error;
    if (result != 0 && error != EBADFD) FailSystem(path);
  }

  void Enforce() {
    if (syscall(SYS_landlock_restrict_self, rules_, 0) != 0) FailSystem("Landlock");
  }

 private:
  int rules_;
};

std::string OwnFolder() {
  wchar_t folder[4096] = L"";
  GetAppPath(folder, 4096);
  return media::ToUtf8(folder);
}

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

/// Where a link leads, or the path itself.
std::string Followed(const std::string& path) {
  const std::unique_ptr<char, decltype(&free)> resolved(realpath(path.c_str(), nullptr), free);
  return resolved ? resolved.get() : path;
}

/// Where the drawing library looks for fonts, beyond the system's folders.
std::vector<std::string> FontFolders() {
  std::vector<std::string> folders;
  for (const auto& [variable, below] : {std::pair{"HOME", "/.fonts"},
                                        {"HOME", "/.local/share/fonts"},
                                        {"HOME", "/.config/fontconfig"},
                                        {"XDG_DATA_HOME", "/fonts"},
                                        {"XDG_CONFIG_HOME", "/fontconfig"},
                                        {"FONTCONFIG_FILE", ""},
                                        {"FONTCONFIG_PATH", ""}}) {
    if (const char* value = std::getenv(variable)) folders.push_back(std::string(value) + below);
  }
  return folders;
}

void ConfineFiles(const std::vector<std::string>& inputs, const std::string& output) {
  Landlock rules;
  for (const char* folder : kSystemFolders) rules.Allow(folder, kRead);
  rules.Allow(OwnFolder(), kRead);
  for (const std::string& folder : FontFolders()) rules.Allow(folder, kRead);
  for (const std::string& input : inputs) rules.Allow(input, kRead);
  if (!output.empty()) rules.Allow(FolderOf(Followed(output)), kWrite);
  rules.Enforce();
}

#ifdef ZEL_HAS_SECCOMP
// By what they would be used for. Names that the library does not know are left out.
constexpr const char* kForbiddenCalls[] = {
    // the network
    "socket", "socketpair", "connect", "bind", "listen", "accept", "accept4",
    // other programs and processes
    "execve", "execveat", "fork", "vfork", "ptrace", "process_vm_readv", "process_vm_writev",
    "pidfd_open", "pidfd_getfd", "kcmp",
    // files under other names, or of other places
    "open_by_handle_at", "mount", "umount2", "move_mount", "open_tree", "fsopen", "pivot_root",
    "chroot", "setns", "unshare", "symlink", "symlinkat", "mknod", "mknodat",
    // the kernel
    "bpf", "perf_event_open", "userfaultfd", "io_uring_setup", "add_key", "request_key", "keyctl",
    "init_module", "finit_module", "delete_module", "kexec_load", "kexec_file_load", "reboot",
    "swapon", "swapoff", "acct", "quotactl", "syslog", "settimeofday", "clock_settime",
    "personality", "modify_ldt"};

void ConfineCalls() {
  const std::unique_ptr<void, decltype(&seccomp_release)> filter(seccomp_init(SCMP_ACT_ALLOW),
                                                                 seccomp_release);
  if (filter == nullptr) throw std::bad_alloc();
  const auto check = [](int result) {
    if (result == 0) return;
    errno = -result;
    FailSystem("seccomp");
  };
  for (const char* name : kForbiddenCalls) {
    const int call = seccomp_syscall_resolve_name(name);
    if (call >= 0) check(seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), call, 0));
  }
  // Threads are made, processes are not. The flags of clone3 are in memory, which a filter cannot
  // read; without it the C library takes clone.
  check(seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0));
#ifdef __s390__
  constexpr unsigned kFlags = 1;
#else
  constexpr unsigned kFlags = 0;
#endif
  const scmp_arg_cmp noThread{kFlags, SCMP_CMP_MASKED_EQ, CLONE_THREAD, 0};
  check(seccomp_rule_add_array(filter.get(), SCMP_ACT_ERRNO(EPERM), SCMP_SYS(clone), 1, &noThread));
  check(seccomp_load(filter.get()));
}
#endif

}  // namespace

void NeverConfine() {
  isWanted = false;
}

void Confine(const std::vector<std::string>& inputs, const std::string& output) {
  if (!isWanted || !kIsPossible) return;
  LoadModules();  // They may be linked to libraries in any folder.
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return;  // A kernel without confinements.
  if (LandlockVersion() > 0) ConfineFiles(inputs, output);
#ifdef ZEL_HAS_SECCOMP
  if (prctl(PR_GET_SECCOMP) >= 0) ConfineCalls();
#endif
}

std::string ConfinementText() {
  std::string text;
  if (kIsPossible && LandlockVersion() > 0) AddToList(&text, "files (Landlock)");
#ifdef ZEL_HAS_SECCOMP
  if (kIsPossible && prctl(PR_GET_SECCOMP) >= 0) AddToList(&text, "system calls (seccomp)");
#endif
  return text.empty() ? "none" : text;
}

}  // namespace zel::tool
