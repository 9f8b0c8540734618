#!/usr/bin/env bash
# Compares the library's binary interface with the committed one.
#
# Usage: gate.sh check|symbols|update 64|32 LIBRARY
#   check     types and symbols of a library with debug information
#   symbols   only which symbols there are
#   update    makes LIBRARY's interface the committed one; review what changed
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")
baseline=$here/interface-$2.xml
private=$here/private.abignore
current=$(mktemp --suffix=.xml)
trap 'rm -f "$current"' EXIT

# Calls through further bases (_ZTh...) come with their classes. Every user of an interface may have a copy of its
# tables (_ZTVI...): whether this library has one is up to the compiler.
abidw --exported-interfaces-only --suppressions "$private" --type-id-style hash --no-corpus-path --no-comp-dir-path \
  --no-show-locs --no-elf-needed --no-parameter-names --no-architecture --no-write-default-sizes "$3" |
  sed -E "/<elf-symbol name='_ZT(h|[VIS][0-9]+I[A-Z])/d; s/^ +//; s; path='[^']*/((zel|tests)/[^']*)'; path='\1';" >"$current"

symbols() { grep -o "<elf-symbol name='[^']*'" "$1" | grep -v "'Interfaces'" | sort; }
case $1 in
  check) abidiff --harmless --redundant --suppressions "$private" "$baseline" "$current" ;;
  symbols) diff <(symbols "$baseline") <(symbols "$current") ;;
  update) cp "$current" "$baseline" ;;
  *) false ;;
esac || { echo "If that is meant: tests/abi/gate.sh update $2 LIBRARY (see docs/abi.md)" && exit 1; }
