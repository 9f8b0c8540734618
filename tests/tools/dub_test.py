"""zel dub, as a whole process on real files."""

import errno
import os
import platform
import pty
import re
import resource
import signal
import stat
import subprocess
import time
import unittest

from support import (ZEL, Case, array, decode, ffmpeg, lag, long_wav, noise, peak_memory, probe, quality, read_wav,
                     sine, streams, video_packets, without, write_wav, zel)

RATE = 44100
TICKS = 10_000_000


def ticks(sample, rate=RATE):
    """The time stamp of a sample in 100-ns units."""
    return (sample * TICKS + rate // 2) // rate


def model(input_frames, track, delay, channels=2, rate=RATE):
    """What a dub must hold when formats are equal: silence, the track from its exact sample, silence."""
    nearest = min(int(abs(delay) * rate + 0.5), 10**9)
    first, skip = (min(nearest, input_frames), 0) if delay >= 0 else (0, nearest)
    heard = track[skip * channels:][:(input_frames - first) * channels]
    silence = array.array("h", bytes(2 * (input_frames * channels - first * channels - len(heard))))
    return array.array("h", bytes(2 * first * channels)) + heard + silence


class Exact(Case):
    """Against the model, to the byte."""

    FRAMES = 100_000
    TRACK_FRAMES = 60_000

    @classmethod
    def make(cls):
        cls.track = noise(1, cls.TRACK_FRAMES)
        write_wav("in.wav", noise(2, cls.FRAMES))
        write_wav("track.wav", cls.track)
        write_wav("brief.wav", noise(3, 7))

    def test_delays(self):
        texts = ["0", "1.273", "-0.5", "-1.3605", "-60", "1e300",
                 # A frame's boundary and its neighbours, a fourth decimal, and the end of the input.
                 repr(1024 / RATE), repr(1023 / RATE), "0.0232199", "1.0001", "2.2675", "2.26758"]
        for text in texts:
            with self.subTest(delay=text):
                self.done("dub", "in.wav", "track.wav", "-o", "out.wav", "--overwrite", "--delay", text)
                self.assertTrue(read_wav("out.wav") == model(self.FRAMES, self.track, float(text)))

    def test_lossless_containers_hold_the_same_bytes(self):
        wanted = model(self.FRAMES, self.track, 1.273)
        for name in ("OUT.FLAC", "out.mka"):
            self.done("dub", "in.wav", "track.wav", "-o", name, "-d", "1.273")
            self.assertTrue(decode(name) == wanted, name)

    def test_the_end_of_a_track_is_never_lost(self):
        self.done("dub", "in.wav", "brief.wav", "-o", "out.wav", "-d", "1")
        out = read_wav("out.wav")
        self.assertTrue(out == model(self.FRAMES, read_wav("brief.wav"), 1.0))
        self.assertEqual(sum(value != 0 for value in out), 14)

    def test_other_rates_and_channels(self):
        # A constant track: where it is heard shows where it was put.
        for rate, channels in ((22050, 1), (8000, 2), (96000, 6), (44100, 3)):
            for delay in (0.7312, -0.25):
                with self.subTest(rate=rate, channels=channels, delay=delay):
                    write_wav("level.wav", [9000] * (rate * channels), rate, channels)
                    self.done("dub", "in.wav", "level.wav", "-o", "out.wav", "--overwrite", "-d", str(delay))
                    out = read_wav("out.wav")
                    self.assertEqual(len(out), 2 * self.FRAMES)
                    heard = [i for i, value in enumerate(out[::2]) if value != 0]
                    reach = RATE / rate + 1  # Interpolation starts up to one sample of the track early.
                    self.assertAlmostEqual(heard[0], max(delay, 0) * RATE, delta=reach)
                    self.assertAlmostEqual(heard[-1] + 1, (delay + 1) * RATE, delta=reach)
                    self.assertEqual(len(heard), heard[-1] - heard[0] + 1, "a hole")

    def test_quality_at_other_rates(self):
        # Where the rates' divisor is 1, too; frames of 1,024 samples as they are would give some 30 dB.
        for rate, wanted, noise_ratio in ((44100, 48000, 61), (48000, 44100, 62), (44100, 48001, 61),
                                          (22050, 44100, 45)):
            with self.subTest(rate=rate, wanted=wanted):
                write_wav("sine.wav", sine(1000, rate, 1), rate, 1)
                write_wav("blank.wav", [0] * wanted, wanted, 1)
                self.done("dub", "blank.wav", "sine.wav", "-o", "out.wav", "--overwrite")
                gain, ratio = quality(decode("out.wav"), 1000, wanted)
                self.assertAlmostEqual(gain, 0, delta=0.05)
                self.assertGreater(ratio, noise_ratio)

    def test_channels_that_the_converter_lacks(self):
        write_wav("in5.wav", [0] * 5 * 20000, RATE, 5)
        self.done("dub", "in5.wav", "track.wav", "-o", "out.wav")
        out = decode("out.wav")
        self.assertEqual(len(out), 5 * 20000)
        self.assertTrue(out[0::5] == self.track[0:40000:2] and out[1::5] == self.track[1:40000:2])


class Video(Case):
    """With a picture that is copied."""

    @classmethod
    def make(cls):
        ffmpeg("-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=3", "-f", "lavfi", "-i", "sine=440:r=44100:d=3",
               "-ac", "2", "-c:v", "libx264", "-bf", "2", "-g", "20", "-c:a", "aac", "-metadata", "title=A film",
               "in.mp4")
        ffmpeg("-i", "in.mp4", "-c", "copy", "in.mkv")
        write_wav("track.wav", noise(4, 30_000))
        write_wav("in.wav", noise(5, 3 * RATE))

    def test_picture_time_and_sound(self):
        for source in ("in.mp4", "in.mkv"):
            self.done("dub", source, "track.wav", "-o", "ref.wav", "-d", "1.273")
            reference = read_wav("ref.wav")
            os.unlink("ref.wav")
            wanted, originals = video_packets(source), probe(source, "-show_streams")["streams"]
            for name in ("out.mp4", "out.mkv", "out.mov") if source == "in.mp4" else ("out.mp4", "out.mkv"):
                with self.subTest(source=source, name=name):
                    self.done("dub", source, "track.wav", "-o", name, "-d", "1.273", "--overwrite")
                    got = video_packets(name)
                    self.assertEqual([h for _, h in got], [h for _, h in wanted])
                    for (a, _), (b, _) in zip(got, wanted):
                        self.assertAlmostEqual(a, b, delta=0.0011)  # Matroska counts milliseconds.
                    shown = probe(name, "-show_streams", "-show_format")
                    self.assertEqual(shown["format"]["tags"]["title"], "A film")
                    for stream, original in zip(shown["streams"], originals):
                        self.assertAlmostEqual(float(stream["start_time"]), float(original["start_time"]), delta=0.001)
                    self.assertAlmostEqual(float(shown["format"]["duration"]), len(reference) / 2 / RATE, delta=0.002)
                    # AAC comes in packets of 1024, which FFmpeg's decoder does not cut at the end.
                    sound = decode(name)
                    self.assertIn(len(sound) - len(reference), range(0, 2 * 1024))
                    self.assertEqual(lag(reference, sound, 2, start=int(1.3 * RATE)), 0)
                    loudest = max(map(abs, sound[:2 * (int(1.273 * RATE) - 2048)]))
                    self.assertLess(loudest, 4)

    def test_sound_formats(self):
        self.done("dub", "in.wav", "track.wav", "-o", "ref.wav", "-d", "1.273")
        reference = read_wav("ref.wav")
        for name, codec, spare in (("out.m4a", "aac", 1023), ("out.ogg", "vorbis", 0), ("out.mp3", "mp3", 0),
                                   ("out.webm", "vorbis", 1023)):
            with self.subTest(name=name):
                self.done("dub", "in.wav", "track.wav", "-o", name, "-d", "1.273")
                self.assertEqual(streams(name), [("audio", codec)])
                sound = decode(name)
                self.assertIn(len(sound) - len(reference), range(0, 2 * spare + 1))
                self.assertEqual(lag(reference, sound, 2, start=int(1.3 * RATE)), 0)
        self.done("dub", "in.wav", "track.wav", "-o", "out.opus")  # Opus knows no 44,100 Hz.
        self.assertEqual(len(decode("out.opus")), 2 * 3 * 48000)

    def test_sound_alone_of_a_film(self):
        out = self.done("dub", "in.mp4", "track.wav", "-o", "out.flac")
        self.assertIn("left out: #0 video (h264)", out)
        self.assertEqual(streams("out.flac"), [("audio", "flac")])

    def test_everything_else_stays(self):
        with open("text.srt", "w") as text:
            text.write("1\n00:00:00,500 --> 00:00:01,000\nHello\n\n")
        with open("chapters.txt", "w") as text:
            text.write(";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=1500\ntitle=One\n")
        ffmpeg("-i", "in.mp4", "-i", "track.wav", "-i", "text.srt", "-i", "chapters.txt", "-map", "0:v", "-map", "0:a",
               "-map", "1:a", "-map", "2", "-map_metadata", "3", "-map_chapters", "3", "-c:v", "copy", "-c:a:0", "copy",
               "-c:a:1", "flac", "-c:s", "subrip", "-metadata:s:a:0", "language=fra", "full.mkv")
        self.done("dub", "full.mkv", "track.wav", "-o", "out.mkv")
        self.assertEqual(streams("out.mkv"), [("video", "h264"), ("audio", "flac"), ("audio", "flac"),
                                              ("subtitle", "subrip")])
        self.assertEqual(decode("out.mkv", "0:a:1"), decode("full.mkv", "0:a:1"))
        self.assertEqual(ffmpeg("-i", "out.mkv", "-map", "0:s", "-f", "srt", "-"),
                         ffmpeg("-i", "full.mkv", "-map", "0:s", "-f", "srt", "-"))
        shown = probe("out.mkv", "-show_streams", "-show_chapters")
        self.assertEqual(shown["chapters"][0]["tags"]["title"], "One")
        self.assertEqual(shown["streams"][1]["tags"]["language"], "fra")

        self.done("dub", "full.mkv", "track.wav", "-o", "second.mkv", "--audio-stream", "1")
        self.assertEqual(streams("second.mkv")[1], ("audio", "aac"))
        self.assertEqual(len(decode("second.mkv", "0:a:1")), len(read_wav("track.wav")))

        out = self.done("dub", "full.mkv", "full.mkv", "-o", "third.mp4", "--stream", "0x10002")
        self.assertIn("left out: #3 subtitle (subrip)", out)
        self.assertEqual(lag(read_wav("track.wav"), decode("third.mp4"), 2, start=2000), 0)

    def test_programs_of_a_broadcast(self):
        rates = {3: 44100, 7: 48000}
        ffmpeg("-i", "in.mp4", "-f", "lavfi", "-i", "sine=r=48000:d=3", "-map", "0:v", "-map", "0:a", "-map", "1",
               "-map", "1", "-c:v", "copy", "-c:a", "mp2", "-program", "program_num=3:st=0:st=1", "-program",
               "program_num=7:st=2:st=3", "two.ts")
        chosen = {("--program", "3"): 3, ("--program", "0x7"): 7, ("--stream", "0x70002"): 7, ("--stream", "458755"): 7,
                  ("--stream", "0x30001", "--program", "3"): 3, (): 3}
        for options, program in chosen.items():
            out = self.done("dub", "in.wav", "two.ts", "-o", "out.wav", "-n", *options)
            self.assertRegex(out, f"track: +two.ts: {rates[program]} Hz")
        for options, text in ((("--program", "1"), "two.ts: no program 1; there are: 3, 7"),
                              (("--stream", "0x10001"), "two.ts: no audio stream 0x10001; there are: "
                                                        "0x30001, 0x70002, 0x70003"),
                              (("--stream", "0x30001", "--program", "7"),
                               "two.ts: no audio stream 0x30001 in program 7; there are: 0x70002, 0x70003")):
            self.fails(("dub", "in.wav", "two.ts", "-o", "out.wav", *options), 1, text)
        for number, rate in enumerate((44100, 48000, 48000)):
            out = self.done("dub", "two.ts", "in.wav", "-o", "out.mkv", "-n", "--audio-stream", str(number))
            self.assertRegex(out, f"input: +two.ts, stream #{number + 1}: {rate} Hz")
        self.fails(("dub", "two.ts", "in.wav", "-o", "out.mkv", "--audio-stream", "3"), 1,
                   "two.ts: has no audio stream 3: it has 3, counted from 0")

    def test_sound_of_unknown_format(self):
        ffmpeg("-i", "in.mp4", "-map", "0:v", "-map", "0:a", "-map", "0:a", "-c:v", "copy", "-c:a", "mp2", "whole.ts")
        with open("whole.ts", "rb") as whole:
            packets = whole.read()
        packets = [packets[i:i + 188] for i in range(0, len(packets), 188)]
        for lost, kept in ((0x101, 1), (0x102, 0)):
            with open("cut.ts", "wb") as cut:  # Only the tables tell of the stream, and not its format.
                cut.write(b"".join(p for p in packets if int.from_bytes(p[1:3], "big") & 0x1FFF != lost))
            out = self.done("dub", "cut.ts", "track.wav", "-o", f"{lost}.mkv", "--audio-stream", str(kept))
            self.assertRegex(out, rf"left out: #{2 - kept} audio \(mp\d\) of unknown format\n$")
            self.assertEqual(streams(f"{lost}.mkv"), [("video", "h264"), ("audio", "flac")])

    def test_sound_that_starts_late_or_has_a_hole(self):
        ffmpeg("-i", "in.mp4", "-itsoffset", "0.5", "-i", "in.wav", "-map", "0:v", "-map", "1:a", "-c:v", "copy",
               "-c:a", "flac", "late.mkv")
        self.done("dub", "late.mkv", "track.wav", "-o", "out.mkv", "-d", "1")
        first = probe("out.mkv", "-select_streams", "a", "-show_packets")["packets"][0]
        self.assertAlmostEqual(float(first["pts_time"]), 0.5, delta=0.0011)
        sound = decode("out.mkv")[::2]
        self.assertAlmostEqual(next(i for i, value in enumerate(sound) if value), 0.5 * RATE, delta=RATE * 0.0011)

        ffmpeg("-i", "in.wav", "-af", "aselect='lt(t,1)+gt(t,2)'", "-c:a", "flac", "hole.mkv")
        write_wav("long.wav", noise(6, 3 * RATE))
        self.done("dub", "hole.mkv", "long.wav", "-o", "out.wav")
        out = read_wav("out.wav")
        self.assertAlmostEqual(len(out) / 2, 3 * RATE, delta=4096)
        self.assertTrue(out == read_wav("long.wav")[:len(out)])

    def test_clock_of_a_broadcast(self):
        ffmpeg("-i", "in.mp4", "-c", "copy", "-output_ts_offset", "5000", "in.ts")
        self.done("dub", "in.ts", "track.wav", "-o", "out.mkv", "-d", "1")
        self.assertLess(float(probe("out.mkv", "-show_format")["format"]["start_time"]), 0.1)
        self.assertEqual(len(video_packets("out.mkv")), 75)
        start = float(probe("out.mkv", "-show_streams")["streams"][1]["start_time"])
        heard = next(i for i, value in enumerate(decode("out.mkv")[::2]) if value)
        self.assertAlmostEqual(heard / RATE + start, 1, delta=0.0011)


class Refusals(Case):
    """Whatever goes wrong: one line, the right code, and no file."""

    @classmethod
    def make(cls):
        write_wav("in.wav", noise(7, 30_000))
        write_wav("track.wav", noise(8, 30_000))
        write_wav("six.wav", [1] * 6 * 3000, RATE, 6)
        ffmpeg("-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=1", "-c:v", "libx264", "mute.mp4")
        ffmpeg("-i", "mute.mp4", "-i", "in.wav", "-c:v", "copy", "in.mkv")
        ffmpeg("-i", "in.wav", "in.flac")
        with open("in.flac", "rb") as whole, open("cut.flac", "wb") as cut:
            cut.write(whole.read()[:60_000])
        ffmpeg("-i", "in.wav", "whole.mp4")
        for name, size in (("tail.mp4", -30), ("index.mp4", 9_000)):
            with open("whole.mp4", "rb") as whole, open(name, "wb") as cut:
                cut.write(whole.read()[:size])
        with open("text.wav", "w") as text:
            text.write("no sound")
        open("empty.wav", "w").close()
        with open("there.wav", "w") as there:
            there.write("mine")
        os.symlink("in.wav", "link.wav")
        os.link("track.wav", "same.wav")
        os.mkdir("folder.wav")
        os.mkfifo("fifo.wav")
        long_wav("long.wav", 60)
        os.mkfifo("fifo.sub")
        with open("list.mp4", "w") as text:
            text.write("ffconcat version 1.0\nfile fifo.wav\n")
        with open("fifo.idx", "w") as text:
            text.write("# VobSub index file, v7 (do not modify this line!)\nid: en, index: 0\n"
                       "timestamp: 00:00:01:000, filepos: 000000000\n")
        write_wav("hollow.wav", [])

    def test_usage(self):
        for args, pattern in (
                ((), "a command is missing"), (("dab",), "unknown command 'dab'"), (("--what",), "unknown option '--what'"),
                (("dub",), "INPUT is required"), (("dub", "in.wav", "track.wav"), "--output is required"),
                (("dub", "in.wav", "track.wav", "x", "-o", "o.wav"), "x"),
                (("dub", "in.wav", "track.wav", "-o", "o.wav", "--slow"), "--slow"),
                (("dub", "in.wav", "track.wav", "-o", "o.wav", "--stream", "1x"), "'1x' is no id"),
                (("dub", "in.wav", "track.wav", "-o", "o.wav", "--program", "0x"), "'0x' is no id"),
                (("dub", "in.wav", "track.wav", "-o", "o.wav", "--stream=-1"), "'-1' is no id"),
                (("dub", "in.wav", "track.wav", "-o", "o.wav", "--audio-stream", "-1"), "audio-stream"),
        ):
            self.fails(args, 2, pattern)
        self.fails(("dub", "in.wav", "track.wav", "-o", "o.wav", "--delay", "-1.273x"), 2, "'-1.273x' is no time")
        self.fails(("dub", "in.wav", "track.wav", "-o", "o.wav", "-d", "-inf"), 2, "--delay: '-inf' is not finite")

    def test_failures(self):
        for source, track, output, pattern in (
                ("none.wav", "track.wav", "o.wav", "none.wav: No such file"),
                ("in.wav", "none.wav", "o.wav", "none.wav: No such file"),
                ("folder.wav", "track.wav", "o.wav", "folder.wav: Is a directory"),
                ("in.wav", "fifo.wav", "o.wav", "fifo.wav: not a regular file"),
                ("list.mp4", "track.wav", "o.wav", "list.mp4: leads to other files, which are not opened"),
                ("in.wav", "list.mp4", "o.wav", "list.mp4: leads to other files, which are not opened"),
                ("fifo.idx", "track.wav", "o.wav", "fifo.idx: leads to other files, which are not opened"),
                ("in.wav", "fifo.idx", "o.wav", "fifo.idx: leads to other files, which are not opened"),
                ("hollow.wav", "track.wav", "o.wav", "hollow.wav: its sound is empty"),
                ("in.wav", "hollow.wav", "o.wav", "hollow.wav: its sound is empty"),
                ("text.wav", "track.wav", "o.wav", "text.wav: "), ("in.wav", "empty.wav", "o.wav", "empty.wav: "),
                ("mute.mp4", "track.wav", "o.mp4", "mute.mp4: has no sound"),
                ("in.wav", "mute.mp4", "o.wav", "mute.mp4: has no sound"),
                ("tail.mp4", "track.wav", "o.wav", "tail.mp4: the file is cut off"),
                ("index.mp4", "track.wav", "o.wav", "index.mp4: the file is cut off"),
                ("in.wav", "track.wav", "", "'': a file needs a name"),
                ("cut.flac", "track.wav", "o.wav", "cut.flac: "), ("in.wav", "cut.flac", "o.wav", "cut.flac: "),
                ("in.wav", "track.wav", "o.xyz", "o.xyz: .*no known container"),
                ("in.wav", "track.wav", "wav", "wav: .*no known container"),
                ("in.wav", "track.wav", "there.wav", "there.wav: exists already"),
                ("in.wav", "track.wav", "none/o.wav", "none/o.wav: its folder does not exist"),
                ("in.wav", "track.wav", "in.wav/o.wav", "in.wav/o.wav: "),
                ("in.wav", "track.wav", "folder.wav", "folder.wav: Is a directory"),
                ("in.wav", "track.wav", "fifo.wav", "fifo.wav: not a regular file"),
                ("in.wav", "track.wav", "n" * 252 + ".wav", "File name too long"),
                ("in.mkv", "track.wav", "o.webm", "o.webm: WebM holds no video of codec h264"),
                ("six.wav", "track.wav", "o.mp3", "o.mp3: MP3 .* holds no sound of 6 channels"),
        ):
            with self.subTest(source=source, track=track, output=output):
                self.fails(("dub", source, track, "-o", output), 1, "^zel: .*" + pattern)
                if output in ("folder.wav", "fifo.wav"):
                    self.fails(("dub", source, track, "-o", output, "--overwrite"), 1, "^zel: .*" + pattern)
        for output in ("in.wav", "link.wav", "same.wav"):
            self.fails(("dub", "in.wav", "track.wav", "-o", output, "--overwrite"), 1, output + ": is the same file as")
        self.fails(("dub", "in.wav", "track.wav", "-o", "o.wav", "--audio-stream", "1"), 1, "has no audio stream 1")
        self.fails(("dub", "in.wav", "track.wav", "-o", "o.wav", "--stream", "77"), 1,
                   "track.wav: no audio stream 0x4D; there are: 0x10000$")
        self.fails(("dub", "in.wav", "track.wav", "-o", "o.wav", "--program", "2"), 1,
                   "track.wav: no program 2; there are: 1$")
        self.fails(("dub", "in.wav", "mute.mp4", "-o", "o.wav", "--program", "1"), 1,
                   "mute.mp4: no audio stream in program 1$")
        with open("there.wav") as there:
            self.assertEqual(there.read(), "mine")

    def test_output_that_cannot_be_written(self):
        def small_files():
            resource.setrlimit(resource.RLIMIT_FSIZE, (50_000, 50_000))

        for name in ("o.wav", "o.flac", "o.mkv"):
            code, out, err = zel("dub", "in.wav", "track.wav", "-o", name, preexec_fn=small_files)
            self.assertEqual((code, out, err), (1, "", f"zel: {name}: File too large\n"))
            self.assertFalse([name for name in os.listdir() if name.startswith((".zel", "o."))])

        def nobody():
            if os.geteuid() == 0:
                os.setuid(65534)

        try:
            subprocess.run([ZEL, "--version"], check=True, capture_output=True, preexec_fn=nobody)
        except (OSError, subprocess.SubprocessError):
            self.skipTest("the command cannot be run without privileges from here")
        os.chmod(".", 0o555)
        self.addCleanup(os.chmod, ".", 0o755)
        code, _, err = zel("dub", "in.wav", "track.wav", "-o", "o.wav", preexec_fn=nobody)
        self.assertEqual((code, err), (1, "zel: o.wav: Permission denied\n"))

    def test_overwrite(self):
        os.chmod("there.wav", 0o640)
        os.symlink("there.wav", "alias.wav")
        self.done("dub", "in.wav", "track.wav", "-o", "alias.wav", "--overwrite")
        self.assertTrue(os.path.islink("alias.wav"))
        self.assertEqual(stat.S_IMODE(os.stat("there.wav").st_mode), 0o640)
        self.assertEqual(len(read_wav("there.wav")), 60_000)
        with open("there.wav", "w") as there:
            there.write("mine")

    @unittest.skipUnless(platform.machine() == "x86_64", "the numbers of system calls are x86-64's")
    def test_file_systems_with_less(self):
        # Without a rename that replaces nothing, and without hard links either; a file that appears meanwhile stays.
        no_rename, no_links = {316: errno.EINVAL}, {86: errno.EPERM, 265: errno.EPERM}
        for lacks in ({}, no_rename, no_rename | no_links):
            with self.subTest(lacks=lacks):
                self.assertEqual(zel("dub", "-q", "in.wav", "track.wav", "-o", "o.wav",
                                     preexec_fn=lambda lacks=lacks: without(lacks)), (0, "", ""))
                self.assertEqual(len(read_wav("o.wav")), 60_000)
                self.assertEqual(stat.S_IMODE(os.stat("o.wav").st_mode), stat.S_IMODE(os.stat("in.wav").st_mode))
                self.assertEqual(os.stat("o.wav").st_nlink, 1)
                os.unlink("o.wav")

                process = subprocess.Popen([ZEL, "dub", "-q", "long.wav", "track.wav", "-o", "o.m4a"],
                                           stderr=subprocess.PIPE, preexec_fn=lambda lacks=lacks: without(lacks))
                while not [name for name in os.listdir() if name.startswith(".zel")] and process.poll() is None:
                    time.sleep(0.001)
                with open("o.m4a", "w") as mine:
                    mine.write("mine")
                err = process.communicate()[1]
                self.assertEqual((process.returncode, err), (1, b"zel: o.m4a: exists already (--overwrite replaces it)\n"))
                with open("o.m4a") as mine:
                    self.assertEqual(mine.read(), "mine")
                os.unlink("o.m4a")
        # Where nothing helps, nothing is left.
        code, _, err = zel("dub", "in.wav", "track.wav", "-o", "o.wav", preexec_fn=lambda: without(
            no_rename | no_links | {82: errno.EIO}))
        self.assertEqual((code, err), (1, "zel: o.wav: Input/output error\n"))
        self.assertFalse([name for name in os.listdir() if name.startswith((".zel", "o."))])

    def test_names_are_names(self):
        names = ["-in.wav", "http:x.wav", "concat:in.wav|track.wav", "%d.wav", "ü\udcff 😀.wav", "a\nb.wav", "-.wav"]
        for name in names:
            os.link("in.wav", name)
        for name in names:
            self.done("dub", "-q", "-o", "out-" + name.replace("\n", ""), "--", name, names[0])
            self.assertEqual(len(read_wav("out-" + name.replace("\n", ""))), 60_000)


class Manners(Case):
    """What it says, and when."""

    @classmethod
    def make(cls):
        write_wav("in.wav", noise(9, 30_000))
        write_wav("track.wav", noise(10, 10_000))
        long_wav("long.wav", 2400)

    def test_texts(self):
        self.assertRegex(self.done("--version"), r"^zel \d+\.\d+\.\d+\n$")
        self.assertEqual(self.done("dub", "--version"), self.done("--version"))
        for args in (("--help",), ("-h",), ("dub", "--help"), ("dub", "-h")):
            self.assertIn("Usage: ", self.done(*args))
        out = self.done("dub", "in.wav", "track.wav", "-o", "o.wav", "-d", "0.25")
        self.assertRegex(out, r"^o\.wav: sound of in\.wav replaced by track\.wav from 0:00:00\.250: "
                              r"\d+ frames, 0\.680 s, \d+x real time\n$")
        self.assertEqual(self.done("dub", "in.wav", "track.wav", "-o", "p.wav", "--quiet"), "")
        with open("/dev/full", "w") as full:
            done = subprocess.run([ZEL, "--help"], stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertEqual((done.returncode, done.stderr), (1, b"zel: standard output: No space left on device\n"))

    def test_dry_run(self):
        for delay, silence in (("0.25", "0:00:00.000 to 0:00:00.250 (before the track), "
                                        "0:00:00.477 to 0:00:00.680 (after the track)"),
                               ("-0.1", "0:00:00.127 to 0:00:00.680 (after the track)"),
                               ("9", "all of it: the track is never heard"),
                               ("-9", "all of it: the track is never heard")):
            out = self.done("dub", "in.wav", "track.wav", "-o", "o.flac", "-n", "-d", delay)
            self.assertIn("silence: " + silence + "\n", out)
            self.assertIn("in.wav, stream #0: 44100 Hz, 2 channels, 0:00:00.680", out)
            self.assertFalse(os.path.exists("o.flac"))

    def test_same_input_same_bytes(self):
        for name in ("o.mka", "o.m4a", "o.ogg"):
            self.done("dub", "in.wav", "track.wav", "-o", name)
            os.rename(name, "first")
            self.done("dub", "in.wav", "track.wav", "-o", name)
            with open(name, "rb") as a, open("first", "rb") as b:
                self.assertTrue(a.read() == b.read(), name)

    def test_progress_and_interruption(self):
        for signum in (signal.SIGINT, signal.SIGTERM):
            try:
                terminal, theirs = pty.openpty()
            except OSError as error:
                self.skipTest(f"no terminal to be had: {error}")
            process = subprocess.Popen([ZEL, "dub", "long.wav", "track.wav", "-o", "o.m4a"], stderr=theirs,
                                       stdout=subprocess.PIPE)
            os.close(theirs)
            shown = b""
            while b"left" not in shown:
                shown += os.read(terminal, 1000)
            self.assertRegex(shown.decode(), r"\r *\d+ %  [\d.]+x real time  \d+:\d\d:\d\d left")
            self.assertTrue([name for name in os.listdir() if name.startswith(".zel-")])
            process.send_signal(signum)
            self.assertEqual(process.wait(), 128 + signum)
            try:
                while more := os.read(terminal, 1000):
                    shown += more
            except OSError:
                pass
            os.close(terminal)
            self.assertTrue(shown.endswith(b"\r\x1b[K"))
            self.assertEqual(process.stdout.read(), b"")
            process.stdout.close()
            self.assertEqual([name for name in os.listdir() if name.startswith((".zel-", "o."))], [])

    @unittest.skipIf(os.environ.get("ZEL_SANITIZE"), "a sanitizer keeps freed memory")
    def test_memory_stays_constant(self):
        short = peak_memory("dub", "-q", "in.wav", "track.wav", "-o", "o.wav")
        long = peak_memory("dub", "-q", "long.wav", "long.wav", "-o", "p.wav", "-d", "-0.1")
        self.assertLess(long, short + 16 * 1024)
        self.assertEqual(os.path.getsize("p.wav") - 80, os.path.getsize("long.wav") - 44)


if __name__ == "__main__":
    unittest.main()
