"""zel convert, as a whole process on real files."""

import array

from support import (RATE, Case, decode, ffmpeg, lavfi, noise, probe, quality, read, read_wav, sine, streams, write,
                     write_wav)

FRAMES = 30_011


def half(a, b):
    return int(a / 2) + int(b / 2)


class Converts(Case):
    @classmethod
    def make(cls):
        cls.noises = {channels: noise(channels, FRAMES, channels) for channels in range(1, 9)}
        for channels, values in cls.noises.items():
            write_wav(f"in{channels}.wav", values, RATE, channels)
        cls.tone = sine(440, RATE, 2, 2)
        write_wav("tone.wav", cls.tone)
        ffmpeg(*lavfi("testsrc2=s=64x48:r=25:d=2"), "-i", "tone.wav", "-i", "in2.wav", "-map", "0", "-map", "1",
               "-map", "2", "-c:v", "mpeg4", "-c:a", "flac", "-metadata", "title=A film", "film.mkv")

    def test_an_equal_format_keeps_every_byte(self):
        for channels, values in self.noises.items():
            self.assertTrue(self.sound("convert", f"in{channels}.wav") == values, channels)
        self.assertTrue(self.sound("convert", "in2.wav", "-r", "44100", "-c", "2", out="out.flac") == self.noises[2])

    def test_channels(self):
        for channels, wanted, rule in ((1, 2, lambda a: (a, a)), (2, 1, lambda a, b: (half(a, b),)),
                                       (2, 6, lambda a, b: (a, b, 0, 0, 0, 0)),
                                       (3, 2, lambda a, b, c: (a, half(b, c)))):
            values = self.noises[channels]
            frames = (rule(*values[i:i + channels]) for i in range(0, len(values), channels))
            self.assertTrue(self.sound("convert", f"in{channels}.wav", "--channels", str(wanted)) ==
                            array.array("h", (value for frame in frames for value in frame)), (channels, wanted))
        for channels, wanted in ((2, 4), (1, 8), (8, 3)):  # The decoder's mixer does these.
            self.assertEqual(len(self.sound("convert", f"in{channels}.wav", "-c", str(wanted))), wanted * FRAMES)

    def test_rates(self):
        # A block's samples are rounded to the nearest, its frames down; all but the last come out even.
        for channels, rate in ((1, 48000), (6, 48000), (2, 22050), (2, 192000), (1, 1000), (2, 48001)):
            samples = int(FRAMES * channels * rate / RATE + 0.5)
            self.assertEqual(len(self.sound("convert", f"in{channels}.wav", "--rate", str(rate))),
                             samples // channels * channels, (channels, rate))
            self.assertEqual(probe("out.wav", "-show_streams")["streams"][0]["sample_rate"], str(rate))
        # What comes out is linear interpolation.
        source = array.array("h", (max(value, -32767) for value in self.noises[1]))
        write_wav("source.wav", source, RATE, 1)
        out = self.sound("convert", "source.wav", "--rate", "88200")
        self.assertTrue(out[1::2] == source)
        self.assertTrue(all(value == a + int((b - a) * 0.5) for value, a, b in zip(out[0::2], [0, *source], source)))

    def test_quality(self):
        # docs/audio-quality.md: gain and signal-to-noise ratio.
        for rate, wanted, frequency, gain, ratio in (
                (22050, 44100, 6000, -1.64, 13.7), (44100, 48000, 100, 0, 88.3), (48000, 44100, 1000, -0.01, 63.9)):
            write_wav("sine.wav", sine(frequency, rate, 1), rate, 1)
            got = quality(self.sound("convert", "sine.wav", "--rate", str(wanted)), frequency, wanted)
            self.assertTrue(abs(got[0] - gain) < 0.02 and abs(got[1] - ratio) < 0.3, (rate, wanted, frequency, got))

    def test_wav_has_room_for_sizes_beyond_4_gib(self):
        # Whatever the input says of its length: here half a second too little, or nothing.
        ffmpeg("-i", "in2.wav", "in.flac")
        data = bytearray(read("in.flac"))
        for total in (FRAMES, 8_000, 0):
            data[22:26] = total.to_bytes(4, "big")  # Of 36 bits; 4 more are in the byte before.
            write("other.flac", data)
            self.done("convert", "other.flac", "-o", "out.wav", "--overwrite")
            head, size = read("out.wav")[:80], 72 + 4 * FRAMES
            self.assertEqual(head[:20], b"RIFF" + size.to_bytes(4, "little") + b"WAVEJUNK" + (28).to_bytes(4, "little"))
            self.assertEqual(head[48:52] + head[72:], b"fmt data" + (4 * FRAMES).to_bytes(4, "little"))
            self.assertTrue(read_wav("out.wav") == self.noises[2])

    def test_containers(self):
        for name, codec, asked, stored in (
                ("o.flac", "flac", 0, 0), ("o.mkv", "flac", 0, 0), ("o.m4a", "aac", 0, 0), ("o.mp4", "aac", 0, 0),
                ("o.webm", "vorbis", 0, 0), ("o.opus", "opus", 0, 48000), ("o.mp3", "mp3", 0, 0),
                # Rates that encoders lack: the next one above, or the highest.
                ("o.mp3", "mp3", 192000, 48000), ("o.mp3", "mp3", 23000, 24000), ("o.m4a", "aac", 96001, 96000),
                ("o.m4a", "aac", 90000, 96000), ("o.flac", "flac", 655340, 0), ("o.oga", "vorbis", 200000, 0)):
            rate = asked or RATE
            text = self.done("convert", "film.mkv", "-o", name, "--overwrite", *(("-r", str(asked)) if asked else ()))
            self.assertRegex(text, rf"^{name}: sound of film.mkv, {rate} Hz, 2 channels" +
                             (rf" \(stored at {stored} Hz\)" if stored else "") + r": 2\.000 s, \d+x real time\n$")
            self.assertEqual(streams(name), [("audio", codec)])
            # The music's level and time; AAC's last frame is not cut by FFmpeg's decoder.
            sound, rate = decode(name), stored or rate
            self.assertIn(len(sound) - 2 * 2 * rate, range(-8, 2 * 1024))
            self.assertGreater(quality(sound[:2 * rate:2], 440, rate)[1], 30, name)
        self.assertEqual(probe("o.mkv", "-show_format")["format"]["tags"]["title"], "A film")

    def test_selection_holes_and_late_starts(self):
        ffmpeg("-i", "tone.wav", "-af", "aselect='lt(t,0.5)+gt(t,1)'", "-c:a", "flac", "hole.mkv")
        ffmpeg("-itsoffset", "0.7", "-i", "tone.wav", "-i", "film.mkv", "-map", "0", "-map", "1:v", "-c:v", "copy",
               "-c:a", "flac", "late.mkv")
        for options in (("--audio-stream", "1"), ("--stream", "0x10002"), ("--stream", "65538", "--program", "1")):
            self.assertTrue(self.sound("convert", "film.mkv", *options) == self.noises[2], options)
        out = self.sound("convert", "hole.mkv")
        self.assertAlmostEqual(len(out) / 2, 2 * RATE, delta=4096)
        self.assertFalse(any(out[int(0.6 * RATE) * 2:int(0.9 * RATE) * 2]))
        self.assertTrue(out[:RATE // 2 * 2] == self.tone[:RATE // 2 * 2] and out[-RATE:] == self.tone[-RATE:])
        self.assertTrue(self.sound("convert", "late.mkv") == self.tone)
