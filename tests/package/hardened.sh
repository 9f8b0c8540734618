#!/usr/bin/env bash
# Holds each shipped file to the defences it is built with, as the file itself shows them.
set -euo pipefail

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

mapfile -t files < <(find "$ZEL_BUILD/bin" -maxdepth 1 -type f \( -name 'libZel*' -o -name 'libCOM*' \
  -o -name 'libMedia*' -o -name 'libkernaldec*' -o -name zel \))
[ ${#files[@]} -ge 4 ] || fail "the library and its platform libraries are not in their folder"
for file in "${files[@]}"; do
  all=$(readelf -hldnW "$file")
  [[ $all == *'Type: '+(' ')'DYN'* ]] || fail "$file is at a fixed address"
  [[ $all == *GNU_RELRO* && $all == *BIND_NOW* ]] || fail "the addresses in $file can be written"
  [[ $all != *GNU_STACK*RWE* ]] || fail "$file runs code on the stack"
  case $(uname -m) in x86_64) [[ $all == *SHSTK* ]] || fail "$file has no shadow stack" ;; esac
  [[ $file == *.so || $file == *.dylib ]] || continue
  if nm -D --defined-only "$file" | awk '{ sub("@.*", "", $3); print $3 }' | sort -u |
    comm -12 - <(readelf -rW "$file" | awk '{ sub("@.*", "", $5); print $5 }' | sort -u) | grep .; then
    fail "$file lets another file replace these"
  fi
done
# Builds without optimisation have no checked copies.
for guard in __stack_chk_fail ${ZEL_OPTIMISED:+__[a-z]*_chk}; do
  nm -D "${files[@]}" | grep " U $guard@" >/dev/null || fail "nothing calls $guard"
done
