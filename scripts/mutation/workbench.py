"""A copy of the sources with builds of its own, in which faults are planted and tests are run."""
import collections
import hashlib
import json
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import tempfile
import time

Test = collections.namedtuple("Test", "name command environment targets inputs")

# The test to run first for what lies in a folder of this name; the others follow, the fastest first.
_OWN_TEST = {"host": "host_test", "session": "session_test", "http": "http_parts_test",
             "check": "hostcheck_test", "hostcheck": "hostcheck_test", "oxcache": "tool_test"}
# These say how large the module is and whether other projects can build it, not whether it works.
_NO_TEST = {"module_footprint", "subproject", "subproject_readme", "subproject_fetched"}
DOES_NOT_BUILD = "does not build"
SAME_CODE = "changes no code"  # the compiler makes the same of it, or leaves it out on this machine
_SKIPPED = 77
# Above the largest file that a test makes (a hole of 10 GiB), so that a fault cannot fill the memory.
_LARGEST_FILE = 11 << 30
# What a warning would say about the form of a fault must not keep it from being tried.
_CONFIGURE = {
    "release": ["-DCMAKE_CXX_FLAGS=-Wno-parentheses", "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -DNDEBUG"],
    "tsan": ["-DCMAKE_CXX_FLAGS=-Wno-parentheses", "-DOX_BUILD_EXAMPLES=OFF"],
}
# Faults in locks are judged by what runs threads alone, for as long as a proof takes; killed processes show none.
_ONLY_TESTS = {"tsan": ["threads_test", "http_test"]}
_ENVIRONMENT = {"tsan": {"OX_PROVE": "1", "GTEST_FILTER": "-Kills.*"}}
_FAILED = re.compile(r"\[  FAILED  \] ([\w./]+)|^(?:FAIL|ERROR): (\w+)|(WARNING: ThreadSanitizer: [\w -]+\w)", re.M)


def _limit_file_size():
    resource.setrlimit(resource.RLIMIT_FSIZE, (_LARGEST_FILE, _LARGEST_FILE))


def _why(status, output):
    names = [next(filter(None, groups)) for groups in _FAILED.findall(output)]
    if names:
        return names[0]
    return f"signal {signal.Signals(-status).name}" if status < 0 else f"exit status {status}"


def _only_case(test, failure):
    """The case of GoogleTest alone that failed, where one did."""
    is_case = re.fullmatch(r"[\w/]+\.[\w/]+", failure)
    return test._replace(command=[*test.command, f"--gtest_filter={failure}"]) if is_case else test


