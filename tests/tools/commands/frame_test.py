"""zel frame: its pictures against those of FFmpeg's command, and against each other."""

import math
import struct

from support import Case, ffmpeg, lavfi, read, write


def psnr(a, b):
    assert len(a) == len(b) > 0, (len(a), len(b))
    error = sum((x - y) ** 2 for x, y in zip(a, b)) / len(a)
    return 10 * math.log10(255 ** 2 / error) if error else math.inf


def raw(path, *options, form="rgb24"):
    """A picture as FFmpeg's command sees it."""
    return ffmpeg("-i", path, *options, "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", form, "-")


def set_matrix(path, *entries):
    """Writes the 2 x 2 matrix by which a player is to turn the pictures of an MP4 file."""
    data = bytearray(read(path))
    a, b, c, d = (round(65536 * value) for value in entries)
    struct.pack_into(">5i", data, data.index(b"tkhd") + 44, a, b, 0, c, d)
    write(path, data)


def rows(pixels, width):
    return [pixels[i:i + 3 * width] for i in range(0, len(pixels), 3 * width)]


class Pictures(Case):
    NUMBERS = "-f", "rawvideo", "-video_size", "128x64", "-framerate", "25", "-i", "numbers.yuv"

    @classmethod
    def make(cls):
        cls.smooth("smooth.mkv", 97, 53)
        cls.smooth("even.mkv", 96, 64)
        # 100 pictures that show their own number in black and white bars.
        write("numbers.yuv", b"".join(b"".join(bytes([16 + 219 * (i >> bit & 1)]) * 16 for bit in range(8)) * 64 +
                                      b"\x80" * 128 * 32 for i in range(100)))
        ffmpeg(*cls.NUMBERS, *lavfi("sine=d=5"), "-c:v", "mpeg4", "-bf", "2", "-g", "12", "clip.mp4")

    @staticmethod
    def smooth(path, width, height, *args, form="yuv420p"):
        # Everything that the filter would choose at random, it is told.
        ffmpeg(*lavfi(f"gradients=s={width}x{height}:r=5:d=1:seed=3:speed=0.05:nb_colors=3:c0=0x20c0e0:c1=0xe04030:"
                      f"c2=0x3050c0:x0=4:y0=4:x1={width * 19 // 20}:y1={height * 15 // 16}"),
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
        pictures = [self.grab(path, *(() if time is None else ("--at", str(time)))) for time in times]
        return [sum((picture[3 * (16 * bit + 8)] > 128) << bit for bit in range(8)) for picture in pictures]

    def test_shows_the_picture_of_the_time(self):
        # Sound from the start, pictures from 0.5 s on; and a clock that starts at 10 s.
        ffmpeg("-i", "clip.mp4", "-itsoffset", "0.5", "-i", "clip.mp4", "-map", "0:a", "-map", "1:v", "-c:v",
               "copy", "-c:a", "pcm_s16le", "late.mkv")
        ffmpeg("-i", "clip.mp4", "-c:v", "mpeg2video", "-c:a", "mp2", "-output_ts_offset", "10", "clock.ts")
        self.assertEqual(self.shown("clip.mp4", None, -7, 0.0399, "40ms", "0:00:01.23", 3.9999), [0, 0, 0, 1, 30, 99])
        self.assertEqual(self.shown("late.mkv", None, 0.1, 0.545, 1.51), [0, 0, 1, 25])
        self.assertEqual(self.shown("clock.ts", None, 1.03), [0, 25])
        # Pictures that are left out, where every time is believed.
        ffmpeg(*self.NUMBERS, "-vf", "select='not(between(n,40,59))'", "-vsync", "passthrough", "-c:v",
               "mpeg2video", "-b:v", "1M", "gap.mpg")
        self.assertEqual(self.shown("gap.mpg", 39.5 / 25, 80.5 / 25), [39, 80])
        self.assertEqual(self.done("frame", "clip.mp4", "-o", "o.png", "--at", "1.23", "--size", "20x10"),
                         "o.png: picture of clip.mp4 at 0:00:01.200, 20x10\n")

    def test_every_format_holds_the_same_picture(self):
        # Bitmap rows without padding, and with.
        for path, width, height in (("even.mkv", 96, 64), ("smooth.mkv", 97, 53)):
            picture = self.grab(path)
            for name in ("o.PNG", "o.bmp"):
                self.done("frame", path, "-q", "-o", name, "--overwrite")
                self.assertTrue(raw(name) == picture, name)
            self.assertTrue(read("o.PNG").endswith(b"\0\0\0\0IEND\xaeB`\x82"))
            size = len(read("o.bmp"))
            self.assertEqual(struct.unpack("<2sIHHIIiiHHII", read("o.bmp")[:38]), (
                b"BM", 54 + height * ((3 * width + 3) // 4 * 4), 0, 0, 54, 40, width, height, 1, 24, 0, size - 54))

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
        for width, height in ((97, 53), (98, 53), (97, 54), (37, 1), (1, 37), (3, 3), (1, 1), (2, 1)):
            for name, wide, high in (("whole.mkv", width + width % 2, height + height % 2), ("odd.mkv", width, height)):
                ffmpeg(*lavfi("testsrc2=s=140x80:d=0.1"), "-vf", f"format=yuv420p,crop={wide}:{high}:20:10:exact=1",
                       "-frames:v", "1", "-c:v", "ffv1", name)
            wanted = b"".join(row[:3 * width] for row in rows(self.grab("whole.mkv"), width + width % 2)[:height])
            self.assertTrue(self.grab("odd.mkv") == wanted, (width, height))
            # The same samples in another order.
            ffmpeg("-i", "odd.mkv", "-frames:v", "1", "-c:v", "rawvideo", "-pix_fmt", "nv12", "odd.nut")
            self.assertTrue(self.grab("odd.nut") == wanted, (width, height))

    def test_sizes(self):
        plain = self.grab("even.mkv")
        self.assertEqual(self.grab("even.mkv", "--size", "96x64"), plain)
        for width, height in ((192, 128), (48, 32), (165, 39), (3, 100), (2, 2)):
            picture = self.grab("even.mkv", "--size", f"{width}x{height}")
            # The corners of one stay the corners of the other, which FFmpeg does not do.
            self.assertLess(max(abs(a - b) for a, b in zip(picture[-3:], plain[-3:])), 9)
            if width > 3:
                self.assertGreater(psnr(picture, raw("even.mkv", "-vf", f"scale={width}:{height}:flags=bilinear")), 33)
        # The nearest neighbour takes whole pixels.
        ffmpeg(*lavfi("testsrc=s=97x53,hue=s=0"), "-frames:v", "1", "-c:v", "ffv1", "-pix_fmt", "yuv420p", "grey.mkv")
        lines = rows(self.grab("grey.mkv"), 97)
        for width, height in ((40, 31), (250, 111), (2, 2)):
            step_x, step_y = (96 << 12) // (width - 1), (52 << 12) // (height - 1)
            wanted = b"".join(lines[y * step_y >> 12][3 * (x * step_x >> 12):][:3]
                              for y in range(height) for x in range(width))
            self.assertTrue(self.grab("grey.mkv", "--size", f"{width}x{height}", "--near") == wanted)

    def test_turned_videos_stand_upright(self):
        ffmpeg(*lavfi("testsrc2=s=98x54"), "-frames:v", "1", "-c:v", "mpeg4", "-q:v", "2", "turned.mp4")
        upright = rows(self.grab("turned.mp4"), 98)
        self.assertEqual(rows(self.grab("turned.mp4", "--flip"), 98), upright[::-1])
        pixels = [[row[i:i + 3] for i in range(0, len(row), 3)] for row in upright]
        # By right angles, as FFmpeg's command does; mirrors; rounded entries; other angles, and what is not a turn.
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
        for depth, form in ((8, "rgba"), (16, "rgba64be")):
            write("logo", bytes(value for y in range(5) for x in range(7) for value in colours[x, y]
                                for _ in range(depth // 8)))
            ffmpeg("-f", "rawvideo", "-pix_fmt", form, "-video_size", "7x5", "-i", "logo", f"{depth}.png")
        for video, width, height, depth, places in (
                ("smooth.mkv", 97, 53, 8, ((0, 0), (40, 13), (-3, -2), (-6, -4), (96, 52), (-6, 20), (94, -1), (30, 52),
                                           (97, 0), (0, -5))),
                ("even.mkv", 96, 64, 8, ((95, 63), (-6, -4))), ("smooth.mkv", 97, 53, 16, ((8, 8),))):
            plain = self.grab(video)
            for left, top in places:
                wanted = bytearray(plain)
                for (x, y), (*colour, alpha) in colours.items():
                    if 0 <= x + left < width and 0 <= y + top < height:
                        at = 3 * ((y + top) * width + x + left)
                        wanted[at:at + 3] = ((p * (255 - alpha) + c * alpha) // 255
                                             for p, c in zip(plain[at:at + 3], colour))
                place = ("--at-xy", f"{left},{top}") if left or top else ()
                self.assertTrue(self.grab(video, "--over", f"{depth}.png", *place) == wanted, (video, depth, left, top))
        blue, alpha = colours[1, 0][2:]  # The logo is not flipped.
        got, below = self.grab("smooth.mkv", "--flip", "--over", "8.png")[5], rows(self.grab("smooth.mkv"), 97)[-1][5]
        self.assertEqual(got, (below * (255 - alpha) + blue * alpha) // 255)
