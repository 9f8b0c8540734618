"""zel frame: its pictures against those of FFmpeg's command, and against simple models."""

import math
import os
import struct
import unittest
import zlib

from support import Case, ffmpeg, read, write

WIDTH, HEIGHT = 97, 53


def psnr(a, b):
    assert len(a) == len(b) > 0, (len(a), len(b))
    error = sum((x - y) ** 2 for x, y in zip(a, b)) / len(a)
    return 10 * math.log10(255 ** 2 / error) if error else math.inf


def raw(path, *options, form="rgb24"):
    """A picture as FFmpeg's command sees it."""
    return ffmpeg("-i", path, *options, "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", form, "-")


def converted(planes, width, height):
    """The picture that a planar 4:2:0 picture is to become: each sample of chroma is that of 2 x 2 pixels."""
    half = (width + 1) // 2
    luma, chroma = width * height, half * ((height + 1) // 2)
    pixels = bytearray()
    for row in range(height):
        for column in range(width):
            place = luma + row // 2 * half + column // 2
            y, u, v = 9536 * planes[row * width + column], planes[place], planes[place + chroma]
            pixels += bytes(min(max(value >> 13, 0), 255) for value in (
                y + 13074 * v - 1826095, y - 3203 * u - 6660 * v + 1109918, y + 16532 * u - 2268594))
    return pixels


def set_matrix(path, *entries):
    """Writes the 2 x 2 matrix by which a player is to turn the pictures of an MP4 file."""
    data = bytearray(read(path))
    at = data.index(b"tkhd") + 44
    for offset, value in zip((0, 4, 12, 16), entries):
        struct.pack_into(">i", data, at + offset, round(65536 * value))
    write(path, data)


def rows(pixels, width):
    return [pixels[i:i + 3 * width] for i in range(0, len(pixels), 3 * width)]


def write_png(path, depth, lines):
    """`lines`: one tuple of red, green, blue, alpha, red ... per row."""
    def chunk(name, data):
        return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))

    data = b"".join(b"\0" + struct.pack(f">{len(line)}{'H' if depth == 16 else 'B'}", *line) for line in lines)
    head = struct.pack(">IIBBBBB", len(lines[0]) // 4, len(lines), depth, 6, 0, 0, 0)
    write(path, b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", zlib.compress(data)) + chunk(b"IEND", b""))


class Pictures(Case):
    @classmethod
    def make(cls):
        cls.smooth("smooth.mkv", WIDTH, HEIGHT)
        cls.smooth("even.mkv", 96, 64)
        # Pictures that show their own number in black and white bars.
        write("numbers.yuv", b"".join(b"".join(bytes([16 + 219 * (i >> bit & 1)]) * 16 for bit in range(8)) * 64 +
                                      b"\x80" * 128 * 32 for i in range(100)))
        ffmpeg(*cls.numbers(25), "-f", "lavfi", "-i", "sine=d=5", "-c:v", "mpeg4", "-bf", "2", "-g", "12", "clip.mp4")

    @staticmethod
    def numbers(rate):
        return "-f", "rawvideo", "-video_size", "128x64", "-framerate", str(rate), "-i", "numbers.yuv"

    @staticmethod
    def smooth(path, width, height, *args, form="yuv420p"):
        # Everything that the filter would choose at random, it is told.
        ffmpeg("-f", "lavfi", "-i", f"gradients=s={width}x{height}:r=5:d=1:seed=3:speed=0.05:nb_colors=3:c0=0x20c0e0:c1=0xe04030:"
               f"c2=0x3050c0:x0={width // 20}:y0={height // 16}:x1={width * 19 // 20}:y1={height * 15 // 16}",
               "-frames:v", "1", "-c:v", "ffv1", "-pix_fmt", form, *args, path)

    def grab(self, *args):
        """A picture that the command makes."""
        self.assertEqual(self.done("frame", *args, "-o", "o.ppm", "--overwrite", "-q"), "")
        head, size, most, pixels = read("o.ppm").split(b"\n", 3)
        self.assertEqual((head, most), (b"P6", b"255"))
        self.assertEqual(len(pixels), 3 * math.prod(map(int, size.split())))
        return pixels

    def shown(self, path, *times):
        """The numbers of the pictures at these times; None: without a time."""
        lines = [rows(self.grab(path, *(() if time is None else ("--at", str(time)))), 128)[32] for time in times]
        return [sum((line[3 * (16 * bit + 8)] > 128) << bit for bit in range(8)) for line in lines]

    def test_shows_the_picture_of_the_time(self):
        # Sound from the start, pictures from 0.5 s on; and a clock that starts at 10 s.
        ffmpeg("-i", "clip.mp4", "-itsoffset", "0.5", "-i", "clip.mp4", "-map", "0:a", "-map", "1:v", "-c:v",
               "copy", "-c:a", "pcm_s16le", "late.mkv")
        ffmpeg("-i", "clip.mp4", "-c:v", "mpeg2video", "-c:a", "mp2", "-output_ts_offset", "10", "clock.ts")
        self.assertEqual(self.shown("clip.mp4", None, 0, -7, 0.0399, "40ms", "0:00:01.23", 3.9999), [0, 0, 0, 0, 1, 30, 99])
        self.assertEqual(self.shown("late.mkv", None, 0.1, 0.545, 1.51), [0, 0, 1, 25])
        self.assertEqual(self.shown("clock.ts", None, 1.03), [0, 25])
        self.assertEqual(self.done("frame", "clip.mp4", "-o", "o.png", "--at", "1.23", "--size", "20x10"),
                         "o.png: picture of clip.mp4 at 0:00:01.200, 20x10\n")
        os.link("clip.mp4", "-%d:a.mp4")
        self.done("frame", "-o", "-.bmp", "--", "-%d:a.mp4")

    def test_counts_where_pictures_have_no_times(self):
        # In files that hold few times or none.
        h264, mpeg2 = ("-c:v", "libx264", "-preset", "veryfast", "-x264-params"), ("-c:v", "mpeg2video", "-b:v", "2M", "-bf", "2")
        open_gop, part2 = (*h264, "open-gop=1:keyint=12:bframes=5:scenecut=0"), ("-c:v", "mpeg4", "-bf", "2")
        hevc = ("-c:v", "libx265", "-x265-params", "log-level=none:keyint=12:bframes=4:open-gop=1")
        for path, rate, wanted, args in (
                ("bare.h264", "30000/1001", (50, 97, 99), open_gop), ("bare.hevc", "25", (19, 99), hevc),
                ("bare.m2v", "25", (50, 99), mpeg2), ("film.vob", "24000/1001", (19, 99), mpeg2),
                # One time for some 40 pictures, and at places for the wrong one.
                ("h264.mpg", "25", (20, 27, 31, 34, 99), (*h264, "tff=1:keyint=30")), ("mpeg2.vob", "25", (22, 29, 33, 99), mpeg2),
                # Near the end of a group whose last pictures need the next one.
                ("open.mkv", "25", (9, 10, 11, 12, 98), open_gop), ("open.avi", "25", (9, 11, 12, 97, 99), open_gop),
                ("part2.mpg", "30000/1001", (50, 99), part2), ("late.mxf", "25", (50, 99), (*mpeg2, "-output_ts_offset", "9")),
                ("part2.avi", "25", (50, 99), part2), ("hevc.ts", "25", (21, 28, 33, 99), hevc),
        ):
            numerator, _, denominator = rate.partition("/")
            step = int(denominator or 1) / int(numerator)
            ffmpeg(*self.numbers(rate), "-pix_fmt", "yuv420p", *args, path)
            with self.subTest(path=path):
                # The time that is told means the same picture again, and what is just before it does not.
                told = self.done("frame", path, "-o", "o.png", "--overwrite", "--at", str(2.5 * step)).split()[5][:-1]
                self.assertEqual(self.shown(path, None, told, float(told[5:]) - 2e-7, 96 * step, *((i + 0.5) * step for i in wanted)),
                                 [0, 2, 1, 96, *wanted])
                self.fails(("frame", path, "-o", "end.png", "--at", f"{100.5 * step:.6f}"), 1, "ends at 0:00:0" +
                           ("4.000$" if rate == "25" else "4.1708" if path == "film.vob" else "3.3366667$"))

    def test_counts_past_gaps_and_cuts(self):
        # Pictures that are left out, where every time is believed.
        ffmpeg(*self.numbers(25), "-vf", "select='not(between(n,40,59))'", "-vsync", "passthrough", "-c:v", "mpeg2video",
               "-bf", "0", "-b:v", "2M", "gap.mpg")
        self.assertEqual(self.shown("gap.mpg", *((i + 0.5) / 25 for i in (39, 80, 99))), [39, 80, 99])
        # A cut file whose first pictures have no times, far from 0.
        ffmpeg(*self.numbers(25), "-c:v", "mpeg2video", "-b:v", "1M", "-bf", "2", "-output_ts_offset", "3600", "whole.mpg")
        for cut in (600, 1500, 3500):
            write("rest.mpg", read("whole.mpg")[cut:])
            told = float(self.done("frame", "rest.mpg", "-o", "o.png", "--overwrite").split()[5][5:-1])
            (first,) = self.shown("rest.mpg", None)
            wanted = [first, first + 5, first + 9, 99]
            self.assertEqual(self.shown("rest.mpg", *(told + (i - first + 0.5) / 25 for i in wanted)), wanted, cut)

    def test_every_format_holds_the_same_picture(self):
        for path, width, height in (("even.mkv", 96, 64), ("smooth.mkv", WIDTH, HEIGHT)):  # Bitmap rows without padding, and with.
            picture = self.grab(path)
            for name in ("o.PNG", "o.bmp"):
                self.done("frame", path, "-q", "-o", name, "--overwrite")
                self.assertTrue(raw(name) == picture, name)
            self.assertTrue(read("o.PNG").endswith(b"\0\0\0\0IEND\xaeB`\x82"))
            size = 54 + height * ((3 * width + 3) // 4 * 4)
            self.assertEqual(len(read("o.bmp")), size)
            self.assertEqual(struct.unpack("<2sIHHIIiiHHII", read("o.bmp")[:38]),
                             (b"BM", size, 0, 0, 54, 40, width, height, 1, 24, 0, size - 54))

    def test_colours_of_all_kinds_of_pictures(self):
        tagged = "scale=out_color_matrix={0}:out_range={1},format={2}"
        for i, (form, args) in enumerate((
                ("yuv422p10le", ()), ("gray", ()), ("bgr0", ()), ("yuvj422p", ("-c:v", "mjpeg", "-q:v", "1")),
                ("yuv420p", ("-vf", tagged.format("bt709", "tv", "yuv420p"), "-colorspace", "bt709")),
                ("yuv444p10le", ("-vf", tagged.format("bt2020", "pc", "yuv444p10le"), "-colorspace", "bt2020nc",
                                 "-color_range", "pc")))):
            self.smooth(f"{i}.mkv", 96, 64, *args, form=form)
            self.assertGreater(psnr(self.grab(f"{i}.mkv"), raw(f"{i}.mkv")), 38, (form, args))

    def test_odd_sizes_to_the_last_pixel(self):
        for width, height in ((WIDTH, HEIGHT), (WIDTH + 1, HEIGHT), (WIDTH, HEIGHT + 1), (37, 1), (1, 37), (3, 3), (1, 1), (2, 1)):
            ffmpeg("-f", "lavfi", "-i", f"testsrc2=s={width + 40}x{height + 20}:d=0.1", "-vf",
                   f"format=yuv420p,crop={width}:{height}:20:10:exact=1", "-frames:v", "1", "-c:v", "ffv1", "odd.mkv")
            wanted = converted(raw("odd.mkv", form="yuv420p"), width, height)
            self.assertTrue(self.grab("odd.mkv") == wanted, (width, height))
            if width == 3:  # The same samples in another order.
                ffmpeg("-i", "odd.mkv", "-frames:v", "1", "-c:v", "rawvideo", "-pix_fmt", "nv12", "odd.nut")
                self.assertTrue(self.grab("odd.nut") == wanted)

    def test_sizes(self):
        plain = self.grab("even.mkv")
        self.assertEqual(self.grab("even.mkv", "--size", "96x64"), plain)
        for width, height in ((192, 128), (48, 32), (165, 39), (3, 100), (2, 2)):
            picture = self.grab("even.mkv", "--size", f"{width}x{height}")
            self.assertEqual(len(picture), 3 * width * height)
            self.assertLess(max(abs(a - b) for a, b in zip(picture[-3:], plain[-3:])), 9)
            if width > 3:  # The corners of one stay the corners of the other, which FFmpeg does not do.
                self.assertGreater(psnr(picture, raw("even.mkv", "-vf", f"scale={width}:{height}:flags=bilinear")), 33)
        # The nearest neighbour takes whole pixels.
        ffmpeg("-f", "lavfi", "-i", f"testsrc=s={WIDTH}x{HEIGHT}", "-vf", "hue=s=0", "-frames:v", "1", "-c:v", "ffv1", "-pix_fmt",
               "yuv420p", "grey.mkv")
        lines = rows(self.grab("grey.mkv"), WIDTH)
        for width, height in ((40, 31), (250, 111), (2, 2)):
            step_x, step_y = ((WIDTH - 1) << 12) // (width - 1), ((HEIGHT - 1) << 12) // (height - 1)
            wanted = b"".join(lines[y * step_y >> 12][3 * (x * step_x >> 12):][:3]
                              for y in range(height) for x in range(width))
            self.assertTrue(self.grab("grey.mkv", "--size", f"{width}x{height}", "--near") == wanted)

    def test_turned_videos_stand_upright(self):
        ffmpeg("-f", "lavfi", "-i", "testsrc2=s=98x54", "-frames:v", "1", "-c:v", "mpeg4", "-q:v", "2", "turned.mp4")
        upright = rows(self.grab("turned.mp4"), 98)
        self.assertEqual(rows(self.grab("turned.mp4", "--flip"), 98), upright[::-1])
        pixels = [[row[i:i + 3] for i in range(0, len(row), 3)] for row in upright]
        # By right angles, as FFmpeg's command does; mirrors; rounded entries; other angles, and what is no turn.
        for matrix, wanted in (
                ((0, 1, -1, 0), None), ((-1, 0, 0, -1), [row[::-1] for row in pixels[::-1]]),
                ((-1, 0, 0, 1), [row[::-1] for row in pixels]), ((0, 1, 1, 0), list(zip(*pixels))),
                ((0.01, -0.99, 1.02, -0.02), list(zip(*pixels))[::-1]),
                ((1 / 16, 1, -1, 1 / 16), pixels), ((1, 0, 0, 0), pixels), ((0, 0, 0, 0), pixels),
                *(((math.cos(angle), math.sin(angle), -math.sin(angle), math.cos(angle)), pixels)
                  for angle in map(math.radians, (4, 75, 120))),
        ):
            set_matrix("turned.mp4", *matrix)
            picture = self.grab("turned.mp4")
            if wanted is None:
                self.assertGreater(psnr(picture, raw("turned.mp4")), 27)
                self.assertIn(", 54x98\n", self.done("frame", "turned.mp4", "-o", "o.bmp", "--overwrite"))
                small = self.grab("turned.mp4", "--size", "60x80", "--flip")
                self.assertGreater(psnr(small, raw("turned.mp4", "-vf", "vflip,scale=60:80:flags=bilinear")), 18)
            else:
                self.assertTrue(picture == b"".join(b"".join(row) for row in wanted), matrix)

    def test_lays_pictures_over(self):
        colours = {(x, y): (40 * x % 256, 50 * y % 256, (70 * x + y) % 256, (x * y * 11 + x) % 256)
                   for y in range(5) for x in range(7)}
        for name, depth in (("rgba", 8), ("rgba16", 16)):
            write_png(name + ".png", depth, [[v * (257 if depth == 16 else 1) for x in range(7) for v in colours[x, y]]
                                             for y in range(5)])
        for video, width, height, name, places in (
                ("smooth.mkv", WIDTH, HEIGHT, "rgba", (None, (40, 13), (-3, -2), (-6, -4), (96, 52), (-6, 20), (94, -1), (30, 52),
                                                       (97, 0), (0, -5))),
                ("even.mkv", 96, 64, "rgba", ((95, 63), (-6, -4))), ("smooth.mkv", WIDTH, HEIGHT, "rgba16", ((8, 8),))):
            plain = self.grab(video)
            for place in places:
                left, top = place or (0, 0)
                wanted = bytearray(plain)
                for (x, y), (*colour, alpha) in colours.items():
                    if 0 <= x + left < width and 0 <= y + top < height:
                        at = 3 * ((y + top) * width + x + left)
                        wanted[at:at + 3] = ((p * (255 - alpha) + c * alpha) // 255 for p, c in zip(plain[at:at + 3], colour))
                got = self.grab(video, "--over", name + ".png", *(("--at-xy", f"{left},{top}") if place else ()))
                self.assertTrue(got == wanted, (video, name, place))
        blue, alpha = colours[1, 0][2:]  # The logo is not flipped.
        below = rows(self.grab("smooth.mkv"), WIDTH)[-1][5]
        self.assertEqual(self.grab("smooth.mkv", "--flip", "--over", "rgba.png")[5], (below * (255 - alpha) + blue * alpha) // 255)


if __name__ == "__main__":
    unittest.main()
