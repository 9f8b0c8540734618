"""zel info, as a whole process on real files."""

import json
import os
import socket
import subprocess
import unittest

from support import ZEL, Case, ffmpeg, noise, probe, write_wav, zel

TITLES = ("Режиссёрская версия", "監督 版", "नमस्ते", "e\u0301té", "שלום, עולם", "عربي", "👩‍👩‍👧 🏴󠁧󠁢󠁳󠁣󠁴󠁿", "a\\x41 \"b\"")


def info(*args):
    """What --json says of files that are all well."""
    code, out, err = zel("info", "--json", *args)
    assert (code, err) == (0, ""), err
    return json.loads(out)["files"]


class Description(Case):

    @classmethod
    def make(cls):
        picture, sound = "testsrc2=s=64x48:r=30000/1001:d=2", "sine=r={}:d=2"
        ffmpeg("-f", "lavfi", "-i", picture, "-f", "lavfi", "-i", sound.format(44100), "-f", "lavfi", "-i",
               sound.format(48000), "-map", "0", "-map", "1", "-map", "2", "-c:v", "mpeg2video", "-c:a", "mp2",
               "-program", "program_num=3:title=Ньюс:st=0:st=1", "-program", "program_num=7:title=Radio:st=2", "two.ts")
        with open("text.srt", "w") as text:
            text.write("1\n00:00:00,500 --> 00:00:01,000\nHello\n\n")
        ffmpeg("-i", "two.ts", "-i", "text.srt", "-map", "0:v", "-map", "0:a", "-map", "1", "-c:v", "ffv1", "-pix_fmt",
               "yuv422p10le", "-aspect", "16:9", "-c:s", "subrip", "-c:a:0", "flac", "-c:a:1", "pcm_s24le", "-metadata:s:a:0",
               "language=fra", "-metadata:s:a:1", "title=Two", "film.mkv")
        ffmpeg("-i", "two.ts", "-map", "0:v", "-map", "0:a:0", "-c:v", "libx264", "-c:a", "aac", "film.mp4")
        write_wav("a.wav", noise(1, 30_000))
        ffmpeg("-i", "a.wav", "-f", "lavfi", "-i", "color=s=32x32:d=0.04", "-map", "0", "-map", "1", "-c:v", "png",
               "-disposition:v", "attached_pic", "album.mp3")

    def test_agrees_with_ffprobe(self):
        names = ("two.ts", "film.mkv", "film.mp4", "a.wav", "album.mp3")
        for file in info(*names):
            shown = probe(file["file"], "-show_streams", "-show_format", "-show_programs")
            with self.subTest(file=file["file"]):
                self.assertEqual(file["size"], os.path.getsize(file["file"]))
                self.assertEqual(file["container"], shown["format"]["format_long_name"])
                self.assertAlmostEqual(file["length"], float(shown["format"]["duration"]), delta=1e-6)
                self.assertEqual(file["bit_rate"], int(shown["format"]["bit_rate"]))
                members = {p["program_id"]: [s["index"] for s in p["streams"]] for p in shown["programs"]} or \
                          {1: [s["index"] for s in shown["streams"]]}
                self.assertEqual({p["id"]: sorted(s["index"] for s in p["streams"]) for p in file["programs"]}, members)
                self.assertEqual([p["name"] for p in file["programs"]],
                                 [p["tags"]["service_name"] for p in shown["programs"]] or [None])
                for program in file["programs"]:
                    for stream in program["streams"]:
                        other = shown["streams"][stream["index"]]
                        self.assertEqual(stream["id"], program["id"] << 16 | stream["index"])
                        self.assertEqual(stream["kind"], other["codec_type"])
                        self.assertEqual(stream["codec"], other["codec_long_name"])
                        self.assertEqual(stream["pid"], int(other["id"], 0) if "id" in other else None)
                        language = other.get("tags", {}).get("language")
                        self.assertEqual(stream["language"], None if language == "und" else language)
                        self.assertEqual(stream["title"], other.get("tags", {}).get("title"))
                        self.assertAlmostEqual(stream["start"], float(other.get("start_time", 0)), delta=1e-6)
                        end = other.get("tags", {}).get("DURATION")  # Matroska has no other length of a stream.
                        if end is not None:
                            hours, minutes, seconds = end.split(":")
                            self.assertAlmostEqual(stream["start"] + stream["length"],
                                                   int(hours) * 3600 + int(minutes) * 60 + float(seconds), delta=1e-6)
                        elif "duration" in other:
                            self.assertAlmostEqual(stream["length"], float(other["duration"]), delta=1e-6)
                        if "bit_rate" in other and other["codec_type"] == "audio":
                            self.assertEqual(stream["bit_rate"], int(other["bit_rate"]))
                        if other["codec_type"] == "audio":
                            self.assertEqual((stream["sample_rate"], stream["channels"]),
                                             (int(other["sample_rate"]), other["channels"]))
                        if other["codec_type"] == "video":
                            self.assertEqual((stream["width"], stream["height"]), (other["width"], other["height"]))
                            self.assertEqual(stream["cover"], other["disposition"]["attached_pic"] == 1)
                            if stream["cover"]:
                                self.assertIsNone(stream["frame_rate"])
                                continue
                            self.assertEqual("{}/{}".format(*stream["frame_rate_ratio"]), other["avg_frame_rate"])
                            self.assertEqual("{}:{}".format(*stream["pixel_aspect_ratio"]),
                                             other["sample_aspect_ratio"])
                            rate = stream["frame_rate_ratio"]
                            self.assertEqual(stream["frame_rate"], rate[0] / rate[1])
        mkv = info("film.mkv")[0]["programs"][0]["streams"]
        self.assertEqual([s["fourcc"] for s in mkv], ["FFV1", "FLAC", "S24L", "SUBR"])
        self.assertEqual((mkv[0]["bits_per_component"], mkv[2]["bits_per_sample"]), (10, 24))

    def test_keys_are_always_the_same(self):
        common = ["kind", "id", "index", "pid", "fourcc", "codec", "language", "title", "start", "length", "bit_rate"]
        own = {"audio": ["sample_rate", "channels", "bits_per_sample"], "subtitle": [],
               "video": ["width", "height", "frame_rate", "frame_rate_ratio", "pixel_aspect_ratio",
                         "bits_per_component", "cover"]}
        code, out, _ = zel("info", "missing", "film.mkv", "two.ts", "--json")
        document = json.loads(out)
        self.assertEqual((code, list(document), document["files"][0]),
                         (1, ["files"], {"file": "missing", "error": "No such file or directory"}))
        for file in document["files"][1:]:
            self.assertEqual(list(file), ["file", "container", "fourcc", "length", "size", "bit_rate",
                                          "constant_frame_rate", "programs"])
            for program in file["programs"]:
                self.assertEqual(list(program), ["id", "number", "name", "length", "bit_rate", "streams"])
                for stream in program["streams"]:
                    self.assertEqual(list(stream), common + own[stream["kind"]])

    def test_tree(self):
        out = self.done("info", "two.ts", "film.mkv")
        sound = r"    0x30001 audio: MP2 \(MP2 \(MPEG audio layer 2\)\), 44100 Hz, 1 channel, 16 bits, 0:00:0[12]\.\d{3}, " \
                r"384 kbit/s, from 0:00:01\.\d{3}\n"
        self.assertRegex(out, r"^two\.ts\n  MPEG-TS \(MPEG-2 Transport Stream\), 0:00:02\.\d{3}, [\d.]+ KiB \(\d+ bytes\), "
                              r"\d+ kbit/s\n  program 3 \"Ньюс\"\n    0x30000 video: MPEG \(MPEG-2 video\), 64x48, 8 bits, "
                              r"29\.97 fps, .*\n" + sound + r"  program 7 \"Radio\"\n    0x70002 audio: .*\n\nfilm\.mkv\n")
        self.assertRegex(out, r"FFV1 \(.*\), 64x48 \(pixels 4:3\), 10 bits, 29\.97 fps, ")
        self.assertRegex(out, r"    0x10001 audio: FLAC .*, fra\n    0x10002 audio: S24L .*, 24 bits, .*, \"Two\"\n"
                              r"    0x10003 subtitle: SUBR \(SubRip subtitle\).*\n$")
        self.assertRegex(self.done("info", "album.mp3"), r"\n    0x10001 cover: PNG \(.*\), 32x32, .*\n    0x10000 audio: MP3 ")


