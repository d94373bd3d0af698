/*
 * TavPort: a Windows-style programming interface for systems that have none, with virtual paths.
 *
 * An application carries the library as a framework in its own bundle and includes this one header, from C11 or
 * C++17 onwards.
 *
 * What to look for where:
 *   name files by keys and values instead of raw paths    Virtual paths
 *   turn text into bytes and back                         UTF conversion
 *   work with 16-bit text                                 Wide runtime
 *   open, read, write, move and delete files              File handles
 *   run code in parallel                                  Threads
 *   let threads wait for one another                      Synchronisation
 *   load code modules                                     Dynamic libraries
 *   take path strings apart                               Path strings
 *   list volumes and tell what they are                   Drives
 *   list folders                                          Enumeration
 *   copy files and folders                                Copying
 *
 * What holds for every function, unless its own description says otherwise:
 *   - Text is zero-terminated UTF-16 in units of TavChar. Lengths and buffer sizes count units; a size that a
 *     function asks for or reports as needed includes the terminator, a length does not.
 *   - Booleans are int32_t: 1 for yes or success, 0 for no or failure. No last-error value is kept.
 *   - What a creating function returns belongs to the caller until the releasing call named beside it.
 *   - Timeouts are milliseconds; any negative value waits without limit. Waits give 0 (signalled), 258 (timed out)
 *     or 128 (any other failure).
 *   - Paths are absolute POSIX paths with "/", shorter than 1024 units.
 *   - Nothing is printed, no thread is started, and no exception leaves a function. Memory that cannot be had gives
 *     the function's failure result.
 *   - Functions may be called from any thread at the same time, each on objects of its own.
 *
 * Each description ends with @owner (who frees what), @threads (what may run at once) and @windows (the Windows call
 * that the function stands in for, or "none").
 */
#ifndef TAVPORT_H
#define TAVPORT_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

/* A 16-bit UTF-16 code unit: the type of u"text", and of L"text" where the compiler's wide character has 16 bits. */
#if defined(__SIZEOF_WCHAR_T__) && __SIZEOF_WCHAR_T__ == 2
typedef wchar_t TavChar;
#elif defined(__cplusplus)
typedef char16_t TavChar;
#else
#include <uchar.h>
typedef char16_t TavChar;
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Shared types ------------------------------------------------------------------------------------------ */

/* The platform's reference to a file or folder: opaque, may be copied and stored byte by byte. An application gets
   one from Tav0FSRCreateWithPath and Tav0FSRToAbs. */
typedef struct FSRef {
    uint8_t hidden[80];
} FSRef;

/* A translation key: four characters, the first in the lowest byte of memory. Write it with TAV_KEY; a plain 'pref'
   has its bytes the wrong way round on little-endian machines. */
typedef int32_t TavKey;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
#define TAV_KEY(a, b, c, d)                                                                                       \
    ((TavKey)(((uint32_t)(uint8_t)(a) << 24) | ((uint32_t)(uint8_t)(b) << 16) | ((uint32_t)(uint8_t)(c) << 8) |   \
              (uint32_t)(uint8_t)(d)))
#else
#define TAV_KEY(a, b, c, d)                                                                                       \
    ((TavKey)(((uint32_t)(uint8_t)(d) << 24) | ((uint32_t)(uint8_t)(c) << 16) | ((uint32_t)(uint8_t)(b) << 8) |   \
              (uint32_t)(uint8_t)(a)))
#endif

/* The name of a named value: at most 15 bytes and a terminator. All 16 bytes must be readable. */
typedef struct MyStr16 {
    char name[16];
} MyStr16;

/* ---- Virtual paths: translation keys and named values ------------------------------------------------------- */

/* ---- Virtual paths: expressions ----------------------------------------------------------------------------- */

/* ---- Virtual paths: references ------------------------------------------------------------------------------ */

/* ---- UTF conversion ----------------------------------------------------------------------------------------- */

/* ---- Wide runtime: strings ---------------------------------------------------------------------------------- */

/* ---- Wide runtime: characters ------------------------------------------------------------------------------- */

/* ---- Wide runtime: numbers ---------------------------------------------------------------------------------- */

/* ---- Wide runtime: formatting ------------------------------------------------------------------------------- */

/* ---- Shared empty strings ----------------------------------------------------------------------------------- */

/* ---- File handles ------------------------------------------------------------------------------------------- */

/* ---- Threads ------------------------------------------------------------------------------------------------ */

/* ---- Synchronisation ---------------------------------------------------------------------------------------- */

/* ---- Dynamic libraries -------------------------------------------------------------------------------------- */

/* ---- Path strings ------------------------------------------------------------------------------------------- */

/* ---- Drives ------------------------------------------------------------------------------------------------- */

/* ---- Enumeration -------------------------------------------------------------------------------------------- */

/* ---- Copying ------------------------------------------------------------------------------------------------ */

#ifdef __cplusplus
}
#endif

#endif
