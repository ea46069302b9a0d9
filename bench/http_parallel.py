"""50 URLs at once: "oxcache fetch" into an empty cache, again from the cache, and "curl --parallel".

    http_parallel.py OXCACHE

Each answer of the server takes 20 ms. The figures are medians of 41 rounds, in milliseconds, and the
ratio is the median of those to curl in the same round.
"""

import http.server
import os
import statistics
import subprocess
import sys
import tempfile
import threading
import time

COUNT, BYTES, DELAY, ROUNDS = 50, 16384, 0.02, 41
BODY = os.urandom(BYTES)


class Answer(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        time.sleep(DELAY)
        self.send_response(200)
        self.send_header("Content-Length", str(BYTES))
        self.send_header("Cache-Control", "max-age=1000")
        self.end_headers()
        self.wfile.write(BODY)

    def log_message(self, *_):
        pass


class Server(http.server.ThreadingHTTPServer):
    request_queue_size = 128


def milliseconds(command):
    start = time.monotonic()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return (time.monotonic() - start) * 1000


def main():
    server = Server(("127.0.0.1", 0), Answer)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    urls = [f"http://127.0.0.1:{server.server_address[1]}/{i}" for i in range(COUNT)]
    times = {"fetch, empty cache": [], "fetch, from the cache": [], "curl --parallel": []}
    for _ in range(ROUNDS):
        with tempfile.TemporaryDirectory() as scratch:
            fetch = [sys.argv[1], "--dir", scratch + "/cache", "fetch", "-q", "-j", str(COUNT), *urls]
            times["fetch, empty cache"].append(milliseconds(fetch))
            times["fetch, from the cache"].append(milliseconds(fetch))
            curl = ["curl", "-s", "--parallel", "--parallel-immediate", "--create-dirs",
                    "--output-dir", scratch + "/out", "--remote-name-all", *urls]
            times["curl --parallel"].append(milliseconds(curl))
    for name, values in times.items():
        ratios = [value / curl for value, curl in zip(values, times["curl --parallel"])]
        print(f"{name}: {statistics.median(values):.0f} ms, ratio {statistics.median(ratios):.2f}")


if __name__ == "__main__":
    main()
