// Processor survey, selection rule, environment override, dispatch tables and the module start.
#include <gtest/gtest.h>

#include <cstdlib>

#include <merovane/numeric/DllMain.h>
#include <merovane/numeric/KernelDispatch.h>
#include <merovane/numeric/QRKernels.h>
#include <merovane/numeric/QRVariants.h>

#include "QRTestSupport.h"

namespace {

// Leaf 1 register bits by name, as the processor reports them.
constexpr std::uint32_t kEcxSSE3 = 1u << 0, kEcxPCLMUL = 1u << 1, kEcxSSSE3 = 1u << 9, kEcxSSE41 = 1u << 19,
                        kEcxSSE42 = 1u << 20, kEcxMOVBE = 1u << 22, kEcxAES = 1u << 25,
                        kEcxOSXSAVE = 1u << 27, kEcxAVX = 1u << 28;
constexpr std::uint32_t kEdxMMX = 1u << 23, kEdxSSE = 1u << 25, kEdxSSE2 = 1u << 26;

TEST(CpuFeaturesTest, RegistersMapToFeatureBits) {
    struct Case {
        std::uint32_t ecx, edx;
        std::uint64_t bit;
    };
    const Case cases[] = {
        {0, kEdxMMX, 1u << 0},   {0, kEdxSSE, 1u << 1},   {0, kEdxSSE2, 1u << 2},    {kEcxSSE3, 0, 1u << 3},
        {kEcxSSSE3, 0, 1u << 4}, {kEcxMOVBE, 0, 1u << 5}, {kEcxSSE41, 0, 1u << 6},   {kEcxSSE42, 0, 1u << 7},
        {kEcxAVX, 0, 1u << 8},   {kEcxAES, 0, 1u << 10},  {kEcxPCLMUL, 0, 1u << 11},
    };
    for (const Case& c : cases)
        EXPECT_EQ(CpuFeaturesFromRegisters(0x600, c.ecx, c.edx, 0, 0), c.bit) << c.bit;
    EXPECT_EQ(CpuFeaturesFromRegisters(0x600, 0, 0, 0, 0), 0u);
    // The saved AVX state needs OSXSAVE, AVX and both XCR0 bits 1 and 2.
    const std::uint32_t both = kEcxOSXSAVE | kEcxAVX;
    EXPECT_EQ(CpuFeaturesFromRegisters(0x600, both, 0, 0x6, 0), (1u << 8) | (1u << 9));
    EXPECT_EQ(CpuFeaturesFromRegisters(0x600, both, 0, 0x7, 0), (1u << 8) | (1u << 9));
    EXPECT_EQ(CpuFeaturesFromRegisters(0x600, both, 0, 0x2, 0), 1u << 8);
    EXPECT_EQ(CpuFeaturesFromRegisters(0x600, both, 0, 0x4, 0), 1u << 8);
    EXPECT_EQ(CpuFeaturesFromRegisters(0x600, kEcxAVX, 0, 0x6, 0), 1u << 8);
    EXPECT_EQ(CpuFeaturesFromRegisters(0x600, kEcxOSXSAVE, 0, 0x6, 0), 0u);
    // The extra feature only for family field (EAX bits 8..11) 0xB.
    EXPECT_EQ(CpuFeaturesFromRegisters(0xB00, 0, 0, 0, 0x2), 1u << 12);
    EXPECT_EQ(CpuFeaturesFromRegisters(0xB00, 0, 0, 0, 0x1), 0u);
    EXPECT_EQ(CpuFeaturesFromRegisters(0x600, 0, 0, 0, 0x2), 0u);
    EXPECT_EQ(CpuFeaturesFromRegisters(0xBB00, 0, 0, 0, 0x2), 1u << 12);
    EXPECT_EQ(CpuFeaturesFromRegisters(0x1A00, 0, 0, 0, 0x2), 0u);
}

TEST(CpuFeaturesTest, ProcessorWordIsReadOnceAndConsistent) {
    const std::uint64_t word = ReadCpuFeatures();
    EXPECT_TRUE(CpuFeaturesValid);
    EXPECT_EQ(ReadCpuFeatures(), word);
    EXPECT_EQ(CpuFeatures, word);
#if defined(__x86_64__)
    // Every x86-64 processor has SSE2, and the saved AVX state is only noted along with AVX.
    EXPECT_NE(word & CpuFeatureSSE2, 0u);
#endif
    if ((word & CpuFeatureAVXState) != 0) {
        EXPECT_NE(word & CpuFeatureAVX, 0u);
    }
}

// MOVBE without SSSE3 counts for nothing; SSE4.1 without AVX gives 4, with or without MOVBE; AVX
// without the saved state counts as absent, the state alone is nothing either; bits 7 and 10..12 take
// no part.
TEST(KernelDispatchTest, SelectionRule) {
    const std::uint64_t sse3 = 1u << 3, ssse3 = 1u << 4, movbe = 1u << 5, sse41 = 1u << 6, avx = 1u << 8,
                        avxState = 1u << 9, base = (1u << 0) | (1u << 1) | (1u << 2);
    const std::pair<std::uint64_t, int> cases[] = {
        {0, 0},
        {base, 0},
        {base | sse3, 1},
        {base | sse3 | ssse3, 2},
        {base | sse3 | ssse3 | movbe, 3},
        {base | sse3 | movbe, 1},
        {base | movbe, 0},
        {base | sse3 | ssse3 | sse41, 4},
        {base | sse3 | ssse3 | movbe | sse41, 4},
        {base | sse3 | ssse3 | sse41 | avx, 4},
        {base | sse3 | ssse3 | sse41 | avxState, 4},
        {base | sse3 | ssse3 | sse41 | avx | avxState, 5},
        {avx | avxState, 5},
        {base | (1u << 7) | (1u << 10) | (1u << 11) | (1u << 12), 0}};
    for (auto [features, index] : cases) EXPECT_EQ(KernelIndexForFeatures(features), index) << features;
}

TEST(KernelDispatchTest, EnvironmentOverride) {
    const std::uint64_t all = CpuFeatureSSE41 | CpuFeatureAVX | CpuFeatureAVXState;
    for (int i = 0; i <= 5; ++i) {
        const char text[2] = {static_cast<char>('0' + i), '\0'};
        EXPECT_EQ(KernelIndexOverride(text, all, 1), i);
    }
    for (const char* text : {static_cast<const char*>(nullptr), "", "6", "-1", "12", "2 ", "x"})
        EXPECT_EQ(KernelIndexOverride(text, all, 4), 4) << (text ? text : "null");
    // A variant the processor cannot run is not forced.
    EXPECT_EQ(KernelIndexOverride("5", CpuFeatureSSE41 | CpuFeatureAVX, 4), 4);
    EXPECT_EQ(KernelIndexOverride("4", CpuFeatureSSE2, 0), 0);
    EXPECT_EQ(KernelIndexOverride("3", CpuFeatureSSE2, 0), 3);
}

// The tables hold the variants of their index, and the stubs pass their arguments unchanged to the
// entry of the current index.
TEST(KernelDispatchTest, StubsFollowTheTables) {
    const int variantOf[kKernelDispatchCount] = {0, 0, 1, 1, 2, 3};  // into AllVariants()
    const int saved = KernelDispatchIndex;
    const double a[6] = {2, 1, 1, 3, 2, 2}, b[3] = {1, 2, 3};
    for (int i = 0; i < kKernelDispatchCount; ++i) {
        SCOPED_TRACE(i);
        const AVariantUnderTest& v = AllVariants()[variantOf[i]];
        EXPECT_EQ(QRDecomposeTable[i], v.decompose);
        EXPECT_EQ(QRSolveTable[i], v.solve);
        EXPECT_EQ(QRSolveManyTable[i], v.solveMany);
        if ((ReadCpuFeatures() & v.needs) != v.needs) continue;
        KernelDispatchIndex = i;
        double q1[6], q2[6], buf[3], x1[2], x2[2], m1[2], m2[2];
        ASSERT_EQ(QRDecompose(a, 16, 8, buf, q1, 16, 8, 2, 3), 0);
        ASSERT_EQ(QRDecomposeTable[i](a, 16, 8, buf, q2, 16, 8, 2, 3), 0);
        ASSERT_EQ(QRSolve(q1, 16, 8, buf, b, 8, x1, 8, 2, 3), 0);
        ASSERT_EQ(QRSolveTable[i](q1, 16, 8, buf, b, 8, x2, 8, 2, 3), 0);
        ASSERT_EQ(QRSolveMany(q1, 16, 8, buf, b, 24, 8, m1, 16, 8, 2, 3, 1), 0);
        ASSERT_EQ(QRSolveManyTable[i](q1, 16, 8, buf, b, 24, 8, m2, 16, 8, 2, 3, 1), 0);
        for (int k = 0; k < 6; ++k) EXPECT_EQ(q1[k], q2[k]);
        for (int k = 0; k < 2; ++k) {
            EXPECT_EQ(x1[k], x2[k]);
            EXPECT_EQ(m1[k], m2[k]);
        }
        EXPECT_EQ(QRDecompose(a, 16, 8, buf, q1, 16, 8, 3, 2), QRStatusWideMatrix);
    }
    KernelDispatchIndex = saved;
}

// The module start ran before main: the index is the one the processor (or the environment)
// selects, the module record is initialised and its library object is linked in. Thread attach and
// detach repeat the selection and give 1.
TEST(ModuleStartTest, SelectionRanAtLoad) {
    ASSERT_TRUE(CpuFeaturesValid);
    const int expected = KernelIndexOverride(std::getenv("MEROVANE_KERNEL_INDEX"), CpuFeatures,
                                             KernelIndexForFeatures(CpuFeatures));
    EXPECT_EQ(KernelDispatchIndex, expected);
    EXPECT_EQ(MerovaneModule.bInitialized, 1);
    EXPECT_EQ(MerovaneModule.hModule, static_cast<HINSTANCE>(&MerovaneModule));
    int ours = 0;
    for (CDynLinkLibrary* lib = AfxGetModuleState()->m_libraryList; lib != nullptr; lib = lib->m_pNextDLL)
        ours += lib->m_hModule == MerovaneModule.hModule;
    EXPECT_EQ(ours, 1);
    for (DWORD reason : {DWORD(DLL_THREAD_ATTACH), DWORD(DLL_THREAD_DETACH)}) {
        KernelDispatchIndex = expected == 0 ? 1 : 0;
        EXPECT_EQ(DllMain(MerovaneModule.hModule, reason, nullptr), 1);
        EXPECT_EQ(KernelDispatchIndex, expected);
    }
}

TEST(ModuleStartTest, TermRemovesOnlyItsOwnLibraries) {
    static int instance = 0;
    AFX_EXTENSION_MODULE other;
    AfxExtensionModulePreamble(other);
    ASSERT_EQ(AfxInitExtensionModule(other, &instance), 1);
    EXPECT_EQ(other.hModule, static_cast<HINSTANCE>(&instance));
    CDynLinkLibrary* lib = new CDynLinkLibrary(other, 0);
    EXPECT_EQ(AfxGetModuleState()->m_libraryList, lib);
    AfxTermExtensionModule(other, 0);
    EXPECT_EQ(other.bInitialized, 0);
    int ours = 0, theirs = 0;
    for (CDynLinkLibrary* l = AfxGetModuleState()->m_libraryList; l != nullptr; l = l->m_pNextDLL) {
        ours += l->m_hModule == MerovaneModule.hModule;
        theirs += l->m_hModule == other.hModule;
    }
    EXPECT_EQ(ours, 1);
    EXPECT_EQ(theirs, 0);
}

}  // namespace
