// Entries that are no longer what was committed, and entries of another URL: found, deleted or left
// alone, counted, and told. And the renewal of metadata, which keeps the seal.
#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <filesystem>
#include <functional>

#include "session/crc32c.h"
#include "session/entry_name.h"
#include "session/entry_seal.h"
#include "session/known_entries.h"
#include "tests/support/session_rig.h"
#include <oxfilecache/format.h>

namespace ox::testing {
namespace {

using internal::EntrySeal;
using session::Check;

TEST(Crc32cTest, ProcessorAndTableGiveThePublishedSums) {
  std::string counting;
  for (int i = 0; i < 32; ++i)
    counting += static_cast<char>(i);
  // RFC 3720, B.4.
  const struct {
    std::string data;
    std::uint32_t sum;
  } cases[] = {{std::string(32, '\0'), 0x8a9136aa},
               {std::string(32, '\xff'), 0x62a8ab43},
               {counting, 0x46dd794e},
               {"123456789", 0xe3069283},
               // Reckoned bit by bit.
               {std::string(12345, 'x'), 0xfd08d474}};
  for (const auto& c : cases) {
    EXPECT_EQ(internal::ExtendCrc32c(0, c.data.data(), c.data.size()), c.sum);
    EXPECT_EQ(internal::ExtendCrc32cByTable(0, c.data.data(), c.data.size()), c.sum);
    const std::uint32_t half = internal::ExtendCrc32c(0, c.data.data(), 5);
    EXPECT_EQ(internal::ExtendCrc32c(half, c.data.data() + 5, c.data.size() - 5), c.sum);
  }
}

TEST(EntrySealTest, IsReadAsItWasWrittenAndNothingElseIs) {
  EntrySeal seal = internal::MakeSeal("http://host/", 0x01020304, 0x05060708, "meta");
  const auto whole = internal::DecodeSeal(internal::EncodeSeal(seal));
  ASSERT_TRUE(whole);
  EXPECT_TRUE(whole->IsOf("http://host/") && !whole->IsOf("http://host/x"));
  EXPECT_TRUE(whole->HasMetadata("meta") && !whole->HasMetadata("metA"));
  EXPECT_EQ(whole->contentSum, 0x01020304u);
  EXPECT_EQ(whole->contentBytes, 0x05060708u);
  seal.url.clear();
  const std::string digest = internal::EncodeSeal(seal);
  // As it is on the disks of devices: sum and length of the content, sum of the metadata, FNV-1a.
  EXPECT_EQ(digest, std::string("\x02\x04\x03\x02\x01\x08\x07\x06\x05\x95\x10\x07\x1b"
                                "\xae\xeb\x1f\xdf\x66\xb0\x0c\x84"));
  EXPECT_TRUE(internal::DecodeSeal(digest)->IsOf("http://host/"));
  EXPECT_FALSE(internal::DecodeSeal(digest)->IsOf("http://host/x"));
  for (const std::string& foreign :
       {std::string(), digest.substr(0, 13), digest + "x", "\x03" + digest.substr(1)}) {
    EXPECT_FALSE(internal::DecodeSeal(foreign)) << foreign.size();
  }
}

TEST(KnownEntriesTest, KnowsWhatWasAddedUntilTooManyAreGone) {
  internal::KnownEntries known(7);
  struct stat content {};
  const auto fingerprint = [&](int i) {
    content.st_ino = static_cast<ino_t>(i);
    return known.Fingerprint("url", content, "metadata");
  };
  for (int i = 0; i < 200; ++i)
    known.Add(fingerprint(i), 100);
  for (int i = 0; i < 200; ++i)
    EXPECT_TRUE(known.Contains(fingerprint(i))) << i;
  EXPECT_FALSE(known.Contains(fingerprint(200)));
  for (int i = 200; i < 300; ++i)
    known.Add(fingerprint(i), 100);
  EXPECT_FALSE(known.Contains(fingerprint(0)));
  EXPECT_TRUE(known.Contains(fingerprint(299)));
}

class SessionSealTest : public ::testing::Test {
 protected:
  void Open() {
    session_.reset();
    session_ = OpenSession(options_);
  }
  std::string PathOf(const std::string& url) {
    const auto found = session_->Fetch(url, &error_);
    return found ? found->path : std::string();
  }

