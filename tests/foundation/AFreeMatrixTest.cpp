// AFreeMatrix: extents, re-dimensioning, indexing, copies and the file form with damaged streams.
#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <cstring>
#include <vector>

#include <merovane/foundation/AFreeMatrix.h>
#include <merovane/foundation/AMemFile.h>

namespace {

using CMatrix = AFreeMatrix<std::complex<float>>;
using IMatrix = AFreeMatrix<int>;

std::vector<unsigned> Dims(const IMatrix& m) {
    std::vector<unsigned> dims;
    for (unsigned k = 0; k < m.GetDims(); ++k) dims.push_back(m.GetDim(k));
    return dims;
}

bool Aligned(const void* p) {
    return reinterpret_cast<std::uintptr_t>(p) % 32 == 0;
}

// Little-endian bytes of a value, to spell out the file form.
template <class T>
void Put(std::vector<unsigned char>& bytes, T value) {
    unsigned char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    bytes.insert(bytes.end(), raw, raw + sizeof(T));
}

}  // namespace

TEST(AFreeMatrix, ExtentListsAreClosedByZero) {
    struct Case {
        IMatrix m;
        std::vector<unsigned> dims;
        std::size_t count;
    };
    Case cases[] = {
        {IMatrix(2u, 3u, 4u, 0u), {2, 3, 4}, 24},
        {IMatrix(2u, 0u, 5u, 0u), {2}, 2},  // the later 5 is never seen
        {IMatrix(0u), {}, 0},
        {IMatrix(7u, 0u), {7}, 7},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Dims(c.m), c.dims);
        EXPECT_EQ(c.m.count(), c.count);
        EXPECT_EQ(c.m.nElements, c.count);
        EXPECT_EQ(c.m.SIZEOF(), c.count * sizeof(int));
        EXPECT_EQ(c.m.data == nullptr, c.count == 0);
        EXPECT_TRUE(Aligned(c.m.data));
    }
    CMatrix complexMatrix(3u, 5u, 0u);
    EXPECT_EQ(complexMatrix.SIZEOF(), 15u * 8u);
    EXPECT_TRUE(Aligned(complexMatrix.lpArray()));
}

TEST(AFreeMatrix, GrowByKeepsTheBlockOnlyForAnEqualCount) {
    IMatrix m(2u, 3u, 4u, 0u);
    for (int i = 0; i < 24; ++i) m.data[i] = i;
    int* block = m.data;

    // Same count, new shape: the contents are read in the new shape.
    EXPECT_EQ(m.GrowBy(4u, 6u, 0u), 24u);
    EXPECT_EQ(m.data, block);
    EXPECT_EQ(Dims(m), (std::vector<unsigned>{4, 6}));
    EXPECT_EQ(m(1u, 0u), 6);
    EXPECT_EQ(m(3u, 5u), 23);

    // Another count: a new block of the new size.
    EXPECT_EQ(m.GrowBy(5u, 0u), 5u);
    EXPECT_EQ(m.nElements, 5u);
    EXPECT_EQ(Dims(m), std::vector<unsigned>{5});

    m.Free();
    EXPECT_EQ(m.GetDims(), 0u);
    EXPECT_EQ(m.count(), 0u);
    EXPECT_EQ(m.data, nullptr);

    IMatrix fresh;
    fresh.Free();  // harmless on an empty matrix
    EXPECT_EQ(fresh.GrowBy(2u, 3u, 4u, 0u), 24u);
    EXPECT_NE(fresh.data, nullptr);
}

TEST(AFreeMatrix, IndexIsRowMajorWithTheLastDimensionFastest) {
    IMatrix m(2u, 3u, 4u, 0u);
    EXPECT_EQ(m.Index(0u, 0u, 1u), 1u);
    EXPECT_EQ(m.Index(0u, 1u, 0u), 4u);
    EXPECT_EQ(m.Index(1u, 0u, 0u), 12u);
    EXPECT_EQ(m.Index(1u, 2u, 3u), 23u);
    m(1u, 2u, 3u) = 99;
    EXPECT_EQ(m.data[23], 99);

    IMatrix line(9u, 0u);
    EXPECT_EQ(line.Index(5u), 5u);
    IMatrix none;
    EXPECT_EQ(none.Index(7u), 7u);  // no dimensions: i0 all the same
}

