#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/support/recording_host.h"
#include <oxfilecache/string.h>

namespace ox::testing {
namespace {

using Units = std::vector<unsigned>;

// The fields behind the class, as a host that was built elsewhere sees them.
struct Fields {
  void* table;
  char* utf8;
  std::uint16_t* text;
  std::uint32_t length;
  std::uint32_t capacity;
  std::uint16_t empty;
};
static_assert(sizeof(Fields) == sizeof(OxString), "layout is the binary contract");

Fields& FieldsOf(OxString& text) {
  return reinterpret_cast<Fields&>(text);
}

Units UnitsOf(const OxString& text) {
  return Units(text.Text(), text.Text() + text.Length());
}

class StringTest : public ::testing::Test {
 protected:
  ~StringTest() override { EXPECT_EQ(0U, host_.LiveBlocks()); }
  RecordingHost host_;
};

TEST_F(StringTest, DecodesAndEncodes) {
  const struct {
    const char* bytes;
    Units units;
    const char* back;
  } cases[] = {
      {"", {}, ""},
      {"abc", {'a', 'b', 'c'}, "abc"},
      {"a\x80\xA9\xBF", {'a', 0x80, 0xA9, 0xBF}, "a\xC2\x80\xC2\xA9\xC2\xBF"},
      // The borders between lengths.
      {"\x7F\xC2\x80", {0x7F, 0x80}, "\x7F\xC2\x80"},
      {"\xDF\xBF\xE0\xA0\x80", {0x7FF, 0x800}, "\xDF\xBF\xE0\xA0\x80"},
      {"\xEF\xBF\xBF\xF0\x90\x80\x80", {0xFFFF, 0xD800, 0xDC00}, "\xEF\xBF\xBF\xF0\x90\x80\x80"},
      {"\xF0\x9F\x98\x80", {0xD83D, 0xDE00}, "\xF0\x9F\x98\x80"},
      {"\xF4\x8F\xBF\xBF", {0xDBFF, 0xDFFF}, "\xF4\x8F\xBF\xBF"},
      {"\xF4\x90\x80\x80z", {0xFFFD, 'z'}, "\xEF\xBF\xBDz"},
      // Surrogates and their neighbours.
      {"\xED\x9F\xBF\xEE\x80\x80", {0xD7FF, 0xE000}, "\xED\x9F\xBF\xEE\x80\x80"},
      {"\xED\xA0\x80\xED\xBF\xBF", {0xFFFD, 0xFFFD}, "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"\xED\xAF\xBF\xED\xB0\x80", {0xFFFD, 0xFFFD}, "\xEF\xBF\xBD\xEF\xBF\xBD"},
      // Overlong, too long, and a byte after a lead that is no continuation.
      {"\xC1\x81z", {'A', 'z'}, "Az"},
      {"\xFC\x80\x80\x80\x81\x81z", {'A', 'z'}, "Az"},
      {"\xFE\x31\x32\x33\x34\x35z", {0xFFFD, 'z'}, "\xEF\xBF\xBDz"},
      {"\xF8\x88\x80\x80\x80z", {0xFFFD, 'z'}, "\xEF\xBF\xBDz"},
      {"\xF8\x80\x80\x81\x81z", {'A', 'z'}, "Az"},
      {"\xC3(x", {'h', 'x'}, "hx"},
  };
  for (const auto& c : cases) {
    const OxString text(c.bytes);
    EXPECT_EQ(c.units, UnitsOf(text)) << c.bytes;
    EXPECT_EQ(0U, text.Text()[text.Length()]);
    EXPECT_STREQ(c.back, text.UTF8()) << c.bytes;
  }
  unsigned short units[] = {1, 1};
  const auto* surrogate = reinterpret_cast<const unsigned char*>("\xED\xA0\x80");
  EXPECT_EQ(3, OxString()._UTF8toU16Char(surrogate, &units[0], &units[1]));
  EXPECT_EQ(0xFFFD, units[0]);
  EXPECT_EQ(0, units[1]);
}

// Missing bytes count as zeros, and nothing behind the readable bytes is read: they stand at the
// end of their own block, where AddressSanitizer sees the first byte too many.
TEST_F(StringTest, SequencesCutShortByTheEnd) {
  const struct {
    std::string text;
    std::string behind;
    Units units;
  } cases[] = {
      {"ab", "", {'a', 'b'}},
      {"\xC3", "", {0x40}},
      {"x\xE2\x82", "", {'x', 0x2000}},
      {"\xF1", "", {0xFFFD}},
      {"\xF3", "", {0xD8B7, 0xDF80}},  // two units out of one byte: the room must be there
      {"ab\xF4", "", {'a', 'b', 0xD9B7, 0xDF80}},
      {"\xFF", "", {0xFFFD}},
      {"\xE2", std::string("\0\xAC\xAC", 3), {0x2C}},
      {"\xEE", "\xFF\xFF", {0xD800, 0xDC3F}},
      {"x\xF0\x9F", std::string("\0\x80", 2), {'x', 0xD834, 0xDC00}},
  };
  for (const auto& c : cases) {
    const std::string whole = c.text + c.behind;
    const std::vector<char> exact(whole.begin(), whole.end());
    OxString text;
    text.AssignUTF8(exact.data(), c.text.size(), exact.size());
    EXPECT_EQ(c.units, UnitsOf(text)) << c.text;
    EXPECT_EQ(0U, text.Text()[text.Length()]);
    // Of a text from anywhere nothing behind the end counts.
    text.AssignUTF8(c.text.c_str(), c.text.size(), c.text.size());
    EXPECT_EQ(UnitsOf(text), UnitsOf(OxString((c.text + '\0' + "\xAC").c_str()))) << c.text;
  }
}

TEST_F(StringTest, EncodesUnpairedSurrogates) {
  const struct {
    Units units;
    const char* bytes;
  } cases[] = {
      {{0xD83D}, "\xEF\xBF\xBD"},
      {{0xD83D, 'x'}, "\xEF\xBF\xBDx"},
      {{0xD83D, 0xD83D, 0xDE00}, "\xEF\xBF\xBD\xF0\x9F\x98\x80"},
      {{0xDC00}, "\xED\xB0\x80"},
      {{0xDE00, 0xD83D}, "\xED\xB8\x80\xEF\xBF\xBD"},
      {{0xDBFF, 0xE000, 0xD800, 0xDBFF}, "\xEF\xBF\xBD\xEE\x80\x80\xEF\xBF\xBD\xEF\xBF\xBD"},
  };
  for (const auto& c : cases) {
    OxString text(std::string(c.units.size(), 'x').c_str());
    for (std::size_t i = 0; i < c.units.size(); ++i) {
      FieldsOf(text).text[i] = static_cast<std::uint16_t>(c.units[i]);
    }
    EXPECT_STREQ(c.bytes, text.UTF8());
  }
}

TEST_F(StringTest, GrowsByMultiplesOfTwiceTheCapacity) {
  OxString text;
  EXPECT_EQ(0U, FieldsOf(text).capacity);
  EXPECT_EQ(&FieldsOf(text).empty, text.Text());
  text = OxString("abcde");
  EXPECT_EQ(6U, FieldsOf(text).capacity);
  text.Append(OxString("0123456789"));
  EXPECT_EQ(24U, FieldsOf(text).capacity);
  text.Append("01234567");
  EXPECT_EQ(24U, FieldsOf(text).capacity);
  EXPECT_STREQ("abcde012345678901234567", text.UTF8());
  text.Append("012345678901234567890123");  // to exactly 48, which is not above
  EXPECT_EQ(96U, FieldsOf(text).capacity);
}

TEST_F(StringTest, AnEmptiedStringKeepsItsUnits) {
  OxString text("abc");
  text.UTF8();
  text = OxString();
  EXPECT_EQ(nullptr, FieldsOf(text).utf8);
  EXPECT_EQ(0U, text.Length());
  EXPECT_EQ('a', text.Text()[0]);
  EXPECT_STREQ("", text.UTF8());

  EXPECT_EQ(0U, OxString(text).Length());  // a copy goes by length
  OxString assigned;
  assigned = text;  // an assignment measures the buffer
  EXPECT_STREQ("abc", assigned.UTF8());
  OxString appended("x");
  appended.Append(text);
  EXPECT_STREQ("xabc", appended.UTF8());

  OxString viaUtf8("def");
  viaUtf8 = "";
  EXPECT_EQ(0U, viaUtf8.Length());
  EXPECT_EQ('d', viaUtf8.Text()[0]);
}

TEST_F(StringTest, MeasuresToTheFirstZeroUnitButCopiesWhole) {
  OxString text("ab");
  text.Append("\xC0\x80z");  // an overlong 0
  ASSERT_EQ(4U, text.Length());
  const OxString copy(text);
  EXPECT_EQ(4U, copy.Length());
  EXPECT_EQ(0U, copy.Text()[4]);
  OxString assigned;
  assigned = text;
  EXPECT_EQ(2U, assigned.Length());
}

TEST_F(StringTest, Utf8FormIsKeptAndNeverStale) {
  OxString text("abc");
  const char* first = text.UTF8();
  EXPECT_EQ(first, text.UTF8());
  EXPECT_EQ(first, FieldsOf(text).utf8);
  text.Append("d");
  EXPECT_EQ(nullptr, FieldsOf(text).utf8);
  EXPECT_STREQ("abcd", text.UTF8());
  text = "";
  EXPECT_NE(nullptr, FieldsOf(text).utf8);  // only the length goes
  EXPECT_STREQ("", text.UTF8());
  text = "xyz";
  EXPECT_STREQ("xyz", text.UTF8());
  text = OxString("q");
  EXPECT_STREQ("q", text.UTF8());
}

TEST_F(StringTest, TakesItselfItsOwnUtf8AndIsTaken) {
  OxString text("abc");
  OxString& same = text;
  text = same;
  EXPECT_STREQ("abc", text.UTF8());
  text.Append(same);
  EXPECT_STREQ("abcabc", text.UTF8());
  text.Append(text.UTF8());
  EXPECT_STREQ("abcabcabcabc", text.UTF8());
  const OxString taken(std::move(text));
  EXPECT_EQ(0U, text.Length());
  text.Append("new");
  EXPECT_STREQ("new", text.UTF8());
  EXPECT_STREQ("abcabcabcabc", taken.UTF8());
}

TEST_F(StringTest, WithoutMemoryAnAppendKeepsTheTextAndTheRestIsEmpty) {
  OxString text("abc");
  host_.memoryFaults.Arm(1, FaultDriver::Mode::kFromThereOn);
  EXPECT_STREQ("", text.UTF8());
  text.Append("0123456789");
  text.Append(OxString(text));
  EXPECT_EQ((Units{'a', 'b', 'c'}), UnitsOf(text));
  text = "0123456789";
  EXPECT_EQ(0U, text.Length());
  EXPECT_EQ(0U, text.Text()[0]);  // not the old units, which could pass for a text
  host_.memoryFaults.Disarm();
  text = "again";
  EXPECT_STREQ("again", text.UTF8());
}

}  // namespace
}  // namespace ox::testing
