#include "tools/oxcache/batch.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include "tools/oxcache/command_line.h"

namespace ox::tools {
namespace {

class WordSplitter {
 public:
  explicit WordSplitter(const std::string& line) : line_(line) {}

  std::optional<std::vector<std::string>> Split() {
    while (SkipBlanks()) {
      std::string word;
      if (!TakeWord(&word)) return std::nullopt;
      words_.push_back(std::move(word));
    }
    return std::move(words_);
  }

 private:
  static bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

  // True when a word follows.
  bool SkipBlanks() {
    while (next_ < line_.size() && IsBlank(line_[next_]))
      ++next_;
    return next_ < line_.size() && line_[next_] != '#';
  }

  bool TakeWord(std::string* word) {
    while (next_ < line_.size() && !IsBlank(line_[next_])) {
      const char c = line_[next_++];
      if (c == '\'' || c == '"') {
        if (!TakeQuoted(c, word)) return false;
      } else if (c != '\\') {
        *word += c;
      } else if (next_ == line_.size()) {
        return false;
      } else {
        *word += line_[next_++];
      }
    }
    return true;
  }

  // Within "..." a backslash quotes only a quotation mark and a backslash. Before any other
  // character it stands for itself.
  bool IsEscape(char quote) const {
    return quote == '"' && line_[next_] == '\\' && next_ + 1 < line_.size() &&
           (line_[next_ + 1] == '"' || line_[next_ + 1] == '\\');
  }

  bool TakeQuoted(char quote, std::string* word) {
    while (next_ < line_.size() && line_[next_] != quote) {
      if (IsEscape(quote)) ++next_;
      *word += line_[next_++];
    }
    if (next_ == line_.size()) return false;
    ++next_;
    return true;
  }

  const std::string& line_;
  std::size_t next_ = 0;
  std::vector<std::string> words_;
};

ExitStatus RunLine(Context& context, const std::string& line) {
  auto words = SplitWords(line);
  if (!words || line.find('\0') != std::string::npos) {
    return context.Fail(
        MakeError(ErrorKind::kInvalidArgument,
                  words ? "the line has a zero byte" : "a quotation mark is not closed"));
  }
  if (words->empty()) return ExitStatus::kDone;
  Invocation invocation;
  const Parsed parsed = ParseLine(std::move(*words), &invocation);
  if (parsed.isCommand) return Run(context, invocation);
  if (parsed.status == ExitStatus::kDone) return context.Print(parsed.text);
  context.Tell(parsed.text);
  return parsed.status;
}

// Lines from standard input.
class LineReader {
 public:
  ~LineReader() { std::free(text_); }

  bool Next(std::string* line) {
    ssize_t length = getline(&text_, &capacity_, stdin);
    if (length < 0) return false;
    if (text_[length - 1] == '\n') --length;
    line->assign(text_, static_cast<std::size_t>(length));
    return true;
  }

 private:
  char* text_ = nullptr;
  std::size_t capacity_ = 0;
};

}  // namespace

std::optional<std::vector<std::string>> SplitWords(const std::string& line) {
  return WordSplitter(line).Split();
}

ExitStatus Batch(Context& context) {
  Error error;
  if (context.Session(Context::Purpose::kStore, &error) == nullptr) return context.Fail(error);
  ExitStatus worst = ExitStatus::kDone;
  LineReader reader;
  std::string line;
  for (unsigned number = 1; !context.HasLostReader() && reader.Next(&line); ++number) {
    context.SetLine(number);
    worst = Worse(worst, RunLine(context, line));
  }
  context.SetLine(0);
  if (std::ferror(stdin) == 0) return worst;
  return Worse(worst, context.Fail(SystemError("cannot read", "standard input")));
}

}  // namespace ox::tools
