"""Drives the tool through its commands, but for fetch, and looks at what they leave behind."""

import fcntl
import os
import re
import shutil
import signal
import subprocess
import threading
import time
import unittest

from tool_case import DONE, INPUT_OUTPUT, NOT_DONE, TOOL, USAGE, ToolCase

NAME_OF_ABC = "09100589C32DF40B6D69F3D7821EF727"
ALL_BYTES = bytes(range(256)) * 300
COMPLETION = os.path.join(os.path.dirname(os.path.abspath(__file__)),
                          "../../tools/completion/ox.bash")


def name(digit):
    return digit * 32


class Entries(ToolCase):
    def test_what_is_put_comes_back_byte_for_byte(self):
        file = self.write("content", ALL_BYTES)
        meta = self.write("meta", b"line 1\nline 2\n")
        cases = [(["--meta", "text/plain", file], b"", b"^text/plain$"),
                 ([file, "--meta-file", meta], b"", b"^line 1\nline 2\n$"),
                 ([], ALL_BYTES, rb"^URL: abc\nStored: \d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ\n$"),
                 (["-"], ALL_BYTES, b"^URL: abc\n")]
        for words, stdin, metadata in cases:
            with self.subTest(words):
                self.run_tool("put", "abc", *words, stdin=stdin)
                self.assertEqual(self.run_tool("get", "abc"), ALL_BYTES)
                self.assertRegex(self.run_tool("get", "abc", "--meta"), metadata)
                os.chmod(self.write("out", b"private"), 0o600)
                self.run_tool("get", "abc", "-o", "out")
                self.assertEqual(self.read("out"), ALL_BYTES)
                self.assertEqual(os.stat(self.path("out")).st_mode & 0o777, 0o600)
        self.assertEqual(self.read("cache/" + NAME_OF_ABC), ALL_BYTES)
        self.run_tool("rm", "abc")
        self.run_tool("get", "abc", status=NOT_DONE, says="no entry")

    def test_the_users_cache_directory_is_the_default(self):
        cases = [({"XDG_CACHE_HOME": self.path("xdg")}, "xdg"),
                 ({"XDG_CACHE_HOME": "relative", "HOME": self.path("home")}, "home/.cache"),
                 ({"HOME": self.path("other")}, "other/.cache")]
        for variables, place in cases:
            subprocess.run([TOOL, "put", "abc"], input=b"1", env=variables, cwd=self.scratch, check=True)
            self.assertEqual(self.read(f"{place}/oxcache/{NAME_OF_ABC}"), b"1")

    def test_failures_have_their_status_and_reason(self):
        self.run_tool("init", "--max-size", "8K", "--max-entry-size", "4K", "--max-entries", "2")
        small = self.write("small", b"s" * 100)
        big = self.write("big", b"b" * 5000)
        long_meta = self.write("long-meta", b"m" * 1025)
        self.run_tool("put", "kept", small)
        self.write("out", b"old")
        entry = "too large|limit of one entry|MAX_CACHE_ENTRY_SIZE"
        init = ["init", "--force"]
        cases = [
            (NOT_DONE, "no entry", ["get", "absent", "-o", "out"], b""),
            (NOT_DONE, "no entry", ["rm", "absent"], b""),
            (NOT_DONE, entry, ["put", "kept", big], b""),
            (NOT_DONE, entry, ["put", "kept"], b"b" * 5000),
            (USAGE, "metadata may not be empty", ["put", "kept", small, "--meta", ""], b""),
            (USAGE, "ASCII", ["put", "kept", small, "--meta", "\u00e9"], b""),
            (USAGE, "1024", ["put", "kept", small, "--meta-file", long_meta], b""),
            (USAGE, "URL", ["put", "", small], b""),
            (USAGE, "empty", ["put", "kept"], b""),
            (USAGE, "no such command.*shelve", ["shelve"], b""),
            (USAGE, "url", ["get"], b""),
            (USAGE, "max-size", [*init, "--max-size", "10X"], b""),
            (USAGE, "1024", [*init, "--max-size", "1000"], b""),
            (USAGE, "decimal", [*init, "--max-size", "010K"], b""),
            (USAGE, "not a directory", [*init, "--directory", "small"], b""),
            (USAGE, "--directory: the name is empty", [*init, "--directory", ""], b""),
            (USAGE, "above", [*init, "--max-size", "1M", "--max-entry-size", "2M"], b""),
            (USAGE, "would be lost", [*init, "--directory", "a\nb"], b""),
            (USAGE, "--max-entries must be from 1", [*init, "--max-entries", "0"], b""),
            (USAGE, "--max-entries", [*init, "--max-entries", "4294967296"], b""),
            (INPUT_OUTPUT, "cannot make a temporary file for",
             ["get", "kept", "-o", "/proc/oxcache"], b""),
            (INPUT_OUTPUT, "absent-file: No such file", ["put", "kept", "absent-file"], b""),
            (INPUT_OUTPUT, "absent-meta: No such file",
             ["put", "kept", small, "--meta-file", "absent-meta"], b""),
            (INPUT_OUTPUT, "Is a directory", ["put", "kept", self.scratch], b""),
            (INPUT_OUTPUT, r"a\?\[2J\?b\xe9\?\?: No",
             ["put", "kept", b"a\x1b[2J\nb\xc3\xa9\xc2\x9b\x9b"], b""),
            (INPUT_OUTPUT, "No such file", ["get", "kept", "-o", "absent/out"], b""),
            (INPUT_OUTPUT, "absent.so", ["--module", "absent.so", "get", "kept"], b""),
        ]
        for status, says, words, stdin in cases:
            with self.subTest(words):
                self.run_tool(*words, stdin=stdin, status=status, says=says)
        os.makedirs(self.path("odd/file-cache.conf"))
        self.run_tool("put", "kept", small, directory=self.path("odd"), status=INPUT_OUTPUT,
                      says="not a regular file.*file-cache.conf")
        self.run_tool("init", directory=small + "/x", status=INPUT_OUTPUT,
                      says="cannot make the directory")

        def lose_directory():
            os.mkdir("lost")
            os.chdir("lost")
            os.rmdir("../lost")
        self.run_tool(*init, "--directory", "x", preexec_fn=lose_directory, status=INPUT_OUTPUT,
                      says="absolute: x: No such file")
        self.assertEqual(self.run_tool("get", "kept"), b"s" * 100)
        self.assertEqual(self.read("out"), b"old")

    def test_output_that_cannot_be_written(self):
        self.run_tool("put", "abc", stdin=b"1")
        reader, without_reader = os.pipe()
        os.close(reader)
        full = os.open("/dev/full", os.O_WRONLY)
        # Python itself ignores SIGPIPE, and a program that it starts does so unless it is restored.
        cases = [(full, {}, INPUT_OUTPUT, b"No space left"),
                 (None, {"preexec_fn": lambda: os.close(1)}, INPUT_OUTPUT, b"Bad file"),
                 (without_reader, {"restore_signals": False}, INPUT_OUTPUT, b"Broken pipe"),
                 (without_reader, {}, -signal.SIGPIPE, b"")]
        for output, more, status, says in cases:
            for words in (["get", "abc"], ["ls"], ["batch"]):
                with self.subTest((words, says)):
                    done = subprocess.run([TOOL, "--dir", self.cache, *words], stdout=output,
                                          input=b"ls\nshelve\n", stderr=subprocess.PIPE, check=False, **more)
                    self.assertEqual((done.returncode, says in done.stderr), (status, True))
                    self.assertEqual(done.stderr == b"", says == b"")
        os.close(full)
        os.close(without_reader)

    def test_a_cache_that_another_process_has_is_read_and_left_alone(self):
        self.run_tool("put", "abc", stdin=b"1")
        lock = os.open(self.cache, os.O_RDONLY)
        fcntl.flock(lock, fcntl.LOCK_EX)
        before = self.snapshot()
        self.assertEqual(self.run_tool("get", "abc", says="has the cache.*without"), b"1")
        self.run_tool("get", "absent", status=NOT_DONE, says="no entry")
        for report in ("ls", "stat"):
            self.run_tool(report, says=f"^oxcache: process {os.getpid()} has the cache")
        self.run_tool("rm", "abc", status=NOT_DONE, says="has the cache")
        start = time.monotonic()
        self.run_tool("rm", "abc", "--wait", "1", status=NOT_DONE, says="; waiting\n.*has the cache")
        self.assertGreaterEqual(time.monotonic() - start, 1)
        self.assertEqual(self.snapshot(), before)
        with subprocess.Popen([TOOL, "--dir", self.cache, "--wait", "60", "rm", "abc"],
                              stderr=subprocess.PIPE) as waiting:
            self.assertIn(b"; waiting", waiting.stderr.readline())
            os.close(lock)
            self.assertEqual((waiting.stderr.read(), waiting.wait()), (b"", DONE))
        self.run_tool("ls", says="^$")

    def test_a_read_only_mount_is_read(self):
        self.run_tool("put", "abc", stdin=b"1")
        mount = ["unshare", "-rm", "sh", "-ec",
                 'mount --bind "$1" "$1"; mount -o remount,ro,bind "$1"; shift; "$@"', "sh",
                 self.cache]
        if subprocess.run([*mount, "true"], check=False).returncode:
            self.skipTest("nothing can be mounted here")
        for words, status, out in ((["get", "abc"], DONE, b"^1$"),
                                   (["get", "absent"], NOT_DONE, b"^$"),
                                   (["ls", "--json"], DONE, b'"url":"abc"'),
                                   (["stat"], DONE, b"entries .* 1 of "),
                                   (["rm", "abc"], INPUT_OUTPUT, b"^$")):
            with self.subTest(words):
                done = subprocess.run([*mount, TOOL, "--dir", self.cache, *words],
                                      capture_output=True, check=False)
                self.assertEqual(done.returncode, status, done.stderr)
                self.assertRegex(done.stdout, out)
                self.assertIn(b"Read-only file system", done.stderr)

    @unittest.skipUnless(os.geteuid() == 0, "needs to become another user")
    def test_what_the_effective_user_may_not_write_is_only_read(self):
        with open(TOOL, "rb") as file:
            if b"__asan_init" in file.read():
                self.skipTest("leaks cannot be searched for in what changed its user")
        self.run_tool("put", "abc", stdin=b"1")
        for directory, _, files in os.walk(self.scratch):
            for path in [directory] + [os.path.join(directory, file) for file in files]:
                os.chmod(path, 0o755)
        self.run_tool("ls", says="cannot write in the cache directory.*only read",
                      preexec_fn=lambda: os.seteuid(65534))

    def test_streams_are_not_held_in_memory(self):
        self.run_tool("init", "--max-size", "100M", "--max-entry-size", "100M")
        peaks = []
        for size in (1, 64 << 20):
            with open(self.write("content", b""), "r+b") as content:
                content.truncate(size)
                for words in (["put", "abc"], ["get", "abc", "-o", "out"]):
                    child = subprocess.Popen([TOOL, "--dir", self.cache, *words], stdin=content,
                                             cwd=self.scratch)
                    _, status, usage = os.wait4(child.pid, 0)
                    child.returncode = os.waitstatus_to_exitcode(status)
                    self.assertEqual(child.returncode, DONE)
                    peaks.append(usage.ru_maxrss)
            self.assertEqual(os.path.getsize(self.path("out")), size)
        self.assertLess(max(peaks[2:]) - max(peaks[:2]), 8 << 10, "KiB more for 64 MiB")


