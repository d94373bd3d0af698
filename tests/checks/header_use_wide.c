/* With 16-bit wide characters the host's own literals are the library's texts. */
#include "TavPort.h"

extern const TavChar* text;
extern const wchar_t* same;

const TavChar* text = L"text";
const wchar_t* same = (const TavChar*)0;
