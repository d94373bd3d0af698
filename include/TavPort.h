/*
 * TavPort: a Windows-style programming interface for systems that have none, with virtual paths.
 *
 * An application carries the library as a framework in its own bundle and includes this one header, from C11
 * or C++17 onwards.
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
 *     function asks for or reports as needed includes the terminator, a length does not. It stands at an even
 *     address, as every array of TavChar does; text in packed records has to be copied out of them.
 *   - Booleans are int32_t: 1 for yes or success, 0 for no or failure. No last-error value is kept.
 *   - What a creating function returns belongs to the caller until the releasing call named beside it.
 *   - Timeouts are milliseconds; any negative value waits without limit. Waits give 0 (signalled), 258 (timed
 *     out) or 128 (any other failure).
 *   - Paths are absolute POSIX paths with "/", shorter than 1024 units.
 *   - Nothing is printed, no thread is started, and no exception leaves a function. Memory that cannot be had
 *     gives the function's failure result.
 *   - Functions may be called from any thread at the same time, each on objects of its own.
 *
 * Each description ends with @owner (who frees what), @threads (what may run at once) and @windows (the
 * Windows call that the function stands in for, or "none").
 */
#ifndef TAVPORT_H
#define TAVPORT_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

/* A 16-bit UTF-16 code unit: the type of u"text", and of L"text" where the compiler's wide character has
   16 bits. */
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

/* The library hides everything else that it is made of. */
#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

/* ---- Shared types -------------------------------------------------------------------------------------- */

/* The platform's reference to a file or folder: opaque, may be copied and stored byte by byte. An
   application gets one from Tav0FSRCreateWithPath and Tav0FSRToAbs. */
typedef struct FSRef {
    uint8_t hidden[80];
} FSRef;

/* A translation key: four characters that stand in memory in the order in which they are written, fewer
   filled up with zero bytes. Write it with TAV_KEY; a plain 'pref' has its bytes the wrong way round on
   little-endian machines. */
typedef int32_t TavKey;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
#define TAV_KEY(a, b, c, d)                                                                                  \
    ((TavKey)(((uint32_t)(uint8_t)(a) << 24) | ((uint32_t)(uint8_t)(b) << 16) |                              \
              ((uint32_t)(uint8_t)(c) << 8) | (uint32_t)(uint8_t)(d)))
#else
#define TAV_KEY(a, b, c, d)                                                                                  \
    ((TavKey)(((uint32_t)(uint8_t)(d) << 24) | ((uint32_t)(uint8_t)(c) << 16) |                              \
              ((uint32_t)(uint8_t)(b) << 8) | (uint32_t)(uint8_t)(a)))
#endif

/* The name of a named value: at most 15 bytes and a terminator. All 16 bytes must be readable. */
typedef struct MyStr16 {
    char name[16];
} MyStr16;

/* ---- Virtual paths: translation keys and named values -------------------------------------------------- */
/*
 * Gives symbolic paths their meaning: a key of four characters stands for a folder, a short name for a piece
 * of path. An application registers both when it starts:
 *     TavKey pref = TAV_KEY('p', 'r', 'e', 'f');
 *     OpacTavFSRef* settings = Tav0FSRCreateWithPath(u"/home/ann/settings");
 *     FSRef folder;
 *     if (Tav0FSRToAbs(settings, &folder, 0)) Tav0TranPathRegister(&pref, &folder);
 *     Tav0FSRRelease(settings);
 *     MyStr16 lang = {"lang"};
 *     Tav0FSValRegister(&lang, u"en");
 * after which "$pref\%lang\Data" leads to Data in the folder en of that folder. Entries live until they are
 * replaced, removed (Tav0FSValRemove) or the library is unloaded; nothing is released.
 */

/**
 * Registers a folder under a translation key, replaces the folder registered there, or looks it up.
 *
 * @param key  the four bytes of the key; null gives null.
 * @param ref  the folder, copied; null only looks the key up.
 * @return the registry's copy; null when the key is not registered or memory is short (nothing changes then).
 * @owner   the registry; the pointer holds until the same key is registered again.
 * @threads registering must not run beside any other use of translation keys; looking up may run beside
 *          looking up.
 * @windows none
 */
FSRef* Tav0TranPathRegister(const TavKey* key, const FSRef* ref);

/**
 * Registers a text under a name, replaces the text registered there, or looks it up. Each registration raises
 * the modification counter by one, also when the text is the same.
 *
 * @param name   the name, letter case significant, all 16 bytes readable; null gives null.
 * @param value  the text, copied; may be empty; null only looks the name up.
 * @return the registry's copy; null when the name is not registered or memory is short (nothing changes
 *         then).
 * @owner   the registry; the pointer holds until the same name is registered again or removed.
 * @threads registering must not run beside any other use of named values; looking up may run beside looking
 *          up.
 * @windows none
 */
TavChar* Tav0FSValRegister(const MyStr16* name, const TavChar* value);

/**
 * Removes a named value and raises the modification counter by one; an unknown name changes nothing.
 *
 * @param name  the name; null is ignored.
 * @owner   frees the registry's copy of the text.
 * @threads must not run beside any other use of named values.
 * @windows none
 */
void Tav0FSValRemove(const MyStr16* name);

/**
 * Tells how often named values were registered or removed, so that a program notices changes.
 *
 * @return the counter; 0 when the library is loaded, wrapping around after 2^32 - 1.
 * @owner   nothing to release.
 * @threads any.
 * @windows none
 */
uint32_t Tav0FSValGetModifyAccount(void);

/* ---- Virtual paths: expressions ------------------------------------------------------------------------ */
/*
 * Names a place symbolically, to be turned into a file reference when it is needed:
 *     TavKey pref = TAV_KEY('p', 'r', 'e', 'f');
 *     OpacTavFSExp* e = Tav0FSExpCreateTK((const char*)&pref);  // $pref
 *     Tav0FSExpAppendVal(e, "lang");                            // $pref\%lang
 *     Tav0FSExpAppendSeg(e, u"Data/file.txt");                  // $pref\%lang\Data\file.txt
 *     OpacTavFSRef* r = Tav0FSExpCalculateFSRCreate(e, NULL);
 *     Tav0FSExpRelease(e);
 * An expression is a root and segments, separated by "\". The root is "$" and one to four characters of a
 * translation key, or "$$" and a name for a base that the evaluating caller gives, or any other text
 * (such as "M") for an absolute path in the segments that follow. With no name behind "$$" the first
 * segment is lost. A segment is "%" and the name of a value, or plain text. Nothing is checked before the
 * evaluation. Expressions are released with Tav0FSExpRelease.
 */

/* A growable path expression. */
typedef struct OpacTavFSExp OpacTavFSExp;

/* A reference to a file or folder by its path; see the next section. */
typedef struct OpacTavFSRef OpacTavFSRef;

/**
 * Makes an absolute expression from the path of a reference: "M", "\" and the path.
 *
 * @param ref  the reference; null gives null.
 * @return the expression, or null when memory is short.
 * @owner   the caller, until Tav0FSExpRelease; it does not depend on `ref` afterwards.
 * @threads any.
 * @windows none
 */
OpacTavFSExp* Tav0FSExpCreateAbs(OpacTavFSRef* ref);

/**
 * Makes an expression from a translation key: "$" and the characters of the key up to the first zero byte.
 * The key may be registered later, or never.
 *
 * @param key  the four bytes of the key, the first character first; null gives null.
 * @return the expression, or null when memory is short.
 * @owner   the caller, until Tav0FSExpRelease.
 * @threads any.
 * @windows none
 */
OpacTavFSExp* Tav0FSExpCreateTK(const char* key);

/**
 * Makes an expression from its text, exactly as given and without checking it.
 *
 * @param text  the text, which may be empty; null gives null.
 * @return the expression, or null when memory is short.
 * @owner   the caller, until Tav0FSExpRelease.
 * @threads any.
 * @windows none
 */
OpacTavFSExp* Tav0FSExpCreateExp(const TavChar* text);

/**
 * Makes an expression of a reference's path relative to the folder of a key, or to a base: "$" and the key
 * ("$$" with a base) and what follows that folder in the path. Letter case is ignored in the folder's part
 * and kept in the rest.
 *
 * @param ref   the reference; null gives null.
 * @param key   the four bytes of the key, the first character first; null gives null. With a base it is only
 *              the name behind "$$" and need not be registered.
 * @param base  the folder to use in place of the key's, or null.
 * @return the expression; null when the path is not at or below the folder (nothing is below "/"), the key is
 *         not registered, a path has 1024 units or more, or memory is short.
 * @owner   the caller, until Tav0FSExpRelease.
 * @threads any, as long as no keys are registered meanwhile.
 * @windows none
 */
OpacTavFSExp* Tav0FSExpCreateAbsOnKey(const OpacTavFSRef* ref, const char* key, const OpacTavFSRef* base);

/**
 * Reads the text of an expression.
 *
 * @param e         the expression; null gives 0.
 * @param buf       receives the text and a terminator, when it is large enough; may be null.
 * @param bufUnits  size of `buf`; nothing is copied unless it is greater than the length.
 * @return the units needed, terminator included; 0 for null or an expression without storage.
 * @owner   nothing to release.
 * @threads any, as long as the expression is not changed meanwhile.
 * @windows none
 */
uint32_t Tav0FSExpGetExp(const OpacTavFSExp* e, TavChar* buf, uint32_t bufUnits);

/**
 * Tells whether an expression is relative to a base ("$$…"), and the name that stands between "$$" and the
 * first "\".
 *
 * @param e          the expression; null gives 0.
 * @param nameBuf    receives the name and a terminator; may be null.
 * @param nameUnits  in: size of `nameBuf`, which must be greater than the name's length. Out: the name's
 *                   length without terminator (also where `nameBuf` is null); 0 when it does not fit or no
 *                   "\" follows. Unchanged when the result is 0. May be null; `nameBuf` is then taken to be
 *                   large enough.
 * @return 1 when it is, whatever became of the name; else 0.
 * @owner   nothing to release.
 * @threads any, as long as the expression is not changed meanwhile.
 * @windows none
 */
