"""What is left to a decoder that a damaged file has taken over."""

import glob
import os
import shutil
import subprocess

import support
from support import Case, write, zel


class Sandbox(Case):
    @classmethod
    def make(cls):
        """What the command loads from its own folder, with a decoder module of ours."""
        for folder in ("program", "elsewhere"):
            os.mkdir(folder)
        for path in [support.ZEL, *glob.glob(os.path.join(os.path.dirname(support.ZEL), "lib*"))]:
            shutil.copy(path, "program")
        shutil.copy(os.environ["ZEL_INTRUDER"], "program/libkernaldec.so")
        write("input", b"input")
        write("elsewhere/secret", b"secret")

    def test_a_decoder_can_do_no_harm(self):
        os.environ.update(ZEL_INPUT="input", ZEL_SECRET="elsewhere/secret", ZEL_NEW_FILE="elsewhere/new")

        def tried(*options):
            done = subprocess.run(["program/zel", "info", *options, "input"], capture_output=True, check=False, text=True)
            return dict(line.split(": ", 1) for line in (done.stderr + done.stdout).splitlines()[:7])

        attempts = ["input", "secret", "other folder", "socket", "other process", "child", "program"]
        self.assertEqual({k: v for k, v in tried("--no-sandbox").items() if k != "other process"},
                         {k: "done" for k in attempts if k != "other process"})
        os.remove("elsewhere/new")
        has = zel("--version")[1]
        forbidden = "Operation not permitted" if "seccomp" in has else "done"
        hidden = "Permission denied" if "Landlock" in has else "done"
        self.assertEqual(tried(), dict(zip(attempts, ["done", hidden, hidden] + 4 * [forbidden])))
