// What the process as a whole does.
#pragma once

extern "C" {

// Registers what is to run before a fork (in the parent) and after it (in the parent, in the child). Registrations go
// when the library is unloaded. 0 on success.
int PlatformAtFork(void (*prepare)(), void (*parent)(), void (*child)());

} // extern "C"
