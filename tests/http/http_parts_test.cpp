// What HTTP says in texts, read on its own: dates, directives, lists, ranges, conditions, URLs, and
// what follows from them for a stored answer.
#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "http/byte_range.h"
#include "http/freshness.h"
#include "http/http_date.h"
#include "http/stored_answer.h"
#include "http/url.h"
#include "http/validation.h"
#include "http/vary.h"

namespace ox::internal::http {
namespace {

constexpr std::int64_t kNow = 1700000000;  // 14 November 2023
constexpr std::int64_t kNone = std::numeric_limits<std::int64_t>::min();

// Of lines "Name: value".
HeaderList Headers(const std::string& lines) {
  HeaderList headers;
  std::istringstream text(lines);
  for (std::string line; std::getline(text, line);) {
    const std::size_t colon = line.find(": ");
    headers.push_back({line.substr(0, colon), line.substr(colon + 2)});
  }
  return headers;
}

StoredAnswer Answer(const std::string& lines) {
  StoredAnswer answer;
  answer.status = 200;
  answer.requestTime = answer.responseTime = kNow;
  answer.headers = Headers(lines);
  return answer;
}

std::int64_t Date(const std::string& text) {
  return ParseHttpDate(text, kNow).value_or(kNone);
}

TEST(HttpDate, ThreeFormsAndNothingElse) {
  const struct {
    std::string text;
    std::int64_t seconds;
  } cases[] = {{"Sun, 06 Nov 1994 08:49:37 GMT", 784111777},
               {"Sunday, 06-Nov-94 08:49:37 GMT", 784111777},
               {"Sun Nov  6 08:49:37 1994", 784111777},
               {"Thu, 01 Jan 1970 00:00:00 GMT", 0},
               {"Tue, 29 Feb 2000 23:59:60 GMT", 951868800},
               {"Sun, 29 Feb 2004 00:00:00 GMT", 1078012800},
               {"Fri, 01 Mar 2024 00:00:00 GMT", 1709251200},
               {"Sun, 31 Dec 1972 00:00:00 GMT", 94608000},
               {"Fri, 31 Dec 9999 23:59:59 GMT", 253402300799},
               {"Mon, 01 Jan 0001 00:00:00 GMT", -62135596800},
               {"Monday, 06-Nov-73 00:00:00 GMT", 3277152000},  // fifty years ahead
               {"Wednesday, 06-Nov-74 00:00:00 GMT", 152928000}};
  for (const auto& [text, seconds] : cases) {
    EXPECT_EQ(Date(text), seconds) << text;
    EXPECT_EQ(Date(text + " "), kNone) << text;
    for (std::size_t i = 0; i < text.size(); ++i) {
      EXPECT_EQ(Date(text.substr(0, i)), kNone) << text << i;
      EXPECT_EQ(Date(std::string(text).replace(i, 1, "?")), kNone) << text << i;
    }
  }
  // In 2060, and in 2101.
  EXPECT_EQ(ParseHttpDate("Tuesday, 06-Nov-08 00:00:00 GMT", 2850000000), 4381603200);
  EXPECT_EQ(ParseHttpDate("Saturday, 06-Nov-94 00:00:00 GMT", 4133980800), 3939840000);
  for (const char* bad : {"Sun, 00 Nov 1994 08:49:37 GMT", "Sun, 31 Nov 1994 08:49:37 GMT",
                          "Sun, 06 Nov 1994 24:49:37 GMT", "Sun, 06 Nov 1994 08:60:37 GMT",
                          "Sun, 06 Nov 1994 08:49:61 GMT", "Sun, 06 Nov 0000 08:49:37 GMT",
                          "Sun, 29 Feb 1900 00:00:00 GMT", "Sun, 29 Feb 2023 00:00:00 GMT",
                          "Sun,  6 Nov 1994 08:49:37 GMT", "Sun Nov 6  08:49:37 1994",
                          "sun, 06 Nov 1994 08:49:37 GMT", "Sun, 06 Nov 1994 08:49:37 UTC",
                          "1994-11-06T08:49:37Z", "784111777", ""}) {
    EXPECT_EQ(Date(bad), kNone) << bad;
  }
}

std::string Text(const CacheControl& control) {
  std::string text;
  const std::pair<bool, const char*> flags[] = {
      {control.noStore, "no-store "},       {control.noCache, "no-cache "},
      {control.isPublic, "public "},        {control.isPrivate, "private "},
      {control.mustRevalidate, "must-re "}, {control.mustUnderstand, "must-under "},
      {control.onlyIfCached, "only "},      {control.hasSharedMaxAge, "s-maxage "}};
  for (const auto& [isSet, name] : flags)
    text += isSet ? name : "";
  const std::pair<std::optional<std::int64_t>, const char*> times[] = {
      {control.maxAge, "age"},
      {control.minFresh, "min"},
      {control.maxStale, "stale"},
      {control.staleWhileRevalidate, "while"},
      {control.staleIfError, "error"}};
  for (const auto& [seconds, name] : times)
    if (seconds) text += name + std::to_string(*seconds) + " ";
  for (const std::string& name : control.unkeptNames)
    text += "-" + name + " ";
  return text;
}

TEST(CacheControlTest, EachDirectiveAndWhatCannotBeRead) {
  const struct {
    const char* lines;
    const char* text;
  } cases[] = {
      {"Cache-Control: no-store, No-Cache,public , private", "no-store no-cache public private "},
      {"cache-control: must-revalidate, must-understand, only-if-cached, s-maxage=1",
       "must-re must-under only s-maxage "},
      {"Cache-Control: max-age=1, min-fresh=2, max-stale=3, stale-while-revalidate=4, "
       "stale-if-error=5",
       "age1 min2 stale3 while4 error5 "},
      {"Cache-Control: max-stale", "stale9223372036854775807 "},
      {"Cache-Control: max-age=99999999999999999999", "age9223372036854775807 "},
      {"Cache-Control: max-age=\"7\", x=\"a, no-store\"", "age7 "},
      {"Cache-Control: max-age=\"\\7\"", "age7 "},
      {"Cache-Control: max-age=5\nCache-Control: max-age=5", "age5 "},
      {"Cache-Control: max-age=5, max-age=6", "age0 "},
      {"Cache-Control: min-fresh=5, min-fresh=6, stale-if-error=2, stale-if-error=1",
       "min5 error1 "},
      {"Cache-Control: max-age= 5", "age0 "},
      {"Cache-Control: max-age =5", "age0 "},
      {"Cache-Control: max-age=-5", "age0 "},
      {"Cache-Control: max-age=\"5", "age0 "},
      {"Cache-Control: no-cache=\"Set-Cookie, X\"", "-Set-Cookie -X "},
      {"Cache-Control: no-cache=\"\"", "no-cache "},
      {"Pragma: No-Cache", "no-cache "},
      {"Pragma: no-cache\nCache-Control: public", "public "},
      {"Pragma: other", ""}};
  for (const auto& [lines, text] : cases)
    EXPECT_EQ(Text(ParseCacheControl(Headers(lines))), text) << lines;
}

TEST(HeaderListTest, ListsNamesAndValues) {
  const struct {
    const char* value;
    std::vector<std::string_view> members;
  } lists[] = {{"a, b ,\tc", {"a", "b", "c"}},   {",, a,,", {"a"}},
               {"\"a,b\", c", {"\"a,b\"", "c"}}, {"\"a\\\",b\", c", {"\"a\\\",b\"", "c"}},
               {"\"a, b", {"\"a, b"}},           {"", {}}};
  for (const auto& [value, members] : lists)
    EXPECT_EQ(Members(value), members) << value;
  EXPECT_TRUE(SameName("Accept-AZaz09[", "aCCEPT-azAZ09[") && !SameName("a[", "a{"));
  EXPECT_TRUE(!SameName("a", "ab") && !SameName("@", "`"));
  EXPECT_TRUE(IsToken("azAZ09!#$%&'*+-.^_`|~"));
  for (const std::string& bad : {std::string(), std::string("a b"), std::string("a:"),
                                 std::string("a/"), std::string("{"), std::string("a\0", 2)}) {
    EXPECT_FALSE(IsToken(bad)) << bad;
  }
  EXPECT_TRUE(IsFieldValue("a\tb \x7E\x80\xFF"));
  for (const char* bad : {"\x1F", "\x7F", "a\rb", "a\nb"})
    EXPECT_FALSE(IsFieldValue(bad));
  const HeaderList twice = Headers("A: 1\nb: 2\na: 3");
  EXPECT_EQ(Combined(twice, "a"), "1, 3");
  EXPECT_TRUE(!Single(twice, "a") && Single(twice, "B") == "2" && !Single(twice, "c"));
  HeaderList left = Headers(
      "Connection: x-one, Date\nX-One: 1\nDate: d\nTE: t\nUpgrade: u\nKept: k\nBad Name: n");
  RemoveConnectionHeaders(&left);
  ASSERT_EQ(left.size(), 2u);
  EXPECT_TRUE(left[0].name == "Date" && left[1].name == "Kept");
}

std::string Text(const std::optional<ByteRange>& range) {
  return range ? ContentRange(*range) : "none";
}

TEST(ByteRangeTest, OneRangeOfBytes) {
  const struct {
    const char* value;
    const char* range;
  } asked[] = {{"bytes=0-0", "bytes 0-0/10"},
               {"bytes=2-5", "bytes 2-5/10"},
               {"bytes= 2 - 5 ", "bytes 2-5/10"},
               {"bytes=2-", "bytes 2-9/10"},
               {"bytes=9-", "bytes 9-9/10"},
               {"bytes=8-99", "bytes 8-9/10"},
               {"bytes=-3", "bytes 7-9/10"},
               {"bytes=-99", "bytes 0-9/10"},
               {"bytes=10-", "none"},
               {"bytes=5-4", "none"},
               {"bytes=-0", "none"},
               {"bytes=-", "none"},
               {"bytes=x-5", "none"},
               {"bytes=1-x", "none"},
               {"bytes=1-2,4-5", "none"},
               {"lines=1-2", "none"},
               {"bytes=5", "none"},
               {"", "none"}};
  for (const auto& [value, range] : asked)
    EXPECT_EQ(Text(ParseRange(value, 10)), range) << value;
  EXPECT_EQ(Text(ParseRange("bytes=-1", 0)), "none");
  for (const char* same : {"bytes 0-0/1", "bytes 2-5/6", "bytes 0-499/1234"})
    EXPECT_EQ(Text(ParseContentRange(same)), same);
  EXPECT_EQ(Text(ParseContentRange("bytes 3-3/*")), "bytes 3-3/0");
  for (const char* bad :
       {"bytes 2-5/5", "bytes 2-1/9", "bytes 2-5", "bytes 2/5-9", "bytes x-5/9", "bytes 2-x/9",
        "bytes 2-5/x", "bytes */9", "lines 2-5/9", "bytes=2-5/9", "2-5/9", ""}) {
    EXPECT_EQ(Text(ParseContentRange(bad)), "none") << bad;
  }
}

TEST(UrlTest, WhatIsAskedAndWhere) {
  const struct {
    const char* text;
    const char* parts;  // origin, what is requested, user, password
  } cases[] = {{"http://host", "http://host:80 http://host  "},
               {"https://host/", "https://host:443 https://host/  "},
               {"http://host:8080/a?b=c", "http://host:8080 http://host:8080/a?b=c  "},
               {"http://host:65535/", "http://host:65535 http://host:65535/  "},
               {"http://host:080/", "http://host:80 http://host:080/  "},
               {"http://host?q", "http://host:80 http://host?q  "},
               {"http:/0a.b", "http://0a.b:80 http:/0a.b  "},
               {"HTTP://HOST/A", "http://host:80 HTTP://HOST/A  "},
               {"http://10.1/", "http://10.0.0.1:80 http://10.1/  "},
               {"http://a.b-c/%20", "http://a.b-c:80 http://a.b-c/%20  "},
               {"https://u%40:p@host/a@b#f", "https://host:443 https://host/a@b u@ p"},
               {"http://host/a#f", "http://host:80 http://host/a  "},
               {"ftp://host/", ""},
               {"http://", ""},
               {"http://host:99999/", ""},
               {"http://host:/x y", ""},
               {"host/a", ""}};
  for (const auto& [text, parts] : cases) {
    Url url;
    const bool isUrl = !ParseUrl(text, &url);
    EXPECT_EQ(isUrl ? url.origin + " " + url.text + " " + url.user + " " + url.password : "", parts)
        << text;
  }
}

TEST(FreshnessTest, WhatMayBeDoneWithAStoredAnswer) {
  const std::string date = "Date: Tue, 14 Nov 2023 22:13:20 GMT\n";  // kNow
  const std::string minuteAgo = "Date: Tue, 14 Nov 2023 22:12:20 GMT\n";
  const std::string age = "Cache-Control: max-age=60";
  const std::string dayAgo = "Last-Modified: Mon, 13 Nov 2023 22:13:20 GMT\n";
  const std::string longAgo = "Last-Modified: Mon, 13 Nov 2000 22:13:20 GMT\n";
  const struct {
    std::string answer;
    std::string request;
    std::int64_t passed;
    const char* reuse;
  } cases[] = {{"Cache-Control: max-age=60", "", 59, "fresh maybe "},
               {"Cache-Control: max-age=60", "", 60, "maybe "},
               {"Cache-Control: max-age=60", "", -1, "maybe "},
               {"Cache-Control: max-age=60\nAge: 10", "", 49, "fresh maybe "},
               {"Cache-Control: max-age=60\nAge: 10", "", 50, "maybe "},
               {"Cache-Control: max-age=60\nAge: x", "", 0, "maybe "},
               {minuteAgo + "Cache-Control: max-age=61", "", 0, "fresh maybe "},
               {minuteAgo + "Cache-Control: max-age=61", "", 1, "maybe "},
               {"Date: Wed, 15 Nov 2023 22:13:20 GMT\n" + age, "", 0, "fresh maybe "},
               {"Date: Wed, 15 Nov 2023 22:13:21 GMT\n" + age, "", 0, "maybe "},
               {date + "Expires: Tue, 14 Nov 2023 22:13:21 GMT", "", 0, "fresh maybe "},
               {date + "Expires: Tue, 14 Nov 2023 22:13:21 GMT", "", 1, "maybe "},
               {date + "Expires: Tue, 14 Nov 2023 22:13:20 GMT", "", 0, "maybe "},
               {date + "Expires: 0\n" + longAgo, "", 0, "maybe "},
               {date + "Expires: 0\nCache-Control: max-age=9", "", 0, "fresh maybe "},
               {date + dayAgo, "", 8639, "fresh maybe "},
               {date + dayAgo, "", 8640, "maybe "},
               {date + longAgo, "", 86399, "fresh maybe "},
               {date + longAgo, "", 86400, "maybe "},
               {date, "", 0, "maybe "},
               {"Cache-Control: no-cache, max-age=9", "", 0, ""},
               {"Cache-Control: must-revalidate, max-age=9, stale-if-error=9", "", 9, ""},
               {"Cache-Control: max-age=9, stale-while-revalidate=5", "", 14, "meanwhile maybe "},
               {"Cache-Control: max-age=9, stale-while-revalidate=5", "", 15, "maybe "},
               {"Cache-Control: max-age=9, stale-if-error=5", "", 14, "error maybe "},
               {"Cache-Control: max-age=9, stale-if-error=5", "", 15, "maybe "},
               {"Cache-Control: max-age=9", "max-stale=5", 14, "accepted maybe "},
               {"Cache-Control: max-age=9", "max-stale=5", 15, "maybe "},
               {"Cache-Control: max-age=9", "max-stale", 1000000, "accepted maybe "},
               {"Cache-Control: max-age=9", "max-age=5", 5, "fresh maybe "},
               {"Cache-Control: max-age=9", "max-age=5", 6, "maybe "},
               {"Cache-Control: max-age=9", "min-fresh=5", 4, "fresh maybe "},
               {"Cache-Control: max-age=9", "min-fresh=5", 5, "maybe "},
               {"Cache-Control: max-age=9", "no-cache", 0, "maybe "}};
  for (const auto& test : cases) {
    const CacheControl request = ParseCacheControl(Headers("Cache-Control: " + test.request));
    const Reuse reuse = JudgeReuse(Answer(test.answer), request, kNow + test.passed, true);
    std::string text = reuse.isFresh ? "fresh " : "";
    text += reuse.isStaleAccepted ? "accepted " : "";
    text += reuse.whileRevalidating && !reuse.isFresh ? "meanwhile " : "";
    text += reuse.onError && !reuse.isFresh ? "error " : "";
    text += reuse.mayBeStale ? "maybe " : "";
    EXPECT_EQ(text, test.reuse) << test.answer << "; " << test.request << "; " << test.passed;
  }
  StoredAnswer slow = Answer("Cache-Control: max-age=60");
  slow.requestTime -= 7;
  EXPECT_EQ(AgeOf(slow, kNow + 1), 8);
  StoredAnswer unusual = Answer(date + dayAgo);
  unusual.status = 302;
  EXPECT_EQ(FreshnessOf(unusual, kNow, true).lifetime, 0);
  std::string ordinary;
  for (int status = 100; status < 600; ++status)
    ordinary += IsHeuristicallyCacheable(status) ? std::to_string(status) + " " : "";
  EXPECT_EQ(ordinary, "200 203 204 206 300 301 308 404 405 410 414 501 ");
  unusual.headers.push_back({"Cache-Control", "public"});
  EXPECT_EQ(FreshnessOf(unusual, kNow, true).lifetime, 8640);
  EXPECT_EQ(FreshnessOf(unusual, kNow, false).lifetime, 0);
}

TEST(ValidationTest, ConditionsAndValidators) {
  const std::string old = "Last-Modified: Tue, 14 Nov 2023 22:12:20 GMT\n";
  const std::string date = "Date: Tue, 14 Nov 2023 22:13:20 GMT\n";
  const struct {
    std::string answer;
    std::string request;
    bool isNotModified;
  } cases[] = {{"ETag: \"a\"", "If-None-Match: \"a\"", true},
               {"ETag: W/\"a\"", "If-None-Match: \"b\", \"a\"", true},
               {"ETag: \"a\"", "If-None-Match: W/\"a\"", true},
               {"ETag: \"a\"", "If-None-Match: \"b\"", false},
               {"X: y", "If-None-Match: *", true},
               {"X: y", "If-None-Match: \"\"", false},
               {"ETag: \"a\"\n" + old,
                "If-None-Match: \"b\"\nIf-Modified-Since: Tue, 14 Nov 2023 22:13:20 GMT", false},
               {old + date, "If-Modified-Since: Tue, 14 Nov 2023 22:12:20 GMT", true},
               {old + date, "If-Modified-Since: Tue, 14 Nov 2023 22:12:19 GMT", false},
               {date, "If-Modified-Since: Tue, 14 Nov 2023 22:13:20 GMT", true},
               {date, "If-Modified-Since: Tue, 14 Nov 2023 22:13:19 GMT", false},
               {"X: y", "If-Modified-Since: Tue, 14 Nov 2023 22:13:20 GMT", true},
               {"X: y", "If-Modified-Since: Tue, 14 Nov 2023 22:13:19 GMT", false},
               {old, "If-Modified-Since: yesterday", false},
               {old, "X: y", false}};
  for (const auto& test : cases) {
    EXPECT_EQ(IsNotModified(Answer(test.answer), Headers(test.request)), test.isNotModified)
        << test.answer << "; " << test.request;
  }
  EXPECT_EQ(StrongValidator(Answer("ETag: \"a\"\n" + old + date)), "\"a\"");
  EXPECT_EQ(StrongValidator(Answer("ETag: W/\"a\"\n" + old + date)), "");
  EXPECT_EQ(StrongValidator(Answer(old + date)), "Tue, 14 Nov 2023 22:12:20 GMT");
  EXPECT_EQ(StrongValidator(Answer(old + "Date: Tue, 14 Nov 2023 22:13:19 GMT")), "");
  EXPECT_EQ(StrongValidator(Answer(old)), "");
  for (const bool byTagAlone : {false, true}) {
    HeaderList request = Headers("If-Range: x\nA: b");
    EXPECT_NE(AddConditions(Answer(old), byTagAlone, &request), byTagAlone);
    EXPECT_EQ(Find(request, "If-Modified-Since") == nullptr, byTagAlone);
    EXPECT_EQ(Find(request, "If-Range") != nullptr, byTagAlone);
    EXPECT_TRUE(AddConditions(Answer("ETag: e"), byTagAlone, &request));
    EXPECT_EQ(Combined(request, "If-None-Match"), "e");
    EXPECT_TRUE(HasConditions(request) && Find(request, "A") != nullptr);
  }
  StoredAnswer stored = Answer("ETag: e\nLast-Modified: l");
  stored.bodyBytes = 5;
  for (const char* same : {"X: y", "ETag: e\nContent-Length: 5", "Last-Modified: l",
                           "Content-Length: 6\nContent-Encoding: gzip"}) {
    EXPECT_TRUE(IsSameRepresentation(Headers(same), stored)) << same;
  }
  for (const char* other : {"ETag: f", "ETag: e\nLast-Modified: m", "Content-Length: 6"})
    EXPECT_FALSE(IsSameRepresentation(Headers(other), stored)) << other;
  stored = Answer("Age: 1\nDate: d\nX: old\nETag: e");
  Freshen(Headers("x: new\nETag: f\nContent-Length: 9\nY: y"), 3, 4, &stored);
  EXPECT_EQ(Combined(stored.headers, "X") + Combined(stored.headers, "ETag"), "newe");
  EXPECT_EQ(stored.headers.size(), 3u);
  EXPECT_TRUE(stored.requestTime == 3 && stored.responseTime == 4);
}

// The text stays on devices from one version to the next.
TEST(StoredAnswerTest, TheTextOnDisk) {
  const std::string text =
      "URL: http://h/%7F\n"
      "HTTP: 1 404 1700000000 1700000001 5 7\n"
      ">A: 1\n"
      "Vary: A\n"
      "Age: 3\n"
      "ETag: e\n"
      "X: 100%25 %C3%A9 %7F ~%09\n"
      "Server: s\n"
      "Via: v\n";
  StoredAnswer answer =
      Answer("Via: v\nServer: s\nX: 100% \xC3\xA9 \x7F ~\t\nETag: e\nAge: 3\nVary: A");
  answer.status = 404;
  answer.responseTime += 1;
  answer.bodyBytes = 5;
  answer.wholeBytes = 7;
  answer.varied = Headers("A: 1");
  const std::string url = "http://h/\x7F";
  ASSERT_EQ(ToMetadata(answer, url), text);
  // No field value may have the one control character, so that header is not read back.
  const auto again = FromMetadata(std::string(text).replace(text.find(" %7F"), 4, ""), url);
  ASSERT_TRUE(again);
  EXPECT_TRUE(again->status == 404 && again->requestTime == kNow &&
              again->responseTime == kNow + 1 && again->bodyBytes == 5 && again->wholeBytes == 7);
  EXPECT_EQ(Combined(again->headers, "X"), "100% \xC3\xA9 ~\t");
  EXPECT_EQ(Combined(again->varied, "A"), "1");
  EXPECT_EQ(again->headers.size(), 6u);
  EXPECT_EQ(FromMetadata(text, url)->headers.size(), 5u);
  for (std::size_t i = 0; i + 1 < text.find(">A"); ++i) {
    EXPECT_FALSE(FromMetadata(text.substr(0, i), url)) << i;
  }
  for (const char* bad : {"HTTP: 2 404 1 1 5 7", "HTTP: 1 x 1 1 5 7", "HTTP: 1 404 1 1 5 7 8",
                          "HTTP: 1 404 1 1 -5 7", "HTTP: 1 404 1099511627776 1 5 7",
                          "HTTP: 1 404 1 -1099511627776 5 7", "http: 1 404 1 1 5 7"}) {
    EXPECT_FALSE(FromMetadata("URL: http://h/\n" + std::string(bad) + "\n", "http://h/")) << bad;
  }
  EXPECT_FALSE(FromMetadata(text, "http://h/"));
  // Only two hexadecimal digits mean a character.
  for (const char* plain : {"%", "%4", "%4g", "%g4", "%4@", "%a4"}) {
    const auto read = FromMetadata(
        "URL: u\nHTTP: 1 200 1 1 5 7\nX: " + std::string(plain) + "\nno header\n", "u");
    ASSERT_TRUE(read && read->headers.size() == 1);
    EXPECT_EQ(read->headers[0].value, plain);
  }
  // A long URL stands as its beginning and its 64-bit FNV-1a sum.
  const std::string longest = "http://h/" + std::string(291, 'a');
  EXPECT_EQ(ToMetadata(answer, longest)->substr(5, 301), longest + "\n");
  EXPECT_EQ(ToMetadata(answer, longest + "a")->substr(5, 320), longest + "...62a7c26a3d88f11e\n");
  // What does not fit: of less use, so it is left out; needed, so nothing is stored.
  answer.headers = Headers("X: " + std::string(1000, 'x') + "\nETag: e\nAge: 3");
  EXPECT_EQ(FromMetadata(*ToMetadata(answer, url), url)->headers.size(), 2u);
  answer.headers = Headers("Vary: ");
  const std::size_t left = 1024 - ToMetadata(answer, url)->size();
  answer.headers = Headers("Vary: " + std::string(left, 'x'));
  EXPECT_EQ(ToMetadata(answer, url)->size(), 1024u);
  answer.headers[0].value += 'x';
  EXPECT_FALSE(ToMetadata(answer, url));
}

TEST(VaryTest, RequestsThatAreTheSame) {
  const struct {
    const char* vary;
    const char* stored;
    const char* request;
    bool isMatching;
  } cases[] = {{"A, B", "A: 1\nB: 2", "b: 2\na: 1", true},
               {"A", "A: 1", "A: 2", false},
               {"A", "A: 1", "B: 2", false},
               {"A", "B: 1", "A: 1", false},
               {"A", "B: 1", "B: 2", true},
               {"*", "A: 1", "A: 1", false},
               {"A", "A: x,  y", "A: x\nA: y", true},
               {"A", "A: x,y", "A: y,x", false},
               {"A", "A: x", "A: X", false},
               {"Accept-Language", "Accept-Language: de, EN", "accept-language: en,de", true}};
  for (const auto& test : cases) {
    StoredAnswer answer = Answer("Vary: " + std::string(test.vary));
    answer.varied = VariedHeaders(answer.headers, Headers(test.stored));
    EXPECT_EQ(MatchesVary(answer, Headers(test.request)), test.isMatching)
        << test.vary << "; " << test.stored << "; " << test.request;
  }
  for (const char* secret : {"Authorization", "Cookie", "Proxy-Authorization"}) {
    const std::string line = secret + std::string(": s");
    EXPECT_TRUE(VariesBySecret(Headers(std::string("Vary: X, ") + secret), Headers(line)));
    EXPECT_FALSE(VariesBySecret(Headers(std::string("Vary: ") + secret), Headers("X: s")));
    EXPECT_FALSE(VariesBySecret(Headers("Vary: X"), Headers(line + "\nX: s")));
  }
}

}  // namespace
}  // namespace ox::internal::http
