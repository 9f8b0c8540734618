"""Tests of `zel wave`: the pictures hold the sounds, at their times."""

import math
import os
import re
import subprocess
import sys
import unittest

from support import ZEL, Case, ffmpeg, noise, write_wav, zel

RANGE, POWER, LANE = (125, 176, 227), (28, 92, 168), (242, 245, 249)  # Colours of the chart.
LEFT, RIGHT = 40, 24  # Its margins.


class Chart:
    def __init__(self, path):
        with open(path, "rb") as file:
            head, size, _ = (file.readline() for _ in range(3))
            assert head == b"P6\n"
            self.width, self.height = map(int, size.split())
            self.data = file.read()

    def at(self, x, y):
        return tuple(self.data[3 * (y * self.width + x):][:3])

    def kind(self, x, y):
        """Of the known colours, the one that a pixel is next to, or None."""
        for colour in (RANGE, POWER, LANE):
            if max(abs(a - b) for a, b in zip(self.at(x, y), colour)) < 4:
                return colour
        return None

    def lanes(self):
        """(top, bottom) of every lane that reaches a column where no text is as high."""
        found, top = [], None
        for y in range(self.height):
            inked = self.at(LEFT + 110, y) != (255, 255, 255)
            if inked and top is None:
                top = y
            elif not inked and top is not None:
                if y - top > 12:
                    found.append((top, y))
                top = None
        return found

    def last_label(self):
        """(first, last) column of the last label of the axis."""
        def inked(x, *ys):
            return any(self.at(x, y) != (255, 255, 255) for y in ys)

        bottom = max(y for y in range(self.height) if any(inked(x, y) for x in range(self.width)))
        columns = [x for x in range(self.width) if inked(x, *range(bottom - 7, bottom + 1))]
        return max(a for a, b in zip(columns, [-99] + columns) if a - b > 20), columns[-1]

    def spread(self, x, lane, kinds):
        """What share of a lane's height has one of `kinds` in column x."""
        return sum(self.kind(x, y) in kinds for y in range(*lane)) / (lane[1] - lane[0])


