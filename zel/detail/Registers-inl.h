// The register vocabulary: what vector kernels are written in.
//
// A file of kernels includes one level of its architecture, which includes this file:
//
//   #include "zel/detail/x86/Avx2-inl.h"
//   #include "zel/audio/detail/AudioRows-inl.h"
//
// The level's operations are in the namespace zel::ZEL_LEVEL (zel::avx2), and each room's kernels
// in one of that name (zel::audio::avx2). Inside those, namespaces without a name give everything
// internal linkage: the linker must never take a function that was compiled for one level for the
// same function of another. For the same reason these files use no functions of the standard
// library but those of C.
//
// A register is divided into lanes of 16 bytes. Elements are numbered from the lowest address on.
// Numbers in names are bits of an element; U in a name means unsigned, Sat that results saturate.
//
// What a level's register set provides:
//
//   Reg, Half, Lane          a register; half of one (its low 8 bytes, if a Half has 16); a lane
//   Doubles                  a register of doubles, with the operators + - * /
//   Flags                    the result of a comparison: Or, Any
//   kMaskedAccess            whether a part of a register is as fast to access as a whole one
//
//   Load(p), Store(p, v)     a register at any address; LoadHalf, StoreHalf, LoadLane, StoreLane
//   LoadPart(p, n)           the first n bytes of a register, 0 < n < kRegBytes; the others are 0
//   StorePart(p, v, n)
//   LoadBytesAs16(p)         unsigned bytes, each widened to 16 bits; LoadBytesAs32 to 32 bits
//   LoadLanes(at)            lane i from at(i)
//   Join(low, high)          of halves; Low(v), High(v) the other way
//   EachLane(lane)           the same lane everywhere; MakeLane(b0 ... b15), LaneFrom32(dword);
//                            And(a, b) of lanes as well as of registers
//   Set8, Set16, Set32, Set64(value)
//
//   Add8, Add16, Add32, Sub8, Sub16, Sub32, Mul16
//   AddSat16, AddSatU8, AddSatU16, SubSat16, SubSatU16
//   MulHigh16, MulHighU16    the high halves of the products
//   MulAdd16(a, b)           per 32 bits: the two products of signed words, added
//   MulAddBytes(a, b)        per 16 bits: the two products of a's unsigned bytes and b's signed
//                            bytes, added; the caller sees to it that the sums fit
//   Max16, MaxU8, AverageU8  the average rounds up
//   ShiftLeft16, 32, 64, ShiftRight16, 32, 64, ShiftRightSigned16, 32<bits>(v)
//   Equal16, Greater32       signed
//
// Within lanes:
//
//   InterleaveLow8, 16, 64(a, b)    elements of the lanes' low halves, a's and b's in turn
//   InterleaveHigh8, 16, 64(a, b)   the same of the high halves
//   PackU8(a, b)                    signed words as unsigned bytes: a's, then b's. Saturates
//   Pack16(a, b)                    dwords as words: a's, then b's. Saturates
//   ShuffleQuads<a, b, c, d>(v)     of each four words, words a, b, c, d
//   ShuffleBytes(v, places)         byte places[i] of the lane; 0 where places[i] has bit 7. Not in
//                                   SSE2
//   AddPairs32(a, b)                sums of neighbouring dwords: a's, then b's. SSSE3 and AVX2 only
//   Even32(a, b), Odd32(a, b)       every second dword: a's, then b's. From AVX2 on
//
// Across lanes. Since interleaving and packing stay within lanes:
//
//   Spread32(v), Spread64(v)     distributes dwords or qwords over the lanes, so that interleaving
//                                the result gives the order of memory
//   Gather32(v), Gather64(v)     the reverse: restores the order of memory after packing
//   Permute32(v, places)         dword places[i] of the register. From AVX2 on; AVX-512 also has
//                                Permute16, and all of them for two registers
//
// Of doubles:
//
//   SetDoubles(x), LoadDoubles, StoreDoubles, Min, Max
//   ToDoubles(half)          from signed dwords
//   Truncate(doubles)        to a half of signed dwords
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "zel/detail/Inline.h"

#ifndef ZEL_LEVEL
#error "Include a level, such as zel/detail/x86/Avx2-inl.h, instead."
#endif

namespace zel::ZEL_LEVEL {
namespace {

constexpr int kRegBytes = sizeof(Reg);
constexpr int kLanes = kRegBytes / 16;

ZEL_INLINE Reg Zero() {
  return Reg{};
}
ZEL_INLINE Reg And(Reg a, Reg b) {
  return a & b;
}
ZEL_INLINE Reg Or(Reg a, Reg b) {
  return a | b;
}
ZEL_INLINE Reg Xor(Reg a, Reg b) {
  return a ^ b;
}

/// A byte for each even place, one for each odd place.
ZEL_INLINE Reg SetPairs8(int even, int odd) {
  return Set16(static_cast<short>((even & 0xff) | (odd & 0xff) << 8));
}
/// The same for words.
ZEL_INLINE Reg SetPairs16(int even, int odd) {
  return Set32(static_cast<int>((even & 0xffffU) | static_cast<unsigned>(odd) << 16));
}

ZEL_INLINE Doubles LowToDoubles(Reg dwords) {
  return ToDoubles(Low(dwords));
}
ZEL_INLINE Doubles HighToDoubles(Reg dwords) {
  return ToDoubles(High(dwords));
}
ZEL_INLINE Reg Truncate(Doubles low, Doubles high) {
  return Join(Truncate(low), Truncate(high));
}

}  // namespace
}  // namespace zel::ZEL_LEVEL
