// Error numbers: one table from errno to result codes, so that the same cause looks the same from every
// operation. The platform tells more causes apart for names and fewer for permissions; numbers without a
// counterpart are -36.
#include "platform/linux/errors.h"

#include <cerrno>

OSErr ErrorFromErrno(int error) {
    switch (error) {
    case 0:
        return noErr;
    case ENOENT:
        return fnfErr;
    case EEXIST:
        return dupFNErr;
    case ENOTEMPTY:
    case EBUSY:
        return fBsyErr;
    case EACCES:
    case EPERM:
        return afpAccessDenied;
    case EROFS:
        return wPrErr;
    case ENOSPC:
    case EDQUOT:
        return dskFulErr;
    case EMFILE:
    case ENFILE:
        return tmfoErr;
    case ENAMETOOLONG:
        return bdNamErr;
    case ENOMEM:
        return memFullErr;
    case ENOTDIR:
        return errFSNotAFolder;
    case EXDEV:
        return diffVolErr;
    case EBADF:
        return rfNumErr;
    case EINVAL:
        return paramErr;
    default:
        return ioErr;
    }
}

int LastErrorNumber() {
    return errno;
}

void SetLastErrorNumber(int error) {
    errno = error;
}

OSErr LastError() {
    return ErrorFromErrno(errno);
}

OSErr LastOpenError() {
    switch (errno) {
    case ELOOP:  // a link
    case EISDIR: // a folder, for writing
    case ENXIO:  // a socket or a pipe
    case ENODEV: // a device without a driver
        return fnfErr;
    default:
        return LastError();
    }
}

OSErr LastForkError() {
    OSErr result = LastError();
    return result == afpAccessDenied ? permErr : result;
}
