// Comparison of one function with peers that do the same work, fair on a noisy machine.
//
//   int main(int argc, char** argv) {
//     zel::bench::Comparison comparison("audio", argc, argv);
//     comparison.Add({.name = "mono 22,050 to stereo 44,100 Hz",
//                     .item = "frame", .items = 2048, .bytes = 2048 * 4,
//                     .ours = [&] { converter.Put(...); },
//                     .peers = {{"speexdsp 0", [&] { ... }}},
//                     .goal = {.atLeast = 1.5, .aim = 2.4}});
//     return comparison.Run();
//   }
//
// All contestants of a case (ours, the peers, memcpy of the same bytes) run in one process, in
// rounds: one time slice each, in another order in every round. One call before each slice does not
// count: it fills the caches with the contestant's own data. A ratio is the median of the rounds'
// ratios, so that what slows a whole round down cancels out. Times are processor times of the
// calling thread: work that a contestant hands to other threads is not seen.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "zel/detail/Level.h"

namespace zel::bench {

/// Keeps the compiler from leaving out what makes `value`, or from knowing what becomes of it.
template <class T>
inline void Keep(T* value) {
  asm volatile("" : : "g"(value) : "memory");
}

struct Peer {
  std::string name;
  std::function<void()> run;
  /// The level of our kernels while it runs; that of `ours` if there is none.
  std::optional<Level> level = {};
};

/// How many times as fast as a peer ours is to be. 0: no such goal.
struct Goal {
  double atLeast = 0;
  double aim = 0;
  /// The peer it is measured against (or "memcpy"); empty for the fastest peer that is not memcpy.
  std::string against;
};

struct Case {
  std::string name;
  /// What times are given per: "frame", "pixel", "sample" ...
  std::string item;
  /// Items and output bytes of one call of `ours` and of each peer.
  double items = 1;
  std::size_t bytes = 0;
  std::function<void()> ours;
  std::vector<Peer> peers = {};
  Goal goal = {};
};

/// The option --level: puts our kernels of that level in use. Ends the program with a message and
/// code 2 if this processor does not have it.
void UseLevelNamed(const char* program, const std::string& name);

/// Whether what a program measures has kernels of several levels.
enum class Kernels { kNone, kOfALevel };

/// The cases of one program and its options:
///   --filter TEXT   only the cases whose name contains TEXT
///   --seconds S     time for each case (default 2)
///   --json FILE     the results as JSON, beside the table on the standard output
///   --list          only the names
///   --level NAME    our kernels of this level ("avx2"; zel/detail/Level.h) instead of the
///                   processor's best; peers are not limited. For programs that link the rooms
///                   with the kernels themselves.
class Comparison {
 public:
  /// With Kernels::kOfALevel the title gets the level's name, and there is the option --level.
  /// Ends the program on wrong usage (code 2), such as a level that this processor does not have,
  /// and after --help.
  Comparison(std::string title, int argc, char** argv, Kernels kernels = Kernels::kNone);

  /// True if a case of this name will run: what it needs may be left unbuilt otherwise.
  bool Wants(const std::string& name) const;
  void Add(Case c);
  /// Runs everything. Returns the exit code: 1 if a result cannot be written. A missed goal is
  /// shown but is not a failure; on a shared machine it may be somebody else's.
  int Run();

 private:
  [[noreturn]] void Usage(int code) const;

  std::string title_;
  const char* program_;
  Kernels kernels_;
  std::string filter_;
  std::string json_;
  double seconds_ = 2;
  bool list_ = false;
  std::vector<Case> cases_;
};

}  // namespace zel::bench
