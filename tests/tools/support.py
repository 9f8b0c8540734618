"""What the tests of the command share: running it, making media, and reading it with FFmpeg's commands."""

import array
import json
import math
import os
import random
import re
import shlex
import shutil
import subprocess
import tempfile
import unittest
import wave

ZEL = os.environ["ZEL"]
RATE = 44100


def zel(*args, prepare=None, **options):
    """Runs the command; (exit code, standard output, standard error). `prepare` runs in its process before."""
    options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "timeout": 120, **options}
    done = subprocess.run([ZEL, *args], check=False, preexec_fn=prepare, **options)
    return done.returncode, *((text or b"").decode() for text in (done.stdout, done.stderr))


def ffmpeg(*args):
    """Runs FFmpeg's command; what it writes to "-"."""
    return subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *args], check=True, capture_output=True).stdout


def lavfi(source):
    """An input of FFmpeg's command that a filter makes."""
    return "-f", "lavfi", "-i", source


def probe(path, *entries):
    return json.loads(subprocess.run(["ffprobe", "-v", "error", "-of", "json", *entries, path], check=True,
                                     capture_output=True).stdout)


def streams(path):
    """(kind, codec) of every stream."""
    return [(s["codec_type"], s.get("codec_name", "")) for s in probe(path, "-show_streams")["streams"]]


def write(path, data):
    with open(path, "wb") as file:
        file.write(data)


def read(path):
    with open(path, "rb") as file:
        return file.read()


def write_wav(path, samples, rate=RATE, channels=2):
    """`samples`: interleaved 16-bit values."""
    with wave.open(path, "wb") as out:
        out.setparams((channels, 2, rate, 0, "NONE", None))
        out.writeframes(array.array("h", samples).tobytes())


def long_wav(path, seconds):
    """Silence in 2 channels as a hole in the file, which takes no space."""
    write_wav(path, [])
    size, head = 4 * RATE * seconds, read(path)
    write(path, head[:4] + (size + 36).to_bytes(4, "little") + head[8:40] + size.to_bytes(4, "little"))
    os.truncate(path, size + 44)


def read_wav(path):
    data = read(path)
    at = data.index(b"data") + 8
    assert data[:4] == b"RIFF" and int.from_bytes(data[at - 4:at], "little") == len(data) - at
    return array.array("h", data[at:])


def decode(path, stream="0:a:0"):
    """The sound of a file, interleaved, as FFmpeg's command hears it."""
    return array.array("h", ffmpeg("-i", path, "-map", stream, "-f", "s16le", "-"))


def noise(seed, frames, channels=2, parts=1):
    values = array.array("h", random.Random(seed).randbytes(2 * frames * channels))
    return array.array("h", (int(value / parts) or 1 for value in values))  # A zero would look like silence.


def sine(frequency, rate, seconds, channels=1, level=16384):
    """A sine, on all channels."""
    step = 2 * math.pi * frequency / rate
    return array.array("h", (round(level * math.sin(step * (i // channels)))
                             for i in range(int(rate * seconds) * channels)))


def quality(values, frequency, rate, level=16384):
    """(gain, signal-to-noise ratio) in dB of what became of a sine of `level`, without 50 ms at both ends."""
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
    def setUpClass(cls):
        folder = tempfile.mkdtemp(prefix="zel-test-")
        cls.addClassCleanup(shutil.rmtree, folder)
        cls.addClassCleanup(os.chdir, os.getcwd())
        os.chdir(folder)
        cls.make()

    def setUp(self):
        self.before = set(os.listdir())

    def tearDown(self):
        for name in set(os.listdir()) - self.before:
            self.assertFalse(name.startswith(".zel"), "a pending file is left")
            os.unlink(name)

    def done(self, *args):
        """Runs the command, which must succeed and say nothing on standard error; its output."""
        code, out, err = zel(*args)
        self.assertEqual((code, err), (0, ""), args)
        return out

    def sound(self, *args, out="out.wav"):
        """The sound that the command makes."""
        self.done(*args, "-o", out, "--overwrite")
        return read_wav(out) if out.endswith(".wav") else decode(out)

    def fails(self, args, code, pattern, **options):
        """Runs the command, which must end with `code`, one matching line, and no new file."""
        files = os.listdir()
        got, out, err = zel(*args, **options)
        self.assertRegex(err, pattern, args)
        self.assertEqual((got, out), (code, ""), (args, err))
        self.assertEqual(err.count("\n"), 1 if code == 1 else 2, err)
        self.assertCountEqual(os.listdir(), files, args)

    def all_fail(self, code, table):
        """Takes lines "arguments [: words, which one by one take the place of every @] | pattern of what is said"."""
        for line in filter(None, map(str.strip, table.split("\n"))):
            args, pattern = line.split(" | ")
            args, _, words = args.partition(" : ")
            for word in shlex.split(words) or "@":
                self.fails([arg.replace("@", word) for arg in shlex.split(args)], code,
                           "^zel.*: .*" + pattern.replace("@", re.escape(word)))
