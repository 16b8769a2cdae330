#pragma once

#include <filesystem>
#include <string>
#include <vector>

struct PLXConfiguration;

// What this process asks of the kernel for itself. Passwords pass through its memory, and mail through its
// files: the first must not end in a core dump or a debugger, the second must not be readable for others. To
// be called at the start of main, before any file is made or thread started.
void KeepProcessToItself();

// Takes back that part of it that whoever looks for a fault needs: a crash leaves a core dump where the
// limits that the process was started with allow one, and debuggers of the same user may attach.
void AllowCoreDumps();

// From here on, root's process is one of the user whose folder this is; any other stays what it is. False
// when it is neither the owner nor root.
bool BecomeOwnerOf(std::filesystem::path const& folder_i);

// Sentences on what makes this installation weaker than it need be: a server of root, files that others may
// read. Looks at the disk; empty when all is well.
std::vector<std::string> InstallationWarnings(PLXConfiguration const& configuration_i);
