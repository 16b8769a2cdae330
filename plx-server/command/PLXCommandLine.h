#pragma once

#include <iostream>
#include <string>

// What commands share: how they end, and where they say why.

// By the numbers of sysexits.h: 64 the command line, 69 something that is needed is not there, 70 the
// program, 73 a file or folder cannot be made, 74 reading or writing failed, 75 it may work later, 78 the
// configuration.
enum PLXExitCode {
  kExitGood = 0,
  kExitUsage = 64,
  kExitUnavailable = 69,
  kExitSoftware = 70,
  kExitCannotCreate = 73,
  kExitInputOutput = 74,
  kExitLater = 75,
  kExitConfiguration = 78
};

// A sentence on standard error; the code, to end with.
inline int PLXFail(int code_i, std::string const& sentence_i) {
  std::cerr << "plxserver: " << sentence_i << std::endl;
  return code_i;
}
