#include "PLXObject.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "PLXAssert.h"

// A block in memory: its size, the open signature, the caller's bytes, the close signature. The head takes 16
// bytes, so that the caller's bytes keep the allocator's alignment; the close signature stands right behind
// the last byte and is moved with memcpy.

namespace {

char const* const ourSourceFile = "src/PLXObject.cpp";

constexpr PLXUInt32 kOpenSignature = FourCC("PLX<");
constexpr PLXUInt32 kCloseSignature = FourCC(">PLX");
constexpr PLXUInt32 kReleasedSignature = FourCC("gone");

struct BlockHead {
  std::size_t byteCount;
  PLXUInt32 openSignature;
  PLXUInt32 padding;
};
static_assert(sizeof(BlockHead) == 16);

std::atomic<PLXObject::MemoryAllocator> ourAllocator = &std::malloc;
std::atomic<PLXObject::MemoryDeallocator> ourDeallocator = &std::free;

}  // namespace

void PLXObject::SetMemoryFunctions(MemoryAllocator allocator_i, MemoryDeallocator deallocator_i) noexcept {
  ourAllocator = allocator_i != nullptr ? allocator_i : &std::malloc;
  ourDeallocator = deallocator_i != nullptr ? deallocator_i : &std::free;
}

void* PLXObject::AllocateMemory(std::size_t byteCount_i) noexcept {
  std::size_t constexpr kOverhead = sizeof(BlockHead) + sizeof kCloseSignature;
  if (byteCount_i > std::numeric_limits<std::size_t>::max() - kOverhead) return nullptr;
  void* const block = ourAllocator.load(std::memory_order_relaxed)(byteCount_i + kOverhead);
  if (block == nullptr) return nullptr;
  BlockHead const head{byteCount_i, kOpenSignature, 0};
  std::memcpy(block, &head, sizeof head);
  char* const bytes = static_cast<char*>(block) + sizeof head;
  std::memcpy(bytes + byteCount_i, &kCloseSignature, sizeof kCloseSignature);
  return bytes;
}

void PLXObject::FreeMemory(void* address_i) noexcept {
  if (address_i == nullptr) return;
  char* const bytes = static_cast<char*>(address_i);
  char* const block = bytes - sizeof(BlockHead);
  BlockHead head;
  std::memcpy(&head, block, sizeof head);
  if (head.openSignature != kOpenSignature) {
    PLXFailUnexpectedState(ourSourceFile, "BUFFER OPEN SIGNATURE VIOLATED.  BAD POINTER?");
  }
  PLXUInt32 closeSignature;
  std::memcpy(&closeSignature, bytes + head.byteCount, sizeof closeSignature);
  if (closeSignature != kCloseSignature) {
    PLXFailUnexpectedState(ourSourceFile, "BUFFER CLOSE SIGNATURE VIOLATED.  BUFFER OVERRUN?");
  }
  head.openSignature = kReleasedSignature;
  std::memcpy(block, &head, sizeof head);
  ourDeallocator.load(std::memory_order_relaxed)(block);
}

void* PLXObject::operator new(std::size_t byteCount_i) {
  void* const address = AllocateMemory(byteCount_i);
  if (address == nullptr) throw MemoryAllocationFailure();
  return address;
}
