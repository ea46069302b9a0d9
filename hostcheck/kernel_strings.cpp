// The string primitives.
#include <climits>
#include <cstdint>

#include "hostcheck/check.h"

namespace ox::hostcheck::internal {
namespace {

void MeasuresBytes(Run& run) {
  const struct {
    const char* text;
    std::size_t length;
  } cases[] = {{"", 0}, {"x", 1}, {"file-cache.conf", 15}, {"\xC3\xA9\xF0\x9F\x98\x80", 6}};
  for (const auto& c : cases) {
    const std::size_t length = run.Kernel().StrLen(c.text);
    Expect(length == c.length, "the length of " + Quote(c.text) + " is " + std::to_string(length));
  }
}

// Units with a zero byte in them end no text.
void MeasuresUnits(Run& run) {
  const std::uint16_t text[] = {'a', 0x0100, 0x20AC, 0xD83D, 0xDE00, 0, 'b', 0};
  Expect(run.Kernel().StrLen16(text) == 5, "a text of 5 units was not measured as 5");
  Expect(run.Kernel().StrLen16(text + 5) == 0, "an empty text was not measured as 0");
}

void ComparesTexts(Run& run) {
  const std::string path = "/var/cache/9A0364B9E99BB480DD25E1F0284C8555";
  const std::string copy = path;
  Expect(run.Kernel().StrCmp(path.c_str(), copy.c_str()) == 0, "equal texts gave nonzero");
  Expect(run.Kernel().StrCmp("", "") == 0, "empty texts gave nonzero");
  for (const char* other : {"", "/var/cache/9A0364B9E99BB480DD25E1F0284C8556",
                            "/var/cache/9a0364b9e99bb480dd25e1f0284c8555",
                            "/var/cache/9A0364B9E99BB480DD25E1F0284C8555.ox_meta", "\xC3\xA9"}) {
    Expect(run.Kernel().StrCmp(path.c_str(), other) != 0, "another text gave 0: " + Quote(other));
    Expect(run.Kernel().StrCmp(other, path.c_str()) != 0, "another text gave 0: " + Quote(other));
  }
}

void CopiesText(Run& run) {
  std::string target(12, '.');
  char* result = run.Kernel().StrCpy(target.data() + 2, "a\xC3\xA9z");
  Expect(target == std::string("..a\xC3\xA9z\0.....", 12), "the copy became " + Quote(target));
  Expect(result == target.data() + 2, "the result is not the destination");
}

void FindsText(Run& run) {
  const char text[] = "/a.ox_meta/b.ox_met.ox_meta";
  Expect(run.Kernel().StrStr(text, ".ox_meta") == text + 2, "the first place was not found");
  Expect(run.Kernel().StrStr(text + 3, ".ox_meta") == text + 19,
         "a place at the end, after a part of the text, was not found");
  Expect(run.Kernel().StrStr(text, text) == text, "the whole text was not found in itself");
  for (const char* missing : {"ox_metaX", "OX_META", "/a.ox_meta/b.ox_met.ox_metaX"}) {
    Expect(run.Kernel().StrStr(text, missing) == nullptr,
           "found what is not there: " + Quote(missing));
  }
}

void ExpectNumber(Run& run, const char* text, unsigned long expected) {
  const unsigned long number = run.Kernel().StrToUL(text, nullptr, 10);
  Expect(number == expected, Quote(text) + " became " + std::to_string(number));
}

void ReadsNumbers(Run& run) {
  ExpectNumber(run, "0", 0);
  ExpectNumber(run, "1048576", 1048576);
  ExpectNumber(run, "4294967295", 4294967295UL);
  // Base 10 whatever the first digits look like.
  ExpectNumber(run, "010", 10);
  ExpectNumber(run, "0x10", 0);
}

void StopsAtLetters(Run& run) {
  ExpectNumber(run, "65536KB", 65536);
  ExpectNumber(run, "12 34", 12);
  ExpectNumber(run, "7\n8", 7);
}

void TellsEnd(Run& run) {
  const char text[] = "300 files";
  char* end = nullptr;
  Expect(run.Kernel().StrToUL(text, &end, 10) == 300, "the number is another one");
  Expect(end == text + 3, "the end is not the place behind the last digit");
}

void SaturatesNumbers(Run& run) {
  ExpectNumber(run, "99999999999999999999999", ULONG_MAX);
}

}  // namespace

Checks KernelStringChecks() {
  return {
      {"StrLen: counts the bytes before the NUL", {}, MeasuresBytes},
      {"StrLen16: counts the units before the 0", {}, MeasuresUnits},
      {"StrCmp: is 0 for equal texts only", {}, ComparesTexts},
      {"StrCpy: copies the text and its NUL, nothing else", {}, CopiesText},
      {"StrStr: finds the first place or nothing", {}, FindsText},
      {"StrToUL: reads decimal numbers without an end pointer", {}, ReadsNumbers},
      {"StrToUL: stops at the first character that is no digit", {}, StopsAtLetters},
      {"StrToUL: tells where the number ended", {}, TellsEnd},
      {"StrToUL: gives the largest number for one too large", {}, SaturatesNumbers},
  };
}

}  // namespace ox::hostcheck::internal
