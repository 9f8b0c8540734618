"""What comes out is what went in, or the command says otherwise: speakers, bits, and the length of files that lie."""

import array
import os
import resource
import struct
import subprocess
import time
import unittest
import zlib

from support import ZEL, Case, ffmpeg, lavfi, probe, read, read_wav, write, zel


def patched(path, mark, skip, change, size):
    """The file's bytes, with `size` of them, `skip` behind the mark, changed."""
    data = read(path)
    at = data.index(mark) + len(mark) + skip
    return data[:at] + change(data[at:at + size]) + data[at + size:]


def layout(path):
    return probe(path, "-show_entries", "stream=channel_layout")["streams"][0].get("channel_layout")


class TestSound(Case):
    @classmethod
    def make(cls):
        for name in ("5.1(side)", "5.1", "7.1(wide)", "6.1", "2.1"):
            ffmpeg(*lavfi("sine=d=0.2:r=48000"), "-af", f"pan={name}|c0=c0|c1=0.5*c0", f"{name}.wav")
        ffmpeg("-i", "5.1(side).wav", "side.ac3")

    def test_speakers_are_kept_or_named_anew(self):
        for source, out, want, note in (
                ("side.ac3", "o.wav", "5.1(side)", ""), ("side.ac3", "o.flac", "5.1(side)", ""),
                ("side.ac3", "o.mkv", "5.1(side)", ""), ("side.ac3", "o.mp4", "5.1", "stored as 5.1"),
                ("side.ac3", "o.ogg", "5.1", "stored as 5.1"), ("side.ac3", "o.opus", "5.1", "stored as 5.1"),
                ("7.1(wide).wav", "o.mkv", "7.1(wide)", ""), ("6.1.wav", "o.mp4", None, "6.1 not named")):
            said = self.done("convert", source, "-o", out, "--overwrite")
            self.assertIn(layout(out), (want, "unknown") if want is None else (want,), (source, out))
            self.assertEqual("speakers" in said, note != "", said)
            self.assertIn(note, said)
            self.assertIn(note, self.done("dub", source, source, "-o", "n." + out.split(".")[1], "-n"))
        for args in (("dub", "5.1.wav", "side.ac3"), ("mix", "5.1.wav", "side.ac3")):
            self.assertIn("speakers 5.1(side) taken as 5.1", self.done(*args, "-o", "o.wav", "--overwrite"))
        self.all_fail(1, """
            convert 2.1.wav -o @ : p.ogg p.opus | holds no sound of the speakers 2.1
            convert side.ac3 -o p.mp3 | holds no sound of 6 channels""")

    def test_wide_samples_are_rounded(self):
        steps = [-32768, -32767.5, -1.5, -1.25, -0.75, -0.25, 0, 0.25, 0.75, 1.25, 32766.25, 32767]
        nearest = [-32768, -32768, -2, -1, -1, 0, 0, 0, 1, 1, 32766, 32767]
        past = [1e4, -1e4, 1e9, -1e9, float("inf"), float("nan")]  # Times full scale.
        for kind, code, values, want in (
                ("s24", None, steps, nearest), ("s32", "i", [v * 65536 for v in steps], nearest),
                ("f32", "f", [v / 32768 for v in steps] + past, nearest + [32767, -32768] * 2 + [32767, 0]),
                ("f64", "d", [v / 32768 for v in steps] + past, nearest + [32767, -32768] * 2 + [32767, 0])):
            raw = (b"".join(struct.pack("<i", round(v * 256))[:3] for v in values) if code is None
                   else array.array(code, map(int, values) if code == "i" else values).tobytes())
            write("raw", raw)
            ffmpeg("-f", f"{kind}le", "-ar", "48000", "-ac", "1", "-i", "raw", "-c:a", "copy", "in.wav")
            said = self.done("convert", "in.wav", "-o", "out.wav", "--overwrite")
            got = list(read_wav("out.wav"))
            # Halves go to the even value or up.
            self.assertTrue(all(g == w or abs(v) % 1 == 0.5 and abs(g - v) == 0.5
                                for g, w, v in zip(got, want, steps + [0] * 6)), (kind, got))
            self.assertEqual(len(got), len(want))
            self.assertIn(f"{kind[1:]}-bit", said)