int32_t Tav0FSExpIsRelPath(const OpacTavFSExp* e, TavChar* nameBuf, uint32_t* nameUnits);

/**
 * Appends one or more segments; "/" in the text becomes "\". A "\" is put between the old text and the new
 * where neither has one there already; a "/" in front does not count as one, so it leaves an empty segment.
 *
 * @param e    the expression; null gives 0.
 * @param seg  the segment, which may be empty or begin with "\"; null gives 0.
 * @return 1; 0 when memory is short (a "\" at the end may have come or gone then).
 * @owner   nothing to release; the text is copied.
 * @threads one thread at a time for each expression.
 * @windows none
 */
int32_t Tav0FSExpAppendSeg(OpacTavFSExp* e, const TavChar* seg);

/**
 * Appends a reference to a named value: "%" and the name, as a segment of its own.
 *
 * @param e     the expression; null gives 0.
 * @param name  the name, zero-terminated and not checked; null gives 0.
 * @return 1; 0 when memory is short (a "\" at the end may have come then).
 * @owner   nothing to release; the name is copied.
 * @threads one thread at a time for each expression.
 * @windows none
 */
int32_t Tav0FSExpAppendVal(OpacTavFSExp* e, const char* name);

/**
 * Frees an expression.
 *
 * @param e  the expression; null is ignored.
 * @owner   takes back what the creating functions gave.
 * @threads one thread at a time for each expression.
 * @windows none
 */
void Tav0FSExpRelease(OpacTavFSExp* e);

/**
 * Evaluates an expression: puts the folder in place of the root and the texts in place of named values, joins
 * the segments with "/" and resolves "." and "..". A key that is not registered counts as empty, so the path
 * begins with the first segment and has no "/" in front; an unknown value leaves nothing but the "/" before
 * it.
 *
 * @param e     the expression; null gives null.
 * @param base  the base of an expression that begins with "$$"; else it may be null.
 * @return the reference; null when the base is missing, an absolute expression has no "\", the key is empty,
 *         the path has a ":" (but for "C:" in front) or a name that begins with ".", leads above its first
 *         "/", holds 512 or more "/", or exceeds 2047 units, a name of a value has 256 bytes or more, or
 *         memory is short.
 * @owner   the caller holds the reference, until Tav0FSRRelease.
 * @threads any, as long as no keys or values are registered or removed meanwhile.
 * @windows none
 */
OpacTavFSRef* Tav0FSExpCalculateFSRCreate(const OpacTavFSExp* e, const OpacTavFSRef* base);

/* ---- Virtual paths: references ------------------------------------------------------------------------- */
/*
 * The handle by which files and folders are named everywhere else: a path that never changes, shared and
 * counted. The same path gives the same handle, so handles may be compared. The path need not exist.
 *     OpacTavFSRef* folder = Tav0FSRCreateWithPath(u"/tmp");
 *     OpacTavFSRef* file = Tav0FSRAppendPathComponent(folder, u"notes.txt");
 *     if (!Tav0FSRIsExist(file)) puts("nothing noted");
 *     Tav0FSRRelease(file);
 *     Tav0FSRRelease(folder);
 * Every function that returns a reference gives the caller one hold on it, released with Tav0FSRRelease.
 */

/**
 * Gives the reference for a path exactly as it is written.
 *
 * @param path  the path; null gives null.
 * @return the reference; null when memory is short.
 * @owner   the caller holds the reference, until Tav0FSRRelease.
 * @threads any.
 * @windows none
 */
OpacTavFSRef* Tav0FSRCreateWithPath(const TavChar* path);

/**
 * Gives the reference for the path of a platform file reference.
 *
 * @param folder  the file or folder; null gives null.
 * @return the reference; null when the object is gone, its path has more than 1023 bytes or a name that is
 *         not UTF-8, or memory is short.
 * @owner   the caller holds the reference, until Tav0FSRRelease.
 * @threads any.
 * @windows none
 */
OpacTavFSRef* Tav0FSRCreateAbs(const FSRef* folder);

/**
 * Gives the reference for the folder of a translation key.
 *
 * @param key  the four bytes of the key; null gives null.
 * @return the reference; null when the key is not registered, its folder is gone, or memory is short.
 * @owner   the caller holds the reference, until Tav0FSRRelease.
 * @threads any, as long as no keys are registered meanwhile.
 * @windows none
 */
OpacTavFSRef* Tav0FSRCreateTK(const TavKey* key);

/**
 * Adds a hold on a reference.
 *
 * @param r  the reference; null gives 0.
 * @return the number of holds before the call, as long as no other thread interferes.
 * @owner   the caller holds the reference once more, until Tav0FSRRelease.
 * @threads any that holds the reference.
 * @windows none
 */
uint32_t Tav0FSRRetain(OpacTavFSRef* r);

/**
 * Gives up a hold on a reference; the last one frees it.
 *
 * @param r  the reference; null is ignored.
 * @owner   takes back one hold.
 * @threads any that holds the reference.
 * @windows none
 */
void Tav0FSRRelease(OpacTavFSRef* r);

/**
 * Reads the path of a reference.
 *
 * @param r         the reference; null gives 0.
 * @param buf       receives the path and a terminator, when it is large enough; may be null.
 * @param bufUnits  size of `buf`; nothing is copied when it is less than the result.
 * @return the units needed, terminator included.
 * @owner   nothing to release.
 * @threads any that holds the reference.
 * @windows none
 */
uint32_t Tav0FSRToUTF16(const OpacTavFSRef* r, TavChar* buf, uint32_t bufUnits);

/**
 * Finds the object that a reference names and gives the platform's reference to it. For a link that is the
 * link itself, whether or not its target exists.
 *
 * @param r         the reference; null gives 0.
 * @param out       receives the platform's reference, kept as it is on failure; null gives 0.
 * @param reserved  ignored.
 * @return 1; 0 when there is no such object, the path has 1024 units or more or cannot be UTF-8, or memory is
 *         short.
 * @owner   nothing to release.
 * @threads any that holds the reference.
 * @windows none
 */
int32_t Tav0FSRToAbs(const OpacTavFSRef* r, FSRef* out, uint32_t reserved);

/**
 * Tells whether the object that a reference names exists now. A link whose target is missing does not.
 *
 * @param r  the reference; null gives 0.
 * @return 1 when it exists; else 0, also for the failures of Tav0FSRToAbs.
 * @owner   nothing to release.
 * @threads any that holds the reference.
 * @windows PathFileExists
 */
int32_t Tav0FSRIsExist(const OpacTavFSRef* r);

/**
 * Gives the reference for something below a folder; "/" in the text makes several levels, and "." and ".."
 * are resolved.
 *
 * @param r          the folder; null gives null.
 * @param component  the name or names below it; null gives null.
 * @return the reference; null where Tav0FSExpCalculateFSRCreate gives null.
 * @owner   the caller holds the reference, until Tav0FSRRelease.
 * @threads any that holds the reference, as long as no values are registered or removed meanwhile.
 * @windows PathAppend
 */
OpacTavFSRef* Tav0FSRAppendPathComponent(const OpacTavFSRef* r, const TavChar* component);

/**
 * Gives the reference for the folder above, whose path keeps its "/" at the end, and the name that was taken
 * off. A path that ends with "/" has no folder above in this sense.
 *
 * @param r          the reference; null gives null.
 * @param lastBuf    receives the name, or the path without its last "/" when there is no folder above; cut
 *                   where it does not fit, zero-filled; may be null.
 * @param lastUnits  size of `lastBuf`.
 * @return the reference; null when there is no folder above, the path is empty or has 1024 units or more, or
 *         memory is short.
 * @owner   the caller holds the reference, until Tav0FSRRelease.
 * @threads any that holds the reference.
 * @windows PathRemoveFileSpec
 */
OpacTavFSRef* Tav0FSRRemoveLastPathComponent(const OpacTavFSRef* r, TavChar* lastBuf, uint32_t lastUnits);

/**
 * Reads the last name of a path. For a path that ends with "/" it is the whole path without that "/".
 *
 * @param r          the reference; null gives 0.
 * @param lastBuf    receives the name, cut where it does not fit, zero-filled; may be null.
 * @param lastUnits  size of `lastBuf`.
 * @return 1; 0 when the path is empty or has 1024 units or more.
 * @owner   nothing to release.
 * @threads any that holds the reference.
 * @windows PathFindFileName
 */
int32_t Tav0FSRGetLastPathComponent(const OpacTavFSRef* r, TavChar* lastBuf, uint32_t lastUnits);

/**
 * Tells whether a reference's path is the folder of a translation key or lies below it, without regard to
 * letter case.
 *
 * @param r     the reference; null gives 0.
 * @param key   the four bytes of the key; needed unless `base` is given.
 * @param base  the folder to use in place of the key's, or null.
 * @return 1 when it is or does (nothing is below "/"); else 0, also for an unregistered key and paths of 1024
 *         units or more.
 * @owner   nothing to release.
 * @threads any that holds the references, as long as no keys are registered meanwhile.
 * @windows none
 */
int32_t Tav0FSRIsBaseOnKey(const OpacTavFSRef* r, const TavKey* key, const OpacTavFSRef* base);

/* ---- UTF conversion ------------------------------------------------------------------------------------ */

/*
 * Turns whole zero-terminated texts from UTF-8 to UTF-16 and back, strictly: text that is malformed gives
 * null.
 *
 *     TavChar* wide = Tav0UTF16FromUTF8("caf\303\251");
 *     if (!wide) puts("malformed");
 *     Tav0UTFRelease(wide);
 *
 * Tav0UTFRelease releases what either conversion returned.
 */

/**
 * Converts UTF-8 to UTF-16.
 *
 * @param utf8  zero-terminated text; null is answered with null.
 * @return a new zero-terminated text; null for null, for malformed UTF-8 (overlong forms, encoded surrogates,
 *         values above 0x10FFFF, a cut sequence) and when memory runs out.
 * @owner   the caller, who gives it back with Tav0UTFRelease.
 * @threads any number at the same time.
 * @windows MultiByteToWideChar with CP_UTF8 and MB_ERR_INVALID_CHARS
 */
TavChar* Tav0UTF16FromUTF8(const char* utf8);

