// Lets tests of the provider deny raw system calls, as a kernel or a sandbox may. In effect for the whole
// executable; nothing is denied unless a DeniedCall lives.
#pragma once

// Denies one system call with an error while it lives.
class DeniedCall {
public:
    DeniedCall(long number, int error);
    ~DeniedCall();
    DeniedCall(const DeniedCall&) = delete;
    DeniedCall& operator=(const DeniedCall&) = delete;

    int times() const; // how often it was denied
};

// How often a raw system call was let through since the process began.
int CallsOf(long number);

// Of the futex calls among them, whatever their number: those with this operation, which may have the flag
// for the wall clock beside it.
int FutexCalls(int operation);
