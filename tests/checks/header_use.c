/* What an application writes, in the language that C and C++ share: compiled by the header check in every dialect. */
#include "TavPort.h"

#include "TavPort.h" /* twice, as applications do */

extern const TavChar* text;
extern TavKey key;
extern size_t unit_size;

const TavChar* text = u"text";
TavKey key = 0;
size_t unit_size = sizeof(TavChar);
