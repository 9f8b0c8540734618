"""zel wave: the pictures hold the sounds, at their times."""

import math
import os

from support import Case, ffmpeg, lavfi, noise, read, write, write_wav

# Colours of the chart.
RANGE, POWER, LANE, GRID, WHITE = (125, 176, 227), (28, 92, 168), (242, 245, 249), (214, 219, 227), (255, 255, 255)
LEFT, RIGHT = 40, 24  # Its margins.


class Chart:
    def __init__(self, path):
        head, size, _, self.data = read(path).split(b"\n", 3)
        assert head == b"P6"
        self.width, self.height = map(int, size.split())

    def at(self, x, y):
        return tuple(self.data[3 * (y * self.width + x):][:3])

    def kind(self, x, y):
        """Of the known colours, the one that a pixel is next to, or None."""
        return next((colour for colour in (RANGE, POWER, LANE, GRID) if math.dist(self.at(x, y), colour) < 6), None)

    def lanes(self):
        """(top, bottom) of every lane that reaches a column where no text is as high."""
        white = [self.at(LEFT + 110, y) == WHITE for y in range(self.height)]
        edges = [y for y in range(1, self.height) if white[y] != white[y - 1]]
        return [(top, bottom) for top, bottom in zip(edges[::2], edges[1::2]) if bottom - top > 12]

    def spread(self, x, lane, *kinds):
        """What share of a lane's height has one of `kinds` in column x."""
        return sum(self.kind(x, y) in kinds for y in range(*lane)) / (lane[1] - lane[0])


class Waves(Case):
    @classmethod
    def make(cls):
        # Left: loud, then a quarter; right: half the scale, then nothing.
        # It is long enough for the envelope to be merged.
        write_wav("two.wav", [value for i in range(288_000) for value in (
            round((32767, 8192)[i // 144_000] * math.sin(i * 0.7)), (i < 144_000) * (-16384, 16384)[i % 2])], 144_000)
        write_wav("short.wav", [20000, -20000] * 2000, 4000, 1)

    def draw(self, *args):
        self.assertEqual(self.done("wave", *args, "-o", "o.ppm", "--overwrite", "-q"), "")
        return Chart("o.ppm")

    def test_range_and_power_by_channel(self):
        chart = self.draw("two.wav", "short.wav", "--size", "464x400")
        self.assertEqual((chart.width, chart.height), (464, 400))
        lanes = chart.lanes()
        self.assertEqual(len(lanes), 3)
        for x, lane, spread, power in ((50, 0, 1, 0.707), (300, 0, 0.25, 0.177), (50, 1, 0.5, 0.5), (100, 1, 0.5, 0.5),
                                       (300, 1, 0, 0), (100, 2, 0.61, 0.61)):
            for wanted, *kinds in ((spread, RANGE, POWER), (power, POWER)):
                got = chart.spread(LEFT + x + 2, lanes[lane], *kinds)
                self.assertAlmostEqual(got, wanted, delta=4.5 / (lanes[lane][1] - lanes[lane][0]), msg=(x, lane))
        # The loud part ends in the middle, and the short file with 1 s of 2.
        middle = LEFT + 200
        self.assertGreater(chart.spread(middle - 3, lanes[0], RANGE, POWER),
                           3 * chart.spread(middle + 3, lanes[0], RANGE, POWER))
        self.assertEqual([chart.at(middle + x, lanes[2][0]) == WHITE for x in (-3, 3)], [False, True])
        # Grid lines at every half second inside the lane, silence between them.
        silent = [x for x in range(middle + 2, LEFT + 400) if chart.kind(x, lanes[1][0] + 1) == GRID]
        self.assertEqual(silent, [LEFT + 300])

    def test_sound_stands_where_it_is_heard(self):
        ffmpeg(*lavfi("color=s=32x32:r=10:d=2"), "-itsoffset", "1", "-i", "short.wav", "-c:v", "mpeg4",
               "-c:a", "pcm_s16le", "late.mkv")
        chart = self.draw("late.mkv", "two.wav", "--size", "464x300")
        top = chart.lanes()[0][0] - 60  # Two lanes begin at the left; the late one is above them.
        late = [x for x in range(LEFT, LEFT + 400) if any(chart.kind(x, y) for y in range(max(top, 40), top + 40))]
        self.assertAlmostEqual(late[0], LEFT + 200, delta=2)

    def test_labels_stand_at_their_ticks(self):
        write_wav("hour.wav", [100, -100] * 7200, 4, 1)
        for path, width, shift in (("two.wav", 300, 0), ("two.wav", 464, 0), ("hour.wav", 464, 6)):
            chart = self.draw(path, "--size", f"{width}x150")
            # The last label is all below the axis in the last columns.
            columns = [x for x in range(width - 80, width) if any(chart.at(x, y) != WHITE for y in range(116, 130))]
            first = max(a for a, b in zip(columns, [-99] + columns) if a - b > 20)
            self.assertAlmostEqual((first + columns[-1]) / 2, width - RIGHT - shift, delta=2, msg=(path, width))

    def test_sizes_and_sharing(self):
        write_wav("eight.wav", noise(1, 2000, 8), channels=8)
        chart = self.draw("eight.wav")
        self.assertEqual((chart.width, len(chart.lanes())), (1200, 8))
        self.assertEqual(len(self.draw("eight.wav", "--size", "300x120").lanes()), 1)
        lowest = self.draw("eight.wav", "--size", "300x108")
        self.assertTrue(any(lowest.kind(LEFT + 110, y) for y in range(lowest.height)))
        write_wav("few.wav", [12345], channels=1)
        self.assertEqual(len(self.draw("few.wav").lanes()), 1)

    def test_names_of_all_scripts(self):
        names = ["голос.wav", "声.wav", "صوت.wav", "-x.wav", "b\u202eidi\n.wav", "n" * 200 + ".wav", "\udcff.wav"]
        for name in names:
            os.link("short.wav", name)
        out = self.done("wave", "-o", "o.png", "--", *names)
        self.assertRegex(out, r"^o\.png: 7 wave forms, 0:00:01\.000, 1200x\d+\n$")
        write("fonts.conf", b"<fontconfig><cachedir>/nonexistent</cachedir></fontconfig>")
        self.fails(("wave", "short.wav", "-o", "no.png"), 1, "^zel: no font is installed to write names and times with",
                   env={**os.environ, "FONTCONFIG_FILE": os.path.abspath("fonts.conf")})
