// CAudioConverter as plainly as it can be said: vectors, a whole history, everything moved at once.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// The mixing rules by {in, out} channels: one term list per output channel, each term a sample's
/// index and its divisor; a leading '!' marks rules whose sums are limited to full scale.
inline const std::map<std::pair<int, int>, std::string> kMixingRules = {
    {{1, 2}, "0;0"},
    {{1, 6}, "0;0;;;;"},
    {{2, 1}, "0/2+1/2"},
    {{2, 6}, "0;1;;;;"},
    {{3, 1}, "0/3+1/3+2/3"},
    {{3, 2}, "0;1/2+2/2"},
    {{3, 6}, "0;1;2;;;"},
    {{4, 1}, "0/4+1/4+2/4+3/4"},
    {{4, 2}, "0/4+1/4+2/4+3/4;0/4+1/4+2/4+3/4"},
    {{4, 6}, "0;1;2;3;;"},
    {{5, 1}, "0/5+1/5+2/5+3/5+4/5"},
    {{5, 2}, "0/2+1/2;2/3+3/3+4/3"},
    {{5, 6}, "0;1;2;3;4;"},
    {{6, 1}, "!0/2+1/2+2/2+3/2+4/4+5/4"},
    {{6, 2}, "!0+2/2+3/2+4/4;1+2/2+3/2+5/4"},
    {{7, 1}, "0/7+1/7+2/7+3/7+4/7+5/7+6/7"},
    {{7, 2}, "0/3+1/3+2/3;3/4+4/4+5/4+6/4"},
    {{7, 6}, "0;1;2;3;4;5"},
    {{8, 1}, "0/8+1/8+2/8+3/8+4/8+5/8+6/8+7/8"},
    {{8, 2}, "0/4+1/4+2/4+3/4;4/4+5/4+6/4+7/4"},
    {{8, 6}, "0;1;2;3;4;5"},
};

inline std::vector<short> ApplyRule(std::string rule, const short* in) {
  const bool limited = rule[0] == '!';
  if (limited) rule.erase(0, 1);
  std::vector<short> out;
  int sum = 0;
  rule += ';';
  for (const char* p = rule.c_str(); *p != 0;) {
    if (*p == ';') {
      out.push_back(static_cast<short>(limited ? std::clamp(sum, -32767, 32767) : sum));
      sum = 0;
      ++p;
    } else {
      if (*p == '+') ++p;
      const int index = *p++ - '0';
      const int divisor = *p == '/' ? p[1] - '0' : 1;
      if (*p == '/') p += 2;
      sum += in[index] / divisor;
    }
  }
  return out;
}

class ConverterModel {
 public:
  ConverterModel(int inChannels, int outChannels, int inRate, int outRate, int capacity)
      : inChannels_(inChannels),
        outChannels_(outChannels),
        inRate_(inRate),
        outRate_(outRate),
        capacity_(capacity),
        history_(static_cast<size_t>(std::max(outRate, outChannels))) {}

  int Put(const std::vector<short>& in) {
    const int n = static_cast<int>(in.size());
    if (n > 0) {
      const int need = static_cast<int>(n * (double(outRate_) / inRate_) * 6.0);
      if (capacity_ - Held() < need) capacity_ += 2 * need + 4096;
      const std::vector<short> made =
          inChannels_ == outChannels_ && inRate_ == outRate_ ? in : Convert(in);
      while (Held() + static_cast<int>(made.size()) > capacity_) capacity_ += 2 * need + 4096;
      queue_.insert(queue_.end(), made.begin(), made.end());
    }
    return Held();
  }

  std::vector<short> Get(int n) {
    const auto end = queue_.begin() + std::min(n, Held());
    std::vector<short> out(queue_.begin(), end);
    queue_.erase(queue_.begin(), end);
    return out;
  }

  void Reset() { queue_.clear(); }
  int Held() const { return static_cast<int>(queue_.size()); }
  int Free() const { return capacity_ - Held(); }
  const std::vector<short>& queue() const { return queue_; }
  double remainder() const { return remainder_; }

 private:
  std::vector<short> Convert(const std::vector<short>& in) {
    std::vector<short> fresh;  // The input in output channels.
    const auto rule = kMixingRules.find({inChannels_, outChannels_});
    if (inChannels_ == outChannels_) {
      fresh = in;
    } else if (rule == kMixingRules.end()) {
      fresh.resize(in.size());
    } else {
      for (size_t i = 0; i + inChannels_ <= in.size(); i += inChannels_) {
        const auto frame = ApplyRule(rule->second, &in[i]);
        fresh.insert(fresh.end(), frame.begin(), frame.end());
      }
      fresh.resize(in.size() * outChannels_ / inChannels_);
    }
    const double step = double(inRate_) / outRate_;
    const double n = static_cast<double>(fresh.size());
    int made = static_cast<int>((remainder_ + n) / step + 0.5);
    std::vector<short> out;
    if (inRate_ == outRate_) {
      out = fresh;
    } else {
      made -= made % outChannels_;
      std::vector<short> work = history_;
      work.insert(work.end(), fresh.begin(), fresh.end());
      work.resize(work.size() + outChannels_);
      for (int j = 0; j < made / outChannels_; ++j) {
        const double x = (j + 1.0) * n / made - 1;
        const int k = std::max(static_cast<int>(x + 1) - 1, -1);
        const double f = std::min(std::max(x, double(k)), k + 1.0) - k;
        for (int c = 0; c < outChannels_; ++c) {
          const auto at = static_cast<size_t>(static_cast<long>(history_.size()) +
                                              static_cast<long>(k) * outChannels_ + c);
          const int a = work[at], b = work[at + outChannels_];
          out.push_back(
              static_cast<short>(std::clamp(a + static_cast<int>((b - a) * f), -32767, 32767)));
        }
      }
    }
    remainder_ += n - made * step;
    history_.insert(history_.end(), fresh.begin(), fresh.end());
    history_.erase(history_.begin(), history_.begin() + static_cast<long>(fresh.size()));
    return out;
  }

  int inChannels_, outChannels_, inRate_, outRate_, capacity_;
  double remainder_ = 0;
  std::vector<short> history_, queue_;
};
