#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

#include "PLXBuffer.h"
#include "PLXObject.h"

namespace {

int ourBlocksOut = 0;

void* CountingAllocator(std::size_t byteCount_i) {
  ++ourBlocksOut;
  return std::malloc(byteCount_i);
}

void CountingDeallocator(void* address_i) {
  --ourBlocksOut;
  std::free(address_i);
}

}  // namespace

TEST(PLXObjectMemory, ComesFromTheAllocatorAndGoesBackToIt) {
  PLXObject::SetMemoryFunctions(&CountingAllocator, &CountingDeallocator);
  int const before = ourBlocksOut;
  {
    PLXBuffer buffer(100);
    auto* const onHeap = new PLXBuffer(10);
    EXPECT_EQ(ourBlocksOut, before + 3);
    delete onHeap;
  }
  EXPECT_EQ(ourBlocksOut, before);
  EXPECT_EQ(PLXObject::AllocateMemory(~std::size_t{0}), nullptr);
  PLXObject::SetMemoryFunctions(nullptr, nullptr);
}

TEST(PLXObjectSignatures, AreVerifiedOnRelease) {
  auto* const block = static_cast<char*>(PLXObject::AllocateMemory(5));
  std::memset(block, 'x', 5);
  EXPECT_DEATH(
      {
        block[5] = 'x';
        PLXObject::FreeMemory(block);
      },
      "UNEXPECTED STATE: BUFFER CLOSE SIGNATURE VIOLATED");
  char neverGivenOut[32] = {};
  EXPECT_DEATH(PLXObject::FreeMemory(neverGivenOut + 16),
               "UNEXPECTED STATE: BUFFER OPEN SIGNATURE VIOLATED.  BAD POINTER\\?\n");
  PLXObject::FreeMemory(block);
  PLXObject::FreeMemory(nullptr);
}
