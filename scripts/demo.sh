#!/usr/bin/env bash
# Replaces the sound of a video, from a clean clone: installs what is missing, builds, dubs.
#
# Usage: scripts/demo.sh
#            makes a clip and a track of its own in out/, dubs them and checks the result
#        scripts/demo.sh INPUT TRACK [OUTPUT [DELAY [OPTION...]]]
#            dubs your files; by default OUTPUT is INPUT's name with '.dubbed' in it, .mkv where zel does not write
#            INPUT's container, and DELAY is 0; the rest goes to `zel dub` as it stands (see `zel dub --help`)
set -euo pipefail
project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$project/build/demo
out=$project/out

if [ $# -eq 1 ] || [ "${1-}" = --help ] || [ "${1-}" = -h ]; then
  sed -n '2,/^set/{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
  if [ "$1" = --help ] || [ "$1" = -h ]; then exit 0; fi
  exit 2
fi

build_log=$(mktemp)
trap 'rm -f "$build_log"' EXIT
quiet() {
  if ! "$@" >"$build_log" 2>&1 </dev/null; then
    cat "$build_log" >&2
    echo "error: this failed: $*" >&2
    exit 1
  fi
}

"$project/scripts/setup.sh" demo
if [ ! -e "$build/bin/zel" ]; then echo "Building, for a minute or two ..."; fi
quiet cmake -S "$project" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release
quiet cmake --build "$build"
zel=$build/bin/zel

if [ $# -ge 2 ]; then
  input=$1 track=$2
  name=$(basename -- "$input")
  case $name in
    ?*.mp4 | ?*.m4v | ?*.mov | ?*.m4a | ?*.mkv | ?*.mka | ?*.webm | ?*.wav | ?*.flac | ?*.og[ga] | ?*.opus | ?*.mp3)
      dubbed=${name%.*}.dubbed.${name##*.} ;;
    *) dubbed=$name.dubbed.mkv ;;
  esac
  output=${3:-$(dirname -- "$input")/$dubbed}
  rm -f "$build_log"
  exec "$zel" dub --output="$output" --delay="${4:-0}" "${@:5}" -- "$input" "$track"
fi

fail() {
  echo "FAILED: $*" >&2
  exit 1
}
av() { ffmpeg -hide_banner -nostdin -y "$@"; }

mkdir -p "$out"
cd "$out"
echo "Making a clip of 10 s: picture, and a tone of 440 Hz (48,000 Hz, stereo) ..."
quiet av -f lavfi -i testsrc2=size=640x360:rate=25:duration=10 -f lavfi -i sine=frequency=440:sample_rate=48000:duration=10 \
  -af volume=4,tremolo=f=0.4:d=0.8 -ac 2 -c:a aac -pix_fmt yuv420p clip.mp4
echo "Making a track of 6 s: a tone of 1,000 Hz (44,100 Hz, mono) ..."
quiet av -f lavfi -i sine=frequency=1000:sample_rate=44100:duration=6 -af volume=3,tremolo=f=1.5:d=0.7 track.flac

"$zel" dub clip.mp4 track.flac --output dubbed.mp4 --delay 2.5 --overwrite

# Everything below asks ffmpeg, which knows nothing of this project.
sound() { av -i dubbed.mp4 -map 0:a "$@" -f null - 2>&1; }
peak() { # FROM TO [FILTER,...]: the highest level in dB, rounded up to a whole number
  sound -af "${3-}atrim=$1:$2,volumedetect" | sed -n 's/.*max_volume: \(-\{0,1\}[0-9]*\).*/\1/p'
}
check() { # WHAT CONDITION...
  [ "${@:2}" ] || fail "not so: $1"
  echo "  ok  $1"
}
packets() { # FILE: time stamps, size and hash of every video packet
  ffprobe -v error -select_streams v -show_entries packet=pts_time,dts_time,size,data_hash -show_data_hash md5 -of csv "$1"
}
onset=$(sound -af silencedetect=noise=-50dB:duration=0.5 | sed -n 's/.*silence_end: \([0-9.]*\).*/\1/p' | head -1)
onset_error=$(awk -v onset="$onset" 'BEGIN { d = onset - 2.5; printf "%d", 1000 * (d < 0 ? -d : d) }')

echo "Checking out/dubbed.mp4 with ffmpeg:"
check "silent until the track starts (up to 2.4 s: $(peak 0 2.4) dB)" "$(peak 0 2.4)" -le -70
check "the track starts at 2.5 s (found at $onset s)" "$onset_error" -le 25
check "it is heard ($(peak 3 8) dB)" "$(peak 3 8)" -ge -30
check "and nothing but it (without 1,000 Hz: $(peak 3 8 bandreject=f=1000:width_type=h:w=200,) dB)" \
  "$(peak 3 8 bandreject=f=1000:width_type=h:w=200,)" -le -50
check "silent after its end (from 8.6 s: $(peak 8.6 10) dB)" "$(peak 8.6 10)" -le -70
check "$(packets clip.mp4 | wc -l) video packets, all as in the clip, with their times" \
  "$(packets clip.mp4)" = "$(packets dubbed.mp4)"
"$zel" frame dubbed.mp4 --output frame.png --at 5 --overwrite
"$zel" wave clip.mp4 track.flac dubbed.mp4 --output waves.png --overwrite
echo "The result is $out/dubbed.mp4; $out/waves.png shows the three sounds, $out/frame.png a picture of it"
