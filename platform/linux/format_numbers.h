// Numbers as the C library's formatter writes them in its own locale.
#pragma once

#include "platform/linux/format_language.h"
#include "platform/linux/format_output.h"

namespace format {

// `width` and `precision` are those of the conversion with their arguments put in; a precision below 0 is
// none.
void AppendInteger(Output& output, const Conversion& conversion, Field field, int32_t precision,
                   int64_t value);
void AppendFloating(Output& output, const Conversion& conversion, Field field, int32_t precision,
                    const Value& value);
void AppendPointer(Output& output, Field field, const void* pointer);

} // namespace format
