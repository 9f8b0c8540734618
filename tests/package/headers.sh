#!/usr/bin/env bash
# Every installed header compiles without a warning on its own, as C++17, with each compiler.
set -euo pipefail
rm -rf "$ZEL_WORK"
cmake --install "$ZEL_BUILD" --prefix "$ZEL_WORK" >/dev/null
cd "$ZEL_WORK/include"

check() { # COMPILER HEADER
  # shellcheck disable=SC2086  # ZEL_FLAGS holds several options
  echo "#include <$2>" | "$1" $ZEL_FLAGS -std=c++17 -Wall -Wextra -Wpedantic -Wshadow -Werror -I. -x c++ -fsyntax-only - ||
    { echo "$1 refuses $2"; return 1; }
}
export -f check

mapfile -t headers < <(find zel kernaldec -name '*.h' | sort)
[ ${#headers[@]} -gt 0 ]
all=$(echo '#include <zel/zel.h>' | "${ZEL_COMPILERS%% *}" -std=c++17 -I. -MM -x c++ -)
for header in "${headers[@]}"; do
  # A decoder module's headers are for its users alone, template definitions for whoever instantiates them, and checks
  # for hosts under development.
  [[ $header == zel/* && $header != *-inl.h && $header != zel/compositor/Checks.h ]] || continue
  if ! grep -qwF "$header" <<<"$all"; then
    echo "zel/zel.h does not reach $header"
    exit 1
  fi
done
for compiler in $ZEL_COMPILERS; do
  # Layouts do not depend on which of its two ABIs of the standard library a host has chosen.
  ZEL_FLAGS="$ZEL_FLAGS -D_GLIBCXX_USE_CXX11_ABI=0" check "$compiler" zel/zel.h
  printf '%s\n' "${headers[@]}" | xargs -P "$(nproc)" -I{} bash -c 'check "$@"' - "$compiler" {}
done
echo "${#headers[@]} headers, each with: $ZEL_COMPILERS"
