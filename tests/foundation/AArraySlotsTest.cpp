// Tests of AArray growth through its two virtual slots: additive steps, releases, Free and SetCount.
#include <gtest/gtest.h>

#include <vector>

#include <merovane/foundation/AArray.h>

namespace {

// Records every call of the two virtual slots, so a test sees how the storage grows.
class TracingArray : public AArray<int> {
public:
    std::vector<int> allocations;
    int releases = 0;

protected:
    int* allocate(int n) override {
        allocations.push_back(n);
        return AArray<int>::allocate(n);
    }
    void release(int* p) override {
        if (p != nullptr) ++releases;
        AArray<int>::release(p);
    }
};

}  // namespace

TEST(AArray, GrowsByAddingTheStepNotByDoubling) {
    TracingArray a;
    a.growBy = 3;
    for (int i = 0; i < 10; ++i) EXPECT_EQ(a.Add(i), i);
    EXPECT_EQ(a.allocations, (std::vector<int>{3, 6, 9, 12}));
    EXPECT_EQ(a.releases, 3);  // each old block is released once the elements moved over
    EXPECT_EQ(a.capacity, 12);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(a[i], i);

    AArray<double> b;
    for (int i = 0; i < 257; ++i) b.Add(i);
    EXPECT_EQ(b.capacity, 512);
    EXPECT_EQ(b.growBy, 256);
}

TEST(AArray, FreeSetCountAndAZeroStep) {
    TracingArray a;
    a.growBy = 5;
    a.Add(1);
    a.Free();
    EXPECT_EQ(a.data, nullptr);
    EXPECT_EQ(a.count, 0);
    EXPECT_EQ(a.capacity, 0);
    EXPECT_EQ(a.growBy, 5);
    a.Add(2);
    EXPECT_EQ(a.capacity, 5);  // the next insertion allocates growBy again
    EXPECT_EQ(a.allocations.back(), 5);

    a.SetCount(7);
    EXPECT_EQ(a.count, 7);
    EXPECT_EQ(a.capacity, 7);
    a.SetCount(0);
    EXPECT_EQ(a.data, nullptr);
}