/**
 * Converts UTF-16 to UTF-8. A high surrogate that is the very last unit is written as three bytes of its own
 * value; any other lone surrogate makes the text malformed.
 *
 * @param utf16  zero-terminated text; null is answered with null.
 * @return a new zero-terminated text; null for null, for malformed UTF-16 and when memory runs out.
 * @owner   the caller, who gives it back with Tav0UTFRelease.
 * @threads any number at the same time.
 * @windows WideCharToMultiByte with CP_UTF8 and WC_ERR_INVALID_CHARS
 */
char* Tav0UTF8FromUTF16(const TavChar* utf16);

/**
 * Releases the result of a conversion.
 *
 * @param buffer  what Tav0UTF16FromUTF8 or Tav0UTF8FromUTF16 returned; null is ignored.
 * @owner   the buffer is gone afterwards.
 * @threads any number at the same time, each on buffers of its own.
 * @windows none
 */
void Tav0UTFRelease(void* buffer);

/* ---- Wide runtime: strings ----------------------------------------------------------------------------- */

/*
 * The runtime's functions for zero-terminated 16-bit text, and the few for 8-bit text (read as Mac Roman
 * where letters matter). Except where it is said, null is not allowed: it is not checked.
 *
 *     TavChar name[64];
 *     tav_wcscpy(name, u"Read me");
 *     if (tav_wcscmpi(name, u"READ ME") == 0) puts("the same");
 *
 * Two notions of letter case stand side by side: tav_wcscmpi, tav_strcmpi and the whole-text conversions know
 * the letters of every script; tav_wcsnicmp and the functions for one character know the 26 of ASCII only.
 * Nothing here has to be released.
 */

/**
 * Counts the units before the terminator.
 *
 * @param s  zero-terminated text, or null.
 * @return the number of units; 0 for null.
 * @owner   nothing to release.
 * @threads any number at the same time, while nobody writes the texts.
 * @windows wcslen
 */
uint32_t tav_wcslen(const TavChar* s);

/**
 * Copies a text with its terminator.
 *
 * @param dst  receives tav_wcslen(src) + 1 units; null is not allowed.
 * @param src  zero-terminated text that does not overlap dst; null is not allowed.
 * @return dst.
 * @owner   nothing to release.
 * @threads any number at the same time, each on buffers of its own.
 * @windows wcscpy
 */
TavChar* tav_wcscpy(TavChar* dst, const TavChar* src);

/**
 * Copies at most n units. A shorter text is filled up with zeros to n units; a text of n units or more gets
 * no terminator.
 *
 * @param dst  receives exactly n units; null is not allowed.
 * @param src  zero-terminated text, or at least n units, that does not overlap dst; null is not allowed.
 * @param n  how many units to write; 0 writes nothing.
 * @return dst.
 * @owner   nothing to release.
 * @threads any number at the same time, each on buffers of its own.
 * @windows wcsncpy
 */
TavChar* tav_wcsncpy(TavChar* dst, const TavChar* src, uint32_t n);

/**
 * Appends a text, with its terminator, to another.
 *
 * @param dst  zero-terminated text with room for both; null is not allowed.
 * @param src  zero-terminated text that does not overlap dst; null is not allowed.
 * @return dst.
 * @owner   nothing to release.
 * @threads any number at the same time, each on buffers of its own.
 * @windows wcscat
 */
TavChar* tav_wcscat(TavChar* dst, const TavChar* src);

/**
 * Finds the first unit of a given value. Searching for 0 finds the terminator.
 *
 * @param s  zero-terminated text; null is not allowed.
 * @param c  the unit; only the low 16 bits count.
 * @return the address of the unit inside s; null when there is none.
 * @owner   nothing to release.
 * @threads any number at the same time, while nobody writes the texts.
 * @windows wcschr
 */
TavChar* tav_wcschr(const TavChar* s, uint32_t c);

/**
 * Finds the last unit of a given value. Searching for 0 finds the terminator.
 *
 * @param s  zero-terminated text; null is not allowed.
 * @param c  the unit; only the low 16 bits count.
 * @return the address of the unit inside s; null when there is none.
 * @owner   nothing to release.
 * @threads any number at the same time, while nobody writes the texts.
 * @windows wcsrchr
 */
TavChar* tav_wcsrchr(const TavChar* s, uint32_t c);

/**
 * Finds the first occurrence of one text in another, unit by unit.
 *
 * @param hay  zero-terminated text to search; null is not allowed.
 * @param needle  zero-terminated text to find; null is not allowed.
 * @return the address of the occurrence inside hay, hay itself for an empty needle; null when there is none.
 * @owner   nothing to release.
 * @threads any number at the same time, while nobody writes the texts.
 * @windows wcsstr
 */
TavChar* tav_wcsstr(const TavChar* hay, const TavChar* needle);

/**
 * Compares two texts by their units as unsigned numbers.
 *
 * @param a, b  zero-terminated texts; null is not allowed.
 * @return a's unit minus b's at the first difference (-65535 to 65535); 0 when the texts are equal.
 * @owner   nothing to release.
 * @threads any number at the same time, while nobody writes the texts.
 * @windows wcscmp
 */
int32_t tav_wcscmp(const TavChar* a, const TavChar* b);

/**
 * Compares at most n units of two texts as unsigned numbers.
 *
 * @param a, b  zero-terminated texts; null is not allowed.
 * @param n  how many units to look at; 0 makes everything equal.
 * @return -1, 0 or 1.
 * @owner   nothing to release.
 * @threads any number at the same time, while nobody writes the texts.
 * @windows wcsncmp
 */
int32_t tav_wcsncmp(const TavChar* a, const TavChar* b, uint32_t n);

/**
 * Compares at most n units of two texts, taking the capitals A to Z as small letters. No other letter has a
 * case here.
 *
 * @param a, b  zero-terminated texts; null is not allowed.
 * @param n  how many units to look at; 0 makes everything equal.
 * @return -1, 0 or 1.
 * @owner   nothing to release.
 * @threads any number at the same time, while nobody writes the texts.
 * @windows _wcsnicmp
 */
int32_t tav_wcsnicmp(const TavChar* a, const TavChar* b, uint32_t n);

/**
 * Compares two whole texts without regard to letter case, by the case folding of Unicode and without a
 * locale.
 *
 * @param a, b  zero-terminated texts; null counts as the empty text.
 * @return -1, 0 or 1; -1 also when memory runs out.
 * @owner   nothing to release.
 * @threads any number at the same time, while nobody writes the texts.
 * @windows _wcsicmp
 */
int32_t tav_wcscmpi(const TavChar* a, const TavChar* b);

/**
 * Compares at most n bytes of two 8-bit texts as signed numbers, so that bytes from 0x80 sort before
 * everything else, the terminator included.
 *
 * @param a, b  zero-terminated texts; null is not allowed.
 * @param n  how many bytes to look at; 0 makes everything equal.
 * @return -1, 0 or 1.
 * @owner   nothing to release.
 * @threads any number at the same time, while nobody writes the texts.
 * @windows strncmp
 */
int32_t tav_strncmp(const char* a, const char* b, uint32_t n);

/**
 * Like tav_strncmp, with each byte put through the C library's tolower first.
 *
 * @param a, b  zero-terminated texts; null is not allowed.
 * @param n  how many bytes to look at; 0 makes everything equal.
 * @return -1, 0 or 1.
 * @owner   nothing to release.
 * @threads any number at the same time, while nobody writes the texts.
 * @windows _strnicmp
 */
int32_t tav_strnicmp(const char* a, const char* b, uint32_t n);

/**
 * Compares two whole Mac Roman texts without regard to letter case, as tav_wcscmpi does.
 *
 * @param a, b  zero-terminated texts; null is not allowed.
 * @return -1, 0 or 1; -1 also when memory runs out.
 * @owner   nothing to release.
 * @threads any number at the same time, while nobody writes the texts.
 * @windows _stricmp
 */
int32_t tav_strcmpi(const char* a, const char* b);

/**
 * Turns a text into capitals in place, by the rules of Unicode and without a locale. The text keeps its
 * length: what a conversion adds beyond it is cut off, and what it lacks is left as it was.
 *
 * @param s  zero-terminated text; null is not allowed.
 * @return s, unchanged when memory runs out.
 * @owner   nothing to release.
 * @threads any number at the same time, each on buffers of its own.
 * @windows _wcsupr
 */
TavChar* tav_wcsupr(TavChar* s);

/**
 * Turns a text into small letters in place, by the rules of Unicode and without a locale. The text keeps its
 * length: what a conversion adds beyond it is cut off, and what it lacks is left as it was.
 *
 * @param s  zero-terminated text; null is not allowed.
 * @return s, unchanged when memory runs out.
 * @owner   nothing to release.
 * @threads any number at the same time, each on buffers of its own.
 * @windows _wcslwr
 */
TavChar* tav_wcslwr(TavChar* s);

/**
 * Turns a Mac Roman text into capitals in place. A result that is longer than the text, or that Mac Roman
 * cannot hold, is not written whole: the text is then empty.
 *
 * @param s  zero-terminated text; null is not allowed.
 * @return s, unchanged when memory runs out.
 * @owner   nothing to release.
 * @threads any number at the same time, each on buffers of its own.
 * @windows _strupr
 */
char* tav_strupr(char* s);

/**
 * Turns a Mac Roman text into small letters in place. A result that is longer than the text, or that Mac
 * Roman cannot hold, is not written whole: the text is then empty.
 *
 * @param s  zero-terminated text; null is not allowed.
 * @return s, unchanged when memory runs out.
 * @owner   nothing to release.
 * @threads any number at the same time, each on buffers of its own.
 * @windows _strlwr
 */
char* tav_strlwr(char* s);

/* ---- Wide runtime: characters -------------------------------------------------------------------------- */

/*
 * The runtime's functions for one character: its small or capital form, and whether it belongs to a class.
 * They know ASCII only; everything from 0x80 upwards has no case and no class. Arguments count by their low
 * 16 bits.
 *
 *     const TavChar* s = u"  name";
 *     while (tav_iswspace(*s)) ++s;
 *     TavChar first = tav_towupper(*s);
 *
 * Class functions give the class's bit, not 1. Nothing here has to be released.
 */

