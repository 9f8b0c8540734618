// What the processor can do, in the steps in which vector kernels are chosen.
#pragma once

namespace zel {

/// Each level has everything of the levels before it.
enum class CpuLevel {
  kScalar,  ///< Plain C++: the reference that every kernel must match byte for byte.
  kSse2,    ///< The baseline of both builds.
  kSsse3,
  kSse41,
  kAvx2,
  kAvx512,      ///< F, BW, DQ and VL.
  kAvx512Vbmi,  ///< And VBMI and VNNI.
};

inline const char* CpuLevelName(CpuLevel level) {
  constexpr const char* names[] = {"scalar", "sse2",   "ssse3",     "sse4.1",
                                   "avx2",   "avx512", "avx512vbmi"};
  return names[static_cast<int>(level)];
}

/// The highest level that this processor and system support. (The compiler's check covers the
/// system's saving of the wide registers.)
inline CpuLevel DetectCpuLevel() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_cpu_init();
  if (!__builtin_cpu_supports("sse2")) return CpuLevel::kScalar;
  if (!__builtin_cpu_supports("ssse3")) return CpuLevel::kSse2;
  if (!__builtin_cpu_supports("sse4.1")) return CpuLevel::kSsse3;
  if (!__builtin_cpu_supports("avx2")) return CpuLevel::kSse41;
  if (!__builtin_cpu_supports("avx512f") || !__builtin_cpu_supports("avx512bw") ||
      !__builtin_cpu_supports("avx512dq") || !__builtin_cpu_supports("avx512vl")) {
    return CpuLevel::kAvx2;
  }
  return __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vnni")
             ? CpuLevel::kAvx512Vbmi
             : CpuLevel::kAvx512;
#else
  return CpuLevel::kScalar;
#endif
}

}  // namespace zel
