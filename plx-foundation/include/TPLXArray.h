#pragma once

#include <memory>
#include <utility>

#include "PLXAssert.h"
#include "PLXObject.h"

// An array that grows by exactly what is asked for. Whoever fills one counts first and calls ResizeToHold
// once; Append and Insert move every element each time. Owns its elements. One thread at a time.
//
// Storage holds one element more than the count, so that an index out of bounds has an element to answer
// with.
template <typename T>
class TPLXArray : public PLXObject {
 public:
  typedef void (*ElementDisposalCallback)(T& element_io);

  explicit TPLXArray(ElementDisposalCallback elementDisposal_i = nullptr)
      : myElementDisposal(elementDisposal_i) {}
  TPLXArray(TPLXArray const& other_i) : myElementDisposal(other_i.myElementDisposal) { CopyFrom(other_i); }
  TPLXArray& operator=(TPLXArray const& other_i) {
    if (this != &other_i) {
      Empty();
      CopyFrom(other_i);
    }
    return *this;
  }
  virtual ~TPLXArray() { Dispose(); }

  virtual void ElementDisposal(T& element_io) {
    if (myElementDisposal != nullptr) myElementDisposal(element_io);
  }
  // An index beyond the end enlarges the array to hold `index_i` elements; the element answered for the index
  // itself is a spare one that the next growth forgets. An index of 0 into an empty array is an assertion.
  virtual void HandleOutOfBoundsSituation(PLXUInt32 index_i) {
    PLX_ASSERT_STATE_IN("include/TPLXArray.h", index_i > 0);
    ResizeToHold(index_i);
  }

  PLXUInt32 GetElementCount() const noexcept { return myElementCount; }

  T& operator[](PLXUInt32 index_i) {
    if (index_i >= myElementCount) HandleOutOfBoundsSituation(index_i);
    return myElements[index_i];
  }
  // Requires: index_i < GetElementCount().
  T const& operator[](PLXUInt32 index_i) const {
    PLX_ASSERT_STATE_IN("include/TPLXArray.h", index_i < myElementCount);
    return myElements[index_i];
  }

  // The position is clamped to the count.
  void Insert(T const& element_i, PLXUInt32 position_i) {
    PLXUInt32 const position = position_i < myElementCount ? position_i : myElementCount;
    T const element(element_i);  // it may be one of ours
    ResizeToHold(myElementCount + 1);
    for (PLXUInt32 index = myElementCount - 1; index > position; --index) {
      myElements[index] = std::move(myElements[index - 1]);
    }
    myElements[position] = element;
  }
  void Append(T const& element_i) { Insert(element_i, myElementCount); }

  // Makes the count `count_i`. Growing takes new storage and copies; shrinking keeps the storage.
  void ResizeToHold(PLXUInt32 count_i) {
    if (count_i > myElementCount) {
      std::unique_ptr<T[]> elements(new T[static_cast<std::size_t>(count_i) + 1]());
      for (PLXUInt32 index = 0; index < myElementCount; ++index)
        elements[index] = std::move(myElements[index]);
      delete[] myElements;
      myElements = elements.release();
    }
    myElementCount = count_i;
  }

  void Empty() { Dispose(); }

 private:
  void CopyFrom(TPLXArray const& other_i) {
    ResizeToHold(other_i.myElementCount);
    for (PLXUInt32 index = 0; index < myElementCount; ++index) myElements[index] = other_i.myElements[index];
  }
  void Dispose() {
    if (myElementDisposal != nullptr) {
      for (PLXUInt32 index = 0; index < myElementCount; ++index) myElementDisposal(myElements[index]);
    }
    delete[] myElements;
    myElements = nullptr;
    myElementCount = 0;
  }

  T* myElements = nullptr;
  PLXUInt32 myElementCount = 0;
  ElementDisposalCallback myElementDisposal;
};
