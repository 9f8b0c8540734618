"""zel mix, as a whole process on real files."""

import array
from random import Random

from support import RATE, Case, noise, probe, streams, write_wav


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

    def test_files_and_texts(self):
        text = self.done("mix", "a.wav", "b.wav", "-o", "out.m4a")
        self.assertRegex(text, r"^out\.m4a: mix of a\.wav, b\.wav, 44100 Hz, 2 channels: 1\.134 s, \d+x real time\n$")
        self.assertEqual(streams("out.m4a"), [("audio", "aac")])

    def test_no_block_is_heard(self):
        # Too loud: the gain falls at once, and creeps back over any number of blocks. Silence before moves all blocks.
        for seed, count in enumerate((2, 3, 8, 64)):
            chance, bursts = Random(seed), array.array("h")
            while len(bursts) < 300_000:
                bursts.extend([chance.choice((-32768, 32767, 20000, -9000))] * chance.randint(1, 3))
                bursts.extend(chance.randbytes(chance.randint(0, 441_000 // count)))
            self.check_blocks(bursts, bursts, count)
        # After a recovery to a hair above 1, the scaled sum may be more than the inputs can add up to.
        for first, peak in ((20_000, 32_767), (12_345, -32_768), (-20_000, 32_767)):
            start, end = [first] + [0] * 75_124 + [peak], 15_000
            self.check_blocks(array.array("h", start + [20_000] * end), array.array("h", start + [0] * end), 8)

    def check_blocks(self, first, others, count):
        mixes = []
        for shift in (0, 1111, 2222):
            for name, values in (("first.wav", first), ("other.wav", others)):
                write_wav(name, array.array("h", bytes(2 * shift)) + values, RATE, 1)
            mixes.append(self.sound("mix", "first.wav", *["other.wav"] * (count - 1))[shift:])
        self.assertTrue(max(mixes[0]) == 32_767 and mixes[0] == mixes[1] == mixes[2], count)
