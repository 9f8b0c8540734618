"""Whatever goes wrong with any command: one line, the right code, and no file."""

import json
import os
import re
import socket
import stat
import struct
import subprocess
import unittest
import zlib

from support import RATE, ZEL, Case, ffmpeg, long_wav, noise, read, read_wav, small_files, write, write_wav, zel

ELSEWHERE = "leads to other files, which are not opened"
# What no command takes, and why.
BAD = {"none.wav": "No such file or directory", "": "No such file or directory", "folder.wav": "Is a directory",
       "fifo.wav": "not a regular file", "socket": "not a regular file", "loop": "Too many levels of symbolic links",
       "in.wav/b": "Not a directory", "x" * 300: "File name too long", "empty.wav": "the file is empty",
       "text.wav": "no known media format", "numbers.txt": "no known media format",
       "bin.dat": "the file is cut off, or in no known media format", "300.mp3": "the file is cut off, or in no known media format",
       "900.mp4": "the file is cut off, or has no index", "30.flac": "the file is cut off or damaged",
       "100.mkv": "the file is cut off or damaged", "400.mkv": "the file is cut off or damaged",
       "list.mp4": ELSEWHERE, "list.wav": ELSEWHERE, "list.m3u8": ELSEWHERE, "fifo.idx": ELSEWHERE}
# What has no sound that could be used.
MUTE = {"mute.mp4": "has no sound", "text.mkv": "has no sound", "hollow.wav": "its sound is empty", "cut.flac": "",
        "slow.wav": "its rate of 8 Hz is too far from 44100"}
# What has no picture that could be used.
BLIND = {"in.wav": "has no video", "text.mkv": "has no video", "cover.m4a": "has no video: its only picture is a cover",
         "cut.mp4": "the file is cut off", "cut.png": "its video cannot be decoded .png.: it is cut off",
         "wide.mkv": "pictures of 16386x2 are larger than 16384x16384"}