class Texts(Case):
    """Whatever is in names and tags."""

    @classmethod
    def make(cls):
        write_wav("a.wav", noise(2, 3000))

    def titled(self, titles):
        """Each title as JSON has it, and the line of its stream."""
        ffmpeg("-i", "a.wav", *["-map", "0"] * len(titles), "-c:a", "flac",
               *(part for i, title in enumerate(titles) for part in (f"-metadata:s:a:{i}", "title=" + title)), "t.mka")
        (file,) = info("t.mka")
        return zip(titles, [s["title"] for s in file["programs"][0]["streams"]],
                   self.done("info", "t.mka").splitlines()[-len(titles):])

    def test_every_script(self):
        for title, as_json, line in self.titled(TITLES):
            self.assertEqual(as_json, title)
            self.assertTrue(line.endswith(f', "{title}"'), line)
        names = [title.replace("/", "") + ".wav" for title in TITLES]
        for name in names:
            os.link("a.wav", name)
        self.assertEqual([file["file"] for file in info(*names)], names)
        self.assertEqual(self.done("info", *names).split("\n")[:-1:5], names)

    def test_nothing_reaches_a_terminal_as_control(self):
        nasty = {"\033[31mred": "\\x1B[31mred", "\u009b2J": "\\u009B2J", "a\nb\tc\rd": "a\\x0Ab\\x09c\\x0Dd", "\x7f": "\\x7F",
                 "x\u202egpj.exe": "x\\u202Egpj.exe", "\u2066i\u2069": "\\u2066i\\u2069", "l\u2028p\u2029": "l\\u2028p\\u2029"}
        for text, as_json, line in self.titled(list(nasty)):
            self.assertEqual(as_json, text)
            self.assertTrue(line.endswith(f', "{nasty[text]}"'), line)
        for text, shown in nasty.items():
            os.link("a.wav", text)
            code, out, err = zel("info", text, "missing" + text)
            self.assertEqual((code, out.splitlines()[0], err),
                             (1, shown, f"zel: missing{shown}: No such file or directory\n"))
            out = self.done("info", "--json", text)
            self.assertEqual(json.loads(out)["files"][0]["file"], text)
            self.assertFalse([c for c in text if c in out.replace("\n", "") and not c.isprintable()])

    def test_bytes_that_are_no_text(self):
        raw = b"\xff\xc0\xaf \xed\xa0\x80 \xf4\x90\x80\x80.wav"
        os.link("a.wav", raw)
        done = subprocess.run([ZEL, "info", raw], capture_output=True, check=True)
        self.assertEqual(done.stdout.splitlines()[0],
                         rb"\xFF\xC0\xAF \xED\xA0\x80 \xF4\x90\x80\x80.wav")
        done = subprocess.run([ZEL, "info", "--json", raw], capture_output=True, check=True)
        self.assertRegex(json.loads(done.stdout.decode("utf-8"))["files"][0]["file"], "^\ufffd+ \ufffd+ \ufffd+\\.wav$")

    def test_long_texts_are_cut_to_whole_characters(self):
        ((_, as_json, _),) = self.titled(["長😀" * 1000])
        self.assertEqual(as_json, ("長😀" * 1000)[:63])