class Batches(ToolCase):
    def test_order_of_use_decides_what_goes(self):
        self.run_tool("init", "--max-entries", "3")
        self.write("file", b"content\n")
        lines = ["put a file", "put b file", "put c file", "get a", "put d file",
                 "# a comment", "", "get b", "get a", "rm d", "get d", "trim"]
        out = self.run_tool("batch", stdin="\n".join(lines).encode(), status=NOT_DONE,
                            says=r"line 8: no entry of that URL\n.*line 11: no entry.*\n"
                                 "oxcache: line 12: 0 entries deleted")
        self.assertEqual(out, b"content\n" * 2)

    def test_lines_are_split_as_a_shell_does_and_failures_do_not_stop_it(self):
        self.write("a file", b"1")
        lines = ["put 'it''s' 'a file' --meta \"say \\\"hi\\\" \\n\"", "get --meta its",
                 "put x\\ y a\\ file --meta m", "get --meta 'x y'",
                 "put 'open", "check", "put z -", "get absent", "get 'x y'"]
        out = self.run_tool("batch", stdin="\n".join(lines).encode(), status=USAGE,
                            says="line 5: .*not closed\n.*line 6: no such.*check\n.*line 7: .*"
                                 "the batch\n.*line 8: no entry")
        self.assertEqual(out, b'say "hi" \\nm1')


