"""What zel dub copies: when pictures are shown, judged by decoding them, and what a container holds."""

import unittest

from support import Case, decode, ffmpeg, lavfi, probe, read, sine, streams, write, write_wav

# Six bars of each picture are its number in binary; the ripples make pictures larger than placeholders.
NUMBERED = ("color=black:s=96x32:r=25:d=2,geq=cb=128:cr=128:"
            "lum='if(mod(floor(N/pow(2,floor(X/16))),2),200,40)+12*sin(X/2+N)*sin(Y*0.7)'")


def number(pixels, step=1):
    """What the bars in a row of pixels of `step` bytes say."""
    return sum((pixels[(16 * bit + 8) * step] > 120) << bit for bit in range(6))


def numbers(path):
    raw = ffmpeg("-i", path, "-map", "0:v", "-fps_mode", "passthrough", "-pix_fmt", "gray", "-f", "rawvideo", "-")
    return [number(raw[at:]) for at in range(0, len(raw), 96 * 32)]


def shown(path):
    """(number, time in ms) of each picture."""
    frames = probe(path, "-select_streams", "v", "-show_entries", "frame=pts_time")["frames"]
    return list(zip(numbers(path), (round(1000 * float(frame["pts_time"])) for frame in frames), strict=True))


class Copy(Case):
    @classmethod
    def make(cls):
        write_wav("track.wav", sine(440, 44100, 0.5))

    def video(self, name, codec, *options, sound="mp2"):
        ffmpeg(*lavfi(NUMBERED), *lavfi("sine=440:r=44100:d=2"), "-c:v", *codec.split(), "-c:a", sound, *options, name)
        return name

    def test_pictures_are_shown_when_they_were(self):
        pictures = "-x264-params b-adapt=0:bframes="
        for name, codec, first in (
                ("in.avi", "mpeg4 -q:v 3", 0), ("in.avi", "mpeg4 -bf 2 -q:v 3", 0), ("in.avi", "mpeg2video -bf 2", 0),
                ("in.avi", "libx264 -bf 0", 0), ("in.avi", f"libx264 -g 10 {pictures}2", 0),
                ("in.avi", f"libx264 {pictures}3:open-gop=1:keyint=12:min-keyint=3", 0),
                ("in.avi", f"libx264 {pictures}5:ref=5:keyint=250", 0), ("in.wmv", f"libx264 -f asf {pictures}2", 0),
                ("in.mpg", "libx264 -bf 0", 11), ("in.mpg", f"libx264 {pictures}3", 11), ("in.ts", "mpeg2video -bf 2", 11),
                ("in.mp4", "mpeg4 -bf 2", 0)):
            self.video(name, codec, sound="aac" if name == "in.mp4" else "mp2")
            for out in ("out.mkv", "out.mp4"):
                self.done("dub", name, "track.wav", "-o", out, "--overwrite")
                self.assertEqual([(picture, time - 40 * picture) for picture, time in shown(out)],
                                 [(picture, first) for picture in range(50)], (name, codec, out))

    def test_packed_pictures(self):
        # Two pictures in one packet, and a placeholder in the next one. The encoder leaves holes, too.
        self.video("in.avi", "libxvid -bf 2 -q:v 3")
        self.done("dub", "in.avi", "track.wav", "-o", "out.mkv")
        pictures = shown("out.mkv")
        self.assertEqual([picture for picture, _ in pictures], numbers("in.avi"))
        for picture, time in pictures[:9]:
            told = self.done("frame", "in.avi", "-o", "frame.ppm", "--overwrite", "--at", f"{time}ms")
            self.assertIn(f"at 0:00:00.{time:03}", told)
            self.assertEqual(number(read("frame.ppm")[-96 * 32 * 3:], 3), picture)

    def test_sound_that_starts_later(self):
        # The encoder's priming samples must not be heard in front of it.
        ffmpeg(*lavfi(NUMBERED), "-itsoffset", "1", *lavfi("sine=440:r=44100:d=1"), "-c:a", "flac", "late.mkv")
        for out in ("late.mp4", "late.mov"):
            self.done("dub", "late.mkv", "track.wav", "-o", out)
            start = probe(out, "-select_streams", "a", "-show_entries", "stream=start_time")["streams"][0]["start_time"]
            self.assertAlmostEqual(float(start), 1, delta=0.002)
            self.assertIn(len(decode(out)) - 44100, range(1024))  # The last block of 1,024 is filled up.
        # A stream without packets gets no track.
        ffmpeg("-i", "late.mkv", "-map", "0:v", "-map", "0:a", "-map", "0:a", "-c", "copy", "-bsf:a:0", "noise=drop=1",
               "empty.mkv")
        self.done("dub", "empty.mkv", "track.wav", "-o", "empty.mp4", "--audio-stream", "1")
        self.assertEqual(len(streams("empty.mp4")), 2)
        self.assertEqual(decode("empty.mp4"), decode("late.mp4"))

    def test_what_a_container_holds(self):
        chapter = "[CHAPTER]\nTIMEBASE=1/1\nSTART=0\nEND=1\ntitle=One\n"
        write("chapters.txt", f";FFMETADATA1\n{chapter}".encode())
        self.video("in.mp4", "libx264 -g 25", sound="aac")
        ffmpeg("-i", "in.mp4", "-i", "chapters.txt", "-map", "0", "-map_chapters", "1", "-c", "copy", "chapters.mp4")
        ffmpeg("-ss", "1.5", "-i", "in.mp4", "-c", "copy", "cut.mp4")
        ffmpeg("-i", "in.mp4", "-c", "copy", "-metadata:s:v", "rotate=90", "turned.mp4")
        self.video("in.3gp", "h263", "-s", "176x144", sound="aac")
        self.video("in.flv", "flv", sound="mp3")
        self.video("in.webm", "libvpx-vp9 -cpu-used 8 -deadline realtime", sound="libopus")
        ffmpeg("-i", "in.mp4", "-c", "copy", "-timecode", "01:00:00:00", "code.mov")
        write("words.srt", b"1\n00:00:00,000 --> 00:00:01,000\nWords\n")
        for name, language in (("deu.mkv", "deu"), ("hsb.mkv", "hsb")):
            ffmpeg("-i", "in.mp4", "-c", "copy", "-metadata:s:a", f"language={language}", name)
        ffmpeg("-i", "hsb.mkv", "-i", "words.srt", "-map", "0:v", "-map", "1", "-map", "0:a", "-c", "copy", "words.mkv")
        for source, out, said in (("code.mov", "again.mov", ""), ("code.mov", "code.mkv", "; left out: #2 data .tmcd."),
                                  ("deu.mkv", "deu.mov", ""), ("hsb.mkv", "hsb.mov", "; lost: language hsb of #1"),
                                  ("words.mkv", "words.mov", "; left out: #1 subtitle .subrip.; lost: language hsb of #2"),
                                  ("hsb.mkv", "hsb.mp4", ""), ("chapters.mp4", "once.mp4", ""), ("once.mp4", "twice.mp4", ""),
                                  ("cut.mp4", "cut.mkv", "; lost: edit list of #0 video .h264., so that (\\d+) more .* shown"),
                                  ("turned.mp4", "turned.mkv", "; lost: rotation of #0 video .h264."),
                                  ("turned.mp4", "turned.mov", ""), ("in.3gp", "3gp.mov", ""), ("in.3gp", "3gp.mkv", ""),
                                  ("in.flv", "flv.mkv", ""), ("in.flv", "flv.mov", "")):
            told = self.done("dub", source, "track.wav", "-o", out, "-n")
            self.assertRegex(told, f"(?m)^output:  [^;]*; copied: [^;]*{said}$")
            self.assertRegex(self.done("dub", source, "track.wav", "-o", out), f"real time{said}\n$")
            if out == "cut.mkv":
                more = len(shown(out)) - len(shown(source))
                self.assertIn(f" {more} more", told)
        said = probe("deu.mov", "-show_entries", "stream_tags=language")["streams"][1]["tags"]["language"]
        self.assertEqual((said, streams("again.mov")[2][0]), ("ger", "data"))
        self.assertEqual(streams("twice.mp4"), [("video", "h264"), ("audio", "aac"), ("data", "bin_data")])
        self.all_fail(1, "dub in.webm track.wav -o vp9.mov | QuickTime holds no video of codec vp9")


if __name__ == "__main__":
    unittest.main()
