"""zel info, as a whole process on real files."""

import json
import os
import re

from support import Case, ffmpeg, lavfi, noise, probe, read, write, write_wav, zel

TITLES = ("Режиссёрская версия", "監督 版", "नमस्ते", "e\u0301té", "שלום, עולם", "عربي", "👩‍👩‍👧 🏴󠁧󠁢󠁳󠁣󠁴󠁿", "a\\x41 \"b\"")
NASTY = {"%03d.png": "%03d.png", "\033[31mred": "\\x1B[31mred", "\u009b2J": "\\u009B2J", "\x7f": "\\x7F",
         "a\nb\tc\rd": "a\\x0Ab\\x09c\\x0Dd", "x\u202egpj.exe": "x\\u202Egpj.exe",
         "\u2066i\u2069": "\\u2066i\\u2069", "l\u2028p\u2029": "l\\u2028p\\u2029"}


class Description(Case):
    @classmethod
    def make(cls):
        ffmpeg(*lavfi("testsrc2=s=64x48:r=30000/1001:d=2"), *lavfi("sine=r=44100:d=2"), *lavfi("sine=r=48000:d=2"),
               "-map", "0", "-map", "1", "-map", "2", "-c:v", "mpeg2video", "-c:a", "mp2",
               "-program", "program_num=3:title=Ньюс:st=0:st=1", "-program", "program_num=7:title=Radio:st=2", "two.ts")
        write("text.srt", b"1\n00:00:00,500 --> 00:00:01,000\nHello\n\n")
        ffmpeg("-i", "two.ts", "-i", "text.srt", "-map", "0:v", "-map", "0:a", "-map", "1", "-c:v", "ffv1", "-pix_fmt",
               "yuv422p10le", "-aspect", "16:9", "-c:s", "subrip", "-c:a:0", "flac", "-c:a:1", "pcm_s24le",
               "-metadata:s:a:0", "language=fra", "-metadata:s:a:1", "title=Two", "film.mkv")
        ffmpeg(*lavfi("testsrc2=s=64x48:r=25:d=2"), "-vf", "select='not(between(n,9,20))+lt(n,9)'", "-vsync",
               "passthrough", "-c:v", "libx264", "vfr.mp4")
        ffmpeg("-i", "two.ts", "-map", "0:v", "-map", "0:a:0", "-c:v", "libx264", "-c:a", "aac", "film.mp4")
        write_wav("a.wav", noise(1, 30_000))
        ffmpeg("-i", "a.wav", *lavfi("color=s=32x32:d=0.04"), "-map", "0", "-map", "1", "-c:v", "png", "-disposition:v",
               "attached_pic", "album.mp3")

    def info(self, *args):
        """What --json says of files that are all well."""
        return json.loads(self.done("info", "--json", *args))["files"]

    def test_agrees_with_ffprobe(self):
        files = self.info("two.ts", "film.mkv", "film.mp4", "vfr.mp4", "a.wav", "album.mp3")
        for file in files:
            shown = probe(file["file"], "-show_streams", "-show_format", "-show_programs")
            other = shown["format"]
            self.assertEqual([str(file[key]) for key in ("size", "container", "bit_rate")],
                             [other[key] for key in ("size", "format_long_name", "bit_rate")])
            self.assertAlmostEqual(file["length"], float(other["duration"]), delta=1e-6)
            programs = [(p["program_id"], p["tags"]["service_name"], [s["index"] for s in p["streams"]])
                        for p in shown["programs"]] or [(1, None, [s["index"] for s in shown["streams"]])]
            self.assertEqual([(p["id"], p["name"], sorted(s["index"] for s in p["streams"])) for p in file["programs"]],
                             programs)
            for program in file["programs"]:
                for stream in program["streams"]:
                    self.check(program, stream, shown["streams"][stream["index"]])
        mkv = files[1]["programs"][0]["streams"]
        self.assertEqual([s["fourcc"] for s in mkv], ["FFV1", "FLAC", "S24L", "SUBR"])
        self.assertEqual((mkv[0]["bits_per_component"], mkv[2]["bits_per_sample"]), (10, 24))
        self.assertEqual([file["constant_frame_rate"] for file in files], [True, True, True, False, True, True])

    def check(self, program, stream, other):
        """A stream against what FFmpeg's command shows of it."""
        tags, kind = other.get("tags", {}), other["codec_type"]
        wanted = {"id": program["id"] << 16 | other["index"], "kind": kind, "codec": other["codec_long_name"],
                  "pid": int(other["id"], 0) if "id" in other else None, "title": tags.get("title"),
                  "language": {"und": None}.get(tags.get("language"), tags.get("language"))}
        if kind == "audio":
            wanted |= {key: int(other[key]) for key in ("sample_rate", "channels", "bit_rate") if key in other}
        elif kind == "video":
            cover = other["disposition"]["attached_pic"] == 1
            rate, aspect = (list(map(int, re.split("[/:]", text))) for text in (
                other["avg_frame_rate"], other.get("sample_aspect_ratio", "1:1")))
            wanted |= {"width": other["width"], "height": other["height"], "cover": cover, "frame_rate": None}
            wanted |= {} if cover else {
                "frame_rate": rate[0] / rate[1], "frame_rate_ratio": rate, "pixel_aspect_ratio": aspect}
        self.assertEqual({**stream, **wanted}, stream)
        for key, name in (("start", "start_time"), ("length", "duration")):
            if name in other and "DURATION" not in tags:  # Matroska's own word for other things.
                self.assertAlmostEqual(stream[key], float(other[name]), delta=2e-6)

    def test_matroskas_statistics(self):
        # Those of mkvmerge tell a length; what FFmpeg's muxer writes as DURATION is an end. It writes its own in any
        # case, so ours are another word meanwhile.
        tags = ("", "BPS=9 DURATIOM=00:00:02.500000000 _STATISTICS_TAGS=x",
                "BPS-eng=9 DURATIOM-eng=00:00:02.5 _STATISTICS_TAGS-eng=x",
                "BPS=-9 DURATIOM=99:00:00 _STATISTICS_TAGS=x", "BPS=x DURATIOM=soon _STATISTICS_TAGS=x",
                "DURATIOM=00:00:01")
        ffmpeg(*lavfi("testsrc=s=64x48:r=25:d=5"), "-itsoffset", "2", *lavfi("sine=r=48000:d=3"), "-i", "text.srt",
               "-map", "0", "-map", "2", *["-map", "1"] * len(tags), "-c:v", "mpeg4", "-c:a", "flac",
               *(part for i, text in enumerate(tags) for tag in text.split() for part in (f"-metadata:s:a:{i}", tag)),
               "tagged.mkv")
        for word, lengths in ((b"DURATION", [5, 3, 3, 3, 3, 3, 3, 0.5]), (b"SOMEWHAT", [5, 3, 2.5, 2.5, 3, 3, 3, 4.5])):
            write("told.mkv", read("tagged.mkv").replace(b"DURATION", word).replace(b"DURATIOM", b"DURATION"))
            (program,) = self.info("told.mkv")[0]["programs"]
            self.assertEqual([round(s["length"], 2) for s in program["streams"]], lengths)
            self.assertEqual([(s["start"], s["bit_rate"]) for s in program["streams"][1:-1]],
                             [(2, rate) for rate in (None, 9, 9, None, None, None)])
            self.assertAlmostEqual(program["length"], 5, delta=0.0011)

    def test_tree(self):
        out = self.done("info", "two.ts", "film.mkv")
        sound = r"    0x30001 audio: MP2 \(MP2 \(MPEG audio layer 2\)\), 44100 Hz, 1 channel, 16 bits, " \
                r"0:00:0[12]\.\d{3}, 384 kbit/s, from 0:00:01\.\d{3}\n"
        self.assertRegex(out, r"^two\.ts\n  MPEG-TS \(MPEG-2 Transport Stream\), 0:00:02\.\d{3}, [\d.]+ KiB "
                              r"\(\d+ bytes\), \d+ kbit/s\n  program 3 \"Ньюс\"\n    0x30000 video: MPEG "
                              r"\(MPEG-2 video\), 64x48, 8 bits, 29\.97 fps, .*\n" + sound +
                              r"  program 7 \"Radio\"\n    0x70002 audio: .*\n\nfilm\.mkv\n")
        self.assertRegex(out, r"FFV1 \(.*\), 64x48 \(pixels 4:3\), 10 bits, 29\.97 fps, ")
        self.assertRegex(out, r"    0x10001 audio: FLAC .*, fra\n    0x10002 audio: S24L .*, 24 bits, .*, \"Two\"\n"
                              r"    0x10003 subtitle: SUBR \(SubRip subtitle\).*\n$")
        self.assertRegex(self.done("info", "album.mp3"),
                         r"\n    0x10001 cover: PNG \(.*\), 32x32, .*\n    0x10000 audio: MP3 ")

    def test_texts(self):
        # In every script; nothing reaches a terminal as control; long ones are cut to whole characters.
        titles = {**{title: title for title in TITLES}, **NASTY, "長😀" * 1000: ("長😀" * 32)[:63]}
        ffmpeg("-i", "a.wav", *["-map", "0"] * len(titles), "-c:a", "flac",
               *(part for i, title in enumerate(titles) for part in (f"-metadata:s:a:{i}", "title=" + title)), "t.mka")
        (file,) = self.info("t.mka")
        self.assertEqual([s["title"] for s in file["programs"][0]["streams"]], [title[:63] for title in titles])
        shown = re.findall(', "(.*)"\n', self.done("info", "t.mka"))
        self.assertEqual(shown, list(titles.values()))
        raw = b"\xff\xc0\xaf \xed\xa0\x80 \xf4\x90\x80\x80.wav"  # No text at all.
        names = {**NASTY, raw: "\\xFF\\xC0\\xAF \\xED\\xA0\\x80 \\xF4\\x90\\x80\\x80.wav"}
        for name in names:
            os.link("a.wav", name)
        out = self.done("info", "--json", *names)
        *files, last = [file["file"] for file in json.loads(out)["files"]]
        self.assertEqual(files, list(NASTY))
        self.assertRegex(last, "^\ufffd+ \ufffd+ \ufffd+\\.wav$")
        self.assertTrue(out.replace("\n", "").isprintable())
        code, out, err = zel("info", *names, *("missing" + name for name in NASTY))
        self.assertEqual((code, out.split("\n")[:-1:5]), (1, list(names.values())))
        self.assertEqual(err, "".join(f"zel: missing{shown}: No such file or directory\n" for shown in NASTY.values()))