/**
 * Gives the capital of an ASCII letter.
 *
 * @param c  the character.
 * @return the capital; every other character unchanged.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows towupper
 */
TavChar tav_towupper(uint32_t c);

/**
 * Gives the small letter of an ASCII letter.
 *
 * @param c  the character.
 * @return the small letter; every other character unchanged.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows towlower
 */
TavChar tav_towlower(uint32_t c);

/**
 * Tells whether a character is a letter of ASCII.
 *
 * @param c  the character.
 * @return 0x001; 0 when it is not.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows iswalpha
 */
int32_t tav_iswalpha(uint32_t c);

/**
 * Tells whether a character is a letter or a digit of ASCII.
 *
 * @param c  the character.
 * @return 0x001 for a letter, 0x008 for a digit; 0 when it is not.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows iswalnum
 */
int32_t tav_iswalnum(uint32_t c);

/**
 * Tells whether a character is a control character of ASCII.
 *
 * @param c  the character.
 * @return 0x004; 0 when it is not.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows iswcntrl
 */
int32_t tav_iswcntrl(uint32_t c);

/**
 * Tells whether a character is a decimal digit of ASCII.
 *
 * @param c  the character.
 * @return 0x008; 0 when it is not.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows iswdigit
 */
int32_t tav_iswdigit(uint32_t c);

/**
 * Tells whether a character is a visible character of ASCII.
 *
 * @param c  the character.
 * @return 0x010; 0 when it is not.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows iswgraph
 */
int32_t tav_iswgraph(uint32_t c);

/**
 * Tells whether a character is a small letter of ASCII.
 *
 * @param c  the character.
 * @return 0x020; 0 when it is not.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows iswlower
 */
int32_t tav_iswlower(uint32_t c);

/**
 * Tells whether a character is a printing character, the space included of ASCII.
 *
 * @param c  the character.
 * @return 0x040; 0 when it is not.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows iswprint
 */
int32_t tav_iswprint(uint32_t c);

/**
 * Tells whether a character is a punctuation mark of ASCII.
 *
 * @param c  the character.
 * @return 0x080; 0 when it is not.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows iswpunct
 */
int32_t tav_iswpunct(uint32_t c);

/**
 * Tells whether a character is white space of ASCII.
 *
 * @param c  the character.
 * @return 0x100; 0 when it is not.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows iswspace
 */
int32_t tav_iswspace(uint32_t c);

/**
 * Tells whether a character is a capital of ASCII.
 *
 * @param c  the character.
 * @return 0x200; 0 when it is not.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows iswupper
 */
int32_t tav_iswupper(uint32_t c);

/**
 * Tells whether a character is a hexadecimal digit of ASCII.
 *
 * @param c  the character.
 * @return 0x400; 0 when it is not.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows iswxdigit
 */
int32_t tav_iswxdigit(uint32_t c);

/* ---- Wide runtime: numbers ----------------------------------------------------------------------------- */

/*
 * Numbers from text, by the platform's reading of the whole text: leading spaces (U+0001 to U+0020, U+007F to
 * U+00A0, U+2000 to U+200B, U+3000), one sign, ASCII digits; what follows the number is not looked at.
 *
 *     int32_t columns = tav_wtoi(u"80");
 *     double ratio = tav_wcstod(u"1.5", NULL);
 *
 * Nothing here has to be released.
 */

/**
 * Reads a whole number in decimal notation.
 *
 * @param s  zero-terminated text; null counts as the empty text.
 * @return the number; 2147483647 or -2147483648 when it is too great; 0 when the text does not begin with one
 *         or memory runs out.
 * @owner   nothing to release.
 * @threads any number at the same time, while nobody writes the texts.
 * @windows _wtoi
 */
int32_t tav_wtoi(const TavChar* s);

/**
 * Reads a floating value in decimal notation, with a point in every locale. Names of infinities and
 * hexadecimal forms are not read.
 *
 * @param s  zero-terminated text; null counts as the empty text.
 * @param end  null, or receives null: where the number ends is not told.
 * @return the number, infinity when it is too great; 0 when the text does not begin with one or memory runs
 *         out.
 * @owner   nothing to release.
 * @threads any number at the same time, while nobody writes the texts.
 * @windows wcstod
 */
double tav_wcstod(const TavChar* s, TavChar** end);

/* ---- Wide runtime: formatting -------------------------------------------------------------------------- */

/*
 * Formatting into 16-bit text. The format is that of printf, with the platform's additions and without a
 * locale:
 *   %s  zero-terminated 16-bit text      %c  a 16-bit unit       (exactly these two characters)
 *   %S  the same as %s, with flags, width and precision, too; %C  the same as %c, which has none of them
 *   %10s, %.3c ...  8-bit Mac Roman text and characters, because something stands between "%" and the letter
 *   %d %i %u %o %x %X, %e %f %g %a, %p  as in C, with h hh l ll q j z t L, *, and positions (%2$d)
 *   %D %U %O  the same as %d %u %o      %n  takes its pointer and stores nothing
 *   %P  8-bit text behind a byte with its length
 *   %@  an object of the library's own, of which applications have none; null prints "(null)"
 *   %%  a percent sign, but "%%s" and "%%c" print "%S" and "%C"; an unknown letter prints what follows its
 *   "%"
 *
 *     TavChar text[64];
 *     int32_t length = tav_snwprintf(text, 63, u"%s: %d of %d", u"letters", 7, 12);
 *     if (length < 0) printf("only the first %d units are there\n", -length);
 *
 * Nothing here has to be released.
 */

/**
 * Formats into a buffer that is large enough for the whole result and its terminator.
 *
 * @param buffer  receives the text and a terminator; null is not allowed.
 * @param format  zero-terminated format; null counts as empty.
 * @param ...  the values that the format asks for; a null text prints "(null)".
 * @return 0; when memory runs out the text is empty.
 * @owner   nothing to release.
 * @threads any number at the same time, each on buffers of its own.
 * @windows swprintf
 */
int32_t tav_swprintf(TavChar* buffer, const TavChar* format, ...);

/**
 * Formats like tav_swprintf, at most n units. The terminator comes on top: a buffer needs room for n + 1
 * units.
 *
 * @param buffer  receives at most n units and a terminator; null is not allowed.
 * @param n  how many units may be written, the terminator not counted.
 * @param format  zero-terminated format; null counts as empty.
 * @param ...  the values that the format asks for.
 * @return the number of units written, terminator not counted; the same number negated when the text was cut.
 * @owner   nothing to release.
 * @threads any number at the same time, each on buffers of its own.
 * @windows _snwprintf
 */
int32_t tav_snwprintf(TavChar* buffer, uint32_t n, const TavChar* format, ...);

/**
 * Formats like tav_swprintf, with the values in a list.
 *
 * @param buffer  receives the text and a terminator; null is not allowed.
 * @param format  zero-terminated format; null counts as empty.
 * @param args  the values that the format asks for; used up afterwards.
 * @return the number of units written, terminator not counted; 0 when memory runs out.
 * @owner   nothing to release.
 * @threads any number at the same time, each on buffers of its own.
 * @windows vswprintf
 */
int32_t tav_vswprintf(TavChar* buffer, const TavChar* format, va_list args);

/* ---- Shared empty strings ------------------------------------------------------------------------------ */

/*
 * What every empty reference-counted string points at: a block of four 32-bit words, -1 (a reference count
 * that is never counted), 0 (length), 0 (capacity) and 0 (the terminator), shared and never freed. Strings of
 * this layout have three 32-bit words in front of their first character.
 *
 *     const int32_t* header = _tavtmpDataNilW;
 *     if (header == _tavtmpDataNilW) puts("the string is empty and owns nothing");
 *
 * There is one block for 16-bit strings (W) and one for 8-bit strings (A); neither is ever released.
 */

/** The blocks themselves. */
extern const int32_t rgTavInitDataW[4];
extern const int32_t rgTavInitDataA[4];

/** The addresses of the blocks: the empty string's header. */
extern const int32_t* const _tavtmpDataNilW;
extern const int32_t* const _tavtmpDataNilA;

/** The addresses of the fourth words: the empty string's characters. */
extern const TavChar* const _tavtmpPchNilW;
extern const char* const _tavtmpPchNilA;

/* ---- File handles -------------------------------------------------------------------------------------- */
/*
 * Files and folders, named by references. An open file is a small number; it must be closed.
 *     OpacTavFSRef* file = Tav0FSRCreateWithPath(u"/tmp/tavport-notes.txt");
 *     int32_t handle = TavFileCreateExt(file, TAV_FILE_READ | TAV_FILE_WRITE | TAV_FILE_TRUNCATE);
 *     if (handle != -1) {
 *         uint32_t written;
 *         TavFileWriteExt(handle, "text", 4, &written);
 *         TavFileCloseExt(handle);
 *     }
 *     Tav0FSRRelease(file);
 * The reference may be released as soon as the file is open. Handles are closed with TavFileCloseExt. A
 * handle has one position, which reading and writing move, so two threads must not use one at the same time.
 *
 * A symbolic link is opened as what it leads to, but deleted, moved and renamed itself, even when its target
 * is missing and Tav0FSRIsExist gives 0 for it. A locked file is opened for reading only. What is locked is
 * deleted by TavFileDeleteExt and TAV_FILE_REPLACE, and not by TavFolderDeleteExt.
 */

/* What to open or create a file for. Reading and writing may be combined; with neither, writing is allowed
   where the file allows it. */
#define TAV_FILE_READ 0x01u
#define TAV_FILE_WRITE 0x02u
/* TavFileCreateExt only: what to do with a file that exists already. Without either, creating it fails. */
#define TAV_FILE_REPLACE                                                                                     \
    0x08u /* delete it, even a whole folder, and create it anew; goes before TAV_FILE_TRUNCATE */
#define TAV_FILE_TRUNCATE 0x10u /* open it and cut it to no length */

/* Where TavFileSetPointerExt measures from; any other value is taken as the beginning. */
#define TAV_FILE_BEGIN 0u
#define TAV_FILE_CURRENT 1u
#define TAV_FILE_END 2u