  CacheDirectory directory_{{100000, 9, 65536}};
  SessionOptions options_ = OptionsFor(directory_.Path());
  std::unique_ptr<CacheSession> session_;
  Error error_;
};

constexpr char kUrl[] = "http://host/a";

void Flip(const std::string& path) {
  std::string text = ReadWhole(path);
  text[3] = static_cast<char>(text[3] ^ 0x10);
  const auto time = std::filesystem::last_write_time(path);
  WriteWhole(path, text);
  std::filesystem::last_write_time(path, time);
}

TEST_F(SessionSealTest, WhatIsNotWhatWasCommittedIsNeverServedAndASessionDeletesIt) {
  const struct {
    const char* what;
    std::function<void(const std::string&)> damage;
    bool isFoundWithoutSum;
  } cases[] = {
      {"content cut", [](auto& path) { std::filesystem::resize_file(path, 4); }, true},
      {"content longer", [](auto& path) { WriteWhole(path, "content and more"); }, true},
      {"content emptied", [](auto& path) { std::filesystem::resize_file(path, 0); }, true},
      {"content gone", [](auto& path) { std::filesystem::remove(path); }, true},
      {"a bit of the content", Flip, false},
      {"a bit of the metadata", [](auto& path) { Flip(path + ".ox_meta"); }, true},
  };
  for (const auto& c : cases) {
    for (const Check check : {Check::kNever, Check::kOnce, Check::kAlways}) {
      for (const bool isReopened : {false, true}) {
        SCOPED_TRACE(::testing::Message() << c.what << " " << int(check) << isReopened);
        options_.check = check;
        options_.reportDamaged = isReopened;
        Open();
        ASSERT_FALSE(Store(*session_, kUrl, "content", "metadata"));
        const std::string path = PathOf(kUrl);
        const auto reader = OpenReader(directory_.Path(), check);
        ASSERT_TRUE(reader->Fetch(kUrl, &error_));
        if (isReopened) session_.reset();
        c.damage(path);
        const bool isFound = c.isFoundWithoutSum || check != Check::kNever;
        // A reader tells, and deletes nothing.
        const bool isThere = std::filesystem::exists(path);
        EXPECT_EQ(!reader->Fetch(kUrl, &error_), isFound);
        EXPECT_TRUE(!isFound ||
                    error_.kind == (isThere ? ErrorKind::kDamaged : ErrorKind::kNotFound));
        EXPECT_EQ(std::filesystem::exists(path), isThere);
        if (isReopened) Open();
        EXPECT_EQ(!session_->Fetch(kUrl, &error_), isFound);
        if (!isFound) continue;
        const bool wasThere = session_->Statistics().damaged == 1;
        EXPECT_EQ(error_.kind, isReopened && wasThere ? ErrorKind::kDamaged : ErrorKind::kNotFound);
        // An opening deletes content that is empty or missing by itself.
        EXPECT_TRUE(wasThere || isReopened);
        EXPECT_FALSE(std::filesystem::exists(path));
        EXPECT_EQ(session_->Statistics().entries, 0u);
        EXPECT_FALSE(Store(*session_, kUrl, "again", "m"));
        EXPECT_EQ(Fetch(*session_, kUrl), "again|m");
      }
    }
  }
}

TEST_F(SessionSealTest, OnceReadsTheContentOnceAndAlwaysEachTime) {
  // Changed without a trace, as by a failing medium: the change time is looked at by fetches that
  // are not to read the content, so it is the one that was there before.
  const std::string metadata = directory_ / internal::ContentName(kUrl) + ".ox_meta";
  for (const bool isAlways : {false, true}) {
    for (const bool isReopened : {false, true}) {
      options_.check = isAlways ? Check::kAlways : Check::kOnce;
      Open();
      ASSERT_FALSE(Store(*session_, kUrl, "content", "metadata"));
      // What the session has stored itself it need not read.
      if (isReopened) {
        Open();
        ASSERT_TRUE(session_->Fetch(kUrl, &error_));
      }
      auto seal = *internal::ReadSeal(metadata);
      seal.contentSum ^= 1;
      const std::string text = internal::EncodeSeal(seal);
      ASSERT_EQ(setxattr(metadata.c_str(), internal::kSealAttribute, text.data(), text.size(), 0),
                0);
      EXPECT_EQ(!session_->Fetch(kUrl, &error_), isAlways);
    }
  }
}

TEST_F(SessionSealTest, TwoUrlsOfOneDigestDoNotAnswerForEachOther) {
  // One MD5 digest: published by M. Stevens in 2024.
  const std::string one =
      "TEXTCOLLBYfGiJUETHQ4hAcKSMd5zYpgqf1YRDhkmxHkhPWptrkoyz28wnI9V0aHeAuaKnak";
  const std::string other =
      "TEXTCOLLBYfGiJUETHQ4hEcKSMd5zYpgqf1YRDhkmxHkhPWptrkoyz28wnI9V0aHeAuaKnak";
  for (const bool isReopened : {false, true}) {
    Open();
    ASSERT_FALSE(Store(*session_, one, "content", "metadata"));
    if (isReopened) Open();
    EXPECT_EQ(Fetch(*session_, other), kNotThere);
    EXPECT_EQ(session_->Remove(other).kind, ErrorKind::kNotFound);
    EXPECT_EQ(session_->SetMetadata(other, "m").kind, ErrorKind::kNotFound);
    EXPECT_EQ(Fetch(*session_, one), "content|metadata");
  }
  ASSERT_FALSE(Store(*session_, other, "replaces", "the first"));
  EXPECT_EQ(Fetch(*session_, one), kNotThere);
  EXPECT_EQ(Fetch(*session_, other), "replaces|the first");
}

TEST_F(SessionSealTest, WithoutASealAnEntryIsServedAsItIs) {
  const std::string longUrl = "http://host/" + std::string(5000, 'x');
  Open();
  ASSERT_FALSE(Store(*session_, kUrl, "content", "metadata"));
  ASSERT_FALSE(Store(*session_, longUrl, "content", "metadata"));
  const std::string path = PathOf(kUrl);
  ASSERT_EQ(removexattr((path + ".ox_meta").c_str(), internal::kSealAttribute), 0);
  WriteWhole(path, "changed");
  Open();
  EXPECT_EQ(Fetch(*session_, kUrl), "changed|metadata");
  EXPECT_EQ(Fetch(*session_, longUrl), "content|metadata");
  EXPECT_FALSE(session_->SetMetadata(kUrl, "new"));
  EXPECT_FALSE(internal::ReadSeal(path + ".ox_meta"));
  EXPECT_EQ(Fetch(*session_, kUrl), "changed|new");
}

TEST_F(SessionSealTest, RenewalChangesTheMetadataAlone) {
  for (const Durability durability :
       {Durability::kNone, Durability::kProcess, Durability::kPower}) {
    options_.durability = durability;
    Open();
    ASSERT_FALSE(Store(*session_, kUrl, "content", "metadata"));
    ASSERT_FALSE(Store(*session_, "other", "content", "metadata"));
    const auto before = session_->Fetch(kUrl, &error_);
    for (int i = 0; i < 3; ++i) {
      const std::string text(static_cast<std::size_t>(1000 - i * 499), 'm');
      ASSERT_FALSE(session_->SetMetadata(kUrl, text)) << i;
      EXPECT_EQ(Fetch(*session_, kUrl), "content|" + text);
      EXPECT_EQ(session_->Statistics().bytes, DiskUse(directory_.Path()));
    }
    EXPECT_TRUE(internal::ReadSeal(before->path + ".ox_meta")->IsOf(kUrl));
    EXPECT_EQ(Look(directory_.Path()).entries.back().name,
              std::filesystem::path(before->path).filename());
    Open();
    EXPECT_EQ(Fetch(*session_, kUrl), "content|mm");
  }
  EXPECT_EQ(session_->SetMetadata("missing", "m").kind, ErrorKind::kNotFound);
  EXPECT_EQ(session_->SetMetadata("", "m").kind, ErrorKind::kInvalidArgument);
  EXPECT_EQ(session_->SetMetadata(kUrl, "").kind, ErrorKind::kInvalidArgument);
  ASSERT_FALSE(Store(*session_, kUrl, std::string(65530, 'c'), "m"));
  EXPECT_EQ(session_->SetMetadata(kUrl, "1234567").kind, ErrorKind::kRefused);
  EXPECT_FALSE(session_->SetMetadata(kUrl, "123456"));
  // Another entry goes for it where the limit is exceeded.
  ASSERT_FALSE(Store(*session_, "other", std::string(34000, 'c'), "m"));
  for (const unsigned metadataBytes : {464, 465}) {
    EXPECT_FALSE(session_->SetMetadata("other", std::string(metadataBytes, 'm')));
    EXPECT_EQ(session_->Statistics().entries, metadataBytes == 464 ? 2u : 1u);
  }
  EXPECT_TRUE(Look(directory_.Path()).staging.empty());
}

}  // namespace
}  // namespace ox::testing
