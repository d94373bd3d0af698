// A program that loads the module that its argument names and ends with what the module's function says: 1 when
// there is no module, 2 when it has no such function.
#include "TavPort.h"

#include "support/files.h"

int main(int, char** arguments) {
    OpacTavLibrary* library = TavLoadLibrary(Wide(arguments[1]).c_str());
    if (!library) return 1;
    auto answer = reinterpret_cast<int (*)()>(TavGetProcAddress(library, "ModuleAnswer"));
    const int status = answer ? answer() : 2;
    TavFreeLibrary(library);
    return status;
}