class Waves(Case):
    @classmethod
    def make(cls):
        # Left: loud, then a quarter; right: half the scale, then nothing.
        samples = []
        for i in range(16000):
            loud = 32767 if i < 8000 else 8192
            samples += [round(loud * math.sin(i * 0.7)), (-16384, 16384)[i % 2] if i < 8000 else 0]
        write_wav("two.wav", samples, rate=8000)
        write_wav("short.wav", [v for i in range(4000) for v in (20000 if i % 2 else -20000,)], rate=4000, channels=1)

    def draw(self, *args):
        self.assertEqual(self.done("wave", *args, "-o", "o.ppm", "--overwrite", "-q"), "")
        return Chart("o.ppm")

    def test_range_and_power_by_channel(self):
        chart = self.draw("two.wav", "short.wav", "--size", "464x400")
        self.assertEqual((chart.width, chart.height), (464, 400))
        lanes = chart.lanes()
        self.assertEqual(len(lanes), 3)
        inside = chart.width - LEFT - RIGHT
        for seconds, lane, spread, power in ((0.5, 0, 1, 0.707), (1.5, 0, 0.25, 0.177), (0.5, 1, 0.5, 0.5),
                                             (1.5, 1, 0, 0), (0.5, 2, 0.61, 0.61)):
            x = LEFT + round(seconds / 2 * inside) + 2
            one = 4.5 / (lanes[lane][1] - lanes[lane][0])
            self.assertAlmostEqual(chart.spread(x, lanes[lane], (RANGE, POWER)), spread, delta=one, msg=(seconds, lane))
            self.assertAlmostEqual(chart.spread(x, lanes[lane], (POWER,)), power, delta=one, msg=(seconds, lane))
        # The loud part ends in the middle, and the short file with 1 s of 2.
        middle = LEFT + inside // 2
        self.assertGreater(chart.spread(middle - 3, lanes[0], (RANGE, POWER)), 0.9)
        self.assertLess(chart.spread(middle + 3, lanes[0], (RANGE, POWER)), 0.3)
        self.assertTrue(chart.kind(middle - 3, lanes[2][0]))
        self.assertEqual(chart.at(middle + 3, lanes[2][0]), (255, 255, 255))

    def test_sound_stands_where_it_is_heard(self):
        ffmpeg("-f", "lavfi", "-i", "color=s=32x32:r=10:d=2", "-itsoffset", "1", "-i", "short.wav", "-c:v", "mpeg4",
               "-c:a", "pcm_s16le", "late.mkv")
        chart = self.draw("late.mkv", "two.wav", "--size", "464x300")
        middle = LEFT + 200
        top = chart.lanes()[0][0] - 60  # Two lanes begin at the left; the late one is above them.
        late = [x for x in range(LEFT, LEFT + 400) if any(chart.kind(x, y) for y in range(max(top, 40), top + 40))]
        self.assertAlmostEqual(late[0], middle, delta=2)

    def test_labels_stand_at_their_ticks(self):
        write_wav("hour.wav", [100, -100] * 7200, rate=4, channels=1)
        for path, width, shift in (("two.wav", 300, 0), ("two.wav", 464, 0), ("hour.wav", 464, 6)):
            first, last = self.draw(path, "--size", f"{width}x150").last_label()
            self.assertAlmostEqual((first + last) / 2, width - RIGHT - shift, delta=2, msg=(path, width))
            self.assertLess(last, width - 4)

    def test_sizes_and_sharing(self):
        write_wav("eight.wav", noise(1, 2000, 8), channels=8)
        self.assertEqual(len(self.draw("eight.wav").lanes()), 8)
        self.assertEqual(self.draw("eight.wav").width, 1200)
        self.assertEqual(len(self.draw("eight.wav", "--size", "300x120").lanes()), 1)
        lowest = self.draw("eight.wav", "--size", "300x108")
        self.assertEqual(lowest.lanes(), [])  # Lower than it looks for, but there:
        self.assertTrue(any(lowest.kind(LEFT + 110, y) for y in range(lowest.height)))
        for frames in (1, 3, 900):
            write_wav("few.wav", noise(2, frames, 1), channels=1)
            self.assertGreater(len(self.draw("few.wav").lanes()), 0)

    def test_names_of_all_scripts(self):
        names = ["голос.wav", "声.wav", "صوت.wav", "-x.wav", "b\u202eidi\n.wav", "n" * 200 + ".wav", "\udcff.wav"]
        for name in names:
            os.link("short.wav", name)
        out = self.done("wave", "-o", "o.png", "--", *names)
        self.assertRegex(out, r"^o\.png: 7 wave forms, 0:00:01\.000, 1200x\d+\n$")

    def test_refusals(self):
        ffmpeg("-f", "lavfi", "-i", "color=s=32x32:d=0.1", "mute.mp4")
        with open("two.wav", "rb") as file, open("cut.wav", "wb") as cut:
            cut.write(file.read()[:-2000])
        for args, code, pattern in (
                (("none.wav",), 1, "none.wav: No such file"), (("two.wav", "mute.mp4"), 1, "mute.mp4: has no sound"),
                (("cut.wav",), 1, "cut.wav: "), (("two.wav", "-o", "o.svg"), 1, "o.svg: .*no known picture format"),
                (("two.wav", "-o", "two.wav"), 1, "two.wav: "), (("two.wav", "-o", "none/o.png"), 1, "its folder"),
                # Sizes are looked at before the files.
                (("none.wav", "two.wav", "--size", "300x163"), 2, "300x163 is too low for 2 FILEs.* 164"),
                (("none.wav",) * 292, 2, "292 FILEs are more than"),
                ((), 2, "FILE"), *((("two.wav", "--size", size), 2, re.escape(size))
                                   for size in ("10x10", "199x108", "200x107", "99999x300", "800", "axb")),
        ):
            with self.subTest(args=args):
                args = args if "-o" in args else (*args, "-o", "o.png")
                self.fails(("wave", *args), code, "^zel.*: .*" + pattern)

    def test_no_picture_without_a_font(self):
        with open("fonts.conf", "w") as config:
            config.write("<fontconfig><cachedir>cache</cachedir></fontconfig>")
        code, out, err = zel("wave", "short.wav", "-o", "no.png", env={**os.environ, "FONTCONFIG_FILE": os.path.abspath("fonts.conf")})
        self.assertEqual((code, out, err), (1, "", "zel: no font is installed to write names and times with\n"))
        self.assertFalse(os.path.exists("no.png"))

    @unittest.skipIf(os.environ.get("ZEL_SANITIZE"), "a sanitizer keeps freed memory")
    def test_memory_stays_constant(self):
        def peak(*args):
            script = ("import resource, subprocess, sys; subprocess.run(sys.argv[1:], check=True);"
                      "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)")
            return int(subprocess.run([sys.executable, "-c", script, ZEL, *args], check=True, capture_output=True).stdout)

        with open("two.wav", "rb") as file, open("long.wav", "wb") as long:  # 30 minutes, mostly a hole.
            start, size = bytearray(file.read(44)), 4 * 8000 * 1800
            start[4:8], start[40:44] = (size + 36).to_bytes(4, "little"), size.to_bytes(4, "little")
            long.write(start)
            long.truncate(size + 44)
        self.assertLess(peak("wave", "-q", "long.wav", "-o", "o.png"), peak("wave", "-q", "two.wav", "-o", "p.png") + 12_000)


if __name__ == "__main__":
    unittest.main()
