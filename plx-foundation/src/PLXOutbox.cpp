#include "PLXOutbox.h"

#include <utility>

#include "PLXJulianDay.h"
#include "PLXNumber.h"

namespace {

constexpr char kOutboxSuffix[] = ".outbox";
constexpr char kStoredNamePrefix[] = "msg";
constexpr PLXUInt32 kLongestStoredName = 25;
constexpr char kStoredNameStep[] = "0.0000007";  // days between names of the same moment

// The number without its point behind the prefix, cut to what a name may have.
PLXString GetStoredName(PLXNumber const& day_i) {
  PLXString name = day_i.GetStringRepresentation();
  name.ReplaceAll(".", "");
  name.Trim(" \t\r\n");
  name.Prepend(kStoredNamePrefix);
  return name.GetSubstring(0, kLongestStoredName);
}

}  // namespace

// With a path of its own: the other one's owner may stay on another thread.
PLXOutbox::PLXOutbox(PLXString const& failedMailFolder_i) {
  PLXString path(failedMailFolder_i.GetCStringAccess(), failedMailFolder_i.GetLength());
  path.TrimRight(kPlatformPathDelimiter);
  myFailedMail.Redefine(path);
  myFolder.Redefine(path + kOutboxSuffix);
}

PLXString PLXOutbox::ChooseName(std::function<bool(PLXString const&)> const& isTaken_i) {
  PLXNumber day = PLXJulianDay().GetRealValue();
  for (;; day += PLXNumber(kStoredNameStep)) {
    PLXString name = GetStoredName(day);
    if (!isTaken_i(name)) return name;
  }
}

bool PLXOutbox::HasMessage(PLXString const& name_i) const {
  return PLXFileSpecification(myFailedMail, name_i).Exists();
}

// Mail that fails nowhere has no outbox either.
bool PLXOutbox::MakeFolder() {
  return myFailedMail.GetOperatingSystemPathname().IsNotEmpty() && myFolder.CreateIfMissing();
}

bool PLXOutbox::Add(PLXString const& outcome_i, PLXString const& message_i) {
  if (!MakeFolder()) return false;
  bool isStored = false;
  bool hasFailed = false;
  ChooseName([&](PLXString const& name) {
    if (HasMessage(name)) return true;
    isStored = Store(name, outcome_i, message_i, PLXFile::kKeepExistingFile);
    // A name that is free and still not to be had, twice: the disk takes nothing.
    if (!isStored) return PLXFileSpecification(myFolder, name).Exists() || !std::exchange(hasFailed, true);
    // The message that had the name here has failed meanwhile.
    if (!HasMessage(name)) return false;
    Remove();
    return true;
  });
  return isStored;
}

bool PLXOutbox::SetOutcome(PLXString const& name_i, PLXString const& outcome_i) {
  if (!MakeFolder()) return false;
  return Store(name_i, outcome_i, PLXString(), PLXFile::kReplaceExistingFile);
}

bool PLXOutbox::Store(PLXString const& name_i, PLXString const& outcome_i, PLXString const& message_i,
                      PLXFile::ExistingFile existing_i) {
  auto const view = [](PLXString const& text) {
    return std::string_view(text.GetCStringAccess(), text.GetLength());
  };
  if (!PLXFile::WriteWhole(PLXFileSpecification(myFolder, name_i),
                           {view(outcome_i), kPlatformLineEnding, view(message_i)}, existing_i, &myFile)) {
    return false;
  }
  myName = name_i;
  return true;
}

// The file goes while it is locked, so nobody else can take it for abandoned.
void PLXOutbox::Remove() {
  if (!myFile.IsOpen()) return;
  PLXFileSpecification(myFile.GetSpecification()).Delete();
  myFile.Close();
}

void PLXOutbox::SettleAbandoned(std::function<bool(Entry const&)> const& settle_i) const {
  PLXFileSystemItemArray items;
  try {
    myFolder.GetContents(items);
  } catch (PLXException const&) {
    return;  // there never was a message
  }
  for (PLXUInt32 index = 0; index < items.GetElementCount(); ++index) {
    PLXFileSpecification specification(items[index].GetOperatingSystemPathname());
    PLXFile file(specification);
    if (!file.Open(kPLXFilePermission_ReadWrite) || !file.TryLock() || !file.HasItsName()) continue;
    Entry entry;
    entry.name = specification.GetName();
    // What was still being written when its process died: nobody was told that it was taken.
    if (!entry.name.BeginsWith(kStoredNamePrefix)) {
      if (entry.name.BeginsWith(kTemporaryFilePrefix)) specification.Delete();
      continue;
    }
    PLXString content;
    PLXUInt32 const size = file.GetSize();
    PLXUInt32 end = 0;
    // What cannot be read stays.
    if (file.Read(0, size, content.ReserveLength(size)) != size ||
        !content.Find('\n', 0, kPLXWholeLength, 0, end)) {
      continue;
    }
    entry.outcome = content.GetSubstring(0, end);
    entry.message = content.GetSubstring(end + 1, kPLXWholeLength);
    if (settle_i(entry)) specification.Delete();
  }
}