/**
 * Opens an existing file.
 *
 * @param file   the file; null gives -1.
 * @param flags  TAV_FILE_READ and TAV_FILE_WRITE; other bits are ignored.
 * @return the handle, at the beginning of the file; -1 when there is no such file, it is a folder or a locked
 *         file to be written, access is denied, or too many files are open.
 * @owner   the caller, until TavFileCloseExt.
 * @threads any that holds the reference.
 * @windows CreateFile with OPEN_EXISTING
 */
int32_t TavFileOpenExt(OpacTavFSRef* file, uint32_t flags);

/**
 * Creates a file in an existing folder and opens it. ":" in the name stands for itself.
 *
 * @param file   the file to make; null gives -1.
 * @param flags  TAV_FILE_READ, TAV_FILE_WRITE, TAV_FILE_REPLACE and TAV_FILE_TRUNCATE; other bits are
 *               ignored.
 * @return the handle; -1 when the file exists and neither TAV_FILE_REPLACE nor TAV_FILE_TRUNCATE is given,
 *         when it cannot be replaced or opened, the folder is missing or its path malformed, or the path ends
 *         with "/", has no "/" or 1024 units or more. When cutting an existing file to no length fails, the
 *         number of a handle that is closed already. Nothing is undone: a file made or replaced before the
 *         failure stays so, also one whose malformed name stands for bytes that no path can hold.
 * @owner   the caller, until TavFileCloseExt.
 * @threads any that holds the reference.
 * @windows CreateFile with CREATE_NEW, CREATE_ALWAYS or TRUNCATE_EXISTING
 */
int32_t TavFileCreateExt(OpacTavFSRef* file, uint32_t flags);

/**
 * Closes a handle.
 *
 * @param handle  the handle.
 * @return 0, not 1, when it was closed; else the platform's result code, -51 for a number that is not open.
 * @owner   takes back what opening or creating gave.
 * @threads one thread at a time for each handle.
 * @windows CloseHandle
 */
int32_t TavFileCloseExt(int32_t handle);

/**
 * Reads at the position and moves it on.
 *
 * @param handle     the handle.
 * @param buffer     receives at most `count` bytes; not null unless `count` is 0.
 * @param count      bytes wanted.
 * @param bytesRead  receives the number of bytes read, also on failure; may be null.
 * @return 1 when at least one byte was read; 0 at the end of the file and on failure, although bytes may
 *         have come before it.
 * @owner   nothing to release.
 * @threads one thread at a time for each handle.
 * @windows ReadFile, but that reading at the end of the file succeeds there
 */
int32_t TavFileReadExt(int32_t handle, void* buffer, uint32_t count, uint32_t* bytesRead);

/**
 * Writes at the position and moves it on.
 *
 * @param handle        the handle.
 * @param buffer        the bytes; not null unless `count` is 0.
 * @param count         how many; writing none fails.
 * @param bytesWritten  receives the number of bytes written, also on failure; may be null.
 * @return 1 when everything was written; 0 on failure, after which a part may have been.
 * @owner   nothing to release.
 * @threads one thread at a time for each handle.
 * @windows WriteFile
 */
int32_t TavFileWriteExt(int32_t handle, const void* buffer, uint32_t count, uint32_t* bytesWritten);

/**
 * Moves the position, which may lie beyond the end.
 *
 * @param handle       the handle.
 * @param distance     bytes from where `moveMethod` says; may be negative.
 * @param newPosition  receives the new position, kept as it is on failure; may be null.
 * @param moveMethod   TAV_FILE_BEGIN, TAV_FILE_CURRENT or TAV_FILE_END.
 * @return 1; 0 on failure, also for a position before the beginning.
 * @owner   nothing to release.
 * @threads one thread at a time for each handle.
 * @windows SetFilePointerEx
 */
int32_t TavFileSetPointerExt(int32_t handle, int64_t distance, int64_t* newPosition, uint32_t moveMethod);

/**
 * Tells the position.
 *
 * @param handle    the handle.
 * @param position  receives it; not null.
 * @return 1; 0 on failure.
 * @owner   nothing to release.
 * @threads one thread at a time for each handle.
 * @windows SetFilePointerEx with no distance
 */
int32_t TavFileGetPointerExt(int32_t handle, int64_t* position);

/**
 * Tells the size of the file.
 *
 * @param handle  the handle.
 * @param size    receives it in bytes; not null.
 * @return 1; 0 on failure.
 * @owner   nothing to release.
 * @threads one thread at a time for each handle.
 * @windows GetFileSizeEx
 */
int32_t TavFileGetFileSizeExt(int32_t handle, int64_t* size);

/**
 * Cuts or extends the file; what is new reads as zeros. The position stays.
 *
 * @param handle  the handle.
 * @param size    the new size in bytes.
 * @return 1; 0 on failure, also for a negative size or a handle for reading only.
 * @owner   nothing to release.
 * @threads one thread at a time for each handle.
 * @windows SetEndOfFile, but that the size is given
 */
int32_t TavFileSetFileSizeExt(int32_t handle, int64_t size);

/**
 * Deletes a file, or a folder with everything in it, locked or not. What was deleted before a failure stays
 * deleted.
 *
 * @param file  the file or folder; null gives 0. A link is deleted itself.
 * @return 1; 0 when there is no such object or something in it could not be deleted. What is mounted in a
 *         folder is never entered: the delete fails there.
 * @owner   nothing to release.
 * @threads any that holds the reference.
 * @windows DeleteFile, but that folders go, too
 */
int32_t TavFileDeleteExt(OpacTavFSRef* file);

/**
 * Creates a folder in an existing folder. One "/" at the end of the path is ignored.
 *
 * @param folder  the folder to make; null gives 0.
 * @return 1; 0 when something of that name exists, the folder above is missing or its path malformed, the path
 *         has no name or 1024 units or more, or access is denied.
 * @owner   nothing to release.
 * @threads any that holds the reference.
 * @windows CreateDirectory
 */
int32_t TavFolderCreateExt(OpacTavFSRef* folder);

/**
 * Deletes an empty folder, or a single file.
 *
 * @param folder  the folder; null gives 0.
 * @return 1; 0 when there is no such object, it is not empty, or it is locked.
 * @owner   nothing to release.
 * @threads any that holds the reference.
 * @windows RemoveDirectory
 */
int32_t TavFolderDeleteExt(OpacTavFSRef* folder);

/**
 * Moves a file or folder into another folder of the same volume, under its own name.
 *
 * @param file         what to move; null gives 0.
 * @param destination  the folder that it goes into; null gives 0.
 * @return 1; 0 when either does not exist, the name is taken there, the destination is no folder, lies inside
 *         what is to be moved or is on another volume, or access is denied.
 * @owner   nothing to release; `file` goes on naming the old place.
 * @threads any that holds the references.
 * @windows MoveFile
 */
int32_t TavFileMoveFileExt(OpacTavFSRef* file, OpacTavFSRef* destination);

/**
 * Gives a file or folder another name in its folder.
 *
 * @param file       what to rename; null gives 0.
 * @param newName    the name alone, not null. ":" cannot be in it; "/" stands for a ":" in paths.
 * @param resultRef  receives a reference by the new name, or null when it cannot be made; kept as it is on
 *                   failure. May be null.
 * @return 1; 0 when there is no such object, the name is taken, empty or too long, or access is denied.
 * @owner   the caller holds the reference in `resultRef`, until Tav0FSRRelease; `file` goes on naming the old
 *          place.
 * @threads any that holds the reference.
 * @windows MoveFile within a folder
 */
int32_t TavFileRenameExt(OpacTavFSRef* file, const TavChar* newName, OpacTavFSRef** resultRef);

/* ---- Threads ------------------------------------------------------------------------------------------- */

/*
 * Run functions in parallel. A thread handle is a record that the library keeps until TavCloseThreadRef,
 * whether the thread still runs or not; closing does not stop it.
 *
 *     static uint32_t Work(void* job) { return ++*(uint32_t*)job; }
 *     int main(void) {
 *         uint32_t job = 41;
 *         OpacTavThread* thread = TavCreateThread(Work, &job, 0, TAV_THREAD_SUSPENDED);
 *         TavResumeThread(thread);
 *         if (TavWaitThread(thread, TAV_INFINITE) == TAV_WAIT_OBJECT_0) printf("done: %u\n", (unsigned)job);
 *         TavCloseThreadRef(thread);
 *     }
 *
 * TavExitThread and TavTerminateThread end a thread on the spot: no cleanup handler runs and no destructor,
 * neither of frames nor of thread-local objects or thread keys. What the thread holds stays held, locks of
 * the application and of the C library (its allocator's, for one) included; the C library also keeps what
 * little memory it holds for a thread. The library's own locks are never left held by them, and every object
 * of the next section stays usable and closable. A terminated thread ends wherever it is, blocked or
 * computing, through a real-time signal that nobody else uses; one that blocks all signals ends when it lets
 * them through again, and one that forks ends after the fork, in the parent only.
 *
 * When an entry has returned, the thread has ended: destructors of its keys and thread-local objects that
 * still run may use the library, but can neither change its result nor terminate it.
 */

/* The id of a thread, also of the main thread and of threads that the library did not make. 0: none. */
typedef uint32_t MPTaskID;
/* The id of the queue that a thread's end is reported to. 0: none. */
typedef uint32_t MPQueueID;

/* A thread handle. */
typedef struct OpacTavThread OpacTavThread;

/* What a thread runs; the result becomes the thread's result. */
typedef uint32_t (*TavThreadProc)(void* parameter);

/* Flag of TavCreateThread: the thread waits for TavResumeThread before it runs its entry. */
#define TAV_THREAD_SUSPENDED 0x01u

/**
 * Creates a thread that runs `entry(parameter)`.
 *
 * @param entry      the function to run; null makes a thread that ends at once with the result 0.
 * @param parameter  given to the entry as it is; may be null.
 * @param stackSize  bytes of stack; 0 is the system's default, and too few are raised to what the system
 *                   needs.
 * @param flags      0 or TAV_THREAD_SUSPENDED; other bits are ignored.
 * @return the handle, null when memory, ids or threads have run out or the stack cannot be had.
 * @owner   the caller, until TavCloseThreadRef.
 * @threads any.
 * @windows CreateThread
 */
