#include "copy/volume_facts.h"

#include "support/files.h"
#include "support/references.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

TEST(BufferSizeForVolSpeed, IsAQuarterOfASecondInWholeBlocksWithinLimits) {
    const struct {
        uint32_t speed;
        ByteCount size;
    } rows[] = {
        {0, 262144},           {1, 1024},          {1000, 1024},         {4095, 1024},
        {4096, 1024},          {6144, 1536},       {8191, 1536},         {1000000, 249856},
        {8388608, 2097152},    {8388607, 2096640}, {100000000, 2097152}, {4294967295, 2097152},
        {2147483648, 2097152}, {1048576, 262144},
    };
    for (const auto& row : rows) EXPECT_EQ(BufferSizeForVolSpeed(row.speed), row.size) << row.speed;
}

class CalcBufferSizeForVolTest : public testing::Test {
protected:
    ByteCount Size(int32_t grade, ByteCount filled) {
        GetVolParmsInfoBuffer parms{};
        parms.vMVolumeGrade = grade;
        return CalcBufferSizeForVol(&parms, filled);
    }
};

TEST_F(CalcBufferSizeForVolTest, TakesANegativeGradeAsBytesPerSecond) {
    EXPECT_EQ(Size(-1000, 32), 1024u);
    EXPECT_EQ(Size(-1048576, 32), 262144u);
    EXPECT_EQ(Size(-100000000, 32), 2097152u);
    EXPECT_EQ(Size(INT32_MIN, 32), 2097152u);
}

TEST_F(CalcBufferSizeForVolTest, TakesNoGradeOrAPositiveOneAsUnknown) {
    EXPECT_EQ(Size(0, 32), 262144u);
    EXPECT_EQ(Size(1000, 32), 262144u);
}

TEST_F(CalcBufferSizeForVolTest, NeedsMoreThan17FilledBytes) {
    EXPECT_EQ(Size(-1000, 17), 262144u);
    EXPECT_EQ(Size(-1000, 18), 1024u);
}

class IsDropBoxTest : public testing::Test {
protected:
    // Whether a folder of this mode is a drop box.
    bool DropBox(mode_t mode) {
        EXPECT_EQ(mkdir((folder / "box").c_str(), 0755), 0);
        EXPECT_EQ(chmod((folder / "box").c_str(), mode), 0);
        FSRef box = Reference(folder / "box");
        Boolean answer = 2;
        EXPECT_EQ(IsDropBox(&box, &answer), noErr);
        EXPECT_EQ(rmdir((folder / "box").c_str()), 0);
        return answer;
    }
    TemporaryFolder folder;
};

TEST_F(IsDropBoxTest, GoesByOthersBitsOfTheMode) {
    EXPECT_TRUE(DropBox(0733));
    EXPECT_TRUE(DropBox(0773));
    EXPECT_FALSE(DropBox(0755));
    EXPECT_FALSE(DropBox(0777));
    EXPECT_FALSE(DropBox(0731));
    EXPECT_FALSE(DropBox(0732));
    EXPECT_FALSE(DropBox(0700));
}

TEST_F(IsDropBoxTest, RefusesAFile) {
    WriteFile(folder / "file", "x");
    FSRef file = Reference(folder / "file");
    Boolean answer;
    EXPECT_EQ(IsDropBox(&file, &answer), errFSNotAFolder);
}

TEST_F(IsDropBoxTest, ReportsAFolderThatIsGone) {
    EXPECT_EQ(mkdir((folder / "box").c_str(), 0733), 0);
    FSRef box = Reference(folder / "box");
    EXPECT_EQ(rmdir((folder / "box").c_str()), 0);
    Boolean answer;
    EXPECT_EQ(IsDropBox(&box, &answer), fnfErr);
}