class TestLyingFiles(Case):
    @classmethod
    def make(cls):
        ffmpeg(*lavfi("sine=d=2:r=8000"), "-c:a", "aac", "-ac", "1", "whole.m4a")
        ffmpeg(*lavfi("sine=d=2:r=8000"), "-c:a", "flac", "-bsf:a", "setts=ts=if(lt(N\\,2)\\,N*500000\\,1000000)",
               "holes.mkv")
        write("half.m4a", patched("whole.m4a", b"stsz", 8, lambda old: struct.pack(">I", int.from_bytes(old, "big") // 2), 4))
        write("short.mkv", patched("holes.mkv", b"\x44\x89\x88", 0, lambda old: struct.pack(">d", 2000), 8))
        write("huge.png", b"\x89PNG\r\n\x1a\n" + b"".join(
            struct.pack(">I", len(d)) + k + d + struct.pack(">I", zlib.crc32(k + d))
            for k, d in ((b"IHDR", struct.pack(">IIBBBBB", 16000, 16000, 8, 2, 0, 0, 0)), (b"IDAT", b""))))

    def test_lies_are_failures(self):
        self.done("convert", "whole.m4a", "-o", "o.wav")
        self.assertIn("the track has holes of 0:00:0", self.done("dub", "whole.m4a", "holes.mkv", "-o", "h.wav"))
        self.all_fail(1, """
            convert half.m4a -o @ : p.wav p.mp4 | the file (ends after|is cut off)
            dub whole.m4a half.m4a -o p.wav | half.m4a: the file (ends after|is cut off)
            convert short.mkv -o p.wav | the holes in its sound are longer than the file says it is
            frame huge.png -o p.png | pictures of more than 67108864 pixels are not decoded""")

    def test_what_is_cut_off(self):
        """Every kind of file, whole and cut: in the middle, and shortly before the end of what must be there."""
        film, tone = lavfi("testsrc=s=64x48:r=25:d=2"), lavfi("sine=d=2:r=44100")
        late = ("-itsoffset", "1", *tone)
        for name, *options in (
                ("a.flv", *film, *tone, "-c:v", "flv", "-c:a", "mp3"), ("b.flv", *film, *late, "-c:v", "libx264"),
                ("a.wmv", *film, *late), ("a.wma", *tone), ("a.au", *tone), ("a.caf", *tone), ("a.ac3", *tone),
                ("a.aac", *tone), ("a.ts", *film, *tone), ("a.m2ts", *film, *late), ("a.mpg", *film, *tone),
                ("a.avi", *film, *late, "-c:a", "mp3"), ("a.mkv", *film, *tone), ("a.mp4", *film, *late)):
            ffmpeg(*options, name)
            whole = read(name)
            self.done("convert", name, "-o", "o.wav", "--overwrite")
            self.done("dub", name, "whole.m4a", "-o", "o.mkv", "--overwrite")
            for size in (len(whole) // 2 - 5, len(whole) - (600 if "w" in name else 41)):
                write(name, whole[:size])
                for args in (("convert", name, "-o", "p.wav"), ("dub", name, "whole.m4a", "-o", "p.mkv"),
                             ("dub", name, "whole.m4a", "-o", "p.mkv", "-n")):
                    self.fails(args, 1, f"^zel: {name}: .*(cut off|file ends)")
        # What is written into a pipe states no length, or the largest one.
        for kind, *options in (("flv", *tone), ("avi", *film, *tone), ("asf", *film, *tone), ("matroska", *film, *tone),
                               ("au", *tone)):
            write("piped", ffmpeg(*options, "-f", kind, "-"))
            self.done("dub", "piped", "whole.m4a", "-o", "o.mkv", "--overwrite")
        # A picture stream that is shorter than its index says.
        ffmpeg(*film, *tone, "-c:v", "mpeg4", "-c:a", "aac", "-movflags", "faststart", "two.mp4")
        write("half.mp4", patched("two.mp4", b"stsz", 8, lambda old: struct.pack(">I", int.from_bytes(old, "big") // 2), 4))
        ffmpeg(*film, *tone, "-c:v", "mpeg4", "two.avi")
        write("lies.avi", patched("two.avi", b"vids", 28, lambda old: b"\xc8\0\0\0", 4))
        # A second part has no index of this kind, so nobody knows which of its pictures are there.
        write("parts.avi", read("lies.avi") + b"RIFF\x0e\0\0\0AVIXJUNK\2\0\0\0\0\0")
        # A box in a box, and so on.
        nested = b"".join(struct.pack(">I4s", size, b"moov") for size in range(300_000, 0, -8))
        write("nested.mp4", read("two.mp4") + nested)
        for name in ("parts.avi", "nested.mp4"):
            self.done("dub", name, "whole.m4a", "-o", "o.mkv", "--overwrite")
        self.all_fail(1, """
            dub half.mp4 whole.m4a -o p.mkv | half.mp4: the file is cut off
            dub lies.avi whole.m4a -o p.mkv | lies.avi: stream #0 video .mpeg4.: the file ends after 2.0""")

    def test_a_file_that_shrinks_on_the_way(self):
        ffmpeg(*lavfi("sine=d=600:r=48000"), "-c:a", "flac", "long.mkv")
        running = subprocess.Popen([ZEL, "convert", "long.mkv", "-o", "p.wav"], stderr=subprocess.PIPE)
        while running.poll() is None and not any(name.startswith(".zel-") for name in os.listdir()):
            time.sleep(0.001)
        os.truncate("long.mkv", os.path.getsize("long.mkv") // 2)
        self.assertRegex(running.communicate()[1].decode(), "^zel: long.mkv: the file has changed while it was read")
        self.assertEqual(running.returncode, 1)

    def test_pictures_take_bounded_memory(self):
        code, _, err = zel("frame", "huge.png", "-o", "p.png", prepare=lambda: resource.setrlimit(
            resource.RLIMIT_AS, (600 << 20, 600 << 20)) if not os.environ.get("ZEL_SANITIZE") else None)
        self.assertEqual((code, "memory" in err), (1, False), err)


if __name__ == "__main__":
    unittest.main()