OpacTavThread* TavCreateThread(TavThreadProc entry, void* parameter, uint32_t stackSize, uint32_t flags);

/**
 * Lets a thread that was created suspended run its entry. Does nothing for other threads and the second time.
 *
 * @param thread  the thread; not null.
 * @return 0 when the thread was not created suspended, else a value other than 0.
 * @owner   nothing to release.
 * @threads any, as long as none closes the handle.
 * @windows ResumeThread
 */
int32_t TavResumeThread(OpacTavThread* thread);

/**
 * Waits for the thread's end. One wait gets it: once a wait has given TAV_WAIT_OBJECT_0, further ones time
 * out, or block for good without a limit. The wait is over when the entry has returned; destructors of the
 * thread's own thread-local objects may still be running then.
 *
 * @param thread   the thread; not null.
 * @param timeout  milliseconds; 0 only looks, negative waits without limit.
 * @return TAV_WAIT_OBJECT_0, TAV_WAIT_TIMEOUT, or TAV_WAIT_ABANDONED on any other failure (the handle was
 *         closed meanwhile).
 * @owner   nothing to release; the handle stays.
 * @threads any.
 * @windows WaitForSingleObject
 */
uint32_t TavWaitThread(OpacTavThread* thread, int32_t timeout);

/**
 * Gives the handle back. Does not stop the thread; one that has not begun its entry still needs the handle,
 * so close a suspended thread only after it has been resumed and has begun.
 *
 * @param thread  the thread, or null.
 * @return 1, 0 for null.
 * @owner   the handle is gone afterwards.
 * @threads the last use of the handle.
 * @windows CloseHandle
 */
int32_t TavCloseThreadRef(OpacTavThread* thread);

/**
 * Ends the calling thread on the spot, as told above. Does not return. A thread that the library did not make
 * ends just the same, without a report.
 *
 * @param status  reported as the thread's result.
 * @owner   what the thread owns stays as it is.
 * @threads any.
 * @windows ExitThread
 */
void TavExitThread(int32_t status);

/**
 * Makes a thread end on the spot, as told above, and returns without waiting for it; wait with TavWaitThread.
 *
 * @param thread  the thread; not null.
 * @param status  reported as the thread's result.
 * @return 1, 0 when the thread has ended already or the system refuses.
 * @owner   the handle stays, and what the thread owns.
 * @threads any.
 * @windows TerminateThread
 */
int32_t TavTerminateThread(OpacTavThread* thread, int32_t status);

/**
 * Does nothing: threads have no priorities.
 *
 * @param thread    any.
 * @param priority  any.
 * @return 0.
 * @owner   nothing to release.
 * @threads any.
 * @windows SetThreadPriority
 */
int32_t TavSetThreadPriority(OpacTavThread* thread, int32_t priority);

/**
 * Does nothing: threads have no priorities.
 *
 * @param thread  any.
 * @return 0.
 * @owner   nothing to release.
 * @threads any.
 * @windows GetThreadPriority
 */
int32_t TavGetThreadPriority(const OpacTavThread* thread);

/**
 * The id of the calling thread. The main thread and threads that the library did not make have one too.
 *
 * @return the id, never 0; no two living threads have the same.
 * @owner   nothing to release.
 * @threads any.
 * @windows GetCurrentThreadId
 */
MPTaskID GetCurrentTavThreadID(void);

/**
 * The id of the queue that the thread's end is reported to.
 *
 * @param thread  the thread; not null.
 * @return the id.
 * @owner   the handle; the queue goes with it.
 * @threads any.
 * @windows none
 */
MPQueueID GetTavThreadQueueID(const OpacTavThread* thread);

/**
 * Lets the calling thread sleep. Signals that the thread handles do not cut the time short.
 *
 * @param milliseconds  up to 4294967; the microseconds are counted in 32 bits, so that more wrap round. 0
 *                      returns at once.
 * @return 0, -1 when the system refuses.
 * @owner   nothing to release.
 * @threads any.
 * @windows Sleep
 */
int32_t TavSleep(uint32_t milliseconds);

/* ---- Synchronisation ----------------------------------------------------------------------------------- */

/*
 * Let threads keep out of each other's way (critical sections, mutexes), share what is limited (semaphores)
 * and tell each other what has happened (events).
 *
 *     MPCriticalRegionID section;
 *     TavInitCriticalSection(&section);
 *     TavEnterCriticalSection(&section);  // here one thread at a time
 *     TavLeaveCriticalSection(&section);
 *     TavDeleteCriticalSection(&section);
 *
 *     OpacTavEvent* ready = TavCreateEvent(0, 0);
 *     TavSetEvent(ready);                 // one thread
 *     TavWaitEvent(ready, 1000);          // another
 *     TavCloseEvent(ready);
 *
 * Semaphores go with TavCloseSemaphore, mutexes with TavCloseMutex. Closing an object wakes everyone who
 * waits for it; their waits fail. Ids that are 0, closed, invented or of another kind of object are refused.
 * Waits look at a clock that setting the time of day does not move, are not ended by signals, and make no
 * system call while nobody has to wait. No order is promised among those who wait.
 *
 * A signal handler may call TavReleaseSemaphore, TavReleaseMutex and TavSetEvent, and nothing else of this
 * section and the one before. A child after fork() has all objects as they were, and of the threads only the
 * one that forked; a section that another thread held stays held there.
 */

/* The id of a critical section, kept in a variable of the application. */
typedef uint32_t MPCriticalRegionID;
/* The id of a semaphore or mutex. 0: none. */
typedef uint32_t MPSemaphoreID;

/* An event handle. */
typedef struct OpacTavEvent OpacTavEvent;

/* A timeout without limit; any negative number is one. */
#define TAV_INFINITE (-1)

/* Results of waits: got it; the time is up; any other failure. */
#define TAV_WAIT_OBJECT_0 0u
#define TAV_WAIT_TIMEOUT 258u
#define TAV_WAIT_ABANDONED 128u

/**
 * Makes a critical section.
 *
 * @param section  receives the id, 0 on failure; not null.
 * @return 1, 0 when there is no room.
 * @owner   the caller, until TavDeleteCriticalSection.
 * @threads one at a time on one variable.
 * @windows InitializeCriticalSection
 */
int32_t TavInitCriticalSection(MPCriticalRegionID* section);

/**
 * Enters a critical section, waiting without limit until nobody else is inside. The thread inside may enter
 * again, and leaves as often as it has entered.
 *
 * @param section  where the id is; not null.
 * @return 1, 0 for an id that is refused or a section deleted meanwhile.
 * @owner   the calling thread is inside until TavLeaveCriticalSection.
 * @threads any.
 * @windows EnterCriticalSection
 */
int32_t TavEnterCriticalSection(MPCriticalRegionID* section);

/**
 * Leaves a critical section.
 *
 * @param section  where the id is; not null.
 * @return 1, 0 for an id that is refused or when the calling thread is not inside; nothing changes then.
 * @owner   nothing to release.
 * @threads any.
 * @windows LeaveCriticalSection
 */
int32_t TavLeaveCriticalSection(MPCriticalRegionID* section);

/**
 * Deletes a critical section, also while a thread is inside or waits; waits fail at once. The variable keeps
 * its value.
 *
 * @param section  where the id is; not null.
 * @return 1, 0 for an id that is refused.
 * @owner   the section is gone afterwards.
 * @threads any; one of several gets 1.
 * @windows DeleteCriticalSection
 */
int32_t TavDeleteCriticalSection(MPCriticalRegionID* section);

/**
 * Creates a semaphore. Note the order: initial count first.
 *
 * @param initialCount  the count that it begins with, at most the maximum.
 * @param maximumCount  the highest count, at least 1.
 * @return the id, 0 for counts out of range or when there is no room.
 * @owner   the caller, until TavCloseSemaphore.
 * @threads any.
 * @windows CreateSemaphore
 */
MPSemaphoreID TavCreateSemaphore(uint32_t initialCount, uint32_t maximumCount);

/**
 * Adds one to the count and lets one waiting thread through.
 *
 * @param semaphore  the id.
 * @return 1, 0 at the maximum or for an id that is refused; nothing changes then.
 * @owner   nothing to release.
 * @threads any.
 * @windows ReleaseSemaphore
 */
int32_t TavReleaseSemaphore(MPSemaphoreID semaphore);

/**
 * Waits until the count is above 0 and takes one.
 *
 * @param semaphore  the id.
 * @param timeout    milliseconds; 0 only looks, negative waits without limit.
 * @return TAV_WAIT_OBJECT_0, TAV_WAIT_TIMEOUT, or TAV_WAIT_ABANDONED for an id that is refused or closed
 *         meanwhile.
 * @owner   the one that was taken goes back with TavReleaseSemaphore.
 * @threads any.
 * @windows WaitForSingleObject
 */
uint32_t TavWaitSemaphore(MPSemaphoreID semaphore, int32_t timeout);

/**
 * Closes a semaphore; waits for it fail at once.
 *
 * @param semaphore  the id.
 * @return 1, 0 for an id that is refused.
 * @owner   the semaphore is gone afterwards.
 * @threads any; one of several gets 1.
 * @windows CloseHandle
 */
int32_t TavCloseSemaphore(MPSemaphoreID semaphore);

/**
 * Creates an event. An auto-reset one lets one wait through for each set; a manual-reset one lets all
 * through, one after the other, until it is reset.
 *
 * @param manualReset   0 for auto-reset, anything else for manual-reset.
 * @param initialState  0 for not set, anything else for set.
 * @return the handle, null when there is no room.
 * @owner   the caller, until TavCloseEvent.
 * @threads any.
 * @windows CreateEvent
 */
OpacTavEvent* TavCreateEvent(int32_t manualReset, int32_t initialState);

/**
 * Sets an event.
 *
 * @param event  the event, or null.
 * @return 1, 0 for null.
 * @owner   nothing to release.
 * @threads any, as long as none closes the event.
 * @windows SetEvent
 */
int32_t TavSetEvent(OpacTavEvent* event);

