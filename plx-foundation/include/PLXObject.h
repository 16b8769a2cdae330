#pragma once

#include <cstddef>
#include <new>

#include "PLXException.h"
#include "PLXTypes.h"

// Base of every class of the foundation: its memory comes from one allocator that can be replaced.
//
// Each block carries a signature before and after its bytes, verified when it is released: a pointer that was
// never given out, was given back already, or was written past its end aborts with "BUFFER OPEN SIGNATURE
// VIOLATED.  BAD POINTER?" or "BUFFER CLOSE SIGNATURE VIOLATED.  BUFFER OVERRUN?". Allocation may be called
// from any thread; the allocator is set before the first allocation.
class PLXObject {
 public:
  // Thrown by operator new of every PLXObject when the allocator has no memory.
  class MemoryAllocationFailure : public PLXException {
   public:
    MemoryAllocationFailure() noexcept : PLXException("PLXObject::MemoryAllocationFailure") {}
  };

  // An allocator returns memory aligned for any type, or null; the deallocator takes what it returned.
  typedef void* (*MemoryAllocator)(std::size_t byteCount_i);
  typedef void (*MemoryDeallocator)(void* address_i);
  // Replaces both; null for either restores the platform's own. Blocks must be released with the deallocator
  // that matches the allocator they came from.
  static void SetMemoryFunctions(MemoryAllocator allocator_i, MemoryDeallocator deallocator_i) noexcept;

  // A signed block of `byteCount_i` bytes, aligned for any type; null when there is no memory. The caller
  // owns it.
  static void* AllocateMemory(std::size_t byteCount_i) noexcept;
  // Verifies the signatures and releases. Null is ignored.
  static void FreeMemory(void* address_i) noexcept;

  static void* operator new(std::size_t byteCount_i);
  static void* operator new[](std::size_t byteCount_i) { return operator new(byteCount_i); }
  static void* operator new(std::size_t, void* address_i) noexcept { return address_i; }
  static void operator delete(void* address_i) noexcept { FreeMemory(address_i); }
  static void operator delete[](void* address_i) noexcept { FreeMemory(address_i); }
  static void operator delete(void*, void*) noexcept {}

 protected:
  PLXObject() noexcept = default;
  PLXObject(PLXObject const&) noexcept = default;
  PLXObject& operator=(PLXObject const&) noexcept = default;
  ~PLXObject() = default;  // nobody deletes through this base
};
