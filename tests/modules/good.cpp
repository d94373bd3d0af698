#include <cstdlib>

extern "C" int ModuleAnswer() {
    return 42;
}

// Loading and unloading can be seen from outside.
namespace {
struct Presence {
    Presence() { setenv("TAVPORT_TEST_MODULE", "loaded", 1); }
    ~Presence() { unsetenv("TAVPORT_TEST_MODULE"); }
} presence;
} // namespace
