#include "modules.h"

#include "report.h"

#include <string>

void ShowModules() {
    Heading("A module of the tour's own bundle");
    OpacTavLibrary* library = TavLoadLibrary(u"PlugIns/Greeting.bundle");
    Check("PlugIns/Greeting.bundle", library != nullptr, "loaded");

    using Greet = const char* (*)(int);
    const auto greet = reinterpret_cast<Greet>(TavGetProcAddress(library, "GreetingOfHour"));
    Check("its function GreetingOfHour", greet != nullptr, "found");
    if (greet) Check("called for nine o'clock", greet(9) == std::string("Good morning!"), greet(9));
    if (greet) Check("called for nine in the evening", greet(21) == std::string("Good evening!"), greet(21));
    Check("a function that it has not", !TavGetProcAddress(library, "NoSuchFunction"), "not found");
    Check("given back", TavFreeLibrary(library) == 1, "unloaded");
    Check("PlugIns/Missing.bundle", !TavLoadLibrary(u"PlugIns/Missing.bundle"), "names no module");
    Check("PlugIns, a folder without an executable", !TavLoadLibrary(u"PlugIns"), "names no module");
}
