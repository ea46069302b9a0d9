#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/recording_host.h"
#include <oxfilecache/allocation.h>
#include <oxfilecache/kernel.h>
#include <oxfilecache/ox_error.h>

namespace ox::testing {
namespace {

constexpr auto* kNewDelete = static_cast<OxMem_Selector_OX_NEW_DELETE*>(nullptr);
constexpr auto* kVector = static_cast<OxMem_Selector_OX_VECTOR_NEW_DELETE*>(nullptr);
constexpr auto* kMalloc = static_cast<OxMem_Selector_OX_MALLOC_FREE*>(nullptr);

TEST(TaggedAllocation, HeaderHoldsTheKindOfEachSelector) {
  RecordingHost host;
  void* blocks[] =
      {operator new(24, nullptr, 0, kNewDelete), operator new(99, 5, 6, nullptr, 0, kVector),
                                                 operator new(99, 7, nullptr, 0, kMalloc)};
  const std::size_t bytes[] = {24, 30, 7};
  const std::uint32_t kinds[] = {1, 5, 0};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(bytes[i] + 8, host.SizeOfBlock(blocks[i]));
    // The word before the kind is the kernel's: the recording host fills blocks with A5.
    std::uint32_t header[2];
    std::memcpy(header, static_cast<char*>(blocks[i]) - 8, sizeof header);
    EXPECT_EQ(0xA5A5A5A5U, header[0]);
    EXPECT_EQ(kinds[i], header[1]);
  }
  operator delete(blocks[0], nullptr, 0, kNewDelete);
  operator delete(blocks[1], 5, 6, nullptr, 0, kVector);
  operator delete(blocks[2], 7, nullptr, 0, kMalloc);
  EXPECT_EQ(0U, host.LiveBlocks());
}

TEST(TaggedAllocation, NothingReachesTheKernelForNothing) {
  RecordingHost host;
  const auto callsBefore = host.memoryFaults.Calls();
  EXPECT_EQ(nullptr, operator new(0, nullptr, 0, kNewDelete));
  EXPECT_EQ(nullptr, operator new(8, 0, 4, nullptr, 0, kVector));
  EXPECT_EQ(nullptr, operator new(8, SIZE_MAX, 2, nullptr, 0, kVector));
  EXPECT_EQ(nullptr, operator new(8, SIZE_MAX, nullptr, 0, kMalloc));
  EXPECT_EQ(nullptr, operator new (8, std::size_t{0}, nullptr, 0, kMalloc));
  EXPECT_EQ(nullptr, operator new[](8, nullptr, 0, kNewDelete));
  EXPECT_EQ(nullptr, operator new[](8, 2, 4, nullptr, 0, kVector));
  EXPECT_EQ(nullptr, operator new[](8, 4, nullptr, 0, kMalloc));
  operator delete(nullptr, nullptr, 0, kNewDelete);
  operator delete[](nullptr, nullptr, 0, kNewDelete);
  OxTypes_ScalarDelete<OxError>(nullptr, nullptr, 0);
  EXPECT_EQ(callsBefore, host.memoryFaults.Calls());
}

TEST(TaggedAllocation, ARefusedRequestIsNullAndTripsTheWatch) {
  RecordingHost host;
  const AllocationWatch watch;
  host.memoryFaults.Arm(1, FaultDriver::Mode::kOnce);
  EXPECT_EQ(nullptr, NewObject<OxError>("name", 1));
  EXPECT_TRUE(watch.Tripped());
  EXPECT_FALSE(AllocationWatch().Tripped());

  SetKernel(nullptr);
  EXPECT_EQ(nullptr, AllocateBytes(1));
}

TEST(Error, NamesAndCodes) {
  const std::pair<const OxError&, const char*> constants[] = {
      {OxError_OK, "OxError_OK"},
      {OxError_NoMemory, "OxError_NoMemory"},
      {OxError_Timeout, "OxError_Timeout"},
      {OxError_Generic, "OxError_Generic"},
      {OxError_NotFound, "OxError_NotFound"},
      {OxError_Usage, "OxError_Usage"},
      {OxError_InvalidParameters, "OxError_InvalidParameters"},
  };
  unsigned long code = 0;
  for (const auto& [error, name] : constants) {
    EXPECT_STREQ(name, error.Name());
    EXPECT_EQ(code++, error.Code());
  }
  EXPECT_STREQ("0123456789012345678901234567890",
               OxError("0123456789012345678901234567890123456789", 7).Name());
}

TEST(Error, TermCopyStaysInItsRoom) {
  const char* const expected[] = {"######", "", "a", "ab", "abc", "abc"};
  for (unsigned size = 0; size < 6; ++size) {
    char text[] = "######";
    OxError::strncpyTerm(text, "abc", size);
    EXPECT_STREQ(expected[size], text);
    EXPECT_EQ('#', text[4]);
  }
}

}  // namespace
}  // namespace ox::testing
