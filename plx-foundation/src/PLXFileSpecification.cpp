#include "PLXFileSpecification.h"

#include <unistd.h>

PLXFileSpecification::PLXFileSpecification(PLXFileSystemItem const& item_i)
    : PLXFileSystemItem(item_i.GetOperatingSystemPathname()) {
  if (IsAFolder()) throw IsNotAFile();
}

bool PLXFileSpecification::Delete() { return unlink(GetSystemPath()) == 0; }
