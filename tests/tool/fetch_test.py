"""Drives "oxcache fetch" against a server in this process, which answers by the first folder of a URL."""

import fcntl
import http.server
import json
import os
import pty
import re
import signal
import socket
import ssl
import struct
import subprocess
import sys
import termios
import threading
import time
import unittest
import zlib
from email.utils import formatdate

from tool_case import DONE, INPUT_OUTPUT, NOT_DONE, TOOL, USAGE, ToolCase

SKIPPED = 77
MODIFIED = "Mon, 05 Jan 2026 10:00:00 GMT"
FOLDERS = {
    "fresh": {"Cache-Control": "public, max-age=3600"},
    "expires": {"Expires": formatdate(4e9, usegmt=True)},
    "plain": {"Cache-Control": "max-age=0"}, "date-only": {"Cache-Control": "max-age=0"}, "aged": {},
    "no-cache": {"Cache-Control": "no-cache, max-age=3600"},
    "no-store": {"Cache-Control": "private, No-Store"},
    "moved": {"Location": "/fresh/moved"}, "away": {"Location": "file:///etc/passwd"},
    "": {}, "broken": {}, "hanging": {"Content-Length": "1000"}, "huge": {"Content-Length": str(2**30)},
    "slow": {"Cache-Control": "max-age=3600"},
    "short": {"Cache-Control": "max-age=3600", "Content-Length": "100000"},
    "chunked": {"Cache-Control": "max-age=3600", "Transfer-Encoding": "chunked"},
}
STATUSES = {"moved": 302, "away": 302, "broken": 503}


