#pragma once

// Assertions of the house. A broken invariant writes two lines to the standard error stream,
//
//   <tab>FILE: "src/PLXString.cpp"
//   STATE ASSERTION FAILURE: offset_i < GetLength()
//
// and aborts the process; a warning is written the same way and processing goes on. They stay on in every
// build. Broken input is never an assertion. The plain forms take the file from `ourSourceFile`, which each
// source defines; headers use the forms that name it.

// Each writes with one system call, so that lines of several threads do not mix. `text_i` ends without a line
// feed.
[[noreturn]] void PLXFailNullPointer(char const* file_i, char const* text_i) noexcept;
[[noreturn]] void PLXFailState(char const* file_i, char const* text_i) noexcept;
[[noreturn]] void PLXFailUnexpectedState(char const* file_i, char const* text_i) noexcept;
void PLXWarnState(char const* file_i, char const* text_i) noexcept;

#define PLX_ASSERT_NOT_NULL_IN(file, pointer) \
  (static_cast<bool>((pointer) != nullptr) ? static_cast<void>(0) : PLXFailNullPointer(file, #pointer))
#define PLX_ASSERT_STATE_IN(file, condition) \
  (static_cast<bool>(condition) ? static_cast<void>(0) : PLXFailState(file, #condition))

#define PLX_ASSERT_NOT_NULL(pointer) PLX_ASSERT_NOT_NULL_IN(ourSourceFile, pointer)
#define PLX_ASSERT_STATE(condition) PLX_ASSERT_STATE_IN(ourSourceFile, condition)
