"""What the tests of the command share: running it, making media, and reading it with FFmpeg's commands."""

import array
import ctypes
import json
import math
import os
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
import wave

ZEL = os.environ["ZEL"]


def zel(*args, **options):
    """Runs the command; (exit code, standard output, standard error)."""
    done = subprocess.run([ZEL, *args], capture_output=True, timeout=120, **options)
    return done.returncode, done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace")


def without(errors):
    """Lets the system calls of these numbers (on x86-64) fail with these errors, in this process and its children."""
    code = [(0x20, 0, 0, 0)]  # Load the number; compare; return an error; allow.
    for number, error in errors.items():
        code += [(0x15, 0, 1, number), (0x06, 0, 0, 0x50000 | error)]
    code.append((0x06, 0, 0, 0x7FFF0000))
    code = b"".join(struct.pack("HBBI", *instruction) for instruction in code)

    class Program(ctypes.Structure):
        _fields_ = [("length", ctypes.c_ushort), ("code", ctypes.c_char_p)]

    prctl = ctypes.CDLL(None, use_errno=True).prctl
    if prctl(38, 1, 0, 0, 0) != 0 or prctl(22, 2, ctypes.byref(Program(len(code) // 8, code)), 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "prctl")


def ffmpeg(*args):
    return subprocess.run(["ffmpeg", "-v", "error", "-y", *args], check=True, capture_output=True).stdout


def probe(path, *entries):
    text = subprocess.run(["ffprobe", "-v", "error", "-of", "json", *entries, path], check=True,
                          capture_output=True).stdout
    return json.loads(text)


def streams(path):
    """(kind, codec) of every stream."""
    return [(s["codec_type"], s.get("codec_name", "")) for s in probe(path, "-show_streams")["streams"]]


def write_wav(path, samples, rate=44100, channels=2):
    """`samples`: interleaved 16-bit values."""
    with wave.open(path, "wb") as out:
        out.setnchannels(channels)
        out.setsampwidth(2)
        out.setframerate(rate)
        out.writeframes(array.array("h", samples).tobytes())


def long_wav(path, seconds, rate=44100):
    """Silence in 2 channels as a hole in the file, which takes no space."""
    write_wav(path, [], rate)
    size = 4 * rate * seconds
    with open(path, "r+b") as file:
        file.seek(4)
        file.write((size + 36).to_bytes(4, "little"))
        file.seek(40)
        file.write(size.to_bytes(4, "little"))
        file.truncate(size + 44)


def peak_memory(*args):
    """The most memory that the command held, in KiB."""
    script = ("import resource, subprocess, sys; subprocess.run(sys.argv[1:], check=True);"
              "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)")
    return int(subprocess.run([sys.executable, "-c", script, ZEL, *args], check=True, capture_output=True).stdout)


def read_wav(path):
    with wave.open(path, "rb") as source:
        assert source.getsampwidth() == 2
        return array.array("h", source.readframes(source.getnframes()))


def decode(path, stream="0:a:0"):
    """The sound of a file, interleaved, as FFmpeg's command hears it."""
    return array.array("h", ffmpeg("-i", path, "-map", stream, "-f", "s16le", "-"))


def video_packets(path):
    """(time, hash) of every packet of the first video stream, in decoding order."""
    packets = []
    base = 0.0
    for line in ffmpeg("-i", path, "-map", "0:v:0", "-c", "copy", "-copyts", "-f", "framehash", "-").decode().splitlines():
        if line.startswith("#tb"):
            numerator, denominator = line.split(":")[1].split("/")
            base = int(numerator) / int(denominator)
        elif not line.startswith("#"):
            fields = [field.strip() for field in line.split(",")]
            packets.append((int(fields[2]) * base, fields[-1]))
    return packets


def noise(seed, frames, channels=2):
    generator = random.Random(seed)
    values = array.array("h", generator.randbytes(2 * frames * channels))
    return array.array("h", (value or 1 for value in values))  # A zero would look like silence.


def lag(a, b, channels, reach=4, frames=3000, start=0):
    """By how many frames `b` is later than `a`, found by correlating their first channels."""
    x = a[start * channels::channels][:frames]
    y = b[max(start - reach, 0) * channels::channels]
    skip = start - max(start - reach, 0)
    score = {shift: sum(p * q for p, q in zip(x, y[skip + shift:])) for shift in range(-skip, reach + 1)}
    return max(score, key=score.get)


def sine(frequency, rate, seconds, channels=1, level=16384):
    """A sine, on all channels."""
    step = 2 * math.pi * frequency / rate
    return array.array("h", (round(level * math.sin(step * (i // channels)))
                             for i in range(int(rate * seconds) * channels)))


def quality(values, frequency, rate, level=16384):
    """(gain, signal-to-noise ratio) in dB of what became of a sine of `level`: the sine of its frequency that fits
    best, and all the rest, without the first and the last 50 ms."""
    step = 2 * math.pi * frequency / rate
    ss = cc = sc = sx = cx = xx = 0.0
    for i in range(rate // 20, len(values) - rate // 20):
        s, c, x = math.sin(step * i), math.cos(step * i), values[i]
        ss, cc, sc, sx, cx, xx = ss + s * s, cc + c * c, sc + s * c, sx + s * x, cx + c * x, xx + x * x
    scale = ss * cc - sc * sc
    a, b = (sx * cc - cx * sc) / scale, (cx * ss - sx * sc) / scale
    return 10 * math.log10((a * a + b * b) / level ** 2), 10 * math.log10((a * sx + b * cx) / (xx - a * sx - b * cx))


class Case(unittest.TestCase):
    """Runs in a folder of its own, filled once per class by make()."""

    maxDiff = 1000

    @classmethod
    def make(cls):
        pass

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="zel-test-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.addClassCleanup(os.chdir, os.getcwd())
        os.chdir(cls.folder)
        cls.make()

    def setUp(self):
        self.before = set(os.listdir(os.fsencode(self.folder)))

    def tearDown(self):
        for name in set(os.listdir(os.fsencode(self.folder))) - self.before:
            path = os.path.join(os.fsencode(self.folder), name)
            self.assertFalse(name.startswith(b".zel"), "a pending file is left")
            shutil.rmtree(path) if os.path.isdir(path) else os.unlink(path)

    def done(self, *args):
        """Runs the command, which must succeed and say nothing on standard error; its output."""
        code, out, err = zel(*args)
        self.assertEqual((code, err), (0, ""), args)
        return out

    def fails(self, args, code, pattern):
        """Runs the command, which must end with `code`, one matching line, and no new file."""
        files = set(os.listdir(self.folder))
        got, out, err = zel(*args)
        self.assertRegex(err, pattern, args)
        self.assertEqual((got, out), (code, ""), (args, err))
        self.assertEqual(err.count("\n"), 1 if code == 1 else 2, err)
        self.assertEqual(set(os.listdir(self.folder)), files, args)
