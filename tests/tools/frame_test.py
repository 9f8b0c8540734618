"""Tests of `zel frame`: its pictures against those of FFmpeg's command."""

import math
import os
import re
import struct
import unittest
import zlib

from support import Case, ffmpeg, write_wav, noise, zel

WIDTH, HEIGHT = 97, 53
# Pictures that show their own number in black and white bars, of this rate and length.
NUMBERS = "color=s=256x64:r={}:d={},geq=lum='16+219*mod(floor(N/pow(2,floor(X/32))),2)':cb=128:cr=128"


def raw(path, *filters):
    """A picture as FFmpeg's command sees it: 3 bytes per pixel, rows from the top."""
    chain = ("-vf", ",".join(filters)) if filters else ()
    return ffmpeg("-i", path, *chain, "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", "rgb24", "-")


def psnr(a, b):
    assert len(a) == len(b) > 0, (len(a), len(b))
    error = sum((x - y) ** 2 for x, y in zip(a, b)) / len(a)
    return 10 * math.log10(255 ** 2 / error) if error else math.inf


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
    with open(path, "r+b") as file:
        at = file.read().index(b"tkhd") + 44
        for offset, value in zip((0, 4, 12, 16), entries):
            file.seek(at + offset)
            file.write(struct.pack(">i", round(65536 * value)))


def rows(pixels, width):
    return [pixels[i:i + 3 * width] for i in range(0, len(pixels), 3 * width)]


def write_png(path, kind, depth, lines, **chunks):
    """`lines`: one tuple of samples per row."""
    def chunk(name, data):
        return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))

    channels = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4}[kind]
    data = b"".join(b"\0" + struct.pack(f">{len(line)}{'H' if depth == 16 else 'B'}", *line) for line in lines)
    head = struct.pack(">IIBBBBB", len(lines[0]) // channels, len(lines), depth, kind, 0, 0, 0)
    with open(path, "wb") as file:
        file.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head))
        for name, value in chunks.items():
            file.write(chunk(name.encode(), bytes(value)))
        file.write(chunk(b"IDAT", zlib.compress(data)) + chunk(b"IEND", b""))


