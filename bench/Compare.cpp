#include "bench/Compare.h"

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <utility>

namespace zel::bench {
namespace {

using Clock = std::chrono::steady_clock;

// Long enough that reading the clock does not count, short enough for many rounds.
constexpr double kSliceSeconds = 0.002;
constexpr int kMinRounds = 7;

// The processor time of this thread: what others on the machine take does not count.
double ThreadSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double TimeOf(const std::function<void()>& run, long times) {
  const double start = ThreadSeconds();
  for (long i = 0; i < times; ++i) run();
  return ThreadSeconds() - start;
}

long CallsPerSlice(const std::function<void()>& run) {
  run();  // The first call may set things up.
  long calls = 1;
  for (;;) {
    const double seconds = TimeOf(run, calls);
    if (seconds >= kSliceSeconds / 2) {
      return std::max(1L, static_cast<long>(static_cast<double>(calls) * kSliceSeconds / seconds));
    }
    calls *= 2;
  }
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

struct Contestant {
  std::string name;
  std::function<void()> run;
  Level level;
  long calls = 0;
  std::vector<double> nanoseconds = {};  // Per item, of each round.
  double median = 0;
  double ratio = 0;  // Its time to ours.
};

std::vector<Contestant> Measure(const Case& c, double seconds) {
  const Level level = ActiveLevel();
  std::vector<Contestant> all;
  all.push_back({"ours", c.ours, level});
  for (const Peer& peer : c.peers) {
    all.push_back({peer.name, peer.run, peer.level.value_or(level)});
  }
  if (c.bytes > 0) {
    const std::shared_ptr<char[]> from(new char[c.bytes]()), to(new char[c.bytes]());
    all.push_back({"memcpy",
                   [from, to, bytes = c.bytes] {
                     std::memcpy(to.get(), from.get(), bytes);
                     Keep(to.get());
                   },
                   level});
  }
  for (Contestant& one : all) {
    UseLevel(one.level);
    one.calls = CallsPerSlice(one.run);
  }
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  std::vector<Contestant*> order;
  for (Contestant& one : all) order.push_back(&one);
  std::mt19937 random(1);
  for (int round = 0; round < kMinRounds || Clock::now() < end; ++round) {
    std::shuffle(order.begin(), order.end(), random);
    for (Contestant* const contestant : order) {
      Contestant& one = *contestant;
      const double calls = static_cast<double>(one.calls);
      UseLevel(one.level);
      one.run();
      one.nanoseconds.push_back(TimeOf(one.run, one.calls) * 1e9 / (calls * c.items));
    }
  }
  UseLevel(level);
  for (Contestant& one : all) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < one.nanoseconds.size(); ++i) {
      ratios.push_back(one.nanoseconds[i] / all[0].nanoseconds[i]);
    }
    one.median = Median(one.nanoseconds);
    one.ratio = Median(ratios);
  }
  return all;
}

const Contestant* GoalPeer(const Case& c, const std::vector<Contestant>& all) {
  const Contestant* best = nullptr;
  for (const Contestant& one : all) {
    if (&one == &all[0]) continue;
    if (c.goal.against.empty() ? one.name != "memcpy" && (!best || one.ratio < best->ratio)
                               : one.name == c.goal.against) {
      best = &one;
    }
  }
  return best;
}

}  // namespace

void UseLevelNamed(const char* program, const std::string& name) {
  const std::optional<Level> level = LevelFromName(name);
  if (!level || !HasLevel(*level)) {
    std::fprintf(stderr, "%s: this processor has no kernels of level '%s'\n", program,
                 name.c_str());
    std::exit(2);
  }
  UseLevel(*level);
}

void Comparison::Usage(int code) const {
  std::fprintf(code == 0 ? stdout : stderr,
               "Usage: %s [--filter TEXT] [--seconds S] [--json FILE] [--list]%s\n", program_,
               kernels_ == Kernels::kNone ? "" : " [--level NAME]");
  std::exit(code);
}

Comparison::Comparison(std::string title, int argc, char** argv, Kernels kernels)
    : title_(std::move(title)), program_(argv[0]), kernels_(kernels) {
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--help") Usage(0);
    if (option == "--list") {
      list_ = true;
      continue;
    }
    if (i + 1 == argc) Usage(2);
    const char* value = argv[++i];
    if (option == "--filter") {
      filter_ = value;
    } else if (option == "--json") {
      json_ = value;
    } else if (option == "--level" && kernels_ == Kernels::kOfALevel) {
      UseLevelNamed(program_, value);
    } else if (option == "--seconds") {
      char* rest;
      seconds_ = std::strtod(value, &rest);
      if (*rest != 0 || rest == value || !(seconds_ >= 0)) Usage(2);
    } else {
      Usage(2);
    }
  }
  if (kernels_ == Kernels::kOfALevel) {
    title_ += std::string(", ") + LevelName(ActiveLevel()) + " kernels";
  }
}

bool Comparison::Wants(const std::string& name) const {
  return name.find(filter_) != std::string::npos;
}

void Comparison::Add(Case c) {
  if (Wants(c.name)) cases_.push_back(std::move(c));
}

int Comparison::Run() {
  if (list_) {
    for (const Case& c : cases_) std::printf("%s\n", c.name.c_str());
    return 0;
  }
  nlohmann::ordered_json report = {{"title", title_}, {"cases", nlohmann::json::array()}};
  std::printf("%-34s %-24s %12s %10s %10s\n", title_.c_str(), "", "ns per item", "ours is", "goal");
  for (const Case& c : cases_) {
    const std::vector<Contestant> all = Measure(c, seconds_);
    const Contestant* goalPeer = GoalPeer(c, all);
    nlohmann::ordered_json entry = {{"name", c.name},
                                    {"item", c.item},
                                    {"items_per_call", c.items},
                                    {"bytes_per_call", c.bytes},
                                    {"rounds", all[0].nanoseconds.size()},
                                    {"contestants", nlohmann::json::array()}};
    std::printf("%s, per %s\n", c.name.c_str(), c.item.c_str());
    for (const Contestant& one : all) {
      std::printf("%-34s %-24s %12.3f", "", one.name.c_str(), one.median);
      nlohmann::ordered_json result = {{"name", one.name}, {"ns_per_item", one.median}};
      if (&one != &all[0]) {
        std::printf(" %9.2fx", one.ratio);
        result["times_ours"] = one.ratio;
      }
      if (&one == goalPeer && c.goal.atLeast > 0) {
        const char* verdict = one.ratio < c.goal.atLeast ? "missed"
                              : one.ratio < c.goal.aim   ? "met"
                                                         : "aim met";
        std::printf("  %s (at least %g, aim %g)", verdict, c.goal.atLeast, c.goal.aim);
        entry["goal"] = {{"against", one.name},
                         {"at_least", c.goal.atLeast},
                         {"aim", c.goal.aim},
                         {"reached", one.ratio}};
      }
      std::printf("\n");
      entry["contestants"].push_back(result);
    }
    std::fflush(stdout);
    report["cases"].push_back(entry);
  }
  if (!json_.empty()) {
    std::ofstream file(json_);
    file << report.dump(2) << '\n';
    file.close();
    if (!file) {
      std::fprintf(stderr, "%s: cannot write the results\n", json_.c_str());
      return 1;
    }
  }
  return 0;
}

}  // namespace zel::bench
