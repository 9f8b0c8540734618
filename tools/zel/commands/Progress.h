// What long work shows on a terminal.
#pragma once

#include <chrono>
#include <string>

namespace zel::tool {

/// A line on standard error that is rewritten a few times a second: percent, speed as a multiple of
/// real time, time left. Shows nothing when standard error is not a terminal.
class Progress {
 public:
  /// @param total length of the work in seconds of sound; 0 when it is not known.
  Progress(double total, bool quiet);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Shows how far the work is.
  /// @param done seconds of sound
  void Update(double done);
  /// Removes the line.
  void Clear();
  /// How much was done, and how fast: "0.680 s, 35x real time".
  std::string Summary(double done) const;
  /// Seconds since the start.
  double Elapsed() const;

 private:
  using Clock = std::chrono::steady_clock;

  double total_;
  bool active_;
  bool shown_ = false;
  Clock::time_point start_ = Clock::now();
  Clock::time_point next_ = start_ + std::chrono::milliseconds(250);
};

}  // namespace zel::tool