class Images(ToolCase):
    def order(self, directory):
        return [entry["metadata"] for entry in reversed(self.report("ls", directory=directory))]

    def test_a_frozen_order_outlives_equal_times_and_counts_once(self):
        order = list("cadb")
        for url in order:
            self.run_tool("put", url, "--meta", url, stdin=b"1")
        for entry in self.report("ls"):
            used = 1_000_000_000 + order.index(entry["metadata"])
            os.utime(self.path("cache", entry["name"] + ".ox_meta"), (used, used))
        self.run_tool("freeze", says="4 entries")
        for time in (0, 2_000_000_000):
            copy = self.path(f"copy-{time}")
            shutil.copytree(self.cache, copy)
            for file in os.scandir(copy):
                os.utime(file, (time, time))
            self.assertEqual(self.order(copy), order)
            self.run_tool("get", "a", directory=copy)
            self.assertEqual(self.order(copy), list("cdba"))
            self.assertNotIn("ox-session.order", os.listdir(copy))
            self.run_tool("verify", directory=copy)


class Configurations(ToolCase):
    def test_init_writes_what_the_module_reads_back(self):
        far = "elsewhere/MAX_CACHE_SIZE=5"
        cases = [
            (["--max-size", "10M", "--max-entries", "7", "--max-entry-size", "64K"],
             [10 << 20, 7, 64 << 10, self.cache]),
            (["--max-entry-size", "1G", "--force"], [1 << 30, 1000, 1 << 30, self.cache]),
            (["--max-size", "2048", "--force", "--directory", far],
             [2048, 1000, 2048, self.path(far)]),
        ]
        for words, expected in cases:
            with self.subTest(words):
                self.run_tool("init", *words)
                limits = self.report("limits")
                self.assertEqual([limits[key] for key in (
                    "max_size", "max_entries", "max_entry_size", "cache_directory")], expected)
        self.run_tool("put", "abc", stdin=b"1")
        around = os.path.getsize(self.path("cache/file-cache.conf")) - len(self.path(far))
        longest = "/" + "d" * (999 - around)  # in a text of 1000 bytes
        again = ["init", "--force", "--max-size", "2048", "--directory"]
        self.run_tool(*again, longest + "d", status=USAGE, says="too long")
        self.run_tool(*again, longest, says="1 entry left behind in .*elsewhere")
        self.assertEqual(self.report("limits")["cache_directory"], longest)
        before = self.read("cache/file-cache.conf")
        self.run_tool("init", status=NOT_DONE, says="--force")
        self.assertEqual(self.read("cache/file-cache.conf"), before)

    def test_names_of_temporary_files_cannot_be_prepared(self):
        victim = self.write("victim", b"kept")
        for words in (["init"], ["put", "abc", "--force"]):
            def prepare():
                os.makedirs(self.cache)
                os.symlink(victim, f"{self.cache}/file-cache.conf.{os.getpid()}")
            self.run_tool(*words, stdin=b"1", preexec_fn=prepare)
            self.assertEqual(self.read("victim"), b"kept")
            os.rename(self.cache, self.path("of-" + words[0]))

    def pairs_without_limits(self, configuration):
        for directory in ("cache", "again"):
            self.write(f"{directory}/{NAME_OF_ABC}", b"1")
            self.write(f"{directory}/{NAME_OF_ABC}.ox_meta", b"m")
            if configuration is not None:
                self.write(f"{directory}/file-cache.conf", configuration)

    def test_entries_are_not_lost_to_a_missing_limit(self):
        file = self.write("file", b"2")
        for what, configuration in (("no file", None), ("no limit", b"MAX_CACHE_SIZE=4096\n")):
            self.pairs_without_limits(configuration)
            for words in (["get", "abc"], ["put", "x", file], ["rm", "abc"], ["trim"], ["batch"]):
                with self.subTest((what, words)):
                    self.run_tool(*words, status=NOT_DONE, says="(?s)MAX_CACHE_ENTRIES|"
                                  "file-cache.conf.*oxcache init")
                    self.assertEqual(self.read("cache/" + NAME_OF_ABC), b"1")
            self.run_tool("init", "--force", says="1 entry")
            self.assertEqual(self.run_tool("get", "abc"), b"1")
            self.run_tool("trim", "--force", directory=self.path("again"))
            self.assertFalse(os.path.exists(self.path("again", NAME_OF_ABC)))
            os.remove(self.path("cache/file-cache.conf"))

    def test_a_forced_put_goes_on_only_where_it_can_store(self):
        self.pairs_without_limits(b"MAX_CACHE_SIZE=4096\n")
        self.run_tool("put", "x", "--force", stdin=b"2", status=NOT_DONE, says="admits no entry")
        path = self.path("cache/file-cache.conf")
        os.rename(path, self.path("elsewhere.conf"))
        os.symlink("../elsewhere.conf", path)
        for words in (["limits"], ["check"], ["put", "x"], ["get", "abc", "--force"]):
            self.run_tool(*words, stdin=b"2", status=INPUT_OUTPUT, says="cannot read: .*conf")
        self.assertEqual(self.read("cache/" + NAME_OF_ABC), b"1")
        os.remove(path)
        self.run_tool("put", "x", "--force", stdin=b"2")
        self.assertEqual(self.run_tool("get", "x"), b"2")
        self.run_tool("get", "abc", status=NOT_DONE)

    def test_only_an_empty_directory_becomes_a_cache_unasked(self):
        part = "oxcache-0123456789abcdef.part"
        self.write("again/" + part, b"# Limits")
        self.run_tool("put", "abc", stdin=b"1", directory=self.path("again"))
        for file in ("holiday.jpg", part[1:], part[:-1], part + "x", part.replace("-0", "-"),
                     part.replace("f", "F")):
            self.write("cache/" + file, b"1")
            self.run_tool("put", "abc", stdin=b"1", status=NOT_DONE, says="not empty.*oxcache init")
            self.run_tool("get", "abc", status=NOT_DONE, says="no cache")
            self.assertEqual(os.listdir(self.cache), [file])
            os.remove(self.path("cache", file))

    def test_a_new_file_system_is_an_empty_directory(self):
        os.makedirs(self.cache)
        mount = ["unshare", "-rm", "sh", "-ec", 'mount -t tmpfs none "$1"; mkdir "$1/lost+found"\n'
                 '"$0" --dir "$1" put abc; "$0" --dir "$1" verify', TOOL, self.cache]
        if subprocess.run([*mount[:4], mount[4].split("\n")[0], *mount[5:]], check=False).returncode:
            self.skipTest("nothing can be mounted here")
        subprocess.run(mount, input=b"1", check=True)
        os.makedirs(self.path("cache/lost+found"))
        self.run_tool("put", "abc", stdin=b"1", status=NOT_DONE, says="not empty")


