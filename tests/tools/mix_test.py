"""zel mix, as a whole process on real files."""

import os
import unittest

from support import (Case, array, decode, ffmpeg, long_wav, noise, peak_memory, probe, quality, read_wav, sine,
                     streams, write_wav)

RATE = 44100


def in_one(inputs):
    """What the library's mixer makes of everything in one call."""
    gain, step = 1.0, len(inputs) * (1 / 441000)
    out = array.array("h")
    for values in zip(*inputs):
        if gain < 1.0:
            gain += step
        value = int(sum(values) * gain)
        if value >= 32768:
            gain, value = 32767.0 / value, 32767
        elif value <= -32768:
            gain, value = -32767.0 / value, -32767
        out.append(value)
    return out


def quiet_noise(seed, frames, channels=2, parts=4):
    return array.array("h", (int(value / parts) for value in noise(seed, frames, channels)))


class Exact(Case):
    @classmethod
    def make(cls):
        cls.a, cls.b, cls.c = (quiet_noise(seed, frames) for seed, frames in ((1, 50_000), (2, 30_001), (3, 60_007)))
        for name, values in (("a", cls.a), ("b", cls.b), ("c", cls.c)):
            write_wav(name + ".wav", values)
        write_wav("mono.wav", cls.a[::2], RATE, 1)
        write_wav("slow.wav", quiet_noise(4, 20_000, 1), 22050, 1)

    def test_without_overflow_it_is_the_sum(self):
        def total(*tracks):
            longest = max(map(len, tracks))
            return array.array("h", map(sum, zip(*(list(t) + [0] * (longest - len(t)) for t in tracks))))

        twice = array.array("h", (value for value in self.a[::2] for _ in range(2)))
        for names, wanted in ((("a", "b"), total(self.a, self.b)), (("b", "a"), total(self.a, self.b)),
                              (("a", "b", "c"), total(self.a, self.b, self.c)), (("a", "a"), total(self.a, self.a)),
                              (("b", "mono"), total(self.b, twice))):
            self.done("mix", *(name + ".wav" for name in names), "-o", "out.wav", "--overwrite")
            self.assertTrue(read_wav("out.wav") == wanted, names)

    def test_each_comes_as_convert_would_bring_it(self):
        self.done("convert", "slow.wav", "-o", "fast.wav", "--rate", str(RATE), "--channels", "2")
        self.done("mix", "a.wav", "slow.wav", "-o", "out.wav")
        self.done("mix", "a.wav", "fast.wav", "-o", "same.wav")
        self.assertTrue(read_wav("out.wav") == read_wav("same.wav"))
        self.done("mix", "slow.wav", "a.wav", "-o", "low.wav")  # The first one decides.
        shown = probe("low.wav", "-show_streams")["streams"][0]
        self.assertEqual((shown["sample_rate"], shown["channels"]), ("22050", 1))
        self.assertEqual(len(read_wav("low.wav")), 50_000 // 2)
        # Channels that the converter lacks: the decoder's mixer.
        write_wav("three.wav", [100, 200, 300] * 1000, RATE, 3)
        self.done("mix", "three.wav", "three.wav", "a.wav", "-o", "out3.wav")
        out = decode("out3.wav")
        self.assertEqual(len(out), 3 * 50_000)
        self.assertTrue(out[3000::3] == self.a[2000::2] and out[:3000:3] == array.array(
            "h", (200 + value for value in self.a[:2000:2])))

    def test_lossless_containers_and_repeats(self):
        self.done("mix", "a.wav", "b.wav", "-o", "out.wav")
        for name in ("out.flac", "out.mka", "out.mkv"):
            self.done("mix", "a.wav", "b.wav", "-o", name)
            self.assertTrue(decode(name) == read_wav("out.wav"), name)
        for name in ("out.m4a", "out.mp3"):
            text = self.done("mix", "a.wav", "b.wav", "-o", name)
            os.rename(name, "first")
            self.done("mix", "a.wav", "b.wav", "-o", name)
            with open(name, "rb") as again, open("first", "rb") as first:
                self.assertTrue(again.read() == first.read(), name)
        self.assertRegex(text, r"^out\.mp3: mix of a\.wav, b\.wav, 44100 Hz, 2 channels: 1\.134 s, \d+x real time\n$")
        self.assertEqual(streams("out.m4a"), [("audio", "aac")])


class Gain(Case):
    """Where the sum is too loud."""

    def mix(self, *tracks, channels=1):
        for i, track in enumerate(tracks):
            write_wav(f"{i}.wav", track, RATE, channels)
        self.done("mix", *(f"{i}.wav" for i in range(len(tracks))), "-o", "out.wav", "--overwrite")
        return read_wav("out.wav")

    def test_blocks_are_as_one_call(self):
        # Noise that overflows all the time; a peak after which the gain creeps back over many blocks, also to a hair
        # above 1, at which full scale overflows; sums that fit by a hair when the gain is right to the last bit; a
        # drum beat over tones.
        loud = [noise(seed, 70_000, 1) for seed in range(4)]
        half = [array.array("h", (value // 2 for value in noise(seed, 200_000, 1))) for seed in range(3)]
        edge = [array.array("h", (level if i % 1000 else 32_767 for i in range(100_000))) for level in (16_383, 16_384)]
        tone = sine(441, RATE, 4, level=15_000)
        drum = array.array("h", (30_000 if i % 30_000 == 77 else 0 for i in range(len(tone))))

        def creep(count, level):
            sign = 1 if level > 0 else -1
            track = array.array("h", [level] * 1000 + [32_000 * sign] + [level] * 300_000)
            rest = [32_767 * sign - level * (count - 1)] * 70_000
            return [track + array.array("h", [level] * 70_000)] * (count - 1) + [track + array.array("h", rest)]

        for tracks in (loud[:2], loud[:3], loud, half[:2], half, edge, [tone, sine(880, RATE, 4, level=2_000), drum],
                       creep(2, 10_000), creep(2, -16_000), creep(3, 10_900), creep(8, 4_000)):
            with self.subTest(tracks=len(tracks), first=tracks[0][:3]):
                longest = max(map(len, tracks))
                tracks = [track + array.array("h", [0] * (longest - len(track))) for track in tracks]
                self.assertTrue(self.mix(*tracks) == in_one(tracks))
        stereo = [noise(seed, 40_000) for seed in (5, 6)]
        self.assertTrue(self.mix(*stereo, channels=2) == in_one(stereo))


class Refusals(Case):
    @classmethod
    def make(cls):
        write_wav("a.wav", noise(1, 5000))
        write_wav("b.wav", noise(2, 5000))
        write_wav("empty.wav", [])
        ffmpeg("-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=1", "-c:v", "libx264", "mute.mp4")
        ffmpeg("-i", "a.wav", "whole.flac")
        with open("whole.flac", "rb") as whole, open("cut.flac", "wb") as cut:
            cut.write(whole.read()[:12_000])
        write_wav("slow.wav", noise(1, 50, 1), 8, 1)
        os.link("b.wav", "same.wav")

    def test_usage(self):
        self.assertIn("\nUsage: zel mix INPUT INPUT... -o OUTPUT [OPTIONS]\n", self.done("mix", "--help"))
        self.fails(("mix",), 2, "INPUT")
        self.fails(("mix", "a.wav", "-o", "o.wav"), 2, "INPUT")
        self.fails(("mix", "a.wav", "b.wav"), 2, "--output is required")
        self.fails(("mix", *["a.wav"] * 65, "-o", "o.wav"), 2, "INPUT|64")
        self.fails(("mix", "a.wav", "b.wav", "-o", "o.wav", "--rate", "8000"), 2, "--rate")

    def test_failures(self):
        for sources, output, pattern in (
                (("a.wav", "none.wav"), "o.wav", "none.wav: No such file"), (("none.wav", "a.wav"), "o.wav", "none.wav: "),
                (("a.wav", "b.wav", "mute.mp4"), "o.wav", "mute.mp4: has no sound"),
                (("a.wav", "cut.flac"), "o.wav", "cut.flac: "), (("a.wav", "b.wav"), "o.xyz", "no known container"),
                (("a.wav", "slow.wav"), "o.wav", "slow.wav: its rate of 8 Hz is too far from 44100"),
                (("a.wav", "b.wav"), "whole.flac", "whole.flac: exists already")):
            self.fails(("mix", *sources, "-o", output), 1, "^zel: .*" + pattern)
        for output in ("a.wav", "b.wav", "same.wav"):
            self.fails(("mix", "a.wav", "b.wav", "-o", output, "--overwrite"), 1, output + ": is the same file as")

    def test_many_files(self):
        self.done("mix", *["b.wav"] * 64, "-o", "o.wav")
        self.assertEqual(self.done("mix", "-q", "a.wav", "b.wav", "-o", "o.wav", "--overwrite"), "")

    def test_memory_stays_constant(self):
        if os.environ.get("ZEL_SANITIZE"):
            self.skipTest("a sanitizer keeps freed memory")
        long_wav("long.wav", 1200)
        short = peak_memory("mix", "-q", "a.wav", "b.wav", "-o", "o.wav", "--overwrite")
        long = peak_memory("mix", "-q", "long.wav", "a.wav", "long.wav", "-o", "p.wav")
        self.assertLess(long, short + 16 * 1024)
        self.assertEqual(os.path.getsize("p.wav") - 80, os.path.getsize("long.wav") - 44)


if __name__ == "__main__":
    unittest.main()
