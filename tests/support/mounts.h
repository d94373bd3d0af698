// Volumes of a test's own, in a mount namespace that only its process sees. Needs the superuser.
#pragma once

#include <string>

// Moves the process into a mount namespace of its own. Empty when that has worked, else the reason for
// skipping.
std::string EnterPrivateMounts();

// Mounts and remounts for a test; they throw when the host refuses.
void MountTmpfs(const std::string& folder, const std::string& options);
void MountAgain(const std::string& what, const std::string& folder);
void MakeReadOnly(const std::string& folder);

// Unmounts at once; busy mounts go as soon as nobody uses them. Does nothing where nothing is mounted.
void Unmount(const std::string& folder);
