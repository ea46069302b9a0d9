#include "hostcheck/isolation.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <thread>

namespace ox::hostcheck::internal {
namespace {

using Clock = std::chrono::steady_clock;

// The verdict crosses the pipe as one of these, in the order of Outcome, and the detail, ended by a
// line feed.
constexpr char kOutcomeLetters[] = "pfs";
// Each byte may become four.
constexpr std::size_t kMaxDetail = 1000;

[[noreturn]] void ThrowErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

struct Pipe {
  Pipe() {
    if (pipe2(ends, O_CLOEXEC) != 0) ThrowErrno("cannot make a pipe");
  }
  ~Pipe() {
    close(ends[0]);
    CloseWriteEnd();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void CloseWriteEnd() {
    if (ends[1] >= 0) close(ends[1]);
    ends[1] = -1;
  }

  int ends[2];
};

// The child ends with its check, or with the parent when that is interrupted. So does every process
// that the host has started: all of them are one process group.
class Child {
 public:
  explicit Child(pid_t pid) : group_(pid), pid_(pid) { setpgid(pid, pid); }
  ~Child() {
    kill(-group_, SIGKILL);
    if (pid_ > 0) End();
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // False when it still runs at the deadline.
  bool WaitForStatus(Clock::time_point deadline, int* status) {
    while (waitpid(pid_, status, WNOHANG) != pid_) {
      if (Clock::now() >= deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    pid_ = 0;
    return true;
  }

 private:
  void End() const {
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }

  pid_t group_;
  pid_t pid_;
};

Verdict RunHere(const std::function<void()>& body) {
  try {
    body();
    return {Outcome::kPassed, ""};
  } catch (const Skipped& skipped) {
    return {Outcome::kSkipped, skipped.what()};
  } catch (const std::exception& failure) {
    return {Outcome::kFailed, failure.what()};
  } catch (...) {
    return {Outcome::kFailed, "an exception of an unknown type came out of the host"};
  }
}

// The detail may hold anything that the host gave. Other bytes than printable ASCII become \xNN.
std::string Printable(const std::string& text) {
  std::string printable;
  for (const char c : text) {
    std::array<char, 5> escaped;
    std::snprintf(escaped.data(), escaped.size(), "\\x%02X", static_cast<unsigned char>(c));
    printable += c < 0x20 || c > 0x7E ? escaped.data() : std::string(1, c);
  }
  return printable;
}

std::string Encode(const Verdict& verdict) {
  return kOutcomeLetters[static_cast<int>(verdict.outcome)] +
         Printable(verdict.detail.substr(0, kMaxDetail)) + '\n';
}

Verdict Decode(const std::string& line) {
  const char* letter = std::strchr(kOutcomeLetters, line[0]);
  if (letter == nullptr || *letter == '\0') {
    return {Outcome::kFailed, "wrote to a descriptor that is not the host's"};
  }
  return {static_cast<Outcome>(letter - kOutcomeLetters), line.substr(1)};
}

[[noreturn]] void RunChild(const std::function<void()>& body, int out) {
  // The parent does the same. Either of the two may come first.
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const rlimit noCore = {0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  // A crash would lose what waits in a buffer.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const std::string text = Encode(RunHere(body));
  // At most PIPE_BUF bytes: they are written in one piece or, when the parent is gone, not at all.
  const ssize_t written = write(out, text.data(), text.size());
  // Not exit: threads of a failed check may still hang in the host.
  _exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
}

enum class Answer { kComplete, kEnded, kLate };

Answer ReadLine(int in, Clock::time_point deadline, std::string* line) {
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return Answer::kLate;
    pollfd waiting = {in, POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(left.count())) <= 0) continue;
    char part[512];
    const ssize_t got = read(in, part, sizeof part);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return Answer::kEnded;
    line->append(part, static_cast<std::size_t>(got));
    if (line->back() != '\n') continue;
    line->pop_back();
    return Answer::kComplete;
  }
}

std::string DescribeEnd(int status) {
  if (WIFSIGNALED(status)) return std::string("crashed: ") + strsignal(WTERMSIG(status));
  return "ended the process with status " + std::to_string(WEXITSTATUS(status));
}

std::string DescribeLateness(std::chrono::milliseconds timeout) {
  return "did not come back within " + std::to_string(timeout.count()) + " ms";
}

}  // namespace

Verdict RunIsolated(const std::function<void()>& body, std::chrono::milliseconds timeout) {
  Pipe pipe;
  std::fflush(nullptr);
  const Clock::time_point deadline = Clock::now() + timeout;
  const pid_t pid = fork();
  if (pid < 0) ThrowErrno("cannot start a process");
  if (pid == 0) RunChild(body, pipe.ends[1]);

  Child child(pid);
  pipe.CloseWriteEnd();
  std::string line;
  const Answer answer = ReadLine(pipe.ends[0], deadline, &line);
  if (answer == Answer::kComplete) return Decode(line);
  int status = 0;
  if (answer == Answer::kEnded && child.WaitForStatus(deadline, &status)) {
    return {Outcome::kFailed, DescribeEnd(status)};
  }
  return {Outcome::kFailed, DescribeLateness(timeout)};
}

}  // namespace ox::hostcheck::internal
