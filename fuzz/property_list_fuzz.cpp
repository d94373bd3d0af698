// Property lists of all kinds: what is found is no longer than the list, and a comment changes nothing.
#include "input.h"

#include "platform/linux/property_list.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string list(reinterpret_cast<const char*>(data), size);
    const std::string found = property_list::StringIn(list, "CFBundleExecutable");
    Expect(found.size() < size || found.empty());
    Expect(property_list::StringIn("<!-- <key>CFBundleExecutable</key><string>x</string> -->" + list,
                                   "CFBundleExecutable") == found);
    return 0;
}