TEST(AFreeMatrix, OffsetsAreComputedInSixtyFourBits) {
    // Extents whose product passes 2^32, read without elements so nothing huge is allocated.
    std::vector<unsigned char> bytes;
    Put<std::int32_t>(bytes, 3);
    Put<std::uint32_t>(bytes, 70000);
    Put<std::uint32_t>(bytes, 70000);
    Put<std::uint32_t>(bytes, 2);
    Put<std::uint64_t>(bytes, 0);
    AMemFile file(bytes);
    IMatrix m;
    EXPECT_EQ(m.Load(file), 0);  // the count disagrees with the extents
    EXPECT_EQ(Dims(m), (std::vector<unsigned>{70000, 70000, 2}));
    EXPECT_EQ(m.Index(69999u, 69999u, 1u), 9799999999ull);
}

TEST(AFreeMatrix, FillsVisitEveryElement) {
    CMatrix m(3u, 7u, 0u);
    m.Fill(std::complex<float>(1.5f, -2.0f));
    for (std::size_t i = 0; i < m.count(); ++i) EXPECT_EQ(m.data[i], std::complex<float>(1.5f, -2.0f));
    m = std::complex<float>(4.0f, 0.25f);
    EXPECT_EQ(m(2u, 6u), std::complex<float>(4.0f, 0.25f));
    m.ZeroFill();
    for (std::size_t i = 0; i < m.count(); ++i) EXPECT_EQ(m.data[i], std::complex<float>(0.0f, 0.0f));
    CMatrix empty;
    empty.ZeroFill().Fill(std::complex<float>(1, 1));
    EXPECT_EQ(empty.data, nullptr);
}

TEST(AFreeMatrix, CopiesAreDeepAndAssignmentKeepsAnEqualBlock) {
    IMatrix source(2u, 5u, 0u);
    source.growBy = 7;
    for (int i = 0; i < 10; ++i) source.data[i] = 10 * i;

    IMatrix copy(source);
    EXPECT_NE(copy.data, source.data);
    EXPECT_EQ(copy.growBy, 7);
    EXPECT_EQ(Dims(copy), Dims(source));
    EXPECT_EQ(std::memcmp(copy.data, source.data, 40), 0);
    copy.data[3] = -1;
    EXPECT_EQ(source.data[3], 30);

    IMatrix target(10u, 0u);
    int* block = target.data;
    target = source;
    EXPECT_EQ(target.data, block);
    EXPECT_EQ(Dims(target), (std::vector<unsigned>{2, 5}));
    EXPECT_EQ(target(1u, 4u), 90);

    IMatrix smaller(3u, 0u);
    smaller = source;
    EXPECT_EQ(smaller.count(), 10u);
    EXPECT_EQ(smaller(1u, 1u), 60);

    IMatrix emptied(4u, 0u);
    emptied = IMatrix();
    EXPECT_EQ(emptied.data, nullptr);
    EXPECT_EQ(emptied.count(), 0u);
    EXPECT_EQ(emptied.GetDims(), 0u);
}

TEST(AFreeMatrix, StoreWritesTheFileFormAndLoadReadsItBack) {
    IMatrix m(2u, 3u, 0u);
    for (int i = 0; i < 6; ++i) m.data[i] = 100 + i;
    AMemFile file;
    ASSERT_EQ(m.Store(file), 1);
    std::vector<unsigned char> expected;
    Put<std::int32_t>(expected, 2);
    Put<std::uint32_t>(expected, 2);
    Put<std::uint32_t>(expected, 3);
    Put<std::uint64_t>(expected, 6);
    for (int i = 0; i < 6; ++i) Put<std::int32_t>(expected, 100 + i);
    EXPECT_EQ(file.Bytes(), expected);

    ASSERT_TRUE(file.Seek(0));
    IMatrix back(file);
    EXPECT_EQ(Dims(back), (std::vector<unsigned>{2, 3}));
    EXPECT_EQ(back(1u, 2u), 105);
    EXPECT_TRUE(Aligned(back.data));

    // A complex element is two floats, the real part first.
    CMatrix c(1u, 0u);
    c.data[0] = std::complex<float>(1.0f, -3.0f);
    AMemFile cfile;
    ASSERT_EQ(c.Store(cfile), 1);
    ASSERT_EQ(cfile.Bytes().size(), 4u + 4u + 8u + 8u);
    float parts[2];
    std::memcpy(parts, cfile.Bytes().data() + 16, 8);
    EXPECT_EQ(parts[0], 1.0f);
    EXPECT_EQ(parts[1], -3.0f);
}

