#pragma once

#include <cstdlib>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "PLXModuleAPI.h"

// The entry of the network module, loaded once as the server loads it and kept until the tests end.
inline PLXModuleEntryPtr GetNetworkModuleEntry() {
  static PLXModuleEntryPtr const ourEntry = [] {
    void* const library = dlopen(PLX_MODULE_FILE, RTLD_NOW | RTLD_LOCAL);
    void* const entry = library != nullptr ? dlsym(library, kPLXModuleEntryName) : nullptr;
    if (entry == nullptr) {
      ADD_FAILURE() << dlerror();
      std::abort();
    }
    return reinterpret_cast<PLXModuleEntryPtr>(entry);
  }();
  return ourEntry;
}
