// Tests of AArray, APtrArray and AMatrix: insertion order, ownership, copies, alignment.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include <merovane/foundation/AArray.h>
#include <merovane/foundation/AMatrix.h>

namespace {

struct Counted {
    static int alive;
    Counted() { ++alive; }
    ~Counted() { --alive; }
};
int Counted::alive = 0;

}  // namespace

TEST(AArray, InsertAtFrontOfAFullArrayKeepsTheOrder) {
    AArray<int> a;
    a.growBy = 4;
    for (int i = 1; i <= 4; ++i) a.Add(i);
    ASSERT_EQ(a.count, a.capacity);
    EXPECT_EQ(a.InsertAt(0, 0), 0);
    EXPECT_EQ(a.InsertAt(3, 99), 3);
    ASSERT_EQ(a.count, 6);
    const int expected[] = {0, 1, 2, 99, 3, 4};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(a[i], expected[i]) << i;
}

TEST(AArray, ZeroStepCannotMakeRoom) {
    // A step of 0 cannot make room: a full array refuses instead of writing past its end.
    AArray<int> z(2);
    z.growBy = 0;
    z[0] = 10;
    z[1] = 11;
    EXPECT_EQ(z.InsertAt(0, 5), -1);
    EXPECT_EQ(z.count, 2);
    EXPECT_EQ(z[0], 10);
}

TEST(AArray, CopyTakesCountAndStepWithExactCapacity) {
    AArray<int> a;
    a.growBy = 10;
    for (int i = 0; i < 3; ++i) a.Add(i * 7);
    AArray<int> b(a);
    EXPECT_EQ(b.count, 3);
    EXPECT_EQ(b.capacity, 3);
    EXPECT_EQ(b.growBy, 10);
    EXPECT_NE(b.data, a.data);
    EXPECT_EQ(b[2], 14);

    AArray<int> c;
    c.Add(1);
    c = AArray<int>();
    EXPECT_EQ(c.data, nullptr);
    EXPECT_EQ(c.count, 0);

    // An array of pointers copies the pointers, not what they point to.
    int x = 5;
    AArray<int*> p;
    p.Add(&x);
    AArray<int*> q(p);
    EXPECT_EQ(q[0], &x);
}

TEST(APtrArray, OwnerDecidesWhetherElementsAreDeleted) {
    {
        APtrArray<Counted*> owning;
        owning.Add(new Counted);
        owning.Add(nullptr);  // a null element is skipped
        owning.Add(new Counted);
        EXPECT_EQ(Counted::alive, 2);
        owning.Free();
        EXPECT_EQ(Counted::alive, 0);
        owning.Add(new Counted);
    }
    EXPECT_EQ(Counted::alive, 0);  // the destructor deleted the last one

    Counted kept[2];
    {
        APtrArray<Counted*> view;
        view.owner = 0;
        view.Add(&kept[0]);
        view.Add(&kept[1]);
        view.Free();
        view.Add(&kept[0]);
    }
    EXPECT_EQ(Counted::alive, 2);  // neither Free nor the destructor touched them

    // SetCount deletes nothing; a copy never owns what it points to.
    Counted* loose = new Counted;
    {
        APtrArray<Counted*> a;
        a.Add(loose);
        APtrArray<Counted*> copy(a);
        EXPECT_EQ(copy.owner, 0);
        EXPECT_EQ(copy[0], loose);
        a.SetCount(0);
    }
    EXPECT_EQ(Counted::alive, 3);
    delete loose;
}

TEST(AMatrix, ResizeKeepsContentsOnlyForTheSameShape) {
    AMatrix<double> m(2, 3);
    ASSERT_NE(m.data, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(m.data) % 32, 0u);
    m.Zero();
    m(1, 2) = 4.5;
    EXPECT_EQ(m.data[1 * 3 + 2], 4.5);
    double* before = m.data;
    EXPECT_EQ(m.Resize(2, 3), before);
    EXPECT_EQ(m(1, 2), 4.5);

    // Same product, other extents: a new block and the new shape.
    double* reshaped = m.Resize(3, 2);
    ASSERT_NE(reshaped, nullptr);
    EXPECT_EQ(m.rows, 3u);
    EXPECT_EQ(m.cols, 2u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(reshaped) % 32, 0u);
    m.Zero();
    for (std::uint32_t i = 0; i < 6; ++i) EXPECT_EQ(m.data[i], 0.0);

    AMatrix<double> empty;
    EXPECT_EQ(empty.data, nullptr);
    empty.Zero();  // harmless without storage

    AMatrix<double> copy(m);
    EXPECT_NE(copy.data, m.data);
    EXPECT_EQ(copy.rows, 3u);
}
