#pragma once

#include <cerrno>

// Makes a system call that a signal may interrupt, again and again until none did; what it returned, with
// errno as it left it. Not for `close`, which is done even when interrupted.
template <typename Call>
auto PLXUninterrupted(Call const& call_i) {
  for (;;) {
    auto const result = call_i();
    if (result != -1 || errno != EINTR) return result;
  }
}
