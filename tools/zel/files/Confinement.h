// Takes rights from the process before it decodes what strangers made.
//
//   Confine({input, track}, output);   // before the first file is opened
//
// Decoders are the largest part of the program and read bytes that anybody may have made. A fault
// in one of them should find nothing worth having.
#pragma once

#include <string>
#include <vector>

namespace zel::tool {

/// Leaves the process, for good, only what a command needs:
///
/// - files (Landlock): reading `inputs` and the system's own folders, and writing in the folder of
///   `output` (empty: none). Files that are open stay open.
/// - system calls (seccomp): no sockets, no other programs, no other processes' memory, no mounting
///   and the like; they fail as if forbidden.
/// - no core files, which would hold what was read.
///
/// What the kernel or the build does not have is left out. Does nothing after NeverConfine. Call it
/// while the process has one thread; later ones have the same rights.
/// @throws Failure when the kernel has a confinement but refuses it
void Confine(const std::vector<std::string>& inputs, const std::string& output);

/// Makes Confine do nothing, as --no-sandbox asks for.
void NeverConfine();

/// What Confine does here, such as "files (Landlock), system calls (seccomp)", or "none".
std::string ConfinementText();

}  // namespace zel::tool
