"""Whatever goes wrong with any command: one line, the right code, and no file."""

import json
import os
import re
import resource
import socket
import struct
import subprocess
import sys
import unittest
import zlib

from support import RATE, ZEL, Case, ffmpeg, lavfi, long_wav, noise, read, read_wav, write, write_wav, zel

ELSEWHERE, CUT = "leads to other files, which are not opened", "the file is cut off or damaged"
# What no command takes, and why.
BAD = {"": "No such file or directory", "folder.wav": "Is a directory", "fifo.wav": "not a regular file",
       "socket": "not a regular file", "loop": "Too many levels of symbolic links", "empty.wav": "the file is empty",
       "text.wav": "no known media format", "numbers.txt": "no known media format",
       **dict.fromkeys(("bin.dat", "300.mp3"), "the file is cut off, or in no known media format"),
       "900.mp4": "the file is cut off, or has no index", **dict.fromkeys(("30.flac", "100.mkv", "400.mkv"), CUT),
       **dict.fromkeys(("list.mp4", "list.wav", "list.m3u8", "fifo.idx"), ELSEWHERE)}
# What has no sound that could be used.
MUTE = {"mute.mp4": "has no sound", "text.mkv": "has no sound", "hollow.wav": "its sound is empty", "cut.flac": "",
        "none.wav": "No such file", "list.mp4": ELSEWHERE}
SLOW = {"slow.wav": "its rate of 8 Hz is too far from 44100"}
# What has no picture that could be used.
BLIND = {"in.wav": "has no video", "text.mkv": "has no video", "cover.m4a": "has no video: its only picture is a cover",
         "cut.mp4": "the file is cut off", "cut.png": "its video cannot be decoded .png.: it is cut off",
         "wide.mkv": "pictures of 16386x2 are larger than 16384x16384", "none.wav": "No such file"}


