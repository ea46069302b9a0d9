#include "http/http_date.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace ox::internal::http {
namespace {

constexpr std::array<std::string_view, 7> kDays = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
constexpr std::array<std::string_view, 7> kLongDays = {
    "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday", "Sunday"};
constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::int64_t kSecondsOfDay = 86400;

struct Moment {
  int year = 0;
  int month = 0;  // 1 to 12
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

bool IsLeap(int year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int DaysOfMonth(int year, int month) {
  constexpr std::array<int, 12> kLengths = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return kLengths[static_cast<std::size_t>(month - 1)] + (month == 2 && IsLeap(year) ? 1 : 0);
}

// Days from 1970 to the start of the year.
std::int64_t DaysBefore(int year) {
  const std::int64_t y = year - 1;
  return y * 365 + y / 4 - y / 100 + y / 400 - 719162;
}

// timegm would do, but for its 32 bits on the devices.
std::int64_t ToSeconds(const Moment& moment) {
  std::int64_t days = DaysBefore(moment.year) + moment.day - 1;
  for (int month = 1; month < moment.month; ++month)
    days += DaysOfMonth(moment.year, month);
  return ((days * 24 + moment.hour) * 60 + moment.minute) * 60 + moment.second;
}

bool IsPossible(const Moment& moment) {
  return moment.year >= 1 && moment.month >= 1 && moment.month <= 12 && moment.day >= 1 &&
         moment.day <= DaysOfMonth(moment.year, moment.month) && moment.hour <= 23 &&
         moment.minute <= 59 && moment.second <= 60;
}

// Takes pieces off the front of a text. Once a piece does not fit, all that follow do not.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  bool IsDone() const { return isGood_ && rest_.empty(); }

  void Literal(std::string_view text) {
    if (!isGood_ || rest_.substr(0, text.size()) != text) return Fail();
    rest_.remove_prefix(text.size());
  }
  // Exactly so many digits; with `blank`, the first may be a blank.
  int Number(std::size_t digits, bool blank = false) {
    int number = 0;
    for (std::size_t i = 0; i < digits; ++i) {
      const char c = i < rest_.size() ? rest_[i] : '\0';
      const bool isBlank = blank && i == 0 && c == ' ';
      if (!isBlank && (c < '0' || c > '9')) {
        Fail();
        return 0;
      }
      number = number * 10 + (isBlank ? 0 : c - '0');
    }
    if (isGood_) rest_.remove_prefix(digits);
    return number;
  }
  // The place of the word, from 1 on.
  template <std::size_t count>
  int Word(const std::array<std::string_view, count>& words) {
    for (std::size_t i = 0; i < count; ++i) {
      if (rest_.substr(0, words[i].size()) != words[i]) continue;
      rest_.remove_prefix(words[i].size());
      return static_cast<int>(i + 1);
    }
    Fail();
    return 0;
  }
  void Time(Moment* moment) {
    moment->hour = Number(2);
    Literal(":");
    moment->minute = Number(2);
    Literal(":");
    moment->second = Number(2);
  }

 private:
  void Fail() {
    isGood_ = false;
    rest_ = {};
  }

  std::string_view rest_;
  bool isGood_ = true;
};

std::optional<std::int64_t> Checked(const Reader& reader, const Moment& moment) {
  if (!reader.IsDone() || !IsPossible(moment)) return std::nullopt;
  return ToSeconds(moment);
}

std::optional<std::int64_t> ParseFixed(std::string_view text) {
  Reader reader(text);
  Moment moment;
  reader.Word(kDays);
  reader.Literal(", ");
  moment.day = reader.Number(2);
  reader.Literal(" ");
  moment.month = reader.Word(kMonths);
  reader.Literal(" ");
  moment.year = reader.Number(4);
  reader.Literal(" ");
  reader.Time(&moment);
  reader.Literal(" GMT");
  return Checked(reader, moment);
}

std::optional<std::int64_t> ParseRfc850(std::string_view text, std::int64_t now) {
  Reader reader(text);
  Moment moment;
  reader.Word(kLongDays);
  reader.Literal(", ");
  moment.day = reader.Number(2);
  reader.Literal("-");
  moment.month = reader.Word(kMonths);
  reader.Literal("-");
  const int yearOfCentury = reader.Number(2);
  reader.Literal(" ");
  reader.Time(&moment);
  reader.Literal(" GMT");
  const auto thisYear = static_cast<int>(1970 + now / (kSecondsOfDay * 1461 / 4));
  moment.year = thisYear - thisYear % 100 + yearOfCentury;
  if (moment.year > thisYear + 50) moment.year -= 100;
  if (moment.year <= thisYear - 50) moment.year += 100;
  return Checked(reader, moment);
}

std::optional<std::int64_t> ParseAsctime(std::string_view text) {
  Reader reader(text);
  Moment moment;
  reader.Word(kDays);
  reader.Literal(" ");
  moment.month = reader.Word(kMonths);
  reader.Literal(" ");
  moment.day = reader.Number(2, true);
  reader.Literal(" ");
  reader.Time(&moment);
  reader.Literal(" ");
  moment.year = reader.Number(4);
  return Checked(reader, moment);
}

}  // namespace

std::optional<std::int64_t> ParseHttpDate(std::string_view text, std::int64_t now) {
  if (const auto fixed = ParseFixed(text)) return fixed;
  if (const auto rfc850 = ParseRfc850(text, now)) return rfc850;
  return ParseAsctime(text);
}

}  // namespace ox::internal::http