/**
 * Resets an event. A wait for a manual-reset event that is just being let through sets it once more.
 *
 * @param event  the event, or null.
 * @return 1 whether or not it was set, 0 for null.
 * @owner   nothing to release.
 * @threads any, as long as none closes the event.
 * @windows ResetEvent
 */
int32_t TavResetEvent(OpacTavEvent* event);

/**
 * Waits until an event is set. An auto-reset event is reset by that.
 *
 * @param event    the event, or null.
 * @param timeout  milliseconds; 0 only looks, negative waits without limit.
 * @return TAV_WAIT_OBJECT_0, TAV_WAIT_TIMEOUT, or TAV_WAIT_ABANDONED for null or an event closed meanwhile.
 * @owner   nothing to release.
 * @threads any.
 * @windows WaitForSingleObject
 */
uint32_t TavWaitEvent(OpacTavEvent* event, int32_t timeout);

/**
 * Closes an event; waits that are under way fail at once.
 *
 * @param event  the event, or null.
 * @return 1, 0 for null.
 * @owner   the handle is gone afterwards.
 * @threads the last use of the handle; only waits may be under way.
 * @windows CloseHandle
 */
int32_t TavCloseEvent(OpacTavEvent* event);

/**
 * Creates a mutex. It has no owner: any thread may release it, and a thread that waits for one that it took
 * itself blocks. For a lock that its holder may take again use a critical section.
 *
 * @param initialOwner  0 for free, anything else for taken.
 * @return the id, 0 when there is no room.
 * @owner   the caller, until TavCloseMutex.
 * @threads any.
 * @windows CreateMutex
 */
MPSemaphoreID TavCreateMutex(int32_t initialOwner);

/**
 * Releases a mutex, whoever took it.
 *
 * @param mutex  the id.
 * @return 1, 0 when it was not taken or for an id that is refused.
 * @owner   nothing to release.
 * @threads any.
 * @windows ReleaseMutex
 */
int32_t TavReleaseMutex(MPSemaphoreID mutex);

/**
 * Waits until a mutex is free and takes it.
 *
 * @param mutex    the id.
 * @param timeout  milliseconds; 0 only looks, negative waits without limit.
 * @return TAV_WAIT_OBJECT_0, TAV_WAIT_TIMEOUT, or TAV_WAIT_ABANDONED for an id that is refused or closed
 *         meanwhile.
 * @owner   the mutex stays taken until TavReleaseMutex.
 * @threads any.
 * @windows WaitForSingleObject
 */
uint32_t TavWaitMutex(MPSemaphoreID mutex, int32_t timeout);

/**
 * Closes a mutex; waits for it fail at once.
 *
 * @param mutex  the id.
 * @return 1, 0 for an id that is refused.
 * @owner   the mutex is gone afterwards.
 * @threads any; one of several gets 1.
 * @windows CloseHandle
 */
int32_t TavCloseMutex(MPSemaphoreID mutex);

/* ---- Dynamic libraries --------------------------------------------------------------------------------- */

/*
 * For loading code modules while the program runs.
 *
 *     OpacTavLibrary* library = TavLoadLibrary(u"PlugIns/Export.bundle");
 *     TavProc run = TavGetProcAddress(library, "run");
 *     if (!run) puts("there is no such module");
 *     TavFreeLibrary(library);
 *
 * A module is a bundle (a folder with Contents/MacOS/Name), a framework, or a plain shared object file. A
 * folder with neither an executable nor a property list (Contents/Info.plist) is no module: its name names
 * nothing.
 *
 * What an initialiser of a module throws is caught, and the module then has no functions for as long as the
 * process lives; but the host's loader is left locked by the thread that it threw in, so that other threads
 * which load or look up code after that wait for ever. Initialisers should not throw.
 */

/* A loaded module. */
typedef struct OpacTavLibrary OpacTavLibrary;

/* A function of a module; cast it to what it is. */
typedef void (*TavProc)(void);

/**
 * Loads a module: first as a path below the folder "Contents" of the application's bundle, then as a path of
 * its own (from the current folder where it is relative; system folders are never searched). Names are found
 * in another letter case too.
 *
 * @param name  zero-terminated path; null names nothing.
 * @return the module, or null when the name names none. A module whose code cannot be loaded is returned all
 *         the same; its functions are then null.
 * @owner   the caller, until TavFreeLibrary. Loading the same module again, however its path is spelled and
 *          through links too, gives the same handle, to be freed once more.
 * @threads any, at any time.
 * @windows LoadLibraryW
 */
OpacTavLibrary* TavLoadLibrary(const TavChar* name);

/**
 * Finds a function of a module by its name. Libraries that the module depends on are not searched.
 *
 * @param library  a module; null has no functions.
 * @param symbol   zero-terminated Mac Roman name as the linker knows it; null names nothing.
 * @return the function, or null when the module lacks it or its code could not be loaded.
 * @owner   the module's; valid until the module is freed for the last time.
 * @threads any, at any time.
 * @windows GetProcAddress
 */
TavProc TavGetProcAddress(OpacTavLibrary* library, const char* symbol);

/**
 * Gives a module back. Its code is unloaded when it has been freed as often as it was loaded.
 *
 * @param library  a module not to be used afterwards; null is ignored.
 * @return 1.
 * @owner   nothing to release.
 * @threads any, as long as no other thread uses the handle that it gives back.
 * @windows FreeLibrary
 */
int32_t TavFreeLibrary(OpacTavLibrary* library);

/* ---- Path strings -------------------------------------------------------------------------------------- */

/*
 * For taking paths apart and putting them together. The separator is "/" and nothing else. What changes a
 * path works in the caller's buffer and never checks its size.
 *
 *     TavChar path[1024] = u"/home/ann/notes.txt";
 *     TavPathRemoveExtension(path);    // /home/ann/notes
 *     TavPathRemoveFileSpec(path);     // /home/ann
 *     TavPathAppend(path, u"backup");  // /home/ann/backup
 *     if (!TavPathIsDirectory(path)) puts("no backup yet");
 *
 * Nothing has to be released.
 */

/**
 * Tells whether a path names an existing folder. A package (an application bundle, for example) counts as a
 * file.
 *
 * @param path  zero-terminated absolute path, not null.
 * @return 1 for a folder that is not a package, else 0, also when the path does not exist or cannot be
 *         reached.
 * @owner   nothing to release.
 * @threads any, at any time.
 * @windows PathIsDirectory
 */
int32_t TavPathIsDirectory(const TavChar* path);

/**
 * Tells whether a file or folder exists at a path. Upper and lower case count as the same where there is no
 * doubt which item is meant. A link counts as what it leads to.
 *
 * @param path  zero-terminated absolute path, not null.
 * @return 1 when there is one, else 0.
 * @owner   nothing to release.
 * @threads any, at any time.
 * @windows PathFileExists
 */
int32_t TavPathFileExists(const TavChar* path);

/**
 * Appends to a path with one "/" between; every "/" at the start of what is appended is left out.
 *
 * @param path  zero-terminated path in a buffer with room for both texts, a "/" and the terminator; not null.
 * @param more  zero-terminated text outside that buffer, not null.
 * @return 1.
 * @owner   nothing to release.
 * @threads one at a time on the same buffer.
 * @windows PathAppend
 */
int32_t TavPathAppend(TavChar* path, const TavChar* more);

/**
 * Takes the last component off a path: /a/b becomes /a, a bare name the empty text. Of a path that ends in
 * "/" only that goes.
 *
 * @param path  zero-terminated path, not null. Behind a last component ".." another one is added instead
 *              ("/.."), for which the buffer must have three units more; one behind a lone ".".
 * @return 1 when the path was changed; 0 for an empty path or when memory runs out, the path then stays as it
 *         was.
 * @owner   nothing to release.
 * @threads one at a time on the same buffer.
 * @windows PathRemoveFileSpec
 */
int32_t TavPathRemoveFileSpec(TavChar* path);

/**
 * Takes the extension of the last component off a path, with its ".", and every "/" at the end. A "." at the
 * start of a name begins no extension. When memory runs out the path stays as it was.
 *
 * @param path  zero-terminated path, not null.
 * @owner   nothing to release.
 * @threads one at a time on the same buffer.
 * @windows PathRemoveExtension
 */
void TavPathRemoveExtension(TavChar* path);

/**
 * Finds the extension of the last component. It is counted back from the path's end, so a path must not end
 * in "/".
 *
 * @param path  zero-terminated path, not null.
 * @return a pointer to the extension's "." in the path; to the terminator when there is no extension (what
 *         holds a space is none).
 * @owner   nothing to release; the pointer leads into the path.
 * @threads any, while nobody changes the path.
 * @windows PathFindExtension
 */
TavChar* TavPathFindExtension(const TavChar* path);

/**
 * Finds the last component. It is counted back from the path's end, so a path must not end in "/".
 *
 * @param path  zero-terminated path, not null.
 * @return a pointer to the component in the path; to the path's start when it is empty.
 * @owner   nothing to release; the pointer leads into the path.
 * @threads any, while nobody changes the path.
 * @windows PathFindFileName
 */
TavChar* TavPathFindFileName(const TavChar* path);

/**
 * Appends a "/" to a path that does not end in one. An empty path stays empty.
 *
 * @param path  zero-terminated path in a buffer with room for one unit more; not null.
 * @return a pointer to the terminator.
 * @owner   nothing to release; the pointer leads into the path.
 * @threads one at a time on the same buffer.
 * @windows PathAddBackslash
 */
TavChar* TavPathAddSlash(TavChar* path);

/**
 * Takes one "/" off the end of a path. The path "/" stays.
 *
 * @param path  zero-terminated path, not null.
 * @return a pointer to the terminator.
 * @owner   nothing to release; the pointer leads into the path.
 * @threads one at a time on the same buffer.
 * @windows PathRemoveBackslash
 */
TavChar* TavPathRemoveSlash(TavChar* path);

/**
 * Tells by its text whether a path is the root of a volume: "/", or a name directly in /Volumes (letter case
 * ignored) without a "/" at its end.
 *
 * @param path  zero-terminated path, not null; one of 1024 units or more is no root.
 * @return 1 for a root, else 0.
 * @owner   nothing to release.
 * @threads any, at any time.
 * @windows PathIsRoot
 */
int32_t TavPathIsRoot(const TavChar* path);

