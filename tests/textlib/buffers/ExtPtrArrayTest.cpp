// ExtPtrArrayTest.cpp - index clamping, deletion through the base
#include "textlib/buffers/ExtPtrArray.h"

#include <gtest/gtest.h>

using brelkin::BrelkinObject;
using brelkin::ExtPtrArray;

namespace {

struct Counted : BrelkinObject {
    explicit Counted(int* deaths) : deaths(deaths) {}
    ~Counted() override { ++*deaths; }
    int* deaths;
};

BrelkinObject* tag(int n) { return reinterpret_cast<BrelkinObject*>(static_cast<uintptr_t>(n * 16)); }

}  // namespace

TEST(ExtPtrArray, ReadsOfAnEmptyArrayGiveNull) {
    ExtPtrArray a;
    EXPECT_EQ(a.getAt(0), nullptr);
    EXPECT_EQ(a.getLast(), nullptr);
    EXPECT_EQ(a.removeAt(0), nullptr);
    EXPECT_EQ(a.pop(), nullptr);
}

TEST(ExtPtrArray, InsertClampsAndSetPadsWithNulls) {
    ExtPtrArray a;
    a.append(tag(1));
    a.insertAt(-3, tag(0));
    a.insertAt(99, tag(3));
    a.insertAt(2, tag(2));
    ASSERT_EQ(a.getSize(), 4);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(a.getAt(i), tag(i)) << i;

    ExtPtrArray s;
    s.setAt(10, tag(7));
    EXPECT_EQ(s.getSize(), 11);
    EXPECT_EQ(s.getAt(10), tag(7));
    for (int i = 0; i < 10; ++i) EXPECT_EQ(s.getAt(i), nullptr) << i;
}

TEST(ExtPtrArray, RemoveAndPopCloseTheGap) {
    ExtPtrArray a;
    for (int i = 0; i < 4; ++i) a.append(tag(i));
    EXPECT_EQ(a.removeAt(1), tag(1));
    EXPECT_EQ(a.removeAt(3), nullptr);
    EXPECT_EQ(a.getAt(1), tag(2));
    EXPECT_EQ(a.pop(), tag(3));
    EXPECT_EQ(a.getSize(), 2);
    EXPECT_EQ(a.getLast(), tag(2));
}

TEST(ExtPtrArray, DeleteAllDestroysEveryItemOnce) {
    int deaths = 0;
    {
        ExtPtrArray a;
        a.append(new Counted(&deaths));
        a.append(nullptr);
        a.append(new Counted(&deaths));
        a.deleteAll();
        EXPECT_EQ(deaths, 2);
        EXPECT_EQ(a.getSize(), 0);
        a.append(new Counted(&deaths));
        BrelkinObject* kept = a.getAt(0);
        a.clearWithoutDelete();
        delete kept;
    }
    EXPECT_EQ(deaths, 3);  // the destructor deleted nothing more
}