class Reports(ToolCase):
    """A directory with something of everything, oldest first."""

    def setUp(self):
        super().setUp()
        self.write("cache/file-cache.conf",
                   b"MAX_CACHE_SIZE=5000\nMAX_CACHE_ENTRIES=3\nMAX_CACHE_ENTRY_SIZE=3000\n")
        self.age = 200000
        self.pair(name("1"), b"x" * 2000, b"first line\x1b[2J\nsecond")
        self.pair(name("2"), b"x" * 2980, b"m" * 21)  # above the limit of one entry
        self.pair(name("3"), b"x" * 2500, b"\x7f")
        self.pair(name("4"), b"", b"m")
        self.pair(name("5"), b"x" * 500, b"m")  # above the total
        self.pair("small", b"x" * 399, b"\xc2\x9b")
        self.pair(name("6"), b"x" * 10, b"m")  # above the number
        self.write(f"cache/{name('7')}.ox_meta", b"orphan")
        self.write(f"cache/{name('8')}", b"orphan")
        self.write("cache/stranger", b"?")

    def pair(self, entry, content, metadata):
        self.write("cache/" + entry, content)
        path = self.write(f"cache/{entry}.ox_meta", metadata)
        self.age -= 1000
        used = os.stat(path).st_mtime - self.age
        os.utime(path, (used, used))

    def test_reports_change_nothing_and_print_no_control_characters(self):
        for directory in ("cache", "cache-without-limits", "absent"):
            if directory == "cache-without-limits":
                os.rename(self.cache, self.path(directory))
                os.remove(self.path(directory, "file-cache.conf"))
            before = self.snapshot()
            for report in ("ls", "limits", "stat", "check", "verify"):
                bad = directory == "absent" or report in ("check", "verify")
                for words in ([report], [report, "--json"]):
                    out = self.run_tool(*words, directory=self.path(directory),
                                        status=NOT_DONE if bad else DONE)
                    self.assertTrue(out.replace(b"\n", b"").decode("ascii").isprintable(), out)
            self.assertEqual(self.snapshot(), before)

    def test_check_foretells_a_start(self):
        report = self.report("check", status=NOT_DONE)
        told = [(deletion["file"], deletion["reason"]) for deletion in report["deletions"]]
        expected = []
        for entry, reason in ((name("2"), "3001 bytes are above the limit of one entry, 3000"),
                              (name("4"), "empty content"),
                              (name("5"), "total size would be 5001, above its limit, 5000"),
                              (name("6"), "number of entries has reached its limit, 3")):
            expected += [(entry, reason), (entry + ".ox_meta", reason)]
        expected.append((name("7") + ".ox_meta", "content file is not found"))
        self.assertEqual(report["kept"], 3)
        self.assertEqual([file for file, _ in told], [file for file, _ in expected])
        for (_, reason), (_, part) in zip(told, expected):
            self.assertIn(part, reason)
        commit = name("F") + ".0123456789abcdef-1.commit"
        self.write("cache/" + commit, b"metadata")
        self.write("cache/ox-0123456789abcdef-1.part", b"content")
        os.makedirs(self.path("cache", name("F")))
        self.run_tool("check", status=NOT_DONE, says=commit + ": a store that cannot be finished")
        self.assertEqual(self.report("check", status=NOT_DONE)["blocked_commits"], [commit])
        self.assertEqual({problem["name"] for problem in self.report("verify", status=NOT_DONE)["problems"]} &
                         {commit}, {commit})
        os.remove(self.path("cache/file-cache.conf"))
        report = self.report("check", status=NOT_DONE)
        self.assertEqual((report["kept"], len(report["deletions"])), (0, 15))

    def test_verify_and_list_show_every_problem(self):
        self.pair(name("9"), b"1", b"m" * 1025)
        self.pair(name("A"), b"1", b"\xc3")
        self.pair(name("B"), b"1", b"m\0m")
        self.pair(name("C"), b"1", b"")
        os.symlink("stranger", self.path("cache", name("D")))
        self.write("cache/" + name("E"), b"1")
        os.symlink("../stranger", self.path("cache", name("E") + ".ox_meta"))
        os.makedirs(self.path("cache/lost+found"))
        report = self.report("verify", status=NOT_DONE)
        problems = {problem["name"]: problem["problem"] for problem in report["problems"]}
        expected = {
            "small": "no URL", name("4"): "empty content", name("8"): "content without metadata",
            name("7") + ".ox_meta": "metadata without content", "stranger": "foreign",
            name("9") + ".ox_meta": "1024", name("A") + ".ox_meta": "UTF-8",
            name("B") + ".ox_meta": "zero byte", name("C") + ".ox_meta": "empty metadata",
            name("D"): "foreign", name("E") + ".ox_meta": "symbolic", "lost+found": "foreign"}
        self.assertEqual(set(problems), set(expected))
        for file, part in expected.items():
            self.assertIn(part, problems[file])
        self.assertIn(b" (unreadable)\n", self.run_tool("ls", status=INPUT_OUTPUT, says=name("E")))
        listed = {entry["name"]: entry for entry in self.report("ls", status=INPUT_OUTPUT)}
        self.assertEqual((listed[name("E")]["metadata"], listed[name("1")]["metadata"][:5]),
                         (None, "first"))
        self.assertIn("symbolic", listed[name("E")]["problem"])

    def test_verify_finds_what_is_not_what_was_committed(self):
        directory = self.path("sealed")
        files = {}
        for entry in ("same", "flipped", "cut", "other metadata", "moved"):
            self.run_tool("put", entry, "--meta", "text", stdin=b"content", directory=directory)
            files[entry] = self.report("ls", directory=directory)[0]["name"]
        if not os.listxattr(self.path("sealed", files["same"] + ".ox_meta")):
            self.skipTest("no extended attributes here")
        self.write("sealed/" + files["flipped"], b"cOntent")
        self.write("sealed/" + files["cut"], b"cont")
        self.write("sealed/" + files["other metadata"] + ".ox_meta", b"TEXT")
        for suffix in ("", ".ox_meta"):
            os.rename(self.path("sealed", files["moved"] + suffix), self.path("sealed", name("A") + suffix))
        report = self.report("verify", status=NOT_DONE, directory=directory)
        problems = {problem["name"]: problem["problem"] for problem in report["problems"]}
        differs = "is not what was committed: the CRC-32C differs"
        self.assertEqual(problems, {files["flipped"]: differs,
                                    files["cut"]: "has 4 bytes, and 7 were committed",
                                    files["other metadata"] + ".ox_meta": differs,
                                    name("A") + ".ox_meta": "was committed for a URL whose entry "
                                                            "has another name: moved"})

    def test_reports_beside_an_owner_that_stores_and_removes(self):
        self.run_tool("put", "abc", stdin=b"1", directory=self.path("owned"))
        stopped = threading.Event()

        def own():
            contents = [self.path("owned", name(digit)) for digit in "12345"]
            metadata = [content + ".ox_meta" for content in contents]
            while not stopped.is_set():
                for file in metadata + contents:
                    os.rename(self.write("new", b"1"), file)
                for file in contents + metadata:
                    os.remove(file)

        owner = threading.Thread(target=own)
        owner.start()
        self.addCleanup(owner.join)
        self.addCleanup(stopped.set)
        complaints = []
        for _ in range(10):
            for report in ("verify", "check", "ls"):
                try:
                    self.run_tool(report, directory=self.path("owned"))
                except AssertionError as complaint:
                    complaints.append(str(complaint))
        # A busy machine may stop the owner between two files for as long as the reports look.
        # Without their second look more than six complain.
        self.assertLess(len(complaints), 3, complaints)

    def test_list_and_statistics(self):
        lines = self.run_tool("ls").decode().splitlines()
        self.assertEqual([line.split()[0] for line in lines],
                         [name("6"), "small", *(name(digit) for digit in "54321")])
        self.assertEqual(lines[-1].split(None, 4),
                         [name("1"), "2000", "21", "2d", "first line?[2J"])
        statistics = self.report("stat")
        self.assertEqual((statistics["entries"], statistics["largest_entry"]), (7, 3001))
        block = os.statvfs(self.cache).f_frsize
        self.assertEqual(statistics["block_size"], block)
        self.assertEqual(statistics["bytes_on_disk"], block * 13)  # one content is empty
        self.assertGreater(statistics["free_bytes"], 0)
        self.assertEqual(statistics["bytes"], sum(
            os.path.getsize(self.path("cache", file)) for entry in "123456"
            for file in (name(entry), name(entry) + ".ox_meta")) + 401)
        self.assertEqual(statistics["content_without_metadata"], [name("8")])
        self.assertEqual(statistics["foreign_files"], ["stranger"])
        text = self.run_tool("stat").decode()
        self.assertRegex(text, r"\ntotal size .*\nentries +\[#{30}\] 233%  7 of 3\n"
                               r"largest entry .*\ncontents .*, counted in blocks of .*\nfree space ")
        self.assertIn("foreign files:\n  stranger\n", text)
        os.remove(self.path("cache/file-cache.conf"))
        self.assertRegex(self.run_tool("stat").decode(), r"\nentries +\[\.{30}\] 100%  7 of 0\n")

    def test_trim_to_a_target_and_clear(self):
        shutil.rmtree(self.cache)
        self.run_tool("init")
        self.run_tool("batch", stdin=b"".join(
            b"put %c %s\n" % (url, self.write("ten", b"x" * 10).encode()) for url in b"abcdefgh"))
        size = self.report("stat")["bytes_on_disk"]
        old = self.path("cache", self.report("ls")[0]["name"] + ".ox_meta")
        os.utime(old, (1, 1))
        for words, says in (("--older-than 1d", "1 entry"), ("--older-than 1h", "0 entries"),
                            ("--to-entries 7 --to 1G", "0 entries"),
                            ("--to-entries 6", "1 entry"), (f"--to {size // 8 * 5}", "1 entry")):
            self.run_tool("trim", *words.split(), says=f"^oxcache: {says} deleted")
        for age in ("1", "1w", "-1s", "010s"):
            self.run_tool("trim", "--older-than", age, status=USAGE)
        self.run_tool("clear", says="5 entries deleted")
        self.run_tool("put", "a", self.path("ten"))
        metrics = self.run_tool("stat", "--metrics").decode()
        self.assertRegex(metrics, r'\noxfilecache_entries{cache=".*/cache"} 1\n(.*\n)*# EOF\n$')
        lines = self.run_tool("batch", stdin=b"get a\nstat --metrics\nclear", says="1 entry deleted")
        self.assertRegex(lines.decode(), r'\noxfilecache_hits_total{cache=".*"} 1\n')
        self.assertEqual(self.run_tool("ls"), b"")

    def test_ages_at_their_borders(self):
        shutil.rmtree(self.cache)
        for digit, border in enumerate((604800, 86400, 3600, 60)):
            for entry, age in ((str(2 * digit), border), (str(2 * digit + 1), border - 9)):
                self.age = age + 1000
                self.pair(name(entry), b"1", b"m")
        counts = [age["entries"] for age in self.report("stat")["last_used"]]
        self.assertEqual(counts, [1, 2, 2, 2, 1])
        ages = [line.split()[3] for line in self.run_tool("ls").decode().splitlines()]
        self.assertEqual(ages[1:], ["1m", "59m", "1h", "23h", "1d", "6d", "7d"])

    def test_trim_leaves_what_a_start_keeps_and_counts_what_the_opening_deleted(self):
        self.write("cache/file-cache.conf", b"MAX_CACHE_SIZE=30000\nMAX_CACHE_ENTRIES=3\n"
                                            b"MAX_CACHE_ENTRY_SIZE=3000\n")
        self.run_tool("trim", says="4 entries and 2 files that belonged to no entry deleted")
        self.run_tool("check")
        statistics = self.report("stat")
        self.assertLessEqual(statistics["bytes"], 4500)
        self.assertEqual(statistics["entries"], 3)
        self.assertEqual(self.read("cache/stranger"), b"?")


