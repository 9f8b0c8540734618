"""zel convert, as a whole process on real files."""

import os
import resource
import unittest

from support import (Case, array, decode, ffmpeg, long_wav, noise, peak_memory, probe, quality, read_wav, sine,
                     streams, write_wav, zel)

RATE = 44100


def mixed(values, channels, wanted):
    """The library's rules for the channels."""
    def half(a, b):
        return int(a / 2) + int(b / 2)

    rules = {(1, 2): lambda f: (f[0], f[0]), (2, 1): lambda f: (half(*f),), (2, 6): lambda f: (*f, 0, 0, 0, 0),
             (3, 2): lambda f: (f[0], half(f[1], f[2]))}
    rule = rules[channels, wanted]
    return array.array("h", (value for i in range(0, len(values), channels) for value in rule(values[i:i + channels])))


class Exact(Case):
    @classmethod
    def make(cls):
        for channels in range(1, 9):
            write_wav(f"in{channels}.wav", noise(channels, 30_011, channels), RATE, channels)

    def test_an_equal_format_keeps_every_byte(self):
        for channels in range(1, 9):
            for options in ((), ("-r", "44100", "-c", str(channels))) if channels == 2 else ((),):
                self.done("convert", f"in{channels}.wav", "-o", "out.wav", "--overwrite", *options)
                self.assertTrue(decode("out.wav") == noise(channels, 30_011, channels), (channels, options))
        self.done("convert", "in2.wav", "-o", "out.flac")
        self.done("convert", "out.flac", "-o", "back.wav")
        with open("in2.wav", "rb") as a, open("back.wav", "rb") as b:
            self.assertEqual(a.read()[44:], b.read()[-4 * 30_011:])

    def test_channels(self):
        for channels, wanted in ((1, 2), (2, 1), (2, 6), (3, 2)):
            self.done("convert", f"in{channels}.wav", "-o", "out.wav", "--overwrite", "--channels", str(wanted))
            self.assertTrue(decode("out.wav") == mixed(noise(channels, 30_011, channels), channels, wanted),
                            (channels, wanted))
        for channels, wanted in ((2, 4), (1, 8), (8, 3)):  # The decoder's mixer does these.
            self.done("convert", f"in{channels}.wav", "-o", "out.wav", "--overwrite", "--channels", str(wanted))
            self.assertEqual(probe("out.wav", "-show_streams")["streams"][0]["channels"], wanted)
            self.assertEqual(len(decode("out.wav")), wanted * 30_011)

    def test_lengths(self):
        # A block's samples are rounded to the nearest, its frames down; all but the last come out even.
        for channels, rate in ((1, 48000), (2, 48000), (6, 48000), (2, 22050), (2, 8000), (1, 11025), (2, 192000),
                               (1, 1000), (2, 48001)):
            with self.subTest(channels=channels, rate=rate):
                self.done("convert", f"in{channels}.wav", "-o", "out.wav", "--overwrite", "--rate", str(rate))
                samples = int(30_011 * channels * rate / RATE + 0.5)
                self.assertEqual(len(decode("out.wav")), samples // channels * channels)
                self.assertEqual(probe("out.wav", "-show_streams")["streams"][0]["sample_rate"], str(rate))

    def test_what_comes_out_is_linear_interpolation(self):
        source = array.array("h", (max(value, -32767) for value in noise(1, 30_011, 1)))
        write_wav("source.wav", source, RATE, 1)
        self.done("convert", "source.wav", "-o", "out.wav", "--rate", "88200")
        out = decode("out.wav")
        before = [0, *source]
        self.assertTrue(out[1::2] == source)
        self.assertTrue(all(value == a + int((b - a) * 0.5) for value, a, b in zip(out[0::2], before, source)))


    def test_wav_has_room_for_sizes_beyond_4_gib(self):
        # Whatever the input says of its length: here half a second too little, or nothing.
        ffmpeg("-i", "in2.wav", "in.flac")
        with open("in.flac", "rb") as file:
            data = bytearray(file.read())
        for total in (30_011, 8_000, 0):
            data[22:26] = total.to_bytes(4, "big")  # Of 36 bits; 4 more are in the byte before.
            with open("other.flac", "wb") as file:
                file.write(data)
            self.done("convert", "other.flac", "-o", "out.wav", "--overwrite")
            with open("out.wav", "rb") as file:
                head = file.read(80)
            size = len(head) - 8 + 4 * 30_011
            self.assertEqual(head[:20], b"RIFF" + size.to_bytes(4, "little") + b"WAVEJUNK" + (28).to_bytes(4, "little"))
            self.assertEqual(head[48:52] + head[72:], b"fmt data" + (4 * 30_011).to_bytes(4, "little"))
            self.assertTrue(read_wav("out.wav") == noise(2, 30_011))


class Sound(Case):
    @classmethod
    def make(cls):
        cls.tone = sine(440, RATE, 2, 2)
        write_wav("in.wav", cls.tone)
        write_wav("other.wav", noise(3, 20_000))
        ffmpeg("-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=2", "-i", "in.wav", "-i", "other.wav", "-map", "0", "-map", "1",
               "-map", "2", "-c:v", "libx264", "-c:a", "flac", "-metadata", "title=A film", "-metadata:s:a:0",
               "language=fra", "film.mkv")
        ffmpeg("-i", "in.wav", "-af", "aselect='lt(t,0.5)+gt(t,1)'", "-c:a", "flac", "hole.mkv")
        ffmpeg("-itsoffset", "0.7", "-i", "in.wav", "-i", "film.mkv", "-map", "0", "-map", "1:v", "-c:v", "copy",
               "-c:a", "flac", "late.mkv")

    def test_quality(self):
        # docs/audio-quality.md: gain and signal-to-noise ratio.
        for rate, wanted, figures in (
                (22050, 44100, ((440, -0.01, 60.1), (1000, -0.04, 45.9), (6000, -1.64, 13.7), (10000, -4.84, 2.5))),
                (44100, 48000, ((100, 0, 88.3), (1000, -0.01, 62.4), (10000, -1.49, 20.4))),
                (48000, 44100, ((100, 0, 88.5), (1000, -0.01, 63.9), (10000, -1.26, 22.2))),
                (44100, 22050, ((1000, 0, 92.0), (3000, 0, 92.3)))):
            for frequency, gain, ratio in figures:
                write_wav("sine.wav", sine(frequency, rate, 1), rate, 1)
                self.done("convert", "sine.wav", "-o", "out.wav", "--rate", str(wanted), "--overwrite")
                got = quality(read_wav("out.wav"), frequency, wanted)
                self.assertAlmostEqual(got[0], gain, delta=0.02, msg=(rate, wanted, frequency))
                self.assertAlmostEqual(got[1], ratio, delta=0.3, msg=(rate, wanted, frequency))

    def test_containers(self):
        for name, codec in (("out.flac", "flac"), ("out.mka", "flac"), ("out.m4a", "aac"), ("out.mp4", "aac"),
                            ("out.mkv", "flac"), ("out.ogg", "vorbis"), ("out.opus", "opus"), ("out.mp3", "mp3")):
            text = self.done("convert", "film.mkv", "-o", name)
            self.assertEqual(streams(name), [("audio", codec)])
            # The music's level and time; AAC's last frame is not cut by FFmpeg's decoder.
            sound = decode(name)
            rate = 48000 if name == "out.opus" else RATE
            self.assertIn(len(sound) - 2 * 2 * rate, range(0, 2 * 1024))
            self.assertGreater(quality(sound[::2], 440, rate)[1], 30)
            self.assertRegex(text, rf"^{name}: sound of film.mkv, 44100 Hz, 2 channels"
                                   + (r" \(stored at 48000 Hz\)" if rate == 48000 else "") + r": 2\.000 s, \d+x real time\n$")
        tags = probe("out.flac", "-show_format")["format"]["tags"]
        self.assertEqual({key.lower(): value for key, value in tags.items()}["title"], "A film")

    def test_rates_that_encoders_lack(self):
        for name, rate, stored in (("o.mp3", 192_000, 48_000), ("o.mp3", 23_000, 24_000), ("o.m4a", 96_001, 96_000),
                                   ("o.m4a", 90_000, 96_000), ("o.opus", 768_000, 48_000), ("o.opus", 12_001, 16_000)):
            with self.subTest(name=name, rate=rate):
                text = self.done("convert", "in.wav", "-o", name, "--rate", str(rate), "--overwrite")
                self.assertIn(f" {rate} Hz, 2 channels (stored at {stored} Hz): 2.000 s", text)
                if name != "o.opus":  # Its decoders always give 48,000.
                    self.assertEqual(probe(name, "-show_streams")["streams"][0]["sample_rate"], str(stored))
        for name, rate in (("o.flac", 655_340), ("o.ogg", 200_000)):
            self.assertNotIn("stored at", self.done("convert", "other.wav", "-o", name, "--rate", str(rate)))

    def test_selection(self):
        for options in (("--audio-stream", "1"), ("--stream", "0x10002"), ("--stream", "65538", "--program", "1")):
            with self.subTest(options=options):
                self.done("convert", "film.mkv", "-o", "out.wav", "--overwrite", *options)
                self.assertTrue(read_wav("out.wav") == noise(3, 20_000))

    def test_holes_are_silence_and_the_start_is_the_sound_s(self):
        self.done("convert", "hole.mkv", "-o", "out.wav")
        out = read_wav("out.wav")
        self.assertAlmostEqual(len(out) / 2, 2 * RATE, delta=4096)
        self.assertFalse(any(out[int(0.6 * RATE) * 2:int(0.9 * RATE) * 2]))
        self.assertTrue(out[:RATE // 2 * 2] == self.tone[:RATE // 2 * 2] and out[-RATE:] == self.tone[-RATE:])
        self.done("convert", "late.mkv", "-o", "out.wav", "--overwrite")
        self.assertTrue(read_wav("out.wav") == self.tone)

    def test_memory_stays_constant(self):
        if os.environ.get("ZEL_SANITIZE"):
            self.skipTest("a sanitizer keeps freed memory")
        long_wav("long.wav", 1200)
        short = peak_memory("convert", "-q", "in.wav", "-o", "o.wav", "--rate", "48000")
        long = peak_memory("convert", "-q", "long.wav", "-o", "p.wav", "--rate", "48000")
        self.assertLess(long, short + 16 * 1024)
        self.assertEqual(os.path.getsize("p.wav") // 4, 1200 * 48000 + 80 // 4)


class Refusals(Case):
    @classmethod
    def make(cls):
        write_wav("in.wav", noise(1, 5000))
        write_wav("slow.wav", noise(1, 50, 1), 8, 1)
        write_wav("empty.wav", [])
        ffmpeg("-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=1", "-c:v", "libx264", "mute.mp4")
        ffmpeg("-i", "in.wav", "whole.flac")
        with open("whole.flac", "rb") as whole, open("cut.flac", "wb") as cut:
            cut.write(whole.read()[:12_000])
        os.symlink("in.wav", "link.wav")

    def test_usage(self):
        for options, pattern in (
                *((("--rate", rate), "--rate: " + rate + " is not from 1000 to 768000") for rate in
                  ("0", "-44100", "999", "768001", "99999999999999999999")),
                *(((option, text), f"{option}: '{text}' is no whole number") for option in
                  ("--rate", "--channels", "--audio-stream") for text in ("two", "1e4", "2.5", "0x2", "")),
                (("--channels", "0"), "channels"), (("--channels", "9"), "channels.* 8"), (("--stream", "x"), "no id"),
                (("--audio-stream", "-1"), "--audio-stream: -1 is not from 0 to 65535"),
                (("--stream", "1", "--audio-stream", "0"), "excludes"), (("--program", "1", "--audio-stream", "0"), "excludes"),
                (("more.wav",), "more.wav")):
            self.fails(("convert", "in.wav", "-o", "o.wav", *options), 2, pattern)
        self.fails(("convert", "in.wav"), 2, "--output is required")
        self.fails(("convert",), 2, "INPUT is required")

    def test_failures(self):
        for source, output, options, pattern in (
                ("none.wav", "o.wav", (), "none.wav: No such file"), ("", "o.wav", (), "'': "), ("mute.mp4", "o.wav", (), "mute.mp4: has no sound"),
                ("empty.wav", "o.wav", (), "empty.wav: "), ("cut.flac", "o.wav", (), "cut.flac: "),
                ("in.wav", "o.xyz", (), "o.xyz: .*no known container"), ("in.wav", "whole.flac", (), "exists already"),
                ("in.wav", "in.wav", ("--overwrite",), "is the same file"),
                ("in.wav", "link.wav", ("--overwrite",), "is the same file"),
                ("in.wav", "", (), "a file needs a name"),
                ("in.wav", "o.wav", ("--audio-stream", "1"), "in.wav: has no audio stream 1"),
                ("in.wav", "o.wav", ("--stream", "77"), "in.wav: "),
                ("in.wav", "o.flac", ("-r", "768000", "-c", "1"), "holds no sound of 768000 Hz, 1 channel: "),
                ("in.wav", "o.mp3", ("--channels", "6"), "o.mp3: MP3 .* holds no sound of 6 channels"),
                ("in.wav", "o.flac", ("--rate", "65541"), "o.flac: FLAC .* holds no sound of 65541 Hz"),
                ("in.wav", "o.ogg", ("--rate", "200001"), "o.ogg: Ogg .* holds no sound of 200001 Hz"),
                ("slow.wav", "o.wav", ("--rate", "48000"), "slow.wav: its rate of 8 Hz is too far from 48000")):
            self.fails(("convert", source, "-o", output, *options), 1, "^zel: .*" + pattern)

    def test_full_disk_leaves_nothing(self):
        code, out, err = zel("convert", "in.wav", "-o", "o.wav", "-r", "192000", preexec_fn=lambda: resource.setrlimit(
            resource.RLIMIT_FSIZE, (20_000, 20_000)))
        self.assertEqual((code, out, err), (1, "", "zel: o.wav: File too large\n"))
        self.assertFalse([name for name in os.listdir() if name.startswith((".zel", "o."))])

    def test_names_are_names(self):
        os.link("in.wav", "-in.wav")
        self.assertEqual(self.done("convert", "-q", "-o", "out.wav", "--", "-in.wav"), "")


if __name__ == "__main__":
    unittest.main()
