// KernelDispatch: CPUID and XGETBV survey, the selection rule and the environment override.
#include <merovane/numeric/KernelDispatch.h>

#include <cstdlib>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#define MEROVANE_X86 1
#else
#define MEROVANE_X86 0
#endif

std::uint64_t CpuFeatures = 0;
bool CpuFeaturesValid = false;
std::int32_t KernelDispatchIndex = 0;

namespace {

bool bit(std::uint64_t word, int n) {
    return ((word >> n) & 1u) != 0;
}

#if MEROVANE_X86
// XGETBV through its opcode, so this file needs no instruction-set flag; the caller has checked
// that the OS enabled it (leaf 1 ECX bit 27).
std::uint64_t readXcr0() {
    std::uint32_t lo = 0, hi = 0;
    __asm__ volatile(".byte 0x0f, 0x01, 0xd0" : "=a"(lo), "=d"(hi) : "c"(0));
    return (static_cast<std::uint64_t>(hi) << 32) | lo;
}
#endif

}  // namespace

std::uint64_t CpuFeaturesFromRegisters(std::uint32_t eax1, std::uint32_t ecx1, std::uint32_t edx1,
                                       std::uint64_t xcr0, std::uint32_t edxExtra) {
    std::uint64_t f = 0;
    if (bit(edx1, 23)) f |= CpuFeatureMMX;
    if (bit(edx1, 25)) f |= CpuFeatureSSE;
    if (bit(edx1, 26)) f |= CpuFeatureSSE2;
    if (bit(ecx1, 0)) f |= CpuFeatureSSE3;
    if (bit(ecx1, 9)) f |= CpuFeatureSSSE3;
    if (bit(ecx1, 22)) f |= CpuFeatureMOVBE;
    if (bit(ecx1, 19)) f |= CpuFeatureSSE41;
    if (bit(ecx1, 20)) f |= CpuFeatureSSE42;
    if (bit(ecx1, 28)) f |= CpuFeatureAVX;
    if (bit(ecx1, 27) && bit(ecx1, 28) && bit(xcr0, 1) && bit(xcr0, 2)) f |= CpuFeatureAVXState;
    if (bit(ecx1, 25)) f |= CpuFeatureAES;
    if (bit(ecx1, 1)) f |= CpuFeaturePCLMULQDQ;
    if (((eax1 >> 8) & 0xFu) == 0xBu && bit(edxExtra, 1)) f |= CpuFeatureExtra;
    return f;
}

std::uint64_t ReadCpuFeatures() {
    if (CpuFeaturesValid) return CpuFeatures;
    std::uint64_t word = 0;
#if MEROVANE_X86
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0) {
        std::uint64_t xcr0 = 0;
        if (bit(ecx, 27) && bit(ecx, 28)) xcr0 = readXcr0();
        unsigned edxExtra = 0;
        if (((eax >> 8) & 0xFu) == 0xBu) {
            unsigned a = 0, b = 0, c = 0;
            __cpuid(0x20000001u, a, b, c, edxExtra);
        }
        word = CpuFeaturesFromRegisters(eax, ecx, edx, xcr0, edxExtra);
    }
#endif
    CpuFeatures = word;
    CpuFeaturesValid = true;
    return word;
}

int KernelIndexForFeatures(std::uint64_t f) {
    if ((f & CpuFeatureAVX) != 0 && (f & CpuFeatureAVXState) != 0) return 5;
    if ((f & CpuFeatureSSE41) != 0) return 4;
    if ((f & CpuFeatureMOVBE) != 0 && (f & CpuFeatureSSSE3) != 0) return 3;
    if ((f & CpuFeatureSSSE3) != 0) return 2;
    if ((f & CpuFeatureSSE3) != 0) return 1;
    return 0;
}

int KernelIndexOverride(const char* text, std::uint64_t features, int selected) {
    if (text == nullptr || text[0] < '0' || text[0] > '5' || text[1] != '\0') return selected;
    const int forced = text[0] - '0';
    if (forced == 4 && (features & CpuFeatureSSE41) == 0) return selected;
    if (forced == 5 && ((features & CpuFeatureAVX) == 0 || (features & CpuFeatureAVXState) == 0))
        return selected;
    return forced;
}

void DetectKernelCpu() {
    const std::uint64_t features = ReadCpuFeatures();
    KernelDispatchIndex =
        KernelIndexOverride(std::getenv("MEROVANE_KERNEL_INDEX"), features, KernelIndexForFeatures(features));
}
