"""zel mix, as a whole process on real files."""

import array
import os
import unittest

from support import RATE, Case, decode, long_wav, noise, probe, read, read_wav, sine, streams, write_wav


def in_one(inputs):
    """What the library's mixer makes of everything in one call."""
    gain, step = 1.0, len(inputs) * (1 / 441000)
    out = array.array("h")
    for values in zip(*inputs):
        if gain < 1.0:
            gain += step
        value = int(sum(values) * gain)
        if abs(value) >= 32768:
            gain, value = 32767.0 / abs(value), 32767 if value > 0 else -32767
        out.append(value)
    return out


class Mixes(Case):
    @classmethod
    def make(cls):
        cls.a, cls.b, cls.c = (noise(seed, frames, parts=4) for seed, frames in ((1, 50_000), (2, 30_001), (3, 60_007)))
        for name, values in (("a", cls.a), ("b", cls.b), ("c", cls.c)):
            write_wav(name + ".wav", values)
        write_wav("mono.wav", cls.a[::2], RATE, 1)
        write_wav("slow.wav", noise(4, 20_000, 1, 4), 22050, 1)

    def test_without_overflow_it_is_the_sum(self):
        twice = array.array("h", (value for value in self.a[::2] for _ in range(2)))
        for names, tracks in (("ab", (self.a, self.b)), ("bac", (self.b, self.a, self.c)), ("aa", (self.a, self.a)),
                              (("b", "mono"), (self.b, twice))):
            longest = max(map(len, tracks))
            wanted = array.array("h", map(sum, zip(*(list(t) + [0] * (longest - len(t)) for t in tracks))))
            self.assertTrue(self.sound("mix", *(name + ".wav" for name in names)) == wanted, names)

    def test_each_comes_as_convert_would_bring_it(self):
        self.done("convert", "slow.wav", "-o", "fast.wav", "--rate", str(RATE), "--channels", "2")
        self.assertTrue(self.sound("mix", "a.wav", "slow.wav") == self.sound("mix", "a.wav", "fast.wav"))
        self.assertEqual(len(self.sound("mix", "slow.wav", "a.wav")), 50_000 // 2)  # The first one decides.
        shown = probe("out.wav", "-show_streams")["streams"][0]
        self.assertEqual((shown["sample_rate"], shown["channels"]), ("22050", 1))
        # Channels that the converter lacks: the decoder's mixer.
        write_wav("three.wav", [100, 200, 300] * 1000, RATE, 3)
        out = self.sound("mix", "three.wav", "three.wav", "a.wav")
        self.assertTrue(out[3000::3] == self.a[2000::2] and out[:3000:3] == array.array(
            "h", (200 + value for value in self.a[:2000:2])))

    def test_containers(self):
        wanted = self.sound("mix", "a.wav", "b.wav")
        self.assertTrue(self.sound("mix", "a.wav", "b.wav", out="out.mkv") == wanted)
        text = self.done("mix", "a.wav", "b.wav", "-o", "out.m4a")
        first = read("out.m4a")
        self.done("mix", "a.wav", "b.wav", "-o", "out.m4a", "--overwrite")
        self.assertTrue(read("out.m4a") == first)
        self.assertRegex(text, r"^out\.m4a: mix of a\.wav, b\.wav, 44100 Hz, 2 channels: 1\.134 s, \d+x real time\n$")
        self.assertEqual(streams("out.m4a"), [("audio", "aac")])
        self.done("mix", *["b.wav"] * 64, "-o", "many.wav")

    def test_blocks_are_as_one_call(self):
        # Noise that overflows all the time; a drum beat over tones; a peak after which the gain creeps back over many
        # blocks, also to a hair above 1, at which full scale overflows.
        tone = sine(441, RATE, 3, level=15_000)
        drum = array.array("h", (30_000 if i % 30_000 == 77 else 0 for i in range(len(tone))))

        def creep(count, level):
            sign = 1 if level > 0 else -1
            track = array.array("h", [level] * 1000 + [32_000 * sign] + [level] * 300_000)
            rest = [32_767 * sign - level * (count - 1)] * 70_000
            return [track + array.array("h", [level] * 70_000)] * (count - 1) + [track + array.array("h", rest)]

        for channels, tracks in ((2, [noise(seed, 40_000) for seed in range(3)]), (1, creep(8, 4_000)), (1, creep(2, -16_000)),
                                 (1, [tone, sine(880, RATE, 3, level=2_000), drum])):
            for i, track in enumerate(tracks):
                write_wav(f"{i}.wav", track, RATE, channels)
            self.assertTrue(self.sound("mix", *(f"{i}.wav" for i in range(len(tracks)))) == in_one(tracks), tracks[0][:3])

    def test_memory_stays_constant(self):
        long_wav("long.wav", 1200)
        self.needs_no_more_memory(("mix", "long.wav", "a.wav", "long.wav", "-o", "p.wav"), ("mix", "a.wav", "b.wav", "-o", "o.wav"))
        self.assertEqual(os.path.getsize("p.wav") - 80, os.path.getsize("long.wav") - 44)


if __name__ == "__main__":
    unittest.main()
