/*
 * An application that knows nothing of large files: on 32-bit machines its own offsets have 32 bits. The library's have
 * 64 all the same.
 * usage: large_file PATH
 */
#include "TavPort.h"

#include <stdio.h>
#include <sys/types.h>

#ifdef _FILE_OFFSET_BITS
#error "this program is about what the system takes for granted"
#endif
_Static_assert(sizeof(off_t) == sizeof(long), "offsets as the system takes them for granted");

static int failed(const char* what) {
    fprintf(stderr, "%s failed\n", what);
    return 1;
}

/* Writes and reads a byte far behind the reach of 32 bits. */
static int use(int32_t handle) {
    const int64_t far = INT64_C(5) << 30;
    int64_t position = 0, size = 0;
    uint32_t count = 0;
    char byte = 0;
    if (!TavFileSetPointerExt(handle, far, &position, TAV_FILE_BEGIN) || position != far)
        return failed("seeking");
    if (!TavFileWriteExt(handle, "x", 1, &count) || count != 1) return failed("writing");
    if (!TavFileGetFileSizeExt(handle, &size) || size != far + 1) return failed("asking for the size");
    if (!TavFileSetPointerExt(handle, -1, &position, TAV_FILE_END) || position != far)
        return failed("seeking back");
    if (!TavFileReadExt(handle, &byte, 1, &count) || byte != 'x') return failed("reading");
    if (!TavFileSetFileSizeExt(handle, far + far) || !TavFileGetFileSizeExt(handle, &size) ||
        size != far + far)
        return failed("growing");
    return 0;
}

int main(int argc, char** argv) {
    if (argc != 2) return failed("naming a file");
    TavChar* path = Tav0UTF16FromUTF8(argv[1]);
    OpacTavFSRef* file = Tav0FSRCreateWithPath(path);
    Tav0UTFRelease(path);
    const int32_t handle = TavFileCreateExt(file, TAV_FILE_READ | TAV_FILE_WRITE | TAV_FILE_TRUNCATE);
    int result = handle == -1 ? failed("creating") : use(handle);
    if (handle != -1 && TavFileCloseExt(handle) != 0) result = failed("closing");
    if (!TavFileDeleteExt(file)) result = failed("deleting");
    Tav0FSRRelease(file);
    return result;
}
