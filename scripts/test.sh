#!/usr/bin/env bash
# Runs every check of the project, as a continuous integration does, and stops at the first that fails.
#
# Usage: scripts/test.sh [STEP...]     (default: all steps, in this order)
#
#   format    clang-format leaves every source file as it is
#   release   g++, optimised: all tests, kernel tests also on emulated older processors
#   clang     clang++, optimised: all tests
#   tidy      clang-tidy finds nothing
#   asan      AddressSanitizer and UndefinedBehaviorSanitizer: all tests
#   tsan      ThreadSanitizer: all tests
#   x86-32    32-bit x86, run by qemu-i386: all tests
#
# ZEL_JOBS sets how many processes run at once (default: one per processor).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

all_steps=(format release clang tidy asan tsan x86-32)
if [ "$(uname -m)" != x86_64 ]; then all_steps=(format clang tidy asan tsan); fi
jobs=${ZEL_JOBS:-$(nproc)}
steps=("$@")
if [ ${#steps[@]} -eq 0 ]; then steps=("${all_steps[@]}"); fi
for step in "${steps[@]}"; do
  if [[ " ${all_steps[*]} " != *" $step "* ]]; then
    echo "error: no step '$step'; there are: ${all_steps[*]}" >&2
    exit 2
  fi
done

# quiet COMMAND...: shows the command's output only if it fails.
quiet() {
  local log status=0
  log=$(mktemp)
  "$@" >"$log" 2>&1 </dev/null || status=$?
  if [ $status -ne 0 ]; then cat "$log"; fi
  rm -f "$log"
  return $status
}

configure() { quiet cmake --preset "$1"; }
build() { configure "$1" && quiet cmake --build --preset "$1" -j "$jobs"; }

build_and_test() { # PRESET [COMMAND PREFIX...]
  local preset=$1
  shift
  build "$preset" && "$@" ctest --preset "$preset" -j "$jobs" --no-tests=error </dev/null
}

# The sanitizers' shadow memory and a widely randomised address space can collide.
fixed_addresses=()
if setarch -R true 2>/dev/null; then fixed_addresses=(setarch -R); fi

run_format() {
  find . -path './build*' -prune -o \( -name '*.h' -o -name '*.cpp' \) -print0 |
    xargs -0 -r clang-format --dry-run -Werror
}
run_release() { build_and_test release; }
run_clang() { build_and_test clang; }
run_tidy() { configure clang && python3 scripts/tidy.py -j "$jobs" build/clang; }
run_asan() { build_and_test asan "${fixed_addresses[@]}"; }
run_tsan() { build_and_test tsan "${fixed_addresses[@]}"; }
run_x86_32() { build_and_test x86-32; }

summary=""
timed() { # NAME FUNCTION
  echo "=== $1"
  local start=$SECONDS
  if ! "$2"; then
    printf '%s\n' "" "$summary" "FAILED: $1 (scripts/test.sh $1 repeats this step)" >&2
    exit 1
  fi
  summary+=$(printf '  %-8s ok %5d s' "$1" $((SECONDS - start)))$'\n'
  echo "=== $1: ok, $((SECONDS - start)) s"
}

setup() { scripts/setup.sh test; }
timed setup setup
for step in "${steps[@]}"; do timed "$step" "run_${step//-/_}"; done
printf '%s' "" "All checks passed in $SECONDS s:"$'\n' "$summary"
