#!/usr/bin/env python3
"""What `zel dub` costs next to the ffmpeg command that does the same, as whole processes on real files.

Usage: bench/tools/dub_bench.py [--zel PATH] [--rounds N] [--minutes M] [--json FILE] [CASE...]

Both run in turns, who comes first changing from round to round; the first round is not counted. CPU is user and system
time of the process, wall its duration. A ratio is the median of the rounds' ratios, ours over ffmpeg's: below 1, ours
is faster.
"""

import argparse
import json
import os
import statistics
import subprocess
import tempfile

from process import run

DELAY = 1.273


def ffmpeg(*args):
    return ["ffmpeg", "-v", "error", "-nostdin", "-y", *args]


def noise(seconds, rate, channels, path, *options):
    """Noise with little treble, of which no two parts are alike."""
    source = "|".join(f"0.3*random({i})" for i in range(channels))
    subprocess.run(ffmpeg("-f", "lavfi", "-i", f"aevalsrc='{source}':s={rate}:d={seconds}",
                          "-af", "lowpass=f=3000", *options, path), check=True)


def make(minutes):
    """Makes the files and returns {case: (input, track, output, ffmpeg's options, seconds)}."""
    seconds = 60 * minutes
    noise(seconds, 44100, 2, "long.wav", "-c:a", "pcm_s16le")
    noise(seconds, 22050, 1, "track-mono.wav", "-c:a", "pcm_s16le")
    noise(seconds, 44100, 2, "track.wav", "-c:a", "pcm_s16le")
    subprocess.run(ffmpeg("-i", "track.wav", "track.flac"), check=True)
    subprocess.run(ffmpeg("-i", "track.wav", "-b:a", "192k", "track.mp3"), check=True)
    subprocess.run(ffmpeg("-f", "lavfi", "-i", "testsrc2=s=1280x720:r=25:d=120", "-i", "long.wav", "-t", "120", "-c:v",
                          "libx264", "-preset", "ultrafast", "-g", "50", "-c:a", "aac", "-b:a", "160k", "film.mp4"),
                   check=True)
    pcm = ["-c:a", "pcm_s16le", "-ar", "44100", "-ac", "2"]
    return {
        "wav-mono": ("long.wav", "track-mono.wav", "out.wav", pcm, seconds),
        "wav-wav": ("long.wav", "track.wav", "out.wav", pcm, seconds),
        "wav-flac": ("long.wav", "track.flac", "out.wav", pcm, seconds),
        "wav-mp3": ("long.wav", "track.mp3", "out.wav", pcm, seconds),
        "mp4": ("film.mp4", "track.wav", "out.mp4", ["-map", "0:v", "-c:v", "copy", "-c:a", "aac", "-b:a", "160k",
                                                    "-ar", "44100", "-ac", "2"], 120),
    }


def measure(zel, case, rounds):
    source, track, output, options, seconds = case
    commands = [
        [zel, "dub", "-q", "--overwrite", source, track, "-o", "zel-" + output, "--delay", str(DELAY)],
        ffmpeg("-i", source, "-i", track, "-filter_complex", f"[1:a]adelay={1000 * DELAY:g}:all=1,apad[a]",
               "-map", "[a]", *options, "-t", str(seconds), "ffmpeg-" + output),
    ]
    figures = []
    for number in range(rounds + 1):
        order = (0, 1) if number % 2 == 0 else (1, 0)
        pair = {who: run(commands[who]) for who in order}
        if number > 0:
            figures.append((*pair[0], *pair[1]))
    middle = statistics.median
    return {
        "zel_cpu": middle(f[0] for f in figures), "zel_wall": middle(f[1] for f in figures),
        "ffmpeg_cpu": middle(f[2] for f in figures), "ffmpeg_wall": middle(f[3] for f in figures),
        "cpu_ratio": middle(f[0] / f[2] for f in figures), "wall_ratio": middle(f[1] / f[3] for f in figures),
        "rounds": len(figures),
    }


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--zel", default=os.path.join(here, "../../build/release/bin/zel"))
    parser.add_argument("--rounds", type=int, default=9)
    parser.add_argument("--minutes", type=int, default=10, help="length of the WAV files")
    parser.add_argument("--json", help="write the figures to this file, too")
    parser.add_argument("cases", nargs="*", metavar="CASE", help="wav-mono wav-wav wav-flac wav-mp3 mp4")
    options = parser.parse_args()
    zel = os.path.abspath(options.zel)
    target = os.path.abspath(options.json) if options.json else None
    results = {}
    with tempfile.TemporaryDirectory(prefix="zel-bench-") as folder:
        os.chdir(folder)
        cases = make(options.minutes)
        print(f"{'case':10} {'zel CPU':>9} {'ffmpeg':>9} {'ratio':>7}   {'zel wall':>9} {'ffmpeg':>9} {'ratio':>7}")
        for name in options.cases or cases:
            figures = results[name] = measure(zel, cases[name], options.rounds)
            print("{0:10} {zel_cpu:8.3f}s {ffmpeg_cpu:8.3f}s {cpu_ratio:7.2f}   {zel_wall:8.3f}s {ffmpeg_wall:8.3f}s "
                  "{wall_ratio:7.2f}".format(name, **figures), flush=True)
        os.chdir("/")
    if target:
        with open(target, "w") as out:
            json.dump(results, out, indent=2)


if __name__ == "__main__":
    main()
