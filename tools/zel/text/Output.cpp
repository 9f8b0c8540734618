#include "tools/zel/text/Output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/zel/text/Failure.h"
#include "tools/zel/text/Text.h"

namespace zel::tool {

void Report(const std::exception& failure, const std::string& note) {
  std::fprintf(stderr, "zel: %s%s\n", Printable(failure.what()).c_str(), note.c_str());
}

void PrintOut(const std::string& text) {
  errno = 0;
  if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
    if (errno == EPIPE) throw ClosedPipe();
    throw Failure("standard output", std::strerror(errno));
  }
}

}  // namespace zel::tool
