// The most memory that this process held at a time, as the kernel counts it.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>

// Bytes in use at the most since the last call of ForgetPeakMemory; 0 where the kernel does not tell.
inline double PeakMemory() {
    std::FILE* status = std::fopen("/proc/self/status", "re");
    if (!status) return 0;
    char line[128];
    double bytes = 0;
    while (std::fgets(line, sizeof line, status))
        if (std::strncmp(line, "VmHWM:", 6) == 0) bytes = std::atof(line + 6) * 1024;
    std::fclose(status);
    return bytes;
}

// Lets the peak begin anew at what is in use now.
inline void ForgetPeakMemory() {
    std::FILE* references = std::fopen("/proc/self/clear_refs", "we");
    if (!references) return;
    std::fputs("5", references);
    std::fclose(references);
}
