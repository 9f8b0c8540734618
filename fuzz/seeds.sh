#!/usr/bin/env bash
# Makes small files of many kinds for decoder_fuzzer to start from.
#
# Usage: fuzz/seeds.sh FOLDER
set -euo pipefail
folder=${1:?"usage: $0 FOLDER"}
mkdir -p "$folder"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

ffmpeg -nostdin -v error -f lavfi -i testsrc=s=32x18:r=10:d=1 -f lavfi -i sine=r=8000:d=1 -c:v ffv1 -c:a pcm_s16le \
  -metadata:s:a:0 language=deu -metadata:s:a:0 title=Ton "$work/source.mkv"
make() { # NAME ARGUMENT...
  ffmpeg -nostdin -v error -i "$work/source.mkv" "${@:2}" "$work/$1"
}
for codec in pcm_u8 pcm_s16le pcm_s24le pcm_f32le adpcm_ima_wav pcm_alaw; do make $codec.wav -vn -c:a $codec; done
for suffix in flac aiff aac ac3 au caf w64 mp3 ogg opus; do make a.$suffix -vn; done
make a.mp4 -c:v libx264 -c:a aac
make fragments.mp4 -c:v libx264 -c:a aac -movflags empty_moov+frag_keyframe
make a.mov -c:v mjpeg -c:a pcm_s16be
make a.mkv -c:v mpeg4 -c:a flac
make a.webm -c:v libvpx -c:a libopus
make a.avi -c:v mpeg4 -c:a mp2
make a.flv -c:v flv1 -c:a adpcm_swf -ar 11025
make two.ts -map 0:v -map 0:a -map 0:a -c:v mpeg2video -r 25 -c:a mp2 -ar 16000 \
  -program program_num=3:title=One:st=0:st=1 -program program_num=7:title=Two:st=2
rm "$work/source.mkv"

# The fuzzer's first byte is not part of the file.
for file in "$work"/*; do (printf 'A' && cat "$file") >"$folder/$(basename "$file")"; done
echo "$(find "$folder" -type f | wc -l) files in $folder"