class Answer(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        folder = self.path.split("/")[1]
        body = self.server.files.get(self.path)
        headers = {"Last-Modified": MODIFIED, "Content-Type": "text/html", **FOLDERS[folder]}
        if folder != "date-only":
            headers["ETag"] = f'"{zlib.crc32(body or b"")}"'
        status = STATUSES.get(folder, 200 if body is not None else 404)
        validator = "If-None-Match" if "ETag" in headers else "If-Modified-Since"
        if status == 200 and self.headers[validator] == headers.get("ETag", MODIFIED):
            status = 304
        if self.headers.get("If-Range", "") == headers.get("ETag"):
            status, first = 206, int(self.headers["Range"][len("bytes="):-1])
            headers["Content-Range"] = f"bytes {first}-{len(body) - 1}/{len(body)}"
            body = body[first:]
        self.server.statuses.append(status)
        self.send_response(status)
        body = body if status in (200, 206) else b""
        for name, value in {"Content-Length": len(body), **headers}.items():
            if (name, folder) != ("Content-Length", "chunked"):
                self.send_header(name, value)
        self.end_headers()
        if (folder, status) == ("slow", 200):
            for piece in (body[:-1000], body[-1000:-500]):
                self.wfile.write(piece)
                self.server.released.wait(2.1)
            return
        self.wfile.write((b"1f4\r\n" if folder == "chunked" else b"") + body)
        if folder in ("hanging", "huge"):
            self.server.released.wait()
        self.close_connection = True

    def log_message(self, *_):
        pass


class Fetches(ToolCase):
    def setUp(self):
        super().setUp()
        self.begin_server()

    def begin_server(self, security=None):
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Answer)
        self.scheme = "https" if security else "http"
        if security:
            self.server.socket = security.wrap_socket(self.server.socket, server_side=True)
        self.server.files, self.server.statuses = {}, []
        self.server.released = threading.Event()
        threading.Thread(target=self.server.serve_forever, args=[0.01], daemon=True).start()
        self.addCleanup(self.server.server_close)
        self.addCleanup(self.server.shutdown)
        self.addCleanup(self.server.released.set)

    def url(self, path):
        return f"{self.scheme}://127.0.0.1:{self.server.server_address[1]}/{path}"

    def serve(self, path, content):
        self.server.files["/" + path] = content
        return self.url(path)

    def test_freshness_and_validators_decide_who_serves(self):
        # Each time: what the tool says and how the server answered, None for not being asked.
        cases = [("fresh", [("MISS", 200), ("HIT", None)]),
                 ("expires", [("MISS", 200), ("HIT", None)]),
                 ("plain", [("MISS", 200), ("REVALIDATED", 304)]),
                 ("no-cache", [("MISS", 200), ("REVALIDATED", 304)]),
                 ("date-only", [("MISS", 200), ("REVALIDATED", 304)]),
                 ("aged", [("MISS", 200), ("HIT", None)]),
                 ("moved", [("MISS", 200), ("HIT", 302)]),
                 ("no-store", [("UNCACHED", 200), ("UNCACHED", 200)])]
        for where, answers in cases:
            content = where.encode() * 20000
            url = self.serve(where + "/file", content)
            self.serve("fresh/moved", content)
            for says, status in answers:
                with self.subTest((where, says)):
                    self.server.statuses.append(None)
                    # Standard error is no terminal, so it shows nothing before that.
                    self.assertEqual(self.run_tool("fetch", url, says=f"^oxcache: {says} http"), content)
                    self.assertEqual(self.server.statuses[-1], status)
        self.assertFalse(any("no-store" in entry["metadata"] for entry in self.report("ls")))

    def test_what_the_server_changes_is_replaced_renewed_or_removed(self):
        url = self.serve("plain/file", b"old")
        self.run_tool("fetch", url)
        self.assertRegex(self.run_tool("get", url, "--meta").decode(),
                         r'URL: http.*\nHTTP: 1 200 \d+ \d+ 3 0\n(.*\n)*ETag: ".*"\n'
                         r"Last-Modified: .* GMT\nContent-Type: text/html\n")
        self.serve("plain/file", b"new content")
        self.assertEqual(self.run_tool("fetch", url, says="REPLACED"), b"new content")
        self.server.files.clear()
        self.run_tool("fetch", url, "-o", "out", status=NOT_DONE, says="answered 404")
        self.assertFalse(os.path.exists(self.path("out")))
        self.run_tool("rm", url)
        url = self.serve("no-store/file", b"secret")
        self.run_tool("put", url, stdin=b"of another time")
        self.assertEqual(self.run_tool("fetch", url, says="UNCACHED"), b"secret")
        self.run_tool("get", url, status=NOT_DONE)
        # Stored long ago, then "later than now" by a clock that is wrong: neither is fresh.
        url = self.serve("fresh/file", b"content")
        self.run_tool("fetch", url, says="MISS")
        metadata = self.run_tool("get", url, "--meta")
        for times in (b" 200 1000 1000 ", b" 200 9000000000 9000000000 "):
            wrong = re.sub(rb" 200 \d+ \d+ ", times, metadata)
            self.run_tool("put", url, "--meta", wrong, stdin=b"content")
            self.assertEqual(self.run_tool("fetch", url, "--offline", says="STALE"), b"content")
            for says in ("REVALIDATED", "HIT"):
                self.assertEqual(self.run_tool("fetch", url, says=says), b"content")

    def test_failures(self):
        with socket.socket() as unused:
            unused.bind(("127.0.0.1", 0))
            closed = f"http://127.0.0.1:{unused.getsockname()[1]}/"
            cases = [(NOT_DONE, "404", [self.url("plain/absent")]),
                     (NOT_DONE, "503", [self.url("broken/x")]),
                     (INPUT_OUTPUT, "connect", [closed]),
                     (USAGE, "FAILED ftp", ["ftp://127.0.0.1/x"]),
                     (INPUT_OUTPUT, "FAILED.*no http", [self.url("away")]),
                     (INPUT_OUTPUT, "time", ["--timeout", "0.3", self.serve("hanging/x", b"")]),
                     (NOT_DONE, "not stored", ["-H", "X-Empty:", "-H", "Cache-Control: only-if-cached",
                                               closed]),
                     (USAGE, "Name: value", ["-H", "Cache-Control", closed]),
                     (INPUT_OUTPUT, "cannot make the directory",
                      ["-o", self.write("file", b"") + "/x", closed, closed]),
                     (USAGE, "directory", ["-o", "-", closed, closed])]
            for status, says, words in cases:
                with self.subTest(words):
                    self.run_tool("fetch", *words, status=status, says=says)
        self.assertEqual(self.report("ls"), [])

    def test_who_is_trusted_and_who_the_tool_is(self):
        # One certificate for all: of the authority, of the server and of the client.
        subprocess.run("openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=test -days 2 -keyout key"
                       " -out cert -addext subjectAltName=IP:127.0.0.1", shell=True, check=True,
                       cwd=self.scratch, stderr=subprocess.DEVNULL)
        trust, own, stale = ["--cacert", "cert"], ["--cert", "cert", "--key", "key"], ["--stale-if-error"]
        for asks, runs in [(ssl.CERT_NONE, [([], "FAILED.*certificate"), (trust, "MISS"),
                                            ([], "FAILED.*certificate"), (stale, "STALE.*certificate"),
                                            (trust, "REVALIDATED")]),
                           (ssl.CERT_REQUIRED, [(trust, "FAILED"), (trust + own, "MISS"),
                                                (trust + own[:2], "FAILED"), (trust + stale, "STALE")])]:
            security = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            security.load_cert_chain(self.path("cert"), self.path("key"))
            security.load_verify_locations(self.path("cert"))
            security.verify_mode = asks
            self.begin_server(security)
            url = self.serve("plain/file", b"content")
            for words, says in runs:
                with self.subTest((asks, words)):
                    self.run_tool("fetch", url, *words, says=says,
                                  status=INPUT_OUTPUT if "FAILED" in says else DONE)

    def test_what_is_too_large_is_delivered_but_not_stored(self):
        self.run_tool("init", "--max-entry-size", "64K")
        large = self.serve("plain/large", b"x" * 100000)
        self.assertEqual(self.run_tool("fetch", large, says="UNCACHED.*65536"), b"x" * 100000)
        self.run_tool("fetch", large, large, status=NOT_DONE, says="UNCACHED.*65536")
        self.assertEqual(self.report("ls"), [])
        for says in ("MISS", "HIT"):
            self.run_tool("fetch", self.serve("fresh/empty", b""), "-o", "out", says=says)
            self.assertEqual(self.read("out"), b"")

    def test_several_at_a_time(self):
        contents = {f"fresh/{i % 5}/file{i}": os.urandom(50000 + i) for i in range(24)}
        urls = [self.serve(path, content) for path, content in contents.items()]
        urls.append(self.serve("fresh/9/file0", b"same name"))
        absent = self.url("fresh/absent")
        for outcome, more in (("MISS", ["-j", "8"]), ("HIT", ["-o", "files"])):
            out = self.run_tool("fetch", *more, *urls, absent, status=NOT_DONE).decode()
            lines = [line.split(" -> ") for line in out.splitlines()]
            self.assertEqual(sorted(line[0] for line in lines),
                             sorted([f"{outcome} {url}" for url in urls] + ["FAILED " + absent]))
            self.assertEqual(sum(len(line) == 2 for line in lines), len(urls) if "-o" in more else 0)
        for path, content in contents.items():
            self.assertEqual(self.read("files/" + os.path.basename(path)), content)
        self.assertEqual(self.read("files/file0-2"), b"same name")
        self.assertEqual(len(os.listdir(self.path("files"))), len(urls))

    def test_a_proxy_is_used_whatever_the_environment_excepts_and_its_password_is_not_told(self):
        # Longer than a name can be, so that nobody is asked for it.
        url = f"http://{'x' * 64}.invalid/x"
        self.server.files[url] = b"by proxy"
        self.assertEqual(self.run_tool("fetch", "--proxy", self.url(""), url), b"by proxy")
        for proxy in ("http://u:secret@h:bad", "foo://u:secret@h"):
            self.run_tool("fetch", "--refresh", "--proxy", proxy, url, status=INPUT_OUTPUT,
                          says=r"\A(?!.*secret).*FAILED")
        self.run_tool("fetch", "--refresh", url, status=INPUT_OUTPUT, says="FAILED.*resolve")
        out = self.run_tool("fetch", "--refresh", "--stale-if-error", url, says="STALE.*resolve")
        self.assertEqual(out, b"by proxy")

    def test_file_names_have_no_password(self):
        root = self.serve("", b"root").rstrip("/")
        urls = [root.replace("//", slashes + "user:pass@", 1) for slashes in ("/", "//", "///")]
        self.run_tool("fetch", "-o", "files", *urls)
        self.assertEqual(sorted(os.listdir(self.path("files"))), ["index", "index-2", "index-3"])

    def test_urls_come_back_as_they_were_given(self):
        url = self.serve("fresh/file", b"content")
        told = json.loads(self.run_tool("fetch", "--json", "-o", "out", url))
        self.assertEqual((told["url"], told["outcome"], told["status"], told["file"]),
                         (url, "MISS", 200, "out"))
        both = self.run_tool("fetch", "--json", url, url).splitlines()
        self.assertEqual(["file" in json.loads(line) for line in both], [False, False])
        odd = url + "\x1b[31m"
        told = json.loads(self.run_tool("fetch", "--json", odd, status=USAGE, says=r"\$'http.*\\x1b"))
        self.assertEqual((told["url"], told["outcome"]), (odd, "FAILED"))

    def test_what_breaks_off_leaves_the_old_entry_and_no_file(self):
        for folder in ("short", "chunked"):
            with self.subTest(folder):
                url = self.serve(folder + "/file", b"x" * 500)
                self.run_tool("put", url, stdin=b"old")
                self.run_tool("fetch", url, "-o", "out", status=INPUT_OUTPUT, says="FAILED")
                self.assertEqual(self.run_tool("get", url), b"old")
        url = self.serve("hanging/file", b"x" * 500)
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number):
                child = subprocess.Popen([TOOL, "--dir", self.cache, "fetch", url, "-o", "out"],
                                         cwd=self.scratch)
                while not self.part_files():
                    time.sleep(0.01)
                child.send_signal(number)
                self.assertEqual(child.wait(), -number)
        self.assertEqual(self.part_files(), [])
        self.run_tool("verify")

    def test_a_process_that_is_killed_leaves_what_it_had_to_the_next(self):
        for number in (signal.SIGINT, signal.SIGKILL):
            content = os.urandom(1100000)
            url = self.serve(f"slow/{number}", content)
            with subprocess.Popen([TOOL, "--dir", self.cache, "fetch", "-q", url, "-o", "out"],
                                  cwd=self.scratch) as child:
                while not os.path.exists(self.cache) or ".commit" not in str(os.listdir(self.cache)):
                    time.sleep(0.01)
                child.send_signal(number)
            self.assertEqual(self.run_tool("fetch", url, says="MISS"), content)
            self.assertEqual(self.server.statuses[-1], 206)
        self.assertEqual(len(self.report("ls")), 2)

    def part_files(self):
        return [file for file in os.listdir(self.scratch) if file != "cache"]

    def test_progress_is_of_all_files(self):
        urls = [self.serve("huge/1", b"x"), self.serve("huge/2", b"x"), self.serve("plain/3", b"xxx")]
        master, terminal = pty.openpty()
        with subprocess.Popen([TOOL, "--dir", self.cache, "fetch", "-o", self.path("out"), *urls],
                              stderr=terminal, stdout=subprocess.DEVNULL,
                              env=dict(os.environ, TERM="xterm")) as child:
            os.close(terminal)
            shown = b""
            while b"1/3 files, 5 of 2G" not in shown and shown.count(b"/s") < 20:
                shown += os.read(master, 4096)
            child.terminate()
        self.assertIn(b"\r[" + b"." * 30 + b"] 1/3 files, 5 of 2G", shown)
        self.assertEqual(os.listdir(self.path("out")), ["3"])
        os.close(master)

    def test_no_progress_where_the_content_appears(self):
        url = self.serve("no-store/file", b"x" * 100000)
        for is_shown, kind in ((True, "xterm"), (False, "xterm"), (False, "dumb")):
            master, terminal = pty.openpty()
            fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 20, 0, 0))
            with subprocess.Popen([TOOL, "--dir", self.cache, "fetch", url], stderr=terminal,
                                  stdout=terminal if (is_shown, kind) == (False, "xterm")
                                  else subprocess.DEVNULL, env=dict(os.environ, TERM=kind)) as child:
                os.close(terminal)
                shown = b""
                while b"UNCACHED" not in shown:
                    shown += os.read(master, 4096)
            lines = re.findall(rb"\r(./1 files[^\r]*)\x1b\[K", shown)
            self.assertEqual({len(line) for line in lines}, {19} if is_shown else set())
            self.assertEqual(b"\x1b" in shown, is_shown)
            os.close(master)


def is_built_without_fetch():
    # Wrong usage, so that nothing is begun.
    tried = subprocess.run([TOOL, "fetch", "-o", "-", "a", "b"], capture_output=True, check=False)
    return b"without libcurl" in tried.stderr


if __name__ == "__main__":
    if is_built_without_fetch():
        print("skipped: oxcache was built without libcurl")
        sys.exit(SKIPPED)
    unittest.main()