/**
 * Tells whether a path begins with a server's name in the Windows manner; no path does.
 *
 * @param path  not looked at, may be null.
 * @return 0.
 * @owner   nothing to release.
 * @threads any, at any time.
 * @windows PathIsUNC
 */
int32_t TavPathIsUNC(const TavChar* path);

/**
 * Tells whether a path begins with a prefix, letter case ignored. The prefix may end inside a component:
 * /a/bc begins with /a/b.
 *
 * @param path    zero-terminated path, not null.
 * @param prefix  zero-terminated text, not null; one of 1024 units or more begins no path.
 * @return 1 when it does, else 0.
 * @owner   nothing to release.
 * @threads any, at any time.
 * @windows PathIsPrefix
 */
int32_t TavPathIsSubOnPath(const TavChar* path, const TavChar* prefix);

/**
 * Writes the folders that two paths begin with, ASCII letter case ignored, as the first path has them and
 * with a "/" at the end; the empty text when there are none or the paths lie on different volumes.
 *
 * @param path1  zero-terminated path, not null.
 * @param path2  zero-terminated path, not null.
 * @param out    receives the prefix: room for the shorter path, a "/" and the terminator; not null.
 * @return the prefix's length in units (for two empty paths 1, although nothing is written but the
 *         terminator).
 * @owner   nothing to release.
 * @threads any, at any time.
 * @windows PathCommonPrefix
 */
int32_t TavPathCommonPrefix(const TavChar* path1, const TavChar* path2, TavChar* out);

/* ---- Drives -------------------------------------------------------------------------------------------- */

/*
 * Volumes, presented as drives. There are no letters: a drive is named by the path of its root folder with a
 * "/" at the end, "/" for the start-up volume and for example "/Volumes/Data/" for another.
 *
 *     static TavChar roots[1025 * 1024]; // zeroed; for 1024 drives with the longest of paths
 *     TavGetLogicalDriveStrings(1025 * 1024, roots);
 *     for (TavChar* root = roots; *root; root += tav_wcslen(root) + 1) {
 *         if (TavGetDriveType(root) == TAV_DRIVE_REMOVABLE) puts("something is plugged in");
 *     }
 *
 * Volumes that come and go while the program runs are noticed. Nothing has to be released.
 */

/* What TavGetDriveType gives. */
#define TAV_DRIVE_UNKNOWN 0
#define TAV_DRIVE_REMOVABLE 2
#define TAV_DRIVE_FIXED 3
#define TAV_DRIVE_CDROM 5

/**
 * Lists the roots of all volumes, the start-up volume first, each followed by a zero; a second zero ends the
 * list. A buffer that is too short is not protected: zero it, and pass one that holds the whole list. Only
 * the first half of it is zeroed here.
 *
 * @param length  size of the buffer in units.
 * @param buffer  receives the list, never null: a length of 0 does not ask for the size, as volumes behind
 *                one that does not fit are written at their places all the same.
 * @return the units that the list needs without its last zero, whether or not it was written.
 * @owner   nothing to release.
 * @threads any number at the same time, each on a buffer of its own.
 * @windows GetLogicalDriveStrings
 */
uint32_t TavGetLogicalDriveStrings(uint32_t length, TavChar* buffer);

/**
 * Finds the root of the volume that a path lies on. The path need not exist; letter case is ignored for
 * ASCII.
 *
 * @param path  zero-terminated path, not null.
 * @param out  receives the root with its "/" at the end; room for 1025 units, not null.
 * @return 1; 0, and nothing written, for a path on no volume that does not begin with "/" or "~".
 * @owner   nothing to release.
 * @threads any number at the same time, each on a buffer of its own.
 * @windows PathStripToRoot
 */
int32_t TavGetPathDriver(const TavChar* path, TavChar* out);

/**
 * Tells whether two paths lie on the same volume.
 *
 * @param path1, path2  zero-terminated paths, not null.
 * @return 1 when both have a root and it is the same; 0 otherwise.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows PathIsSameRoot
 */
int32_t TavPathIsSameRoot(const TavChar* path1, const TavChar* path2);

/**
 * Tells what kind of medium a volume is on.
 *
 * @param root  a volume's root, with or without its "/" at the end, not null. A path inside a volume is no
 *              root.
 * @return TAV_DRIVE_FIXED, TAV_DRIVE_REMOVABLE, TAV_DRIVE_CDROM (also DVDs); TAV_DRIVE_UNKNOWN for what is no
 *         root, lies on no medium (memory, a server) or cannot be found out.
 * @owner   nothing to release.
 * @threads any number at the same time.
 * @windows GetDriveType
 */
int32_t TavGetDriveType(const TavChar* root);

/* ---- Enumeration --------------------------------------------------------------------------------------- */

/*
 * For listing a folder, or looking at one item. A last component that begins with "*" asks for everything in
 * the folder, whatever follows the star; so does the path of a folder itself. Any other last component is an
 * exact name, letter case ignored. A folder's first entry is ".", the folder itself; there is no "..".
 *
 *     TavFindDataW found;
 *     unsigned count = 0;
 *     TavFindSearch* search = TavFindFirstFile(u"/home/ann/" u"*", &found);
 *     if (search != TAV_INVALID_FIND) {
 *         do ++count; while (TavFindNextFile(search, &found));
 *         TavFindClose(search);
 *     }
 *
 * TavFindClose releases a search.
 */

/* A search under way; opaque. */
typedef struct TavFindSearch TavFindSearch;

/* What TavFindFirstFile returns when nothing was found. */
#define TAV_INVALID_FIND ((TavFindSearch*)(intptr_t)-1)

/* dwFileAttributes: no other bit is ever set. */
#define TAV_FILE_ATTRIBUTE_HIDDEN 0x02u
#define TAV_FILE_ATTRIBUTE_DIRECTORY 0x10u

/* A moment as eight bytes, the most significant first, on every host: seconds since 1 January 1904 UTC in
   six, then 1/65,536 seconds in two. Later moments compare greater with memcmp. */
typedef struct TavFileTime {
    uint8_t bytes[8];
} TavFileTime;

/* One entry of a listing, 592 bytes. Searches never write the reserved words and the alternate name. */
typedef struct TavFindDataW {
    uint32_t dwFileAttributes;  /* a folder that is not a package; hidden */
    TavFileTime ftCreationTime; /* the last write where no creation time is known */
    TavFileTime ftLastAccessTime;
    TavFileTime ftLastWriteTime;
    uint32_t nFileSizeHigh; /* bytes that the content takes on the volume, high half */
    uint32_t nFileSizeLow;  /* low half */
    uint32_t dwReserved0;
    uint32_t dwReserved1;
    TavChar cFileName[260]; /* at most 255 units and the terminator; a "/" stands for ":" */
    TavChar cAlternateFileName[14];
} TavFindDataW;

/**
 * Begins a search and finds its first entry: the item named, or "." for a folder.
 *
 * @param lpFileName      zero-terminated absolute path, shorter than 1024 units, not null.
 * @param lpFindFileData  receives the entry, not null; only its attributes are cleared when nothing is found.
 * @return the search, or TAV_INVALID_FIND when nothing is found or memory runs out.
 * @owner   the caller, who gives the search back with TavFindClose.
 * @threads any, at any time.
 * @windows FindFirstFileW
 */
TavFindSearch* TavFindFirstFile(const TavChar* lpFileName, TavFindDataW* lpFindFileData);

/**
 * Finds the next entry of a search. Entries come in no particular order; those that are there throughout are
 * shown once, while others come and go.
 *
 * @param hFindFile       a search from TavFindFirstFile that has not been closed.
 * @param lpFindFileData  receives the entry, not null; only its attributes are cleared when there is none.
 * @return 1 with an entry; 0 at the end, from then on, and when the folder cannot be read.
 * @owner   nothing to release.
 * @threads one at a time on the same search.
 * @windows FindNextFileW
 */
int32_t TavFindNextFile(TavFindSearch* hFindFile, TavFindDataW* lpFindFileData);

/**
 * Ends a search.
 *
 * @param hFindFile  a search from TavFindFirstFile, closed exactly once.
 * @return 1.
 * @owner   releases the search.
 * @threads one at a time on the same search.
 * @windows FindClose
 */
int32_t TavFindClose(TavFindSearch* hFindFile);

/* ---- Copying ------------------------------------------------------------------------------------------- */

/*
 * Files and whole folders are copied with all their forks and facts: content, mode, dates, Finder
 * information, lock and resource fork.
 *
 *     if (!TavCopyFile(u"/home/ann/letters", u"/media/backup/letters", 1)) puts("not copied");
 *
 * Nothing has to be released.
 */

/**
 * Copies a file, or a folder with everything in it, to a new path.
 *
 * An object that is replaced is set aside as ".DeleteMe" in its folder and deleted when the copy is
 * complete; when the copy fails it comes back under the last component of the existing path. Items inside
 * a folder that cannot be copied (unreadable files, pipes, files without room, what is in a folder that
 * denies writing, unless by the superuser) are skipped, and a copy that lacks them replaces an old folder,
 * too. In a drop box, a folder that others may write but not read (mode 0733), no file can be written: a
 * file fails, a folder is copied without its files. Links inside a folder are copied as links; a link as
 * the existing path is followed.
 *
 * @param existingFileName  path of the file or folder, not null.
 * @param newFileName       path of the copy, not null; its folder must exist, its last component has 1 to 255
 *                          units.
 * @param failIfExists      1 to fail when the new path exists, 0 to replace what is there.
 * @return 1 when the copy is made; 0 when it failed: nothing of it is left under the new path, except that a
 *         folder copied without replacing keeps what was copied, and that the copy stays where only the old
 *         object, still ".DeleteMe", could not be deleted. A folder is never copied into itself, nor does it
 *         replace a folder that it is in.
 * @owner   nothing to release.
 * @threads any; while a call replaces an object, no other may replace one in the same folder, whatever its
 *          name; two calls must not write to the same new path.
 * @windows CopyFileW
 */
int32_t TavCopyFile(const TavChar* existingFileName, const TavChar* newFileName, int32_t failIfExists);

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif

#ifdef __cplusplus
}
#endif

#endif
