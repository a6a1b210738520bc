// Fuzz target: loading both AFreeMatrix instantiations from any bytes, and storing what loaded.
#include <complex>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <merovane/foundation/AFreeMatrix.h>
#include <merovane/foundation/AMemFile.h>

template <class T>
void LoadAndStore(const std::uint8_t* data, std::size_t size) {
    AMemFile in(std::vector<unsigned char>(data, data + size));
    AFreeMatrix<T> m;
    if (m.Load(in)) {
        AMemFile out;
        m.Store(out);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    LoadAndStore<int>(data, size);
    LoadAndStore<std::complex<float>>(data, size);
    return 0;
}
