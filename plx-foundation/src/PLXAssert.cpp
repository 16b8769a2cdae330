#include "PLXAssert.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

void WriteDiagnostic(char const* file_i, char const* kind_i, char const* text_i) noexcept {
  char line[1024];
  int const length = std::snprintf(line, sizeof line, "\tFILE: \"%s\"\n%s: %s\n", file_i, kind_i, text_i);
  if (length < 0) return;
  std::size_t left =
      static_cast<std::size_t>(length) < sizeof line ? static_cast<std::size_t>(length) : sizeof line - 1;
  for (char const* next = line; left > 0;) {
    ssize_t const written = write(STDERR_FILENO, next, left);
    if (written <= 0) return;
    next += written;
    left -= static_cast<std::size_t>(written);
  }
}

}  // namespace

void PLXFailNullPointer(char const* file_i, char const* text_i) noexcept {
  WriteDiagnostic(file_i, "NULL POINTER ASSERTION", text_i);
  std::abort();
}

void PLXFailState(char const* file_i, char const* text_i) noexcept {
  WriteDiagnostic(file_i, "STATE ASSERTION FAILURE", text_i);
  std::abort();
}

void PLXFailUnexpectedState(char const* file_i, char const* text_i) noexcept {
  WriteDiagnostic(file_i, "UNEXPECTED STATE", text_i);
  std::abort();
}

void PLXWarnState(char const* file_i, char const* text_i) noexcept {
  WriteDiagnostic(file_i, "STATE WARNING", text_i);
}