class Refusals(Case):

    @classmethod
    def make(cls):
        write_wav("a.wav", noise(3, 3000))
        ffmpeg("-i", "a.wav", "whole.mp4")
        for name in ("a.mkv", "a.flac", "a.mp3"):
            ffmpeg("-i", "a.wav", name)
        for whole, size in (("whole.mp4", 900), ("a.mkv", 100), ("a.mkv", 400), ("a.flac", 30), ("a.mp3", 300)):
            with open(whole, "rb") as source, open(f"cut{size}.{whole.split('.')[1]}", "wb") as cut:
                cut.write(source.read()[:size])
        open("empty.wav", "w").close()
        with open("text.txt", "w") as text:
            text.write("no sound")
        with open("numbers.txt", "w") as text:
            text.write("".join(f"{number}\n" for number in range(20_000)))
        # What they name would be waited for; a list of a plain file is no other thing.
        os.mkfifo("pipe.wav")
        os.mkfifo("pipe.sub")
        for name, text in (("list.mp4", "ffconcat version 1.0\nfile pipe.wav\n"),
                           ("list.wav", "ffconcat version 1.0\nfile a.wav\n"),
                           ("list.m3u8", "#EXTM3U\n#EXT-X-TARGETDURATION:4\n#EXTINF:4,\npipe.wav\n#EXT-X-ENDLIST\n"),
                           ("pipe.idx", "# VobSub index file, v7 (do not modify this line!)\nsize: 720x576\n"
                                        "id: en, index: 0\ntimestamp: 00:00:01:000, filepos: 000000000\n")):
            with open(name, "w") as file:
                file.write(text)
        with open("bin.dat", "wb") as binary:  # Might begin a frame of MPEG audio.
            binary.write(b"\xff\xfe\0")
        os.mkdir("folder")
        os.mkfifo("fifo")
        os.symlink("loop", "loop")
        listener = socket.socket(socket.AF_UNIX)
        listener.bind("socket")
        listener.close()

    def test_one_line_each_and_the_others_go_on(self):
        reasons = {"cut900.mp4": "the file is cut off, or has no index", "cut100.mkv": "the file is cut off or damaged",
                   "cut400.mkv": "the file is cut off or damaged", "cut30.flac": "the file is cut off or damaged",
                   "cut300.mp3": "the file is cut off, or in no known media format", "empty.wav": "the file is empty",
                   "list.mp4": "leads to other files, which are not opened",
                   "list.wav": "leads to other files, which are not opened",
                   "list.m3u8": "leads to other files, which are not opened",
                   "pipe.idx": "leads to other files, which are not opened", "numbers.txt": "no known media format",
                   "text.txt": "no known media format", "bin.dat": "the file is cut off, or in no known media format",
                   "folder": "Is a directory", "fifo": "not a regular file",
                   "socket": "not a regular file", "missing": "No such file or directory",
                   "a.wav/b": "Not a directory", "loop": "Too many levels of symbolic links",
                   "": "No such file or directory", "x" * 300: "File name too long"}
        if os.geteuid() != 0:
            os.link("a.wav", "secret")
            os.chmod("secret", 0)
            reasons["secret"] = "Permission denied"
        code, out, err = zel("info", *reasons, "a.wav")
        lines = ((name or "''", why) for name, why in reasons.items())
        self.assertEqual((code, err), (1, "".join(f"zel: {name}: {why}\n" for name, why in lines)))
        self.assertEqual(out, self.done("info", "a.wav"))
        code, out, again = zel("info", "--json", "a.wav", *reasons)
        self.assertEqual((code, again), (1, err))
        files = json.loads(out)["files"]
        self.assertEqual(files[0], info("a.wav")[0])
        self.assertEqual({file["file"]: file["error"] for file in files[1:]}, reasons)

    def test_usage_and_a_full_disk(self):
        self.fails(("info",), 2, "^zel info: .*FILE.*required")
        self.fails(("info", "--what", "a.wav"), 2, "^zel info: .*--what")
        self.assertIn("--json", self.done("info", "--help"))
        for option in (), ("--json",):
            with open("/dev/full", "w") as full:
                done = subprocess.run([ZEL, "info", *option, "a.wav"], stdout=full, stderr=subprocess.PIPE, check=False)
            self.assertEqual((done.returncode, done.stderr), (1, b"zel: standard output: No space left on device\n"))
            unread, theirs = os.pipe()
            os.close(unread)
            done = subprocess.run([ZEL, "info", *option, "a.wav"], stdout=theirs, stderr=subprocess.PIPE, check=False)
            os.close(theirs)
            self.assertEqual((done.returncode, done.stderr), (141, b""))


if __name__ == "__main__":
    unittest.main()