@unittest.skipUnless(shutil.which("bash"), "needs bash")
class Completion(ToolCase):
    def complete(self, words):
        script = 'source "$1"; COMP_LINE=$3 COMP_POINT=${#3}; _ox "$2" "${3##* }"; ' \
                 'printf "%s\\n" "${COMPREPLY[@]}"'
        done = subprocess.run(["bash", "-c", script, "bash", COMPLETION, TOOL, "oxcache " + words],
                              capture_output=True, text=True, cwd=self.scratch, check=True)
        self.assertEqual(done.stderr, "")
        return set(done.stdout.split())

    def test_what_help_tells_is_offered(self):
        def options(text):
            return set(",".join(re.findall(r"^  (-\S+)", text, re.M)).split(","))

        whole = self.run_tool("--help").decode()
        commands = re.findall(r"^  ([a-z]+) ", whole[whole.index("Subcommands:"):], re.M)
        self.assertIn("put", commands)
        self.assertEqual(self.complete(""), set(commands))
        for command in commands:
            own = options(self.run_tool(command, "--help").decode())
            self.assertEqual(self.complete(command + " -"), options(whole) | own, command)
        self.write("cache/small", b"1")
        self.write("small", b"1")
        cases = [("--durability ", {"none", "power", "process"}), ("--durability=no", {"none"}),
                 ("--dir ", {"cache"}), ("put http://a:1/b ", {"cache", "small"}),
                 ("put ", set()), ("--dir cache put --meta x u s", {"small"}),
                 ("get u -o s", {"small"}), ("init --max-size ", set()), ("absent ", set())]
        for words, offered in cases:
            self.assertEqual(self.complete(words), offered, words)


if __name__ == "__main__":
    unittest.main()
