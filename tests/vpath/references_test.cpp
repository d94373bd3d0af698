#include "vpath/references.h"

#include "support/virtual_paths.h"

#include <gtest/gtest.h>

TEST(Reference, HoldsThePathBehindTheCount) {
    OpacTavFSRef* const r = NewReference(u"/a");
    EXPECT_EQ(r->count, 1);
    EXPECT_EQ(reinterpret_cast<char*>(r->Path()) - reinterpret_cast<char*>(r), 4);
    EXPECT_EQ(std::u16string(r->Path()), u"/a");
    Free(r);
}

TEST(Reference, CountsItsHolders) {
    OpacTavFSRef* const r = NewReference(u"/a");
    AddReference(r);
    EXPECT_EQ(r->count, 2);
    EXPECT_EQ(DeReference(r), 1);
    EXPECT_EQ(DeReference(r), 0);
    Free(r);
}

TEST(Retain, GivesTheHoldersBefore) {
    const Ref ref = MakeRef(u"/a");
    EXPECT_EQ(Tav0FSRRetain(ref.get()), 1u);
    EXPECT_EQ(ref->count, 2);
    Tav0FSRRelease(ref.get());
    EXPECT_EQ(Tav0FSRRetain(nullptr), 0u);
}

TEST(ToUTF16, CopiesWhenThereIsRoom) {
    const Ref ref = MakeRef(u"/a");
    TavChar buf[4] = u"***";
    EXPECT_EQ(Tav0FSRToUTF16(ref.get(), nullptr, 0), 3u);
    EXPECT_EQ(Tav0FSRToUTF16(ref.get(), buf, 2), 3u);
    EXPECT_EQ(std::u16string(buf), u"***");
    EXPECT_EQ(Tav0FSRToUTF16(ref.get(), buf, 3), 3u);
    EXPECT_EQ(std::u16string(buf), u"/a");
    EXPECT_EQ(Tav0FSRToUTF16(nullptr, buf, 3), 0u);
}
