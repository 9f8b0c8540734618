#include "tools/zel/commands/Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "tools/zel/files/Interruption.h"
#include "tools/zel/text/Delay.h"

namespace zel::tool {

Progress::Progress(double total, bool quiet)
    : total_(total), active_(!quiet && isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
  Clear();
}

void Progress::Update(double done) {
  if (!active_) return;
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  next_ = now + std::chrono::milliseconds(200);

  const double speed = done / std::max(Elapsed(), 1e-3);
  char line[160];
  int size = 0;
  if (total_ > 0) {
    const double left = speed > 0 ? std::max(total_ - done, 0.0) / speed : 0;
    const long seconds = static_cast<long>(std::min(left + 0.5, 3.6e8));
    size =
        std::snprintf(line, sizeof(line), "\r%3d %%  %.1fx real time  %ld:%02ld:%02ld left\033[K",
                      static_cast<int>(std::min(100 * done / total_, 100.0)), speed, seconds / 3600,
                      seconds / 60 % 60, seconds % 60);
  } else {
    size = std::snprintf(line, sizeof(line), "\r%s  %.1fx real time\033[K", ClockText(done).c_str(),
                         speed);
  }
  SetLineToClear(true);
  shown_ = true;
  [[maybe_unused]] const ssize_t written =
      write(STDERR_FILENO, line, static_cast<std::size_t>(size));
}

void Progress::Clear() {
  if (!shown_) return;
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kClearLine, sizeof(kClearLine) - 1);
  shown_ = false;
  SetLineToClear(false);
}

std::string Progress::Summary(double done) const {
  char text[64];
  std::snprintf(text, sizeof(text), "%.3f s, %.0fx real time", done,
                done / std::max(Elapsed(), 1e-6));
  return text;
}

double Progress::Elapsed() const {
  return std::chrono::duration<double>(Clock::now() - start_).count();
}

}  // namespace zel::tool
