#include <cstdlib>

extern "C" int ModuleAnswer() {
    return 42;
}

// A name that is not ASCII, as the linker has it: "caf\u00E9" in Mac Roman.
extern "C" int AnswerInMacRoman() __asm__("caf\x8E");
extern "C" int AnswerInMacRoman() {
    return 43;
}

// Loading and unloading can be seen from outside.
namespace {
struct Presence {
    Presence() { setenv("TAVPORT_TEST_MODULE", "loaded", 1); }
    ~Presence() { unsetenv("TAVPORT_TEST_MODULE"); }
} presence;
} // namespace
