#include "zel/platform/Zel_Log.h"

#include <unistd.h>

#include <cwchar>
#include <new>
#include <string>

#include "media/Utf8.h"

extern "C" void GetAppPath(wchar_t* buffer, int capacity) {
  if (buffer == nullptr || capacity <= 0) return;
  buffer[0] = L'\0';

  char path[4096];
  const ssize_t size = readlink("/proc/self/exe", path, sizeof(path));
  if (size <= 0 || size == static_cast<ssize_t>(sizeof(path))) return;
  std::string_view folder(path, static_cast<std::size_t>(size));
  const std::size_t slash = folder.rfind('/');
  if (slash == std::string_view::npos) return;
  folder = folder.substr(0, slash);

  try {
    const std::wstring wide = zel::media::ToWide(folder);
    if (wide.size() >= static_cast<std::size_t>(capacity)) return;
    std::wmemcpy(buffer, wide.c_str(), wide.size() + 1);
  } catch (const std::bad_alloc&) {
    // The empty string says that the folder is not known.
  }
}
