"""zel dub, as a whole process on real files."""

import array
import contextlib
import ctypes
import errno
import fcntl
import os
import platform
import pty
import re
import signal
import struct
import subprocess
import time
import unittest

from support import (RATE, ZEL, Case, decode, ffmpeg, lavfi, long_wav, noise, probe, quality, read, read_wav, sine,
                     streams, write, write_wav, zel)

FRAMES = 100_000


def model(track, delay, frames=FRAMES):
    """What a dub must hold when formats are equal: silence, the track from its exact sample, silence."""
    silence, nearest = array.array("h", bytes(4 * frames)), min(int(abs(delay) * RATE + 0.5), 10**9)
    track = silence[:2 * nearest] + track if delay >= 0 else track[2 * nearest:]
    return (track + silence)[:2 * frames]


def without(errors):
    """Lets the system calls of these numbers (on x86-64) fail with these errors, in this process and its children."""
    code = [(0x20, 0, 0, 0)]  # Load the number; compare; return an error; allow.
    for number, error in errors.items():
        code += [(0x15, 0, 1, number), (0x06, 0, 0, 0x50000 | error)]
    code = b"".join(struct.pack("HBBI", *instruction) for instruction in [*code, (0x06, 0, 0, 0x7FFF0000)])

    kept = ctypes.create_string_buffer(code)
    program = struct.pack("@HP", len(code) // 8, ctypes.addressof(kept))
    prctl = ctypes.CDLL(None).prctl
    if prctl(38, 1, 0, 0, 0) != 0 or prctl(22, 2, program, 0, 0) != 0:
        raise OSError("prctl")


def pending():
    return [name for name in os.listdir() if name.startswith(".zel-")]


def video_packets(path):
    """(time, hash) of every packet of the first video stream, in decoding order."""
    shown = probe(path, "-select_streams", "v:0", "-show_packets", "-show_data_hash", "md5")
    return [(float(packet["pts_time"]), packet["data_hash"]) for packet in shown["packets"]]


def lag(a, b, start, reach=4, frames=3000):
    """By how many frames stereo sound `b` is later than `a`, found by correlating their first channels."""
    x, y = a[start * 2::2][:frames], b[(start - reach) * 2::2]
    score = {shift: sum(p * q for p, q in zip(x, y[reach + shift:])) for shift in range(-reach, reach + 1)}
    return max(score, key=score.get)


class Sound(Case):
    @classmethod
    def make(cls):
        cls.track = noise(1, 60_000)
        write_wav("in.wav", noise(2, FRAMES))
        write_wav("track.wav", cls.track)

    def test_delays(self):
        # A frame's boundary and its neighbour, a fourth decimal, and the end of the input.
        for text in ("0", "1.273", "-1.3605", "1e300", repr(1024 / RATE), repr(1023 / RATE), "0.0232199", "1.0001",
                     "2.2675", "2.26758"):
            out = self.sound("dub", "in.wav", "track.wav", "-d", text)
            self.assertTrue(out == model(self.track, float(text)), text)
        self.assertTrue(self.sound("dub", "in.wav", "track.wav", out="OUT.FLAC") == model(self.track, 0))
        write_wav("brief.wav", noise(3, 7))  # The end of a track is never lost.
        self.assertTrue(self.sound("dub", "in.wav", "brief.wav", "-d", "1") == model(noise(3, 7), 1.0))

    def test_says_why_frames_are_silent(self):
        code, said, _ = zel("dub", "in.wav", "track.wav", "-o", "told.wav", "-d", "1", "--verbose")
        self.assertEqual(code, 0)
        told = re.search(r"^frames:  (\d+): (\d+) sound of.*; (\d+) silent: before the delay", said, re.M)
        total, heard, before = (int(count) for count in told.groups())
        self.assertEqual((before, total - heard - before), (44, 0), said)  # 43 frames of 1,024 and a short one.
        self.assertRegex(said, "(?s)track:   track.wav: 44100 Hz.*silence: .*before the track")

    def test_other_rates_and_channels(self):
        # A constant track: where it is heard shows where it was put.
        for rate, channels, delay in ((22050, 1, 0.7312), (8000, 2, -0.25), (96000, 6, 0.7312), (44100, 3, -0.25)):
            write_wav("level.wav", [9000] * (rate * channels), rate, channels)
            out = self.sound("dub", "in.wav", "level.wav", "-d", str(delay))
            self.assertEqual(len(out), 2 * FRAMES)
            heard = [i for i, value in enumerate(out[::2]) if value != 0]
            # Interpolation starts up to one sample of the track early.
            for place, wanted in ((heard[0], max(delay, 0)), (heard[-1] + 1, delay + 1)):
                self.assertAlmostEqual(place, wanted * RATE, delta=RATE / rate + 1)
            self.assertEqual(len(heard), heard[-1] - heard[0] + 1, "a hole")
        # Frames as they are would give some 30 dB.
        write_wav("sine.wav", sine(1000, RATE, 1), RATE, 1)
        write_wav("blank.wav", [0] * 48001, 48001, 1)
        gain, ratio = quality(self.sound("dub", "blank.wav", "sine.wav"), 1000, 48001)
        self.assertTrue(abs(gain) < 0.05 and ratio > 61, (gain, ratio))
        write_wav("in5.wav", [0] * 5 * 20000, RATE, 5)  # Channels that the converter lacks.
        out = self.sound("dub", "in5.wav", "track.wav")
        self.assertTrue(out[0::5] == self.track[0:40000:2] and out[1::5] == self.track[1:40000:2])


class Video(Case):
    @classmethod
    def make(cls):
        ffmpeg(*lavfi("testsrc2=s=64x48:r=25:d=3"), *lavfi("sine=440:r=44100:d=3"), "-ac", "2", "-c:v", "libx264",
               "-bf", "2", "-g", "20", "-c:a", "aac", "-metadata", "title=A film", "in.mp4")
        ffmpeg("-i", "in.mp4", "-c", "copy", "in.mkv")
        cls.track = noise(4, 30_000)
        write_wav("track.wav", cls.track)
        write_wav("in.wav", noise(5, 3 * RATE))

    def test_picture_time_and_sound(self):
        for source, name, codec in (("in.mp4", "out.mp4", "aac"), ("in.mp4", "out.mkv", "flac"),
                                    ("in.mkv", "out.mov", "aac")):
            reference, sound = (self.sound("dub", source, "track.wav", "-d", "1.273", out=out)
                                for out in ("out.wav", name))
            self.assertEqual(streams(name), [("video", "h264"), ("audio", codec)])
            for (a, hash_a), (b, hash_b) in zip(video_packets(name), video_packets(source), strict=True):
                self.assertEqual((hash_a, round(a - b, 2)), (hash_b, 0))  # Matroska counts milliseconds.
            shown = probe(name, "-show_format")
            self.assertEqual(shown["format"]["tags"]["title"], "A film")
            self.assertEqual(*([round(float(s["start_time"]), 2) for s in probe(path, "-show_streams")["streams"]]
                               for path in (name, source)))
            self.assertAlmostEqual(float(shown["format"]["duration"]), len(reference) / 2 / RATE, delta=0.002)
            # AAC comes in packets of 1024, which FFmpeg's decoder does not cut at the end.
            self.assertIn(len(sound) - len(reference), range(0, 2 * 1024))
            self.assertEqual(lag(reference, sound, int(1.3 * RATE)), 0)
            self.assertLess(max(map(abs, sound[:2 * (int(1.273 * RATE) - 2048)])), 4)

    def test_everything_else_stays(self):
        write("text.srt", b"1\n00:00:00,500 --> 00:00:01,000\nHello\n\n")
        write("chapters.txt", b";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=1500\ntitle=One\n")
        ffmpeg("-i", "in.mp4", "-i", "track.wav", "-i", "text.srt", "-i", "chapters.txt", "-map", "0:v", "-map", "0:a",
               "-map", "1:a", "-map", "2", "-map_metadata", "3", "-map_chapters", "3", "-c:v", "copy", "-c:a:0", "copy",
               "-c:a:1", "flac", "-c:s", "subrip", "-metadata:s:a:0", "language=fra", "-attach", "chapters.txt",
               "-metadata:s:t", "mimetype=text/plain", "full.mkv")
        self.assertNotIn("left out", self.done("dub", "full.mkv", "track.wav", "-o", "out.mkv"))
        self.assertEqual(streams("out.mkv"), [("video", "h264"), ("audio", "flac"), ("audio", "flac"),
                                              ("subtitle", "subrip"), ("attachment", "")])
        self.assertEqual(decode("out.mkv", "0:a:1"), self.track)
        self.assertEqual(*(ffmpeg("-i", name, "-map", "0:s", "-f", "srt", "-") for name in ("out.mkv", "full.mkv")))
        shown = probe("out.mkv", "-show_streams", "-show_chapters")
        self.assertEqual(shown["chapters"][0]["tags"]["title"], "One")
        self.assertEqual(shown["streams"][1]["tags"]["language"], "fra")
        self.done("dub", "full.mkv", "track.wav", "-o", "second.mkv", "--audio-stream", "1")
        self.assertEqual(streams("second.mkv")[1:3], [("audio", "aac"), ("audio", "flac")])
        for name, left in (("third.mp4", "#3 subtitle (subrip)"), ("third.flac", "#0 video (h264)")):
            out = self.done("dub", "full.mkv", "full.mkv", "-o", name, "--stream", "0x10002")
            self.assertIn("left out: " + left, out)
            self.assertEqual(lag(self.track, decode(name), 2000), 0)
        self.assertEqual(streams("third.flac"), [("audio", "flac")])

    def test_programs_of_a_broadcast(self):
        ffmpeg("-i", "in.mp4", *lavfi("sine=r=48000:d=3"), "-map", "0:v", "-map", "0:a", "-map", "1", "-map", "1",
               "-c:v", "copy", "-c:a", "mp2", "-program", "program_num=3:st=0:st=1", "-program",
               "program_num=7:st=2:st=3", "two.ts")
        for command, shown in (("in.wav two.ts", 44100), ("in.wav two.ts --program 0x7", 48000),
                               ("in.wav two.ts --stream 458755", 48000),
                               ("in.wav two.ts --stream 0x30001 --program 3", 44100),
                               ("two.ts in.wav --audio-stream 0", "stream #1: 44100"),
                               ("two.ts in.wav --audio-stream 2", "stream #3: 48000")):
            out = self.done("dub", "-n", "-o", "o.mka", *command.split())
            self.assertRegex(out, f"two.ts[:,] {shown} Hz")
        self.all_fail(1, """
            dub two.ts in.wav -o o.mkv --audio-stream 3 | two.ts: has no audio stream 3: it has 3, counted from 0$
            dub in.wav two.ts -o o.wav --program 1 | two.ts: no program 1; there are: 3, 7$
            dub in.wav two.ts -o o.wav --stream @ : 0x10001 | no audio stream @; there are: 0x30001, 0x70002, 0x70003$
            dub in.wav two.ts -o o.wav --stream 0x30001 --program 7 | 0x30001 in program 7; there are: 0x70002, 0x70003$
        """)
        # Only the tables tell of a stream, and not its format.
        ffmpeg("-i", "in.mp4", "-map", "0:v", "-map", "0:a", "-map", "0:a", "-c:v", "copy", "-c:a", "mp2", "whole.ts")
        packets = [read("whole.ts")[i:i + 188] for i in range(0, os.path.getsize("whole.ts"), 188)]
        for lost, kept in ((0x101, 1), (0x102, 0)):
            write("cut.ts", b"".join(p for p in packets if int.from_bytes(p[1:3], "big") & 0x1FFF != lost))
            out = self.done("dub", "cut.ts", "track.wav", "-o", f"{lost}.mkv", "--audio-stream", str(kept))
            self.assertRegex(out, rf"left out: #{2 - kept} audio \(mp\d\) of unknown format\n$")
            self.assertEqual(streams(f"{lost}.mkv"), [("video", "h264"), ("audio", "flac")])

    def test_late_starts_holes_and_clocks(self):
        ffmpeg("-i", "in.mp4", "-itsoffset", "0.5", "-i", "in.wav", "-map", "0:v", "-map", "1:a", "-c:v", "copy",
               "-c:a", "flac", "late.mkv")
        ffmpeg("-i", "in.mp4", "-c", "copy", "-output_ts_offset", "5000", "in.ts")
        for source, begin in (("late.mkv", 0.5), ("in.ts", 0.04)):  # A broadcast's clock starts anywhere.
            sound = self.sound("dub", source, "track.wav", "-d", "1", out="out.mkv")[::2]
            picture, start = (float(s["start_time"]) for s in probe("out.mkv", "-show_streams")["streams"])
            self.assertTrue(picture < 0.1 and abs(start - begin) < 0.045, (picture, start))
            self.assertAlmostEqual(next(i for i, value in enumerate(sound) if value) / RATE + start, 1, delta=0.0011)
            self.assertEqual(len(video_packets("out.mkv")), 75)
        ffmpeg("-i", "in.wav", "-af", "aselect='lt(t,1)+gt(t,2)'", "-c:a", "flac", "hole.mkv")
        long = noise(6, 3 * RATE)
        write_wav("long.wav", long)
        out = self.sound("dub", "hole.mkv", "long.wav")
        self.assertAlmostEqual(len(out) / 2, 3 * RATE, delta=4096)
        self.assertTrue(out == long[:len(out)])


class Manners(Case):
    @classmethod
    def make(cls):
        write_wav("in.wav", noise(9, 30_000))
        write_wav("track.wav", noise(10, 10_000))
        long_wav("long.wav", 2400)

    def test_texts(self):
        self.assertRegex(self.done("dub", "in.wav", "track.wav", "-o", "o.wav", "-d", "0.25"),
                         r"^o\.wav: sound of in\.wav replaced by track\.wav from 0:00:00\.250: \d+ frames, 0\.680 s, "
                         r"\d+x real time\n$")
        for delay, silence in (("0.25", "0:00:00.000 to 0:00:00.250 (before the track), "
                                        "0:00:00.477 to 0:00:00.680 (after the track)"),
                               ("-0.1", "0:00:00.127 to 0:00:00.680 (after the track)"),
                               *((delay, "all of it: the track is never heard") for delay in ("9", "-9"))):
            out = self.done("dub", "in.wav", "track.wav", "-o", "o.flac", "-n", "-d", delay)
            self.assertIn("in.wav, stream #0: 44100 Hz, 2 channels, 0:00:00.680", out)
            self.assertIn("silence: " + silence + "\n", out)
            self.assertFalse(os.path.exists("o.flac"))
        self.assertIn("\nunheard: the last 0:00:00.201 of the track\n",
                      self.done("dub", "track.wav", "in.wav", "-o", "o.flac", "-n", "-d", "-0.253"))
        self.assertIn("; unheard: the last 0:00:00.454 of the track\n",
                      self.done("dub", "track.wav", "in.wav", "-o", "u.flac"))
        self.assertIn("; silent: all of it: the track is never heard\n",
                      self.done("dub", "in.wav", "track.wav", "-o", "n.wav", "-d", "9"))
        for kind in ("mka", "m4a", "ogg"):  # The same input gives the same bytes.
            for name in ("a.", "b."):
                self.done("dub", "in.wav", "track.wav", "-o", name + kind)
            self.assertTrue(read("a." + kind) == read("b." + kind), kind)

    def test_progress_and_interruption(self):
        for signum, code, name in ((None, 0, "o.mka"), (signal.SIGINT, 130, "o.m4a"), (signal.SIGTERM, 143, "o.m4a"),
                                   (signal.SIGQUIT, 131, "o.m4a"), (signal.SIGUSR1, 138, "o.m4a"),
                                   (signal.SIGRTMAX, 192, "o.m4a")):
            terminal, theirs = pty.openpty()
            signal.signal(signal.SIGINT, signal.default_int_handler)  # Ignored under nohup, and then by children, too.
            process = subprocess.Popen([ZEL, "dub", "long.wav", "track.wav", "-o", name], stderr=theirs,
                                       stdout=subprocess.PIPE)
            os.close(theirs)
            shown = os.read(terminal, 1000)
            self.assertRegex(shown.decode(), r"^\r *\d+ %  [\d.]+x real time  \d+:\d\d:\d\d left\x1b\[K")
            self.assertTrue(pending())
            if signum:
                process.send_signal(signum)
            with contextlib.suppress(OSError):  # In the end, nobody has the other end any more.
                while True:
                    shown += os.read(terminal, 1000)
            os.close(terminal)
            self.assertEqual((bool(process.communicate()[0]), process.returncode), (not signum, code))
            self.assertTrue(shown.endswith(b"left\x1b[K\r\x1b[K"), shown[-99:])  # The line is gone at the end.
            self.assertEqual((pending(), os.path.exists(name)), ([], not signum))

    @unittest.skipUnless(platform.machine() == "x86_64", "the numbers of system calls are x86-64's")
    def test_file_systems_with_less(self):
        # Without a rename that replaces nothing, and without hard links either; a file that appears meanwhile stays.
        no_rename, no_links = {316: errno.EINVAL}, {86: errno.EPERM, 265: errno.EPERM}
        for lacks in ({}, no_rename, no_rename | no_links):
            done = zel("dub", "-q", "in.wav", "track.wav", "-o", "o.wav", prepare=lambda: without(lacks))
            self.assertEqual(done, (0, "", ""))
            self.assertEqual(*((len(read_wav(name)), os.stat(name).st_mode, os.stat(name).st_nlink)
                               for name in ("o.wav", "in.wav")))
            os.unlink("o.wav")
            process = subprocess.Popen([ZEL, "dub", "-q", "long.wav", "track.wav", "-o", "o.mka"],
                                       stderr=subprocess.PIPE, preexec_fn=lambda: without(lacks))
            while not pending():
                self.assertIsNone(process.poll())
            write("o.mka", b"mine")
            self.assertEqual((process.communicate()[1], process.returncode, read("o.mka")),
                             (b"zel: o.mka: exists already (--overwrite replaces it)\n", 1, b"mine"))
            os.unlink("o.mka")
        # A disk that does not answer; nobody waits for it.
        no_sync = {74: errno.EIO}
        self.fails(("dub", "in.wav", "track.wav", "-o", "o.wav"), 1, "^zel: o.wav: Input/output error\n$",
                   prepare=lambda: without(no_sync))
        self.assertEqual(zel("dub", "-q", "in.wav", "track.wav", "-o", "o.wav", "--no-sync",
                             prepare=lambda: without(no_sync)), (0, "", ""))
        os.unlink("o.wav")
        # Where nothing helps, nothing is left.
        self.fails(("dub", "in.wav", "track.wav", "-o", "o.wav"), 1, "^zel: o.wav: Input/output error\n$",
                   prepare=lambda: without(no_rename | no_links | {264: errno.EIO}))

    def test_leftovers_of_killed_runs_go(self):
        for name, old in ((".zel-0000000a", 99), (".zel-0000000b", 0), (".zel-0000000c", 99), (".zel-other", 99)):
            write(name, b"")
            os.utime(name, (time.time() - old,) * 2)
        with open(".zel-0000000c", "rb") as in_use:
            fcntl.flock(in_use, fcntl.LOCK_EX)
            self.done("dub", "-q", "in.wav", "track.wav", "-o", "o.wav")
        self.assertEqual(sorted(pending()), [".zel-0000000b", ".zel-0000000c", ".zel-other"])
        for name in pending():
            os.unlink(name)

    def test_names_are_names(self):
        names = ["-in.wav", "http:x.wav", "concat:in.wav|track.wav", "%d.wav", "ü\udcff 😀.wav", "a\nb.wav", "-.wav"]
        for name in names:
            os.link("in.wav", name)
        for name in names:
            self.done("dub", "-q", "-o", "out-" + name.replace("\n", ""), "--", name, names[0])
            self.assertEqual(len(read_wav("out-" + name.replace("\n", ""))), 60_000)