class Pictures(Case):
    @classmethod
    def make(cls):
        cls.clip("clip.mp4", f"testsrc2=s={WIDTH + 1}x{HEIGHT + 1}:r=25:d=2", "-f", "lavfi", "-i", "sine=d=3", "-c:v",
                 "mpeg2video", "-q:v", "2", "-bf", "2", "-g", "12", "-pix_fmt", "yuv420p")
        cls.clip("smooth.mkv", cls.smooth(), "-c:v", "ffv1", "-pix_fmt", "yuv420p")
        cls.clip("grey.mkv", f"testsrc=s={WIDTH}x{HEIGHT}:r=5:d=1", "-vf", "hue=s=0", "-c:v", "ffv1", "-pix_fmt",
                 "yuv420p")

    @staticmethod
    def smooth(width=WIDTH, height=HEIGHT):
        # Everything that the filter would choose at random, it is told.
        return (f"gradients=s={width}x{height}:r=5:d=1:seed=3:speed=0.05:nb_colors=3:c0=0x20c0e0:c1=0xe04030:c2=0x3050c0:"
                f"x0={width // 20}:y0={height // 16}:x1={width * 19 // 20}:y1={height * 15 // 16}")

    @staticmethod
    def clip(path, source, *args):
        ffmpeg("-f", "lavfi", "-i", source, *args, path)

    def grab(self, *args):
        """A picture that the command makes."""
        self.assertEqual(self.done("frame", *args, "-o", "o.ppm", "--overwrite", "-q"), "")
        with open("o.ppm", "rb") as file:
            head, size, most = (file.readline() for _ in range(3))
            pixels = file.read()
        self.assertEqual((head, most), (b"P6\n", b"255\n"))
        self.assertEqual(len(pixels), 3 * math.prod(map(int, size.split())))
        return pixels

    def number(self, *args):
        """The number of a picture of NUMBERS."""
        line = rows(self.grab(*args), 256)[32]
        return sum((line[3 * (32 * bit + 16)] > 128) << bit for bit in range(8))

    def test_shows_the_picture_of_the_time(self):
        # Sound from the start, pictures from 0.5 s on; and a clock that starts at 10 s.
        ffmpeg("-i", "clip.mp4", "-itsoffset", "0.5", "-i", "clip.mp4", "-map", "0:a", "-map", "1:v", "-c:v",
               "copy", "-c:a", "pcm_s16le", "late.mkv")
        ffmpeg("-i", "clip.mp4", "-c:v", "copy", "-c:a", "mp2", "-output_ts_offset", "10", "clock.ts")
        for path, at, wanted in (
                ("clip.mp4", None, 0), ("clip.mp4", "0", 0), ("clip.mp4", "-7", 0), ("clip.mp4", "0.0399", 0),
                ("clip.mp4", "40ms", 1), ("clip.mp4", "0:00:01.23", 30), ("clip.mp4", "1.9999", 49),
                ("late.mkv", None, 0), ("late.mkv", "0.1", 0), ("late.mkv", "0.545", 1), ("late.mkv", "1.51", 25),
                ("clock.ts", None, 0), ("clock.ts", "1.03", 25),
        ):
            with self.subTest(path=path, at=at):
                picture = self.grab(path, *(("--at", at) if at else ()))
                for i in range(max(wanted - 1, 0), min(wanted + 2, 50)):
                    quality = psnr(picture, raw("clip.mp4", f"select=eq(n\\,{i})"))
                    (self.assertGreater if i == wanted else self.assertLess)(quality, 40, i)

    def test_counts_where_pictures_have_no_times(self):
        # In files that hold few times or none.
        h264 = ("-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p", "-x264-params")
        open_gop = (*h264, "open-gop=1:keyint=12:bframes=5")
        hevc = ("-c:v", "libx265", "-x265-params", "log-level=none:keyint=12:bframes=4:open-gop=1")
        mpeg2 = ("-c:v", "mpeg2video", "-b:v", "2M", "-bf", "2")
        few, many = (0, 1, 2, 19, 50, 97, 98, 99), (0, *range(20, 36), 50, 98, 99)
        for path, rate, wanted, args in (
                ("bare.h264", "25", few, open_gop), ("bare.hevc", "25", few, hevc), ("bare.m2v", "25", few, mpeg2),
                ("bare.m1v", "25", few, ("-c:v", "mpeg1video", "-b:v", "1M", "-bf", "2")),
                ("ntsc.h264", "30000/1001", few, open_gop), ("film.vob", "24000/1001", few, mpeg2),
                # One time for some 40 pictures, and at places for the wrong one.
                ("h264.mpg", "25", many, (*h264, "tff=1:keyint=30")), ("mpeg2.vob", "25", many, mpeg2),
                ("open.mp4", "25", few, open_gop), ("open.mkv", "25", few, open_gop), ("open.avi", "25", few, open_gop),
                ("part2.mpg", "30000/1001", few, ("-c:v", "mpeg4", "-bf", "2")), ("late.mxf", "25", few, (*mpeg2, "-output_ts_offset", "9")), ("part2.avi", "25", few, ("-c:v", "mpeg4", "-bf", "2")), ("hevc.ts", "25", many, hevc),
        ):
            numerator, _, denominator = rate.partition("/")
            step = int(denominator or 1) / int(numerator)
            self.clip(path, NUMBERS.format(rate, 100 * step), *args)
            with self.subTest(path=path):
                self.assertEqual(self.number(path), 0)
                # The time that is told means the same picture again, and what is just before it does not.
                told = self.done("frame", path, "-o", "o.png", "--overwrite", "--at", str(2.5 * step)).split()[5][:-1]
                self.assertEqual([self.number(path, "--at", time) for time in (told, str(float(told[5:]) - 2e-7), str(96 * step))],
                                 [2, 1, 96])
                self.assertEqual([self.number(path, "--at", f"{(i + 0.5) * step:.6f}") for i in wanted], list(wanted))
                self.fails(("frame", path, "-o", "end.png", "--at", f"{100.5 * step:.6f}"), 1, "ends at 0:00:0" +
                           ("4.000$" if rate == "25" else "4.1708" if path == "film.vob" else "3.3366667$"))

    def test_counts_from_the_first_picture_of_a_cut_file(self):
        # Whose first pictures have no times, far from 0.
        self.clip("whole.mpg", NUMBERS.format(25, 4), "-c:v", "mpeg2video", "-b:v", "1M", "-bf", "2", "-output_ts_offset",
                  "3600")
        with open("whole.mpg", "rb") as whole:
            data = whole.read()
        for cut in range(1500, 9000, 1500):
            with open("rest.mpg", "wb") as rest:
                rest.write(data[cut:])
            told = self.done("frame", "rest.mpg", "-o", "o.png", "--overwrite").split()[5][:-1]
            first = self.number("rest.mpg")
            self.assertEqual([self.number("rest.mpg", "--at", f"{float(told[5:]) + (i - first + 0.5) / 25:.6f}")
                              for i in range(first, 100, 5)], list(range(first, 100, 5)), cut)

    def test_every_format_holds_the_same_picture(self):
        for path in ("smooth.mkv", "clip.mp4"):  # Bitmap rows with and without padding.
            picture = self.grab(path, "--at", "0.5")
            for name in ("o.ppm", "o.png", "o.bmp", "o.PNG"):
                self.done("frame", path, "--at", "0.5", "-q", "-o", name, "--overwrite")
                self.assertTrue(raw(name) == picture, name)
        size = os.path.getsize("o.bmp")
        with open("o.bmp", "rb") as file:
            self.assertEqual(struct.unpack("<2sIHHIIiiHHII", file.read(38)),
                             (b"BM", size, 0, 0, 54, 40, WIDTH + 1, HEIGHT + 1, 1, 24, 0, size - 54))

    def test_colours_of_all_kinds_of_pictures(self):
        tagged = "scale=out_color_matrix={0}:out_range={1},format={2}"
        for i, (form, args) in enumerate((
                ("yuv420p", ()), ("yuv422p10le", ()), ("yuv444p", ()), ("gray", ()), ("bgr0", ()),
                ("yuvj422p", ("-c:v", "mjpeg", "-q:v", "1")),
                ("yuv420p", ("-vf", tagged.format("bt601", "pc", "yuv420p"), "-color_range", "pc")),
                ("yuv420p", ("-vf", tagged.format("bt709", "tv", "yuv420p"), "-colorspace", "bt709")),
                ("yuv444p10le", ("-vf", tagged.format("bt2020", "pc", "yuv444p10le"), "-colorspace", "bt2020nc",
                                 "-color_range", "pc")),
        )):
            with self.subTest(form=form, args=args):
                path = f"{i}.mkv"
                self.clip(path, self.smooth(192, 128), "-c:v", "ffv1", "-pix_fmt", form, *args)
                self.assertGreater(psnr(self.grab(path), raw(path)), 40)

    def test_sizes(self):
        for width, height in ((1, 1), (1, 7), (2, 1), (3, 3), (WIDTH, 2)):
            self.clip("small.mkv", f"color=0xC08040:d=0.1,format=yuv420p,crop={width}:{height}:exact=1", "-c:v", "ffv1", "-pix_fmt", "yuv420p")
            pixels = self.grab("small.mkv")
            self.assertEqual(len(pixels), 3 * width * height)
            self.assertTrue(all(abs(pixels[i] - (0xC0, 0x80, 0x40)[i % 3]) < 4 for i in range(len(pixels))))
        self.clip("even.mkv", self.smooth(192, 128), "-c:v", "ffv1", "-pix_fmt", "yuv420p")
        plain = self.grab("even.mkv")
        self.assertEqual(self.grab("even.mkv", "--size", "192x128"), plain)
        for width, height in ((384, 256), (96, 64), (331, 77), (95, 201), (3, 200), (2, 2)):
            with self.subTest(width=width, height=height):
                picture = self.grab("even.mkv", "--size", f"{width}x{height}")
                self.assertEqual(len(picture), 3 * width * height)
                self.assertLess(max(abs(a - b) for a, b in zip(picture[-3:], plain[-3:])), 9)
                if width > 3:  # The corners of one stay the corners of the other, which FFmpeg does not do.
                    scaled = raw("even.mkv", f"scale={width}:{height}:flags=bilinear")
                    self.assertGreater(psnr(picture, scaled), 36)

    def test_nearest_takes_whole_pixels(self):
        lines = rows(self.grab("grey.mkv"), WIDTH)
        for width, height in ((40, 31), (250, 111), (2, 2)):
            step_x, step_y = ((WIDTH - 1) << 12) // (width - 1), ((HEIGHT - 1) << 12) // (height - 1)
            wanted = b"".join(lines[y * step_y >> 12][3 * (x * step_x >> 12):][:3]
                              for y in range(height) for x in range(width))
            self.assertTrue(self.grab("grey.mkv", "--size", f"{width}x{height}", "--near") == wanted)
            self.assertFalse(width > 2 and self.grab("grey.mkv", "--size", f"{width}x{height}") == wanted)

    def test_flips(self):
        for path, width, args in (("smooth.mkv", WIDTH, ()), ("clip.mp4", 33, ("--size", "33x41")),
                                  ("clip.mp4", 98, ("--at", "1"))):
            upright = rows(self.grab(path, *args), width)
            self.assertNotEqual(upright[0], upright[-1])
            self.assertEqual(rows(self.grab(path, "--flip", *args), width), upright[::-1])

    def test_odd_sizes_to_the_last_pixel(self):
        for width, height in ((WIDTH, HEIGHT), (WIDTH + 1, HEIGHT), (WIDTH, HEIGHT + 1), (37, 1), (1, 37), (3, 3)):
            self.clip("odd.mkv", f"testsrc2=s={width + 40}x{height + 20}:d=0.1", "-vf",
                      f"format=yuv420p,crop={width}:{height}:20:10:exact=1", "-c:v", "ffv1")
            planes = ffmpeg("-i", "odd.mkv", "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", "yuv420p", "-")
            wanted = converted(planes, width, height)
            self.assertTrue(self.grab("odd.mkv") == wanted, (width, height))
            # The same samples in another order.
            ffmpeg("-i", "odd.mkv", "-frames:v", "1", "-c:v", "rawvideo", "-pix_fmt", "nv12", "odd.nut")
            self.assertTrue(self.grab("odd.nut") == wanted, (width, height))

    def test_turned_videos_stand_upright(self):
        for angle in ("90", "180", "270"):
            ffmpeg("-i", "clip.mp4", "-c", "copy", "-metadata:s:v", "rotate=" + angle, "turned.mp4")
            self.assertGreater(psnr(self.grab("turned.mp4", "--at", "1"), raw("turned.mp4", "select=eq(n\\,25)")), 40)
            swapped = angle != "180"
            out = self.done("frame", "turned.mp4", "-o", "o.bmp", "--overwrite")
            self.assertIn("54x98" if swapped else "98x54", out)
            picture = self.grab("turned.mp4", "--size", "120x90")
            self.assertGreater(psnr(picture, raw("turned.mp4", "scale=120:90:flags=bilinear")), 18)
        # What FFmpeg's command cannot be told to write, or would turn itself: mirrors, rounded entries, other angles.
        upright = rows(self.grab("clip.mp4"), WIDTH + 1)
        pixels = [[row[i:i + 3] for i in range(0, len(row), 3)] for row in upright]
        for matrix, wanted in (
                ((-1, 0, 0, 1), [row[::-1] for row in pixels]), ((0, 1, 1, 0), zip(*pixels)),
                ((0.01, -0.99, 1.02, -0.02), list(zip(*pixels))[::-1]),
                ((1 / 16, 1, -1, 1 / 16), pixels), ((1, 0, 0, 0), pixels), ((0, 0, 0, 0), pixels),
                *(((math.cos(angle), math.sin(angle), -math.sin(angle), math.cos(angle)), pixels)
                  for angle in map(math.radians, (4, 30, 45, 61, 75, 86, 120, 185))),
        ):
            set_matrix("turned.mp4", *matrix)
            self.assertTrue(self.grab("turned.mp4") == b"".join(b"".join(row) for row in wanted), matrix)

    def test_lays_pictures_over(self):
        # 7 x 5 pixels of every kind that PNG files have, and what they mean.
        def logo(x, y):
            return (40 * x % 256, 50 * y % 256, (70 * x + y) % 256, (x * y * 11 + x) % 256)

        area = [(x, y) for y in range(5) for x in range(7)]
        colours = {point: logo(*point) for point in area}
        greys = {point: (c[0],) * 3 + (c[3],) for point, c in colours.items()}
        keyed = {point: c[:3] + (0 if c[:3] == colours[3, 2][:3] else 255,) for point, c in colours.items()}
        grey_keyed = {point: c[:3] + (0 if c[0] == greys[3, 2][0] else 255,) for point, c in greys.items()}
        wide = {point: tuple(257 * v for v in c) for point, c in colours.items()}

        def lines(values):
            return [sum((tuple(values[x, y]) for x in range(7)), ()) for y in range(5)]

        write_png("rgba.png", 6, 8, lines(colours))
        write_png("rgba16.png", 6, 16, lines(wide))
        write_png("grey_alpha.png", 4, 8, lines({p: (c[0], c[3]) for p, c in greys.items()}))
        write_png("rgb_key.png", 2, 8, lines({p: c[:3] for p, c in colours.items()}),
                  tRNS=struct.pack(">3H", *colours[3, 2][:3]))
        write_png("grey_key.png", 0, 8, lines({p: c[:1] for p, c in greys.items()}),
                  tRNS=struct.pack(">H", greys[3, 2][0]))
        write_png("palette.png", 3, 8, [tuple(7 * y + x for x in range(7)) for y in range(5)],
                  PLTE=sum((c[:3] for c in colours.values()), ()), tRNS=[c[3] for c in colours.values()])
        ffmpeg("-i", "rgba.png", "-flags", "+ildct", "interlaced.png")
        with open("interlaced.png", "rb") as file:
            self.assertEqual(file.read(29)[28], 1)

        other_kinds = [(name, values, ((8, 8),)) for name, values in (
            ("rgba16", colours), ("grey_alpha", greys), ("rgb_key", keyed), ("grey_key", grey_keyed),
            ("palette", colours), ("interlaced", colours))]
        for video, width, height in (("smooth.mkv", WIDTH, HEIGHT), ("clip.mp4", WIDTH + 1, HEIGHT + 1)):
            plain = self.grab(video)
            for name, values, places in (
                    ("rgba", colours, ((None, None), (40, 13), (-3, -2), (-6, -4), (width - 1, height - 1), (-6, 20),
                                       (width - 3, -1), (30, height - 1), (width, 0), (0, -5), (-100, -100))),
                    *(() if video == "clip.mp4" else other_kinds),
            ):
                for left, top in places:
                    wanted = bytearray(plain)
                    for (x, y), (*colour, alpha) in values.items():
                        at = (x + (left or 0), y + (top or 0))
                        if not (0 <= at[0] < width and 0 <= at[1] < height):
                            continue
                        for i in range(3):
                            where = 3 * (at[1] * width + at[0]) + i
                            wanted[where] = (plain[where] * (255 - alpha) + colour[i] * alpha) // 255
                    place = () if left is None else ("--at-xy", f"{left},{top}")
                    got = self.grab(video, "--over", name + ".png", *place)
                    self.assertTrue(got == wanted, (video, name, left, top))
        upright = self.grab("smooth.mkv", "--flip", "--over", "rgba.png")
        blue, alpha = colours[1, 0][2:]
        below = rows(self.grab("smooth.mkv"), WIDTH)[-1][5]
        self.assertEqual(rows(upright, WIDTH)[0][5], (below * (255 - alpha) + blue * alpha) // 255)

    def test_says_what_it_did(self):
        self.assertEqual(self.done("frame", "clip.mp4", "-o", "o.png", "--at", "1.23", "--size", "20x10"),
                         "o.png: picture of clip.mp4 at 0:00:01.200, 20x10\n")
        self.assertEqual(self.done("frame", "-q", "clip.mp4", "-o", "p.png"), "")
        os.link("clip.mp4", "-%d:a.mp4")
        self.done("frame", "-o", "-.bmp", "--", "-%d:a.mp4")
        self.assertTrue(os.path.exists("-.bmp"))


class Refusals(Case):
    @classmethod
    def make(cls):
        ffmpeg("-f", "lavfi", "-i", "testsrc=s=64x48:r=25:d=2", "-c:v", "mpeg4", "in.mp4")
        ffmpeg("-i", "in.mp4", "-f", "lavfi", "-i", "sine=d=5", "-c:v", "copy", "long.mkv")
        ffmpeg("-f", "lavfi", "-i", "color=red:s=32x32:d=0.1", "-frames:v", "1", "logo.png")
        ffmpeg("-f", "lavfi", "-i", "color=red:s=16386x2:d=0.1", "-c:v", "ffv1", "wide.mkv")
        write_wav("sound.wav", noise(1, 8000))
        ffmpeg("-i", "sound.wav", "-i", "logo.png", "-map", "0", "-map", "1", "-c:v", "copy", "-disposition:v",
               "attached_pic", "cover.m4a")
        os.mkdir("folder.mp4")
        os.mkfifo("fifo.mp4")
        os.link("in.mp4", "same.png")
        os.symlink("logo.png", "alias.png")
        os.symlink("nowhere.png", "lost.png")
        with open("in.mp4", "rb") as file:
            data = file.read()
        with open("logo.png", "rb") as file:
            picture = file.read()
        for name, content in (("text.mp4", b"This is no video."), ("text.png", b"Hello"), ("empty.mp4", b""), ("cut.mp4", data[:-2000]),
                              ("cut.png", picture[:60]), ("there.png", b"mine"),
                              ("bomb.png", picture[:16] + struct.pack(">2I", 900_000, 900_000) + picture[24:29] +
                               struct.pack(">I", zlib.crc32(picture[12:16] + struct.pack(">2I", 900_000, 900_000) +
                                                            picture[24:29])) + picture[33:])):
            with open(name, "wb") as file:
                file.write(content)

    def test_one_clear_line(self):
        for args, pattern in (
                (("none.mp4",), "none.mp4: No such file"), (("folder.mp4",), "folder.mp4: Is a directory"),
                (("fifo.mp4",), "fifo.mp4: not a regular file"), (("text.mp4",), "text.mp4: "),
                (("empty.mp4",), "empty.mp4: "), (("cut.mp4",), "cut.mp4: the file is cut off"),
                (("cut.png",), "cut.png: its video cannot be decoded .png.: it is cut off"),
                (("sound.wav",), "sound.wav: has no video"), (("cover.m4a",), "cover.m4a: has no video: its only picture is a cover"),
                (("in.mp4", "-o", "o.jpg"), "o.jpg: the name tells no known picture format .*png"),
                (("in.mp4", "-o", "png"), "png: the name tells no known"),
                (("in.mp4", "-o", ".png"), ".png: the name tells no known"),
                (("in.mp4", "-o", ""), "'': "), (("in.mp4", "-o", "there.png"), "there.png: exists already"),
                (("in.mp4", "-o", "none/o.png"), "none/o.png: its folder does not exist"),
                (("in.mp4", "-o", "lost.png"), "lost.png: is a link that leads nowhere"),
                (("in.mp4", "-o", "same.png", "--overwrite"), "same.png: is the same file as in.mp4"),
                (("in.mp4", "--over", "logo.png", "-o", "alias.png", "--overwrite"), "alias.png: is the same file as"),
                (("in.mp4", "--at", "2"), r"in.mp4: has no picture at 0:00:02\.000: its last picture ends at 0:00:02\.000"),
                (("wide.mkv",), "wide.mkv: pictures of 16386x2 are larger than 16384x16384"),
                (("long.mkv", "--at", "4"), r"long.mkv: has no picture at 0:00:04\.000: .* ends at 0:00:02\.000"),
                (("in.mp4", "--over", "none.png"), "none.png: No such file"), (("in.mp4", "--over", ""), "'': "),
                (("in.mp4", "--over", "folder.mp4"), "folder.mp4: Is a directory"),
                (("in.mp4", "--over", "fifo.mp4"), "fifo.mp4: not a regular"),
                (("in.mp4", "--over", "sound.wav"), "sound.wav: is no PNG file"), (("in.mp4", "--over", "text.png"), "text.png: is no PNG file"), (("in.mp4", "--over", "cut.png"), "cut.png: the file is cut off"),
                (("in.mp4", "--over", "bomb.png"), "bomb.png: a picture of 900000x900000 is too large"),
        ):
            with self.subTest(args=args):
                args = args if "-o" in args else (*args, "-o", "o.png")
                self.fails(("frame", *args), 1, "^zel: " + pattern)
        with open("there.png") as there:
            self.assertEqual(there.read(), "mine")

    def test_wrong_usage(self):
        for args, pattern in (
                ((), "required"), (("--at", "1", "--at", "2"), "--at: given more than once"), (("--at", "noon"), "--at: 'noon'"), (("--at", "nan"), "--at: 'nan' is not finite"),
                (("--over", "logo.png", "--at-xy", "-2147483648,0"), "-2147483648 is not from -1000000 to 1000000"),
                (("--near",), "--size"), (("--at-xy", "1,2"), "--over"),
                *((("--size", size), re.escape(size)) for size in
                  ("1x1", "0x0", "16385x2", "2x99999", "99999999999x2", "-4x4", "4", "4x", "x4", "4x4x4", "4 x 4", "1e2x9")),
                *((("--over", "logo.png", "--at-xy", place), re.escape(place)) for place in
                  ("1", "1,", ",1", "1,2,3", "a,b", "1x2")),
        ):
            output = ("-o", "o.png") if args else ()
            self.fails(("frame", "in.mp4", *output, *args), 2, "^zel frame: .*" + pattern)

    def test_output_that_cannot_be_written(self):
        import resource
        for name in ("o.ppm", "o.bmp", "o.png"):
            code, out, err = zel("frame", "in.mp4", "-o", name,
                                 preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (90, 90)))
            self.assertEqual((code, out, err), (1, "", f"zel: {name}: File too large\n"))


if __name__ == "__main__":
    unittest.main()
