#!/usr/bin/env bash
# Installs, on Debian 12, the packages that are missing for building and using the project ("demo") or, beyond
# that, for everything that scripts/test.sh does ("test"). With all of them there it needs neither rights nor a
# network.
#
# Usage: scripts/setup.sh demo|test
set -euo pipefail

demo_packages=(
  g++ cmake make ninja-build pkg-config
  libavformat-dev libavcodec-dev libavutil-dev libswresample-dev libswscale-dev
  libcli11-dev nlohmann-json3-dev libpng-dev
  libpango1.0-dev fonts-dejavu-core libseccomp-dev
  ffmpeg
)
test_packages=(
  clang clang-format clang-tidy python3 abigail-tools
  googletest libbenchmark-dev
  # Peers that the benchmarks measure against.
  libsamplerate0-dev libsoxr-dev libspeexdsp-dev libyuv-dev
)
# The 32-bit build, and emulators that run it and stand in for lesser processors.
test_packages_amd64=(g++-multilib qemu-user)

case "${1-}" in
  demo) wanted=("${demo_packages[@]}") ;;
  test)
    wanted=("${demo_packages[@]}" "${test_packages[@]}")
    if [ "$(dpkg --print-architecture)" = amd64 ]; then wanted+=("${test_packages_amd64[@]}"); fi
    ;;
  *)
    echo "usage: $0 demo|test" >&2
    exit 2
    ;;
esac

missing=()
for package in "${wanted[@]}"; do
  status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
  if [ "$status" != installed ]; then missing+=("$package"); fi
done
if [ ${#missing[@]} -eq 0 ]; then exit 0; fi

as_root=()
if [ "$(id -u)" != 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "error: these packages are missing; install them, or run this as root: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
apt() { "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0 "$@" </dev/null; }
# Lists of packages may be absent or so old that their files are gone; they are read anew only then.
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! apt install -y --no-install-recommends "${missing[@]}" >"$log" 2>&1; then
  if ! { apt update && apt install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    cat "$log" >&2
    echo "error: apt-get could not install: ${missing[*]}" >&2
    exit 1
  fi
fi
