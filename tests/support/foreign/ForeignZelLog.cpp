// libZel_Log.so. This host keeps its libraries in the folder of this one, wherever its program is.
#include <dlfcn.h>

#include <algorithm>
#include <string>

#include "media/Utf8.h"
#include "tests/support/foreign/Counted.h"
#include "zel/platform/Zel_Log.h"

FOREIGN_COUNTER(GetAppPath);

void GetAppPath(wchar_t* buffer, int capacity) {
  ++GetAppPath_calls;
  Dl_info self = {};
  dladdr(reinterpret_cast<void*>(&GetAppPath), &self);
  std::wstring path = zel::media::ToWide(self.dli_fname);
  path.resize(path.rfind(L'/'));
  if (path.size() < static_cast<std::size_t>(capacity)) {
    std::copy_n(path.c_str(), path.size() + 1, buffer);
  }
}
