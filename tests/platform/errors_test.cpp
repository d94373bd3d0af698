#include "platform/linux/errors.h"

#include <cerrno>

#include <gtest/gtest.h>

namespace {

struct Row {
    int error;
    OSErr result;
};

constexpr Row kTable[] = {
    {0, 0},           {ENOENT, -43},  {EEXIST, -48},       {ENOTEMPTY, -47}, {EBUSY, -47},
    {EACCES, -5000},  {EPERM, -5000}, {EROFS, -44},        {ENOSPC, -34},    {EDQUOT, -34},
    {EMFILE, -42},    {ENFILE, -42},  {ENAMETOOLONG, -37}, {ENOMEM, -108},   {EIO, -36},
    {ENOTDIR, -1407}, {EXDEV, -1303}, {EBADF, -51},        {EINVAL, -50},    {ELOOP, -36},
    {EISDIR, -36},    {ESTALE, -36},  {123456, -36},
};

TEST(Errors, EachNumber_HasItsResultCode) {
    for (const Row& row : kTable) EXPECT_EQ(ErrorFromErrno(row.error), row.result) << row.error;
}

TEST(Errors, LastError_ReadsTheFailedCall) {
    errno = EROFS;
    EXPECT_EQ(LastError(), -44);
    EXPECT_EQ(LastErrorNumber(), EROFS);
}

TEST(Errors, LastOpenError_WhatIsNoFileIsMissing) {
    for (const int error : {ENOENT, ELOOP, EISDIR, ENXIO, ENODEV}) {
        errno = error;
        EXPECT_EQ(LastOpenError(), -43) << error;
    }
    errno = EACCES;
    EXPECT_EQ(LastOpenError(), -5000);
    errno = EMFILE;
    EXPECT_EQ(LastOpenError(), -42);
}

TEST(Errors, LastForkError_DeniedIsAMatterOfPermission) {
    errno = EACCES;
    EXPECT_EQ(LastForkError(), -54);
    errno = EPERM;
    EXPECT_EQ(LastForkError(), -54);
    errno = ENOENT;
    EXPECT_EQ(LastForkError(), -43);
}

} // namespace
