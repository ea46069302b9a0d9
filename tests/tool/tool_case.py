"""What the tests of the tool share: a scratch directory and a way to run the tool in it."""

import json
import os
import shutil
import signal
import subprocess
import tempfile
import unittest

TOOL = os.environ["OX_TOOL"]
DONE, NOT_DONE, USAGE, INPUT_OUTPUT = range(4)
# The tool goes on ignoring what it was started to ignore: under nohup, or behind a shell's "&".
for ignored in (signal.SIGHUP, signal.SIGINT):
    if signal.getsignal(ignored) == signal.SIG_IGN:
        signal.signal(ignored, signal.SIG_DFL)


class ToolCase(unittest.TestCase):
    def setUp(self):
        self.scratch = tempfile.mkdtemp(prefix="oxcache-test-")
        self.addCleanup(shutil.rmtree, self.scratch)
        self.cache = self.path("cache")

    def path(self, *parts):
        return os.path.join(self.scratch, *parts)

    def write(self, name, content):
        path = self.path(name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content)
        return path

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def snapshot(self):
        listing = {}
        for directory, _, files in os.walk(self.scratch):
            for path in [directory] + [os.path.join(directory, file) for file in files]:
                status = os.lstat(path)
                listing[path] = (status.st_ino, status.st_mode, status.st_size, status.st_mtime_ns)
        return listing

    def run_tool(self, *words, stdin=b"", status=DONE, says=None, directory=None, **more):
        """Runs the tool and returns its standard output; checks its status and messages."""
        environment = dict(os.environ, XDG_CACHE_HOME=self.path("xdg"), no_proxy="*",
                           TERM="xterm")
        command = [TOOL, "--dir", directory or self.cache, *words]
        done = subprocess.run(command, input=stdin, capture_output=True, env=environment,
                              cwd=self.scratch, timeout=120, check=False, **more)
        told = done.stderr.decode(errors="replace")
        self.assertEqual(done.returncode, status, f"{words}: {told}")
        if says is not None:
            self.assertRegex(told, says, words)
        return done.stdout

    def report(self, *words, status=DONE, **more):
        return json.loads(self.run_tool(*words, "--json", status=status, **more))
