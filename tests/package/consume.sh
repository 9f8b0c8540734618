#!/usr/bin/env bash
# Installs the built tree, moves it, and builds and runs a program against it: with find_package, with pkg-config,
# and, from the sources, with add_subdirectory.
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")
tree=$ZEL_WORK/moved
warnings="-Wall -Wextra -Wpedantic -Wshadow -Werror"

fail() {
  echo "FAILED: $*" >&2
  exit 1
}
run() { # PROGRAM: linked, and loaded at run time
  # shellcheck disable=SC2086  # empty, or a command with options
  ${ZEL_EMULATOR//;/ } "$@" || fail "$*"
}

rm -rf "$ZEL_WORK"
DESTDIR=$ZEL_WORK/stage cmake --install "$ZEL_BUILD" --prefix /opt/zel >/dev/null
mv "$ZEL_WORK/stage/opt/zel" "$tree"
if grep -rlF -e "$ZEL_SOURCE" -e /opt/zel "$tree"; then fail "these files know an absolute path"; fi
if find "$tree/include" -name detail | grep .; then fail "private headers are installed"; fi

# An empty element of a search path is the current folder, in which anybody may have put a library.
mapfile -t files < <(find "$tree/lib/zel" "$ZEL_BUILD/bin" -type f \( -name 'lib*' -o -name zel \))
[ ${#files[@]} -ge 8 ] || fail "the library and its platform libraries are not in their folders"
for file in "${files[@]}"; do
  path=$(readelf -d "$file" | sed -nE 's/.*\((RPATH|RUNPATH)\).*\[(.*)\]/\2/p')
  [[ $path =~ ^'$ORIGIN'(:/[^:]+)*$ ]] || fail "$file looks for libraries in '$path'"
done

for compiler in $ZEL_COMPILERS; do
  build=$ZEL_WORK/find_package-$compiler
  cmake -G Ninja -S "$here/consumer" -B "$build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$tree" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$ZEL_FLAGS $warnings" >/dev/null
  cmake --build "$build"
  run "$build/consumer" "$tree/lib/zel/libZel_AudioCompositor.so"

  program=$ZEL_WORK/pkg-config-$compiler
  flags=$(PKG_CONFIG_PATH=$tree/lib/pkgconfig pkg-config --cflags --libs Zel_AudioCompositor)
  # shellcheck disable=SC2086  # several options each
  "$compiler" $ZEL_FLAGS -std=c++17 -O2 $warnings "$here/consumer/Consumer.cpp" -o "$program" $flags -ldl
  run "$program" "$tree/lib/zel/libZel_AudioCompositor.so"
done

# The whole library once more; one build of it is enough.
if [ "$ZEL_FROM_SOURCES" = 1 ]; then
  build=$ZEL_WORK/add_subdirectory
  cmake -G Ninja -S "$here/consumer" -B "$build" -DCMAKE_BUILD_TYPE=Debug -DZEL_SOURCE_DIR="$ZEL_SOURCE" \
    -DCMAKE_CXX_COMPILER="${ZEL_COMPILERS%% *}" -DCMAKE_CXX_FLAGS="$ZEL_FLAGS" >/dev/null
  cmake --build "$build"
  run "$build/consumer" "$build/zel/bin/libZel_AudioCompositor.so"
  DESTDIR=$ZEL_WORK/stage cmake --install "$build" --prefix /opt/parent >/dev/null
  if [ -e "$ZEL_WORK/stage/opt/parent/include/zel" ]; then fail "a parent project's installation gets our files"; fi
fi

if [ -e "$ZEL_BUILD/bin/zel" ]; then
  run "$tree/bin/zel" --version
  run "$tree/bin/zel" --help >/dev/null
fi