class Refusals(Case):
    @classmethod
    def make(cls):
        write_wav("in.wav", noise(1, 30_000))
        write_wav("track.wav", noise(2, 3_000))
        write_wav("slow.wav", noise(3, 5, 1), 8, 1)
        write_wav("six.wav", [1] * 6 * 3000, RATE, 6)
        write_wav("hollow.wav", [])
        ffmpeg("-f", "lavfi", "-i", "testsrc=s=64x48:r=25:d=2", "-c:v", "libx264", "mute.mp4")
        ffmpeg("-i", "mute.mp4", "-f", "lavfi", "-i", "sine=d=5", "-c:v", "copy", "film.mkv")
        ffmpeg("-f", "lavfi", "-i", "color=red:s=32x32:d=0.1", "-frames:v", "1", "logo.png")
        ffmpeg("-f", "lavfi", "-i", "color=red:s=16386x2:d=0.1", "-c:v", "ffv1", "wide.mkv")
        ffmpeg("-i", "in.wav", "-i", "logo.png", "-map", "0", "-map", "1", "-c:v", "copy", "-disposition:v",
               "attached_pic", "cover.m4a")
        write("text.srt", b"1\n00:00:00,500 --> 00:00:01,000\nHello\n\n")
        ffmpeg("-i", "text.srt", "-c", "copy", "text.mkv")
        for name in ("whole.mp4", "whole.mkv", "whole.flac", "whole.mp3"):
            ffmpeg("-i", "in.wav", name)
        for whole, name, size in (("whole.mp4", "900.mp4", 900), ("whole.mkv", "100.mkv", 100), ("whole.mkv", "400.mkv", 400),
                                  ("whole.flac", "30.flac", 30), ("whole.mp3", "300.mp3", 300), ("whole.flac", "cut.flac", 60_000),
                                  ("whole.mp4", "tail.mp4", -30), ("mute.mp4", "cut.mp4", -2000), ("logo.png", "cut.png", 60)):
            write(name, read(whole)[:size])
        head = b"IHDR" + struct.pack(">2I", 900_000, 900_000) + read("logo.png")[24:29]
        write("bomb.png", read("logo.png")[:12] + head + struct.pack(">I", zlib.crc32(head)) + read("logo.png")[33:])
        for name, text in (("empty.wav", ""), ("text.wav", "no sound"), ("there.wav", "mine"), ("there.png", "mine"),
                           ("numbers.txt", "".join(f"{number}\n" for number in range(20_000))),
                           # What these name would be waited for; a list of a plain file is no other thing.
                           ("list.mp4", "ffconcat version 1.0\nfile fifo.wav\n"), ("list.wav", "ffconcat version 1.0\nfile in.wav\n"),
                           ("list.m3u8", "#EXTM3U\n#EXT-X-TARGETDURATION:4\n#EXTINF:4,\nfifo.wav\n#EXT-X-ENDLIST\n"),
                           ("fifo.idx", "# VobSub index file, v7 (do not modify this line!)\nsize: 720x576\n"
                                        "id: en, index: 0\ntimestamp: 00:00:01:000, filepos: 000000000\n")):
            write(name, text.encode())
        write("bin.dat", b"\xff\xfe\0")  # Might begin a frame of MPEG audio.
        os.mkdir("folder.wav")
        for name in ("fifo.wav", "fifo.sub"):
            os.mkfifo(name)
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind("socket")
        for target, name in (("loop", "loop"), ("in.wav", "link.wav"), ("nowhere.png", "lost.png"), ("logo.png", "alias.png")):
            os.symlink(target, name)
        os.link("track.wav", "same.wav")
        os.link("mute.mp4", "same.png")
        if os.geteuid() != 0:
            os.link("logo.png", "secret")
            os.chmod("secret", 0)
            BAD["secret"] = "Permission denied"

    def test_sources(self):
        for name, reason in BAD.items():
            self.fails(("convert", name, "-o", "o.wav"), 1, re.escape(f"zel: {name or chr(39) * 2}: {reason}") + "$")
        for name, reason in (*MUTE.items(), ("none.wav", "No such file"), ("list.mp4", ELSEWHERE)):
            self.fails(("dub", "in.wav", name, "-o", "o.wav"), 1, f"^zel: {name}: {reason}")
            self.fails(("mix", "in.wav", name, "-o", "o.wav"), 1, f"^zel: {name}: {reason}")
            if name != "slow.wav":
                self.fails(("dub", name, "track.wav", "-o", "o.wav"), 1, f"^zel: {name}: {reason}")
                self.fails(("wave", "in.wav", name, "-o", "o.png"), 1, f"^zel: {name}: {reason}")
        self.fails(("convert", "tail.mp4", "-o", "o.wav"), 1, "^zel: tail.mp4: the file is cut off")
        for name, reason in (*BLIND.items(), *list(BAD.items())[:4]):
            self.fails(("frame", name, "-o", "o.png"), 1, f"^zel: {name or chr(39) * 2}: {reason}")
        # The others go on.
        code, out, err = zel("info", *BAD, "in.wav")
        self.assertEqual((code, err), (1, "".join(f"zel: {name or chr(39) * 2}: {why}\n" for name, why in BAD.items())))
        self.assertEqual(out, self.done("info", "in.wav"))
        code, out, again = zel("info", "--json", "in.wav", *BAD)
        self.assertEqual((code, again), (1, err))
        self.assertEqual({file["file"]: file.get("error") for file in json.loads(out)["files"]}, {"in.wav": None, **BAD})

    def test_targets_and_selections(self):
        for args, pattern in (
                *((("convert", "in.wav", "-o", name), pattern) for name, pattern in (
                    ("", "'': a file needs a name"), ("o.xyz", "o.xyz: .*no known container"), ("wav", "wav: .*no known container"),
                    ("there.wav", "there.wav: exists already"), ("none/o.wav", "none/o.wav: its folder does not exist"),
                    ("in.wav/o.wav", "in.wav/o.wav: Not a directory"), ("folder.wav", "folder.wav: Is a directory"),
                    ("fifo.wav", "fifo.wav: not a regular file"), ("n" * 252 + ".wav", "File name too long"))),
                (("dub", "in.wav", "track.wav", "-o", "there.wav"), "exists already"),
                (("mix", "in.wav", "track.wav", "-o", "there.wav"), "exists already"),
                (("wave", "in.wav", "-o", "there.png"), "exists already"),
                (("frame", "film.mkv", "-o", "there.png"), "exists already"),
                (("frame", "film.mkv", "-o", "lost.png"), "lost.png: is a link that leads nowhere"),
                *((("frame", "film.mkv", "-o", name), name + ": the name tells no known picture format .*png") for name in ("o.jpg", "png", ".png")),
                *((("dub", "in.wav", "track.wav", "--overwrite", "-o", name), name + ": is the same file as") for name in
                  ("in.wav", "link.wav", "same.wav")),
                (("mix", "in.wav", "track.wav", "--overwrite", "-o", "same.wav"), "same.wav: is the same file as track.wav"),
                (("convert", "in.wav", "--overwrite", "-o", "link.wav"), "link.wav: is the same file as in.wav"),
                (("wave", "track.wav", "in.wav", "--overwrite", "-o", "o.svg"), "o.svg: .*no known picture format"),
                (("frame", "mute.mp4", "-o", "same.png", "--overwrite"), "same.png: is the same file as mute.mp4"),
                (("frame", "mute.mp4", "--over", "logo.png", "-o", "alias.png", "--overwrite"), "alias.png: is the same file as"),
                (("frame", "mute.mp4", "-o", "o.png", "--at", "2"), r"mute.mp4: has no picture at 0:00:02\.000: its last picture ends at 0:00:02\.000$"),
                (("frame", "film.mkv", "-o", "o.png", "--at", "4"), r"film.mkv: has no picture at 0:00:04\.000: .* ends at 0:00:02\.000$"),
                *((("frame", "mute.mp4", "-o", "o.png", "--over", name), f"{name or chr(39) * 2}: {reason}") for name, reason in (
                    ("none.png", "No such file"), ("", "a file needs a name"), ("folder.wav", "Is a directory"), ("fifo.wav", "not a regular"),
                    ("empty.wav", "the file is empty"), ("in.wav", "is no PNG file"), ("text.wav", "is no PNG file"),
                    ("cut.png", "the file is cut off"), ("bomb.png", "a picture of 900000x900000 is too large"))),
                (("dub", "film.mkv", "track.wav", "-o", "o.webm"), "o.webm: WebM holds no video of codec h264"),
                (("convert", "six.wav", "-o", "o.mp3"), "o.mp3: MP3 .* holds no sound of 6 channels"),
                *((("convert", "in.wav", "-o", name, "-c", "1", "-r", rate), f"{name}: .* holds no sound of {rate} Hz, 1 channel: ")
                  for name, rate in (("o.flac", "768000"), ("o.flac", "65541"), ("o.ogg", "200001"))),
                (("dub", "in.wav", "track.wav", "-o", "o.wav", "--audio-stream", "1"), "in.wav: has no audio stream 1"),
                (("convert", "in.wav", "-o", "o.wav", "--stream", "77"), "in.wav: no audio stream 0x4D; there are: 0x10000$"),
                (("dub", "in.wav", "track.wav", "-o", "o.wav", "--program", "2"), "track.wav: no program 2; there are: 1$"),
                (("dub", "in.wav", "mute.mp4", "-o", "o.wav", "--program", "1"), "mute.mp4: no audio stream in program 1$"),
                (("convert", "mute.mp4", "-o", "o.wav", "--stream", "1"), "mute.mp4: no audio stream 0x1; there are: none$"),
        ):
            self.fails(args, 1, "^zel: .*" + pattern)
        self.assertEqual(read("there.wav") + read("there.png"), b"minemine")

    def test_usage(self):
        dub, convert, frame = (("dub", "in.wav", "track.wav", "-o", "o.wav"), ("convert", "in.wav", "-o", "o.wav"),
                               ("frame", "mute.mp4", "-o", "o.png"))
        for args, pattern in (
                ((), "a command is missing"), (("dab",), "unknown command 'dab'"),
                (("--what",), "unknown option '--what'"),
                (("dub",), "INPUT is required"), (("convert", "in.wav"), "--output is required"),
                (("info",), "FILE.*required"),
                (("wave",), "FILE"), (("mix", "in.wav", "-o", "o.wav"), "INPUT"),
                (("mix", *["in.wav"] * 65, "-o", "o.wav"), "INPUT|64"),
                ((*dub, "more"), "more"), ((*dub, "--slow"), "--slow"), (("info", "--what", "in.wav"), "--what"),
                *(((*dub, option, text), f"'{text}' is no id") for option, text in (("--stream", "1x"), ("--program", "0x"), ("--stream", ""))),
                ((*dub, "--delay", "-1.273x"), "--delay: '-1.273x' is no time"),
                ((*dub, "-d", "-inf"), "--delay: '-inf' is not finite"),
                *(((*convert, "--rate", rate), f"--rate: {rate} is not from 1000 to 768000") for rate in
                  ("0", "-44100", "999", "768001", "99999999999999999999")),
                *(((*convert, option, text), f"{option}: '{text}' is no whole number") for option, text in
                  (("--rate", "1e4"), ("--channels", "2.5"), ("--channels", "0x2"), ("--rate", ""))),
                ((*convert, "-c", "0"), "channels"), ((*convert, "-c", "9"), "channels.* 8"),
                ((*dub, "--audio-stream", "-1"), "--audio-stream: -1 is not from 0 to 65535"),
                ((*convert, "--stream", "1", "--audio-stream", "0"), "excludes"),
                ((*convert, "--program", "1", "--audio-stream", "0"), "excludes"),
                ((*frame, "--at", "1", "--at", "2"), "--at: given more than once"),
                ((*frame, "--at", "noon"), "--at: 'noon'"),
                ((*frame, "--over", "logo.png", "--at-xy", "-2147483648,0"), "-2147483648 is not from -1000000 to 1000000"),
                ((*frame, "--near"), "--size"), ((*frame, "--at-xy", "1,2"), "--over"),
                *(((*frame, "--size", size), re.escape(size)) for size in ("1x2", "2x1", "16385x2", "2x16385", "99999999999x2", "4", "4x", "x4", "4x4x4")),
                *(((*frame, "--over", "logo.png", "--at-xy", place), re.escape(place)) for place in ("1", "1,", "1,2,3", "1x2")),
                # Sizes are looked at before the files.
                (("wave", "none.wav", "in.wav", "-o", "o.png", "--size", "300x163"), "300x163 is too low for 2 FILEs.* 164"),
                (("wave", *["none.wav"] * 292, "-o", "o.png"), "292 FILEs are more than"),
                *((("wave", "in.wav", "-o", "o.png", "--size", size), re.escape(size)) for size in ("199x108", "200x107", "99999x300", "axb")),
        ):
            self.fails(args, 2, "^zel.*: .*" + pattern)
        self.assertRegex(self.done("--version"), r"^zel \d+\.\d+\.\d+\n$")
        self.assertEqual(self.done("dub", "--version"), self.done("--version"))
        for args in (("--help",), ("-h",), ("dub", "--help"), ("frame", "-h")):
            self.assertIn("Usage: ", self.done(*args))
        self.assertIn("\nUsage: zel mix INPUT INPUT... -o OUTPUT [OPTIONS]\n", self.done("mix", "--help"))

    def test_memory_stays_constant(self):
        long_wav("long.wav", 1200)
        for *args, name, rate in (("dub", "long.wav", "long.wav", "-d", "-0.1", "o.wav", RATE), ("mix", "long.wav", "in.wav", "o.wav", RATE),
                                    ("convert", "long.wav", "-r", "48000", "o.wav", 48000), ("wave", "long.wav", "o.png", 0)):
            self.needs_no_more_memory((*args, "-o", name), [*(arg.replace("long", "in") for arg in args), "-o", "p" + name])
            if rate:
                self.assertEqual(os.path.getsize(name) // 4, 1200 * rate + 20)

    def test_output_that_cannot_be_written(self):
        for *args, name in (("convert", "in.wav", "-r", "192000", "o.wav"), ("dub", "in.wav", "track.wav", "o.flac"),
                            ("dub", "in.wav", "in.wav", "o.mkv"), ("frame", "mute.mp4", "o.ppm"), ("frame", "mute.mp4", "o.bmp"),
                            ("frame", "mute.mp4", "o.png")):
            size = 90 if args[0] == "frame" else 20_000
            self.fails((*args, "-o", name), 1, f"^zel: {name}: File too large\n$", prepare=small_files(size))
        with open("/dev/full", "w", encoding="utf-8") as full:
            for args in (("--help",), ("info", "in.wav"), ("info", "--json", "in.wav")):
                self.assertEqual(zel(*args, stdout=full), (1, "", "zel: standard output: No space left on device\n"))
        unread, theirs = os.pipe()
        os.close(unread)
        self.assertEqual(zel("info", "in.wav", stdout=theirs), (141, "", ""))
        os.close(theirs)
        os.chmod("there.wav", 0o640)
        os.symlink("there.wav", "alias.wav")
        self.assertEqual(len(self.sound("convert", "in.wav", out="alias.wav")), 60_000)
        self.assertTrue(os.path.islink("alias.wav"))
        self.assertEqual((stat.S_IMODE(os.stat("there.wav").st_mode), len(read_wav("there.wav"))), (0o640, 60_000))
        write("there.wav", b"mine")

        def nobody():
            if os.geteuid() == 0:
                os.setuid(65534)

        try:
            zel("--version", prepare=nobody)
        except (OSError, subprocess.SubprocessError):
            self.skipTest(f"{ZEL} cannot be run without privileges from here")
        os.chmod(".", 0o555)
        self.addCleanup(os.chmod, ".", 0o755)
        self.fails(("convert", "in.wav", "-o", "o.wav"), 1, "^zel: o.wav: Permission denied\n$", prepare=nobody)


if __name__ == "__main__":
    unittest.main()
