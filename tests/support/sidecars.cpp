#include "support/sidecars.h"

std::string EmptySidecar() {
    std::string content(26, '\0');
    content.replace(0, 6, "\0\x05\x16\x07\0\x02", 6);
    return content;
}