TEST(AFreeMatrix, AnEmptyMatrixStoresAsTwelveBytes) {
    IMatrix empty;
    AMemFile file;
    ASSERT_EQ(empty.Store(file), 1);
    EXPECT_EQ(file.Bytes(), std::vector<unsigned char>(12, 0));
    ASSERT_TRUE(file.Seek(0));
    IMatrix back(3u, 0u);
    EXPECT_EQ(back.Load(file), 1);
    EXPECT_EQ(back.data, nullptr);
    EXPECT_EQ(back.count(), 0u);
    EXPECT_EQ(back.GetDims(), 0u);
}

TEST(AFreeMatrix, TruncatedLoadsFailAtEveryByteAndKeepWhatArrived) {
    CMatrix m(2u, 3u, 0u);
    for (int i = 0; i < 6; ++i) m.data[i] = std::complex<float>(float(i), float(-i));
    AMemFile full;
    ASSERT_EQ(m.Store(full), 1);
    const std::vector<unsigned char>& bytes = full.Bytes();
    ASSERT_EQ(bytes.size(), 4u + 8u + 8u + 48u);

    for (std::size_t length = 0; length <= bytes.size(); ++length) {
        SCOPED_TRACE(length);
        AMemFile cut(std::vector<unsigned char>(bytes.begin(), bytes.begin() + length));
        CMatrix target(4u, 0u);  // something to lose
        const int result = target.Load(cut);
        if (length == bytes.size()) {
            EXPECT_EQ(result, 1);
            EXPECT_EQ(std::memcmp(target.data, m.data, 48), 0);
            continue;
        }
        EXPECT_EQ(result, 0);
        if (length < 4) {
            EXPECT_EQ(target.GetDims(), 0u);
        } else if (length >= 12) {
            EXPECT_EQ(target.GetDims(), 2u);
            EXPECT_EQ(target.GetDim(1), 3u);
        }
        if (length < 20) {
            // The count never arrived: the old elements stay together with their count.
            EXPECT_EQ(target.count(), 4u);
            EXPECT_NE(target.data, nullptr);
        } else {
            // The count arrived but not the elements: no elements rather than unread ones.
            EXPECT_EQ(target.count(), 0u);
            EXPECT_EQ(target.data, nullptr);
        }
    }
}

TEST(AFreeMatrix, DamagedCountsFailWithoutHugeAllocations) {
    struct Case {
        const char* what;
        std::int32_t dims;
        std::vector<std::uint32_t> extents;
        std::uint64_t count;
        int result;
    };
    const Case cases[] = {
        {"dimensions beyond the stream", 0x7fffffff, {}, 0, 0},
        {"elements beyond the stream", 1, {0xffffffffu}, 0xffffffffull, 0},
        {"count beyond any memory", 2, {0x80000000u, 0x80000000u}, 0x4000000000000000ull, 0},
        {"count not the product", 2, {2, 2}, 3, 0},
        {"negative dimensions", -4, {}, 0, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<unsigned char> bytes;
        Put<std::int32_t>(bytes, c.dims);
        for (std::uint32_t e : c.extents) Put<std::uint32_t>(bytes, e);
        Put<std::uint64_t>(bytes, c.count);
        for (int i = 0; i < 24; ++i) bytes.push_back(0);
        AMemFile file(bytes);
        IMatrix m;
        EXPECT_EQ(m.Load(file), c.result);
        EXPECT_EQ(m.data, nullptr);
        EXPECT_EQ(m.count(), 0u);
    }
}

TEST(AFreeMatrix, StoreStopsAtTheFirstFailedWrite) {
    IMatrix m(2u, 2u, 0u);
    m.ZeroFill();
    for (int call = 1; call <= 4; ++call) {
        AFailFile file;
        file.failWriteCall = call;
        EXPECT_EQ(m.Store(file), 0) << call;
        EXPECT_EQ(file.writeCalls, call);
    }
    AFailFile file;
    EXPECT_EQ(m.Store(file), 1);
    EXPECT_EQ(file.writeCalls, 4);
}
