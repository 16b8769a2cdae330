#pragma once

#include "TPLXArray.h"

// Names and their values, in order, as two arrays of one length. One thread at a time.
template <typename N, typename V>
class TPLXNameValuePairList : public PLXObject {
 public:
  explicit TPLXNameValuePairList(typename TPLXArray<N>::ElementDisposalCallback nameDisposal_i = nullptr,
                                 typename TPLXArray<V>::ElementDisposalCallback valueDisposal_i = nullptr)
      : myNameArray(nameDisposal_i), myValueArray(valueDisposal_i) {}

  void Add(N const& name_i, V const& value_i) {
    AssertEqualCounts();
    myNameArray.Append(name_i);
    try {
      myValueArray.Append(value_i);
    } catch (...) {
      // A name without its value would fail every later call.
      myNameArray.ResizeToHold(myNameArray.GetElementCount() - 1);
      throw;
    }
    AssertEqualCounts();
  }
  void Empty() {
    AssertEqualCounts();
    myNameArray.Empty();
    myValueArray.Empty();
    AssertEqualCounts();
  }

  TPLXArray<N>& GetNameArray() noexcept { return myNameArray; }
  TPLXArray<N> const& GetNameArray() const noexcept { return myNameArray; }
  TPLXArray<V>& GetValueArray() noexcept { return myValueArray; }
  TPLXArray<V> const& GetValueArray() const noexcept { return myValueArray; }

 private:
  void AssertEqualCounts() const {
    PLX_ASSERT_STATE_IN("include/TPLXNameValuePairList.h",
                        myNameArray.GetElementCount() == myValueArray.GetElementCount());
  }

  TPLXArray<N> myNameArray;
  TPLXArray<V> myValueArray;
};
