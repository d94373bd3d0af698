#include "copy/linked_list.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<int> disposed;
void Record(void* data) {
    disposed.push_back(*static_cast<int*>(data));
}

std::vector<int> Items(const GenLinkedList& list) {
    std::vector<int> items;
    ListPosition position;
    for (InitIterator(&list, &position); position; Next(&position))
        items.push_back(*static_cast<int*>(GetData(position)));
    return items;
}

class LinkedListTest : public testing::Test {
protected:
    LinkedListTest() {
        InitLinkedList(&dest, Record);
        InitLinkedList(&src, Record);
        disposed.clear();
    }
    ~LinkedListTest() override {
        DestroyList(&dest);
        DestroyList(&src);
    }
    void Fill(GenLinkedList& list, int from, int to) {
        for (int i = from; i <= to; ++i) ASSERT_EQ(AddToTail(&list, &numbers[i]), noErr);
    }

    int numbers[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    GenLinkedList dest, src;
};

using Numbers = std::vector<int>;

} // namespace

TEST_F(LinkedListTest, RemovingTheHead_DisposesOfOneItem) {
    Fill(dest, 1, 2);
    RemoveHead(&dest);
    EXPECT_EQ(disposed, std::vector{1});
    EXPECT_EQ(Items(dest), std::vector{2});
    EXPECT_EQ(GetNumberOfItems(&dest), 1u);
    RemoveHead(&dest);
    RemoveHead(&dest);
    EXPECT_EQ(disposed, (std::vector{1, 2}));
    EXPECT_EQ(dest.tail, nullptr);
    Fill(dest, 3, 3);
    EXPECT_EQ(Items(dest), std::vector{3});
    RemoveHead(nullptr);
}

TEST_F(LinkedListTest, AddToTailKeepsTheOrder) {
    Fill(dest, 1, 3);
    EXPECT_EQ(Items(dest), (Numbers{1, 2, 3}));
    EXPECT_EQ(GetNumberOfItems(&dest), 3u);
    EXPECT_EQ(*static_cast<int*>(dest.tail->data), 3);
}

TEST_F(LinkedListTest, AddToTailRefusesNull) {
    EXPECT_EQ(AddToTail(nullptr, numbers), paramErr);
    EXPECT_EQ(AddToTail(&dest, nullptr), paramErr);
    EXPECT_EQ(GetNumberOfItems(&dest), 0u);
}

TEST_F(LinkedListTest, NumberOfItemsOfNullIsZero) {
    EXPECT_EQ(GetNumberOfItems(nullptr), 0u);
}

TEST_F(LinkedListTest, InsertListIntoAnEmptyListTakesItWhole) {
    Fill(src, 1, 2);
    InsertList(&dest, &src, nullptr);
    EXPECT_EQ(Items(dest), (Numbers{1, 2}));
    Fill(dest, 3, 3);
    EXPECT_EQ(Items(dest), (Numbers{1, 2, 3}));
}

TEST_F(LinkedListTest, InsertListAfterNullGoesInFront) {
    Fill(dest, 1, 2);
    Fill(src, 3, 4);
    InsertList(&dest, &src, nullptr);
    EXPECT_EQ(Items(dest), (Numbers{3, 4, 1, 2}));
    Fill(dest, 5, 5);
    EXPECT_EQ(Items(dest), (Numbers{3, 4, 1, 2, 5}));
}

TEST_F(LinkedListTest, InsertListAfterTheTailMovesTheTail) {
    Fill(dest, 1, 2);
    Fill(src, 3, 4);
    InsertList(&dest, &src, dest.tail);
    EXPECT_EQ(Items(dest), (Numbers{1, 2, 3, 4}));
    Fill(dest, 5, 5);
    EXPECT_EQ(Items(dest), (Numbers{1, 2, 3, 4, 5}));
}

TEST_F(LinkedListTest, InsertListInTheMiddleSplices) {
    Fill(dest, 1, 3);
    Fill(src, 4, 5);
    InsertList(&dest, &src, dest.head);
    EXPECT_EQ(Items(dest), (Numbers{1, 4, 5, 2, 3}));
    EXPECT_EQ(GetNumberOfItems(&dest), 5u);
}

TEST_F(LinkedListTest, InsertListEmptiesTheSourceAndItsCallBack) {
    Fill(src, 1, 2);
    InsertList(&dest, &src, nullptr);
    EXPECT_EQ(src.head, nullptr);
    EXPECT_EQ(src.tail, nullptr);
    EXPECT_EQ(GetNumberOfItems(&src), 0u);
    EXPECT_EQ(src.disposeProc, nullptr);
}

TEST_F(LinkedListTest, InsertListRefusesAnotherCallBack) {
    Fill(dest, 1, 1);
    Fill(src, 2, 2);
    src.disposeProc = nullptr;
    InsertList(&dest, &src, nullptr);
    EXPECT_EQ(Items(dest), Numbers{1});
    EXPECT_EQ(Items(src), Numbers{2});
}

TEST_F(LinkedListTest, InsertListOfAnEmptyOrNullListChangesNothing) {
    Fill(dest, 1, 1);
    InsertList(&dest, &src, nullptr);
    InsertList(&dest, nullptr, nullptr);
    InsertList(nullptr, &src, nullptr);
    EXPECT_EQ(Items(dest), Numbers{1});
    EXPECT_EQ(src.disposeProc, Record);
}

TEST_F(LinkedListTest, DestroyListDisposesOfEachItemInOrderAndResets) {
    Fill(dest, 1, 3);
    DestroyList(&dest);
    EXPECT_EQ(disposed, (Numbers{1, 2, 3}));
    EXPECT_EQ(dest.head, nullptr);
    EXPECT_EQ(GetNumberOfItems(&dest), 0u);
    EXPECT_EQ(dest.disposeProc, nullptr);
}

TEST_F(LinkedListTest, DestroyListWithoutCallBackLeavesTheData) {
    InitLinkedList(&dest, nullptr);
    Fill(dest, 1, 2);
    DestroyList(&dest);
    EXPECT_TRUE(disposed.empty());
}
