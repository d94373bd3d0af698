// Whether the tests run under a user emulator, for the few that leave something out there.
#pragma once

// True when another program runs this one: then the process's executable is not the one that its path names.
bool IsEmulated();