class Workbench:
    def __init__(self, home):
        self.home = pathlib.Path(home)
        self.source = self.home / "source"
        self.process = None  # the test that runs
        self.is_stopped = False
        self.tests = {}  # of each preset
        self.seconds = {}  # that each test takes without a fault
        self.digests = {}  # of each object file, without a fault
        self.objects = collections.defaultdict(list)  # that are compiled from each source

    def copy_sources(self, root):
        """Copies what differs, so that a second run builds little."""
        listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=root, check=True,
                                capture_output=True, text=True).stdout.split("\0")
        files = {name for name in listed if name and (root / name).is_file()}
        for old in [path for path in self.source.rglob("*") if path.is_file()]:
            if str(old.relative_to(self.source)) not in files:
                old.unlink()
        for name in files:
            copy = self.source / name
            if not copy.exists() or copy.read_bytes() != (root / name).read_bytes():
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(root / name, copy)

    def build(self, preset, jobs):
        build = self.home / preset
        self._must(["cmake", "--preset", preset, "-B", build, *_CONFIGURE[preset]], self.source)
        self._must(["ninja", "-C", build, f"-j{jobs}", *_ONLY_TESTS.get(preset, [])], self.source)

    def learn(self, preset, files):
        """Sees those tests pass that any of these files is a part of."""
        build = self.home / preset
        only = _ONLY_TESTS.get(preset, [])
        dependencies = self._dependencies(build)
        if preset == "release":
            for name, sources in dependencies.items():
                if not (build / name).exists():
                    continue
                self.digests[name] = self._digest(name)
                for source in sources:
                    self.objects[source].append(name)
        listing = json.loads(self._must(["ctest", "--show-only=json-v1"], build))
        self.tests[preset] = []
        for item in listing["tests"]:
            if item["name"] in _NO_TEST or only and item["name"] not in only:
                continue
            test = self._test(build, item, dependencies)
            if preset == "release" and not any(str(self.source / file) in test.inputs for file in files):
                continue
            begun = time.monotonic()
            failure = self.run(test, preset, 600) and self.run(test, preset, 600)
            if failure:
                raise SystemExit(f"{test.name} fails without a fault ({failure}): see {self.home}")
            self.seconds[preset, test.name] = time.monotonic() - begun
            self.tests[preset].append(test)

    def _must(self, command, directory):
        done = subprocess.run(command, cwd=directory, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if done.returncode != 0:
            raise SystemExit(f"{' '.join(map(str, command))} failed:\n{done.stdout[-4000:]}")
        return done.stdout

    def _dependencies(self, build):
        """The sources and headers that each object file was compiled from."""
        dependencies = collections.defaultdict(set)
        for line in self._must(["ninja", "-t", "deps"], build).splitlines():
            if line.startswith(" "):
                # A cache of compilations writes them relative to the build.
                dependencies[target].add(os.path.normpath(build / line.strip()))
            elif line:
                target = line.split(": #deps")[0]
        return dependencies

    def _digest(self, name):
        return hashlib.sha256((self.home / "release" / name).read_bytes()).digest()

    def _is_same_code(self, path):
        """Only asked of what a single object file is compiled from: that one is needed in any case."""
        objects = self.objects[path]
        if len(objects) != 1:
            return False
        built = subprocess.run(["ninja", "-j1", *objects], cwd=self.home / "release", capture_output=True)
        return built.returncode == 0 and self._digest(objects[0]) == self.digests[objects[0]]

    def _test(self, build, item, dependencies):
        properties = {entry["name"]: entry["value"] for entry in item["properties"]}
        environment = dict(entry.split("=", 1) for entry in properties.get("ENVIRONMENT", []))
        environment.pop("TMPDIR", None)
        files = {word for word in [*item["command"], *environment.values()] if word.startswith(f"{build}/")}
        targets = [os.path.relpath(word, build) for word in sorted(files) if os.path.isfile(word)]
        inputs = set(self._must(["ninja", "-t", "inputs", *targets], build).split("\n"))
        for name in list(inputs):
            inputs |= dependencies.get(name, set())
        return Test(item["name"], item["command"], environment, targets, inputs)

    def run(self, test, preset, seconds):
        """Why the test failed; None when it passed."""
        if self.is_stopped:
            raise SystemExit("stopped")
        memory = "/dev/shm" if os.path.isdir("/dev/shm") else None
        scratch = tempfile.mkdtemp(prefix="mutate-", dir=memory)
        os.chmod(scratch, 0o755)  # some tests are another user for a while
        environment = {**os.environ, **test.environment, **_ENVIRONMENT.get(preset, {}), "TMPDIR": scratch,
                       "GTEST_FAIL_FAST": "1", "PYTHONDONTWRITEBYTECODE": "1"}
        try:
            with tempfile.TemporaryFile("w+", errors="replace") as output:
                stop_at_first = ["-f"] if test.command[-1].endswith(".py") else []
                self.process = subprocess.Popen(
                    [*test.command, *stop_at_first], cwd=self.home, env=environment, stdin=subprocess.DEVNULL, stdout=output,
                    stderr=output, start_new_session=True, preexec_fn=_limit_file_size)
                try:
                    status = self.process.wait(seconds)
                except subprocess.TimeoutExpired:
                    return "time limit"
                finally:
                    self._end_test()
                output.seek(0)
                return None if status in (0, _SKIPPED) else _why(status, output.read(1 << 20))
        finally:
            shutil.rmtree(scratch, ignore_errors=True)

    def stop(self):
        self.is_stopped = True
        self._end_test()

    def _end_test(self):
        """Ends the program that runs and what it started."""
        if self.process is None:
            return
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait()

    def judge(self, fault):
        """What caught the fault: a test with the reason, or None; or why nothing can catch it."""
        preset = "tsan" if fault.operator == "lock" else "release"
        if preset not in self.tests:
            self.build(preset, 1)
            self.learn(preset, set())
        path = self.source / fault.path
        text = path.read_text()
        path.write_text(text[:fault.begin] + fault.new + text[fault.end:])
        try:
            return self._judge_planted(str(path), preset)
        finally:
            path.write_text(text)

    def _judge_planted(self, path, preset):
        if preset == "release" and self._is_same_code(path):
            return SAME_CODE
        own = _OWN_TEST.get(os.path.basename(os.path.dirname(path)), "module_test")
        seeing = [test for test in self.tests[preset] if path in test.inputs]
        for test in sorted(seeing, key=lambda test: (test.name != own, self.seconds[preset, test.name])):
            build = subprocess.run(["ninja", "-j1", *test.targets], cwd=self.home / preset, capture_output=True)
            if build.returncode != 0:
                return DOES_NOT_BUILD
            failure = self._fails(test, preset)
            # Some tests depend on time and fail on a busy machine now and then: twice counts.
            if failure and (test.name == own or self._fails(_only_case(test, failure), preset)):
                return f"{test.name} ({failure})"
        return None

    def _fails(self, test, preset):
        return self.run(test, preset, max(20, 5 * self.seconds[preset, test.name]))