class Refusals(Case):
    @classmethod
    def make(cls):
        write_wav("in.wav", noise(1, 30_000))
        write_wav("track.wav", noise(2, 3_000))
        write_wav("slow.wav", noise(3, 5, 1), 8, 1)
        write_wav("six.wav", [1] * 6 * 3000, RATE, 6)
        write_wav("hollow.wav", [])
        ffmpeg(*lavfi("testsrc=s=64x48:r=25:d=2"), "-c:v", "libx264", "mute.mp4")
        ffmpeg("-i", "mute.mp4", *lavfi("sine=d=5"), "-c:v", "copy", "film.mkv")
        ffmpeg(*lavfi("color=red:s=32x32:d=0.1"), "-frames:v", "1", "logo.png")
        ffmpeg(*lavfi("color=red:s=16386x2:d=0.1"), "-c:v", "ffv1", "wide.mkv")
        ffmpeg("-i", "in.wav", "-i", "logo.png", "-map", "0", "-map", "1", "-c:v", "copy", "-disposition:v",
               "attached_pic", "cover.m4a")
        write("text.srt", b"1\n00:00:00,500 --> 00:00:01,000\nHello\n\n")
        ffmpeg("-i", "text.srt", "-c", "copy", "text.mkv")
        for kind, *cuts in (("mp4", 900), ("mkv", 100, 400), ("flac", 30), ("mp3", 300)):
            ffmpeg("-i", "in.wav", f"whole.{kind}")
            for size in cuts:
                write(f"{size}.{kind}", read(f"whole.{kind}")[:size])
        for whole, name, size in (("whole.flac", "cut.flac", 60_000), ("whole.mp4", "tail.mp4", -30),
                                  ("mute.mp4", "cut.mp4", -2000), ("logo.png", "cut.png", 60)):
            write(name, read(whole)[:size])
        head, logo = b"IHDR" + struct.pack(">2I", 900_000, 900_000) + read("logo.png")[24:29], read("logo.png")
        write("bomb.png", logo[:12] + head + struct.pack(">I", zlib.crc32(head)) + logo[33:])
        # What the lists name would be waited for; a list of a plain file is refused as well.
        for name, text in {
                "empty.wav": "", "text.wav": "no sound", "there.wav": "mine", "there.png": "mine",
                "numbers.txt": "\n".join(map(str, range(20_000))), "list.mp4": "ffconcat version 1.0\nfile fifo.wav\n",
                "list.wav": "ffconcat version 1.0\nfile in.wav\n",
                "list.m3u8": "#EXTM3U\n#EXT-X-TARGETDURATION:4\n#EXTINF:4,\nfifo.wav\n#EXT-X-ENDLIST\n",
                "fifo.idx": "# VobSub index file, v7 (do not modify this line!)\nsize: 720x576\n"
                            "id: en, index: 0\ntimestamp: 00:00:01:000, filepos: 000000000\n"}.items():
            write(name, text.encode())
        write("bin.dat", b"\xff\xfe\0")  # Might begin a frame of MPEG audio.
        os.mkdir("folder.wav")
        for name in ("fifo.wav", "fifo.sub"):
            os.mkfifo(name)
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind("socket")
        for link in ("loop loop", "in.wav link.wav", "nowhere.png lost.png", "logo.png alias.png"):
            os.symlink(*link.split())
        os.link("track.wav", "same.wav")
        os.link("mute.mp4", "same.png")

    def test_sources(self):
        for before, after, reasons in (
                ("convert", "-o o.wav", {**BAD, "tail.mp4": "the file is cut off"}),
                ("dub in.wav", "-o o.wav", MUTE | SLOW), ("mix in.wav", "-o o.wav", MUTE | SLOW),
                ("dub", "track.wav -o o.wav", MUTE), ("wave in.wav", "-o o.png", MUTE), ("frame", "-o o.png", BLIND)):
            for name, reason in reasons.items():
                self.fails((*before.split(), name, *after.split()), 1, f"^zel: {name or chr(39) * 2}: {reason}")
        # The others go on.
        code, out, err = zel("info", *BAD, "in.wav")
        said = "".join(f"zel: {name or chr(39) * 2}: {why}\n" for name, why in BAD.items())
        self.assertEqual((code, err), (1, said))
        self.assertEqual(out, self.done("info", "in.wav"))
        code, out, again = zel("info", "--json", "in.wav", *BAD)
        self.assertEqual((code, again), (1, said))
        errors = {file["file"]: file.get("error") for file in json.loads(out)["files"]}
        self.assertEqual(errors, {"in.wav": None, **BAD})

    def test_targets_and_selections(self):
        self.fails(("convert", "in.wav", "-o", "n" * 252 + ".wav"), 1, "^zel: .*File name too long")
        self.all_fail(1, r"""
            convert in.wav -o '' | '': a file needs a name
            convert in.wav -o @ : o.xyz wav | @: .*no known container
            convert in.wav -o none/o.wav | none/o.wav: its folder does not exist
            convert in.wav -o @ : in.wav/o.wav folder.wav fifo.wav | @: (Not a|Is a|not a regular)
            convert in.wav -o /sys/o.wav | (Permission denied|Read-only file system)
            @ in.wav in.wav -o there.wav : dub mix | there.wav: exists already
            @ mute.mp4 -o there.png : wave frame | there.png: exists already
            convert in.wav -o there.wav | there.wav: exists already
            frame film.mkv -o lost.png | lost.png: is a link that leads nowhere
            frame film.mkv -o @ : o.jpg png .png | @: the name tells no known picture format .*png
            wave track.wav in.wav --overwrite -o o.svg | o.svg: .*no known picture format
            dub in.wav track.wav --overwrite -o @ : in.wav link.wav same.wav | @: is the same file as
            mix in.wav track.wav --overwrite -o same.wav | same.wav: is the same file as track.wav
            convert in.wav --overwrite -o link.wav | link.wav: is the same file as in.wav
            frame mute.mp4 --over logo.png -o @ --overwrite : same.png alias.png | @: is the same file as
            frame mute.mp4 -o o.png --at 2 | mute.mp4: has no picture at 0:00:02\.000: .* ends at 0:00:02\.000$
            frame film.mkv -o o.png --at 4 | film.mkv: has no picture at 0:00:04\.000: .* ends at 0:00:02\.000$
            frame mute.mp4 -o o.png --over @ : none.png folder.wav fifo.wav | @: (No such file|Is a dir|not a regular)
            frame mute.mp4 -o o.png --over @ : empty.wav cut.png | @: the file is (empty|cut off)
            frame mute.mp4 -o o.png --over @ : '' in.wav text.wav | @: (a file needs a name|is no PNG file)
            frame mute.mp4 -o o.png --over bomb.png | bomb.png: a picture of 900000x900000 is too large
            dub film.mkv track.wav -o o.webm | o.webm: WebM holds no video of codec h264
            convert six.wav -o o.mp3 | o.mp3: MP3 .* holds no sound of 6 channels
            convert in.wav -o o.flac -c 1 -r @ : 768000 65541 | o.flac: .* holds no sound of @ Hz, 1 channel:
            dub in.wav mute.mp4 -o o.wav --program 1 | mute.mp4: no audio stream in program 1$
            convert mute.mp4 -o o.wav --stream 1 | mute.mp4: no audio stream 0x1; there are: none$
        """)
        self.assertEqual(read("there.wav") + read("there.png"), b"minemine")

    def test_usage(self):
        self.fails((), 2, "^zel: a command is missing")
        self.fails(("mix", *["in.wav"] * 65, "-o", "o.wav"), 2, "^zel mix: .*(INPUT|64)")
        self.fails(("wave", *["none.wav"] * 292, "-o", "o.png"), 2, "^zel wave: .*292 FILEs are more than")
        self.all_fail(2, r"""
            dab | unknown command 'dab'
            --what | unknown option '--what'
            @ : dub info wave mix | (INPUT|FILE)
            mix in.wav -o o.wav | INPUT
            convert in.wav | --output is required
            dub in.wav track.wav -o o.wav @ : more --slow | @
            dub in.wav track.wav -o o.wav @ 0x : --program --stream | @: '0x' is no id
            dub in.wav track.wav -o o.wav -d @ : -1.273x -inf | --delay: '@' is no
            dub in.wav track.wav -o o.wav --audio-stream -1 | --audio-stream: -1 is not from 0 to 65535
            convert in.wav -o o.wav -r @ : 0 -44100 999 768001 99999999999999999999 | rate: @ is not from 1000 to 768000
            convert in.wav -o o.wav --rate @ : 1e4 '' 0x2 | --rate: '@' is no whole number
            convert in.wav -o o.wav --max-memory @ : 0 1M 15M 20X 20MB M '' 99999999999G | '@' is no size such as 500M
            convert in.wav -o o.wav -c @ : 0 9 | channels.* 8
            convert in.wav -o o.wav --audio-stream 0 @ 1 : --stream --program | excludes
            frame mute.mp4 -o o.png --at 1 --at 2 | --at: given more than once
            frame mute.mp4 -o o.png --near | --size
            frame mute.mp4 -o o.png --at-xy 1,2 | --over
            frame mute.mp4 -o o.png --over logo.png --at-xy @,0 : -2147483648 | @ is not from -1000000 to 1000000
            frame mute.mp4 -o o.png --over logo.png --at-xy @ : 1 1, 1,2,3 1x2 | @
            frame mute.mp4 -o o.png --size @ : 1x2 2x1 16385x2 2x16385 99999999999x2 4 4x x4 4x4x4 | @
            wave in.wav -o o.png --size @ : 199x108 200x107 99999x300 axb | @
            wave none.wav in.wav -o o.png --size @ : 300x163 | @ is too low for 2 FILEs.* 164
        """)
        self.assertRegex(self.done("--version"), r"^zel \d+\.\d+\.\d+\nsandbox: .+\n$")
        self.assertEqual(self.done("dub", "--version"), self.done("--version"))
        self.assertIn("Usage: ", self.done("--help"))
        self.assertIn("\nUsage: zel mix INPUT INPUT... -o OUTPUT [OPTIONS]\n", self.done("mix", "--help"))

    @unittest.skipIf(os.environ.get("ZEL_SANITIZE"), "a sanitizer takes memory of its own")
    def test_memory_is_limited_and_stays_constant(self):
        self.all_fail(1, "@ in.wav in.wav -o o.wav --max-memory 20M : dub mix | (memory|map).*; --max-memory is 20M$")
        long_wav("long.wav", 1200)
        script = ("import resource, subprocess, sys; subprocess.run([*sys.argv[1:], '-q', '--overwrite'], check=True);"
                  "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)")
        for command, rate in (("dub long.wav long.wav -d -0.1 -o o.wav", RATE), ("mix long.wav in.wav -o o.wav", RATE),
                              ("convert long.wav -r 48000 -o o.wav", 48000), ("wave long.wav -o o.png", 0)):
            peaks = [int(subprocess.check_output([sys.executable, "-c", script, ZEL, *args.split()]))
                     for args in (command, command.replace("long", "in").replace("-o ", "-o p"))]
            self.assertLess(peaks[0], peaks[1] + 16 * 1024)  # In KiB.
            if rate:
                self.assertEqual(os.path.getsize("o.wav") // 4, 1200 * rate + 20)

    def test_output_that_cannot_be_written(self):
        for args, size, names in ((("convert", "in.wav", "-r", "192000"), 20_000, ("o.wav",)),
                                  (("dub", "in.wav", "in.wav"), 20_000, ("o.flac", "o.mkv")),
                                  (("frame", "mute.mp4"), 90, ("o.ppm", "o.bmp", "o.png"))):
            for name in names:
                self.fails((*args, "-o", name), 1, f"^zel: {name}: File too large\n$",
                           prepare=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (size, size)))
        with open("/dev/full", "w", encoding="utf-8") as full:
            for args in (("--help",), ("info", "in.wav"), ("info", "--json", "in.wav")):
                self.assertEqual(zel(*args, stdout=full), (1, "", "zel: standard output: No space left on device\n"))
        unread, theirs = os.pipe()
        self.fails(("info", "/dev/stdin"), 1, "^zel: /dev/stdin: not a regular file\n$", stdin=unread)
        os.close(unread)
        self.assertEqual(zel("info", "in.wav", stdout=theirs), (141, "", ""))
        os.close(theirs)

    def test_links_and_modes_stay(self):
        os.chmod("there.wav", 0o640)
        os.symlink("there.wav", "alias.wav")
        self.assertEqual(len(self.sound("convert", "in.wav", out="alias.wav")), 60_000)
        self.assertTrue(os.path.islink("alias.wav"))
        self.assertEqual((os.stat("there.wav").st_mode & 0o777, len(read_wav("there.wav"))), (0o640, 60_000))
        write("there.wav", b"mine")
