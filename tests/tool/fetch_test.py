"""Drives "oxcache fetch" against nginx on the loopback, and against a server that breaks off."""

import http.server
import json
import os
import shutil
import socket
import subprocess
import sys
import threading
import time
import unittest

from tool_case import INPUT_OUTPUT, NOT_DONE, TOOL, USAGE, ToolCase

NGINX = shutil.which("nginx", path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")
SKIPPED = 77

CONFIGURATION = """
daemon off;
master_process off;
worker_processes 1;
pid {root}/nginx.pid;
error_log {root}/error.log;
events {{ worker_connections 64; }}
http {{
  access_log {root}/access.log combined;
  types {{ text/html html; }}
  default_type application/octet-stream;
  client_body_temp_path {root}/t1; proxy_temp_path {root}/t2; fastcgi_temp_path {root}/t3;
  uwsgi_temp_path {root}/t4; scgi_temp_path {root}/t5;
  server {{
    listen 127.0.0.1:{port};
    root {root}/www;
    location /fresh/ {{ add_header Cache-Control "public, max-age=3600"; }}
    location /brief/ {{ add_header Cache-Control max-age=2; }}
    location /expires/ {{ expires 1h; add_header Cache-Control ""; }}
    location /no-cache/ {{ add_header Cache-Control "no-cache, max-age=3600"; }}
    location /date-only/ {{ etag off; }}
    location /no-store/ {{ add_header Cache-Control "private, No-Store"; }}
    location /moved/ {{ rewrite ^/moved/(.*)$ /fresh/$1 redirect; }}
    location /broken/ {{ return 503; }}
    location /away {{ return 302 file:///etc/passwd; }}
  }}
}}
"""


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Nginx:
    def __init__(self, root):
        self.root = root
        self.port = free_port()
        os.makedirs(root + "/www")
        with open(root + "/nginx.conf", "w", encoding="ascii") as file:
            file.write(CONFIGURATION.format(root=root, port=self.port))
        self.process = subprocess.Popen(
            [NGINX, "-p", root, "-c", root + "/nginx.conf", "-e", root + "/error.log"],
            stderr=subprocess.DEVNULL)
        for _ in range(100):
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    return
            time.sleep(0.1)
        raise RuntimeError("nginx does not listen")

    def stop(self):
        self.process.terminate()
        self.process.wait()

    def url(self, path):
        return f"http://127.0.0.1:{self.port}/{path}"

    def statuses(self):
        """What was answered so far, without the probe's empty request."""
        with open(self.root + "/access.log", encoding="ascii") as log:
            return [int(line.split('" ')[1].split()[0]) for line in log if '"GET' in line]


class Breaking(http.server.BaseHTTPRequestHandler):
    """Promises more than it sends."""

    protocol_version = "HTTP/1.1"

    def do_GET(self):
        self.send_response(200)
        self.send_header("Cache-Control", "max-age=3600")
        if self.path == "/chunked":
            self.send_header("Transfer-Encoding", "chunked")
            self.end_headers()
            self.wfile.write(b"1f4\r\n" + b"x" * 500 + b"\r\n")
        else:
            self.send_header("Content-Length", "100000")
            self.end_headers()
            self.wfile.write(b"x" * 500)
        self.close_connection = True

    def log_message(self, *_):
        pass


class Fetches(ToolCase):
    def setUp(self):
        super().setUp()
        self.server = Nginx(self.path("nginx"))
        self.addCleanup(self.server.stop)

    def serve(self, path, content):
        return self.server.url(os.path.relpath(self.write("nginx/www/" + path, content),
                                               self.path("nginx/www")))

    def names(self):
        return [entry["metadata"] for entry in json.loads(self.run_tool("ls", "--json"))]

    def test_freshness_and_validators_decide_who_serves(self):
        # Each time: what the tool says and how the server answered, 0 for not being asked.
        cases = [("fresh", [("MISS", 200), ("HIT", 0)]),
                 ("expires", [("MISS", 200), ("HIT", 0)]),
                 ("plain", [("MISS", 200), ("REVALIDATED", 304)]),
                 ("no-cache", [("MISS", 200), ("REVALIDATED", 304)]),
                 ("date-only", [("MISS", 200), ("REVALIDATED", 304)]),
                 ("moved", [("MISS", 200), ("REPLACED", 200)]),
                 ("no-store", [("UNCACHED", 200), ("UNCACHED", 200)])]
        for where, answers in cases:
            content = where.encode() * 20000
            url = self.serve(where + "/file", content)
            if where == "moved":
                self.serve("fresh/file", content)
            for says, status in answers:
                with self.subTest((where, says)):
                    before = len(self.server.statuses())
                    self.assertEqual(self.run_tool("fetch", url, says=says + " http"), content)
                    answered = self.server.statuses()[before:]
                    self.assertEqual(answered[-1] if answered else 0, status)
        self.assertFalse(any("no-store" in metadata for metadata in self.names()))

    def test_a_changed_file_replaces_and_a_forbidden_one_goes(self):
        url = self.serve("plain/file.html", b"old")
        self.run_tool("fetch", url)
        self.assertRegex(self.run_tool("get", url, "--meta").decode(),
                         r'URL: http.*\nFresh-Until: 0\nETag: ".*"\nLast-Modified: .* GMT\n'
                         "Content-Type: text/html\n$")
        self.serve("plain/file.html", b"new content")
        self.assertEqual(self.run_tool("fetch", url, says="REPLACED"), b"new content")
        os.remove(self.path("nginx/www/plain/file.html"))
        self.run_tool("fetch", url, "-o", "out", status=NOT_DONE, says="answered 404")
        self.assertFalse(os.path.exists(self.path("out")))
        url = self.serve("no-store/file", b"secret")
        self.run_tool("put", url, stdin=b"of another time")
        self.assertEqual(self.run_tool("fetch", url, says="UNCACHED"), b"secret")
        self.run_tool("get", url, status=NOT_DONE)

    def test_a_revalidation_renews_the_lifetime(self):
        url = self.serve("brief/file", b"content")
        self.run_tool("fetch", url, says="MISS")
        time.sleep(3)
        self.assertEqual(self.run_tool("fetch", url, says="REVALIDATED"), b"content")
        self.assertEqual(self.run_tool("fetch", url, says="HIT"), b"content")

    def test_failures(self):
        unused = f"http://127.0.0.1:{free_port()}/"
        cases = [(NOT_DONE, "404", [self.server.url("absent")]),
                 (NOT_DONE, "503", [self.server.url("broken/x")]),
                 (INPUT_OUTPUT, "connect", [unused]),
                 (USAGE, "FAILED ftp", ["ftp://127.0.0.1/x"]),
                 (INPUT_OUTPUT, "FAILED.*file", [self.server.url("away")]),
                 (USAGE, "directory", ["-o", "-", unused, unused])]
        for status, says, words in cases:
            with self.subTest(words):
                self.run_tool("fetch", *words, status=status, says=says)
        self.assertEqual(self.names(), [])

    def test_what_is_too_large_or_empty_is_delivered_but_not_stored(self):
        self.run_tool("init", "--max-entry-size", "64K")
        large = self.serve("plain/large", b"x" * 100000)
        empty = self.serve("plain/empty", b"")
        self.assertEqual(self.run_tool("fetch", large, says="UNCACHED.*65536"), b"x" * 100000)
        self.run_tool("fetch", empty, "-o", "out", says="UNCACHED")
        self.assertEqual(self.read("out"), b"")
        self.run_tool("fetch", large, large, status=NOT_DONE, says="FAILED.*65536")
        self.assertEqual(self.names(), [])

    def test_several_at_a_time(self):
        contents = {f"fresh/{i % 5}/file{i}": os.urandom(50000 + i) for i in range(24)}
        urls = [self.serve(path, content) for path, content in contents.items()]
        urls.append(self.serve("fresh/9/file0", b"same name"))
        out = self.run_tool("fetch", "-j", "8", *urls).decode().splitlines()
        self.assertEqual(sorted(out), sorted("MISS " + url for url in urls))
        out = self.run_tool("fetch", "-o", "files", *urls, self.server.url("absent"),
                            status=NOT_DONE).decode().splitlines()
        self.assertEqual(sorted(out), sorted(["HIT " + url for url in urls] +
                                             ["FAILED " + self.server.url("absent")]))
        for path, content in contents.items():
            self.assertEqual(self.read("files/" + os.path.basename(path)), content)
        self.assertEqual(self.read("files/file0-2"), b"same name")
        self.assertEqual(len(os.listdir(self.path("files"))), len(urls))

    def test_a_body_cut_short_is_an_error_and_the_old_entry_stays(self):
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Breaking)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        for path in ("/length", "/chunked"):
            url = f"http://127.0.0.1:{server.server_address[1]}{path}"
            with self.subTest(path):
                self.run_tool("put", url, stdin=b"old")
                self.run_tool("fetch", url, "-o", "out", status=INPUT_OUTPUT, says="FAILED")
                self.assertFalse([file for file in os.listdir(self.scratch) if "out" in file])
                self.assertEqual(self.run_tool("get", url), b"old")
        self.run_tool("verify")


def why_not():
    if NGINX is None:
        return "nginx is not installed (Debian: nginx-light)"
    # Wrong usage, so that nothing is begun.
    tried = subprocess.run([TOOL, "fetch", "-o", "-", "a", "b"], capture_output=True, check=False)
    return "oxcache was built without libcurl" if b"without libcurl" in tried.stderr else None


if __name__ == "__main__":
    reason = why_not()
    if reason:
        print("skipped:", reason)
        sys.exit(SKIPPED)
    unittest.main()
