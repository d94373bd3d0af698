#include <cstdlib>
#include <pthread.h>
#include <stdexcept>

extern "C" int ModuleAnswer() {
    return 42;
}

// Ends its own loading: with the thread where that is asked for, else by an exception.
static const int initialised = [] {
    if (getenv("TAVPORT_TEST_END_THREAD")) pthread_exit(nullptr);
    throw std::runtime_error("cannot be initialised");
    return 0;
}();
