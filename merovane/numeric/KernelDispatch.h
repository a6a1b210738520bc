// KernelDispatch: the processor survey (CpuFeatures), the kernel dispatch index and its selection rule.
#pragma once

#include <cstdint>

// Bits of the feature word. All from CPUID leaf 1 unless said otherwise.
enum ACpuFeature : std::uint64_t {
    CpuFeatureMMX = 1u << 0,         // EDX bit 23
    CpuFeatureSSE = 1u << 1,         // EDX bit 25
    CpuFeatureSSE2 = 1u << 2,        // EDX bit 26
    CpuFeatureSSE3 = 1u << 3,        // ECX bit 0
    CpuFeatureSSSE3 = 1u << 4,       // ECX bit 9
    CpuFeatureMOVBE = 1u << 5,       // ECX bit 22
    CpuFeatureSSE41 = 1u << 6,       // ECX bit 19
    CpuFeatureSSE42 = 1u << 7,       // ECX bit 20
    CpuFeatureAVX = 1u << 8,         // ECX bit 28
    CpuFeatureAVXState = 1u << 9,    // ECX bits 27 and 28, and XGETBV(0) bits 1 and 2: the OS saves AVX state
    CpuFeatureAES = 1u << 10,        // ECX bit 25
    CpuFeaturePCLMULQDQ = 1u << 11,  // ECX bit 1
    CpuFeatureExtra = 1u << 12,      // family field (EAX bits 8..11) 0xB: EDX bit 1 of leaf 0x20000001
};

// The feature word, read from the processor on the first call of ReadCpuFeatures and kept from then
// on; CpuFeaturesValid says it has been read.
extern std::uint64_t CpuFeatures;
extern bool CpuFeaturesValid;

// Index 0..5 into the kernel dispatch tables; 0 until DetectKernelCpu has run.
extern std::int32_t KernelDispatchIndex;

// The feature word from raw register values: leaf 1's EAX, ECX and EDX, XCR0 (XGETBV with ECX 0,
// only looked at when ECX bits 27 and 28 are set) and EDX of leaf 0x20000001 (only looked at when
// the family field of EAX is 0xB).
std::uint64_t CpuFeaturesFromRegisters(std::uint32_t eax1, std::uint32_t ecx1, std::uint32_t edx1,
                                       std::uint64_t xcr0, std::uint32_t edxExtra);

// Reads the processor once (CPUID, and XGETBV when the OS may save AVX state) and keeps the word in
// CpuFeatures; later calls give the kept word. Gives 0 off the x86 family.
std::uint64_t ReadCpuFeatures();

// The selection rule, first match wins: AVX with its state saved 5; SSE4.1 4; MOVBE and SSSE3 3;
// SSSE3 2; SSE3 1; otherwise 0. Other bits take no part.
int KernelIndexForFeatures(std::uint64_t features);

// The forced index named by `text` (the value of MEROVANE_KERNEL_INDEX), or `selected` when the text
// is null, is not exactly one digit 0..5, or names a variant the processor of `features` cannot run
// (4 needs SSE4.1, 5 needs AVX with its state saved).
int KernelIndexOverride(const char* text, std::uint64_t features, int selected);

// Sets KernelDispatchIndex from the processor, then from MEROVANE_KERNEL_INDEX when that forces a
// usable index. Runs at module start before any kernel can be called; repeating it gives the same
// index.
void DetectKernelCpu();
