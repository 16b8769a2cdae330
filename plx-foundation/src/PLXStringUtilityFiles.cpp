#include "PLXFileSpecification.h"
#include "PLXFolderSpecification.h"
#include "PLXStringUtility.h"

namespace {
char const ourSourceFile[] = "src/PLXStringUtility.cpp";
}

bool PLXStringUtility::FindAvailableFilename(PLXFileSpecification& file_io) {
  PLXString const name = file_io.GetName();
  if (name.IsEmpty()) return false;
  PLXFolderSpecification const parentFolder = file_io.GetParentFolder();
  PLX_ASSERT_STATE(parentFolder.Exists());

  PLXUInt32 pointOffset = name.GetLength();
  name.Find('.', kPLXWholeLength, kPLXWholeLength, kPLXOption_Backward, pointOffset);
  PLXString const stem = name.GetSubstring(0, pointOffset);
  PLXString const extension = name.GetSubstring(pointOffset, kPLXWholeLength);
  for (unsigned number = 1; file_io.Exists(); ++number) {
    file_io.Redefine(parentFolder, stem + GetStringRepresentation(number) + extension);
  }
  return true;
}
