// Forces inlining where a call is too slow, or where an out-of-line copy must not exist.
#pragma once

/// Before a function: always inlined.
#define ZEL_INLINE [[gnu::always_inline]] inline
/// Between a lambda's parameters and its body: the same.
#define ZEL_INLINE_LAMBDA __attribute__((always_inline))
