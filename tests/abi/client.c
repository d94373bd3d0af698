/* An application's main program in C: prints the length of a text by the library that its bundle carries. */
#include "TavPort.h"

#include <stdio.h>

int main(void) {
    printf("%u\n", (unsigned)tav_wcslen(u"bundle"));
    return 0;
}
