// AFreeMatrix: the member definitions and the exported instantiations for int and complex<float>.
#include <merovane/foundation/AFreeMatrix.h>

#include <cstring>
#include <limits>

#include <merovane/platform/AlignedAlloc.h>

template <class T>
AFreeMatrix<T>::AFreeMatrix() {}

template <class T>
AFreeMatrix<T>::AFreeMatrix(AFile& file) {
    Load(file);
}

template <class T>
AFreeMatrix<T>::AFreeMatrix(const AFreeMatrix& other) : AArray<unsigned int>() {
    *this = other;
}

template <class T>
AFreeMatrix<T>::AFreeMatrix(unsigned int d0, ...) {
    std::va_list args;
    va_start(args, d0);
    const std::uint64_t product = setExtents(d0, args);
    va_end(args);
    if (product == 0) return;
    data = AMALLOC(static_cast<std::size_t>(product));
    if (data != nullptr) nElements = product;
}

template <class T>
AFreeMatrix<T>::~AFreeMatrix() {
    AFREE(data);
}

template <class T>
std::uint64_t AFreeMatrix<T>::setExtents(unsigned int d0, std::va_list args) {
    AArray<unsigned int>::Free();
    if (d0 == 0) return 0;
    std::uint64_t product = 1;
    for (unsigned int extent = d0; extent != 0; extent = va_arg(args, unsigned int)) {
        Add(extent);
        product *= extent;
    }
    return product;
}

template <class T>
std::size_t AFreeMatrix<T>::GrowBy(unsigned int d0, ...) {
    std::va_list args;
    va_start(args, d0);
    const std::uint64_t product = setExtents(d0, args);
    va_end(args);
    // The same number of elements keeps the block and its contents, now read in the new shape.
    if (product == nElements) return static_cast<std::size_t>(nElements);
    AFREE(data);
    data = nullptr;
    nElements = product;
    if (product == 0) return 0;
    data = AMALLOC(static_cast<std::size_t>(product));
    if (data == nullptr) {
        nElements = 0;
        return 0;
    }
    return static_cast<std::size_t>(nElements);
}

template <class T>
void AFreeMatrix<T>::Free() {
    GrowBy(0);
}

template <class T>
AFreeMatrix<T>& AFreeMatrix<T>::operator=(const AFreeMatrix& other) {
    if (this == &other) return *this;
    AArray<unsigned int>::Free();
    growBy = other.growBy;
    const int dims = other.AArray<unsigned int>::count;
    if (dims > 0) {
        SetCount(dims);
        std::memcpy(AArray<unsigned int>::data, other.AArray<unsigned int>::data,
                    sizeof(unsigned int) * dims);
    }
    if (nElements != other.nElements) {
        AFREE(data);
        data = nullptr;
        nElements = 0;
        if (other.nElements != 0) {
            data = AMALLOC(static_cast<std::size_t>(other.nElements));
            if (data == nullptr) return *this;
        }
    }
    nElements = other.nElements;
    if (nElements != 0) std::memcpy(static_cast<void*>(data), other.data, SIZEOF());
    return *this;
}

template <class T>
AFreeMatrix<T>& AFreeMatrix<T>::operator=(const T& value) {
    return Fill(value);
}

template <class T>
AFreeMatrix<T>& AFreeMatrix<T>::Fill(const T& value) {
    for (std::uint64_t i = 0; i < nElements; ++i) data[i] = value;
    return *this;
}

template <class T>
AFreeMatrix<T>& AFreeMatrix<T>::ZeroFill() {
    if (data != nullptr && nElements != 0) std::memset(static_cast<void*>(data), 0, SIZEOF());
    return *this;
}

template <class T>
std::size_t AFreeMatrix<T>::offsetOf(unsigned int i0, std::va_list args) const {
    std::uint64_t offset = i0;
    const unsigned int dims = GetDims();
    for (unsigned int k = 1; k < dims; ++k) offset = offset * GetDim(k) + va_arg(args, unsigned int);
    return static_cast<std::size_t>(offset);
}

template <class T>
T& AFreeMatrix<T>::operator()(unsigned int i0, ...) {
    std::va_list args;
    va_start(args, i0);
    const std::size_t offset = offsetOf(i0, args);
    va_end(args);
    return data[offset];
}

template <class T>
std::size_t AFreeMatrix<T>::Index(unsigned int i0, ...) {
    std::va_list args;
    va_start(args, i0);
    const std::size_t offset = offsetOf(i0, args);
    va_end(args);
    return offset;
}

namespace {

// Bytes left between the position and the end, or the largest value when the stream cannot tell.
std::int64_t remainingBytes(AFile& file) {
    const std::int64_t length = file.GetLength();
    const std::int64_t pos = file.GetPos();
    if (length < 0 || pos < 0) return std::numeric_limits<std::int64_t>::max();
    return length > pos ? length - pos : 0;
}

}  // namespace

template <class T>
int AFreeMatrix<T>::Load(AFile& file) {
    std::int32_t dims = 0;
    if (!file.Read(&dims, sizeof dims)) {
        AArray<unsigned int>::Free();
        return 0;
    }
    if (dims > 0) {
        // A damaged count must not make us allocate more than the stream could hold.
        if (static_cast<std::int64_t>(dims) * 4 > remainingBytes(file)) {
            AArray<unsigned int>::Free();
            return 0;
        }
        if (dims > capacity) SetCount(dims);
        AArray<unsigned int>::count = dims;
        if (!file.Read(AArray<unsigned int>::data, dims * 4)) return 0;
    } else {
        AArray<unsigned int>::Free();
    }

    std::uint64_t elements = 0;
    if (!file.Read(&elements, sizeof elements)) return 0;

    AFREE(data);
    data = nullptr;
    nElements = 0;
    // A count that disagrees with the extents would let an index reach outside the block.
    std::uint64_t product = AArray<unsigned int>::count > 0 ? 1 : 0;
    for (int k = 0; k < AArray<unsigned int>::count; ++k) {
        const unsigned int extent = AArray<unsigned int>::data[k];
        if (extent != 0 && product > std::numeric_limits<std::uint64_t>::max() / extent) return 0;
        product *= extent;
    }
    if (elements != product) return 0;
    if (elements == 0) return 1;
    const std::uint64_t limit = static_cast<std::uint64_t>(remainingBytes(file)) / sizeof(T);
    if (elements > limit) return 0;
    data = AMALLOC(static_cast<std::size_t>(elements));
    if (data == nullptr) return 0;
    nElements = elements;
    if (!file.ReadHuge(data, static_cast<std::int64_t>(SIZEOF()))) return 0;
    return 1;
}

template <class T>
int AFreeMatrix<T>::Store(AFile& file) {
    const std::int32_t dims = AArray<unsigned int>::count;
    if (!file.Write(&dims, sizeof dims)) return 0;
    if (dims > 0 && !file.Write(AArray<unsigned int>::data, dims * 4)) return 0;
    const std::uint64_t elements = nElements;
    if (!file.Write(&elements, sizeof elements)) return 0;
    if (elements != 0 && !file.WriteHuge(data, static_cast<std::int64_t>(SIZEOF()))) return 0;
    return 1;
}

template <class T>
T* AFreeMatrix<T>::AMALLOC(std::size_t n) {
    if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) return nullptr;
    return static_cast<T*>(AlignedMalloc(n * sizeof(T), kMatrixAlignment));
}

template <class T>
void AFreeMatrix<T>::AFREE(T* block) {
    AlignedFree(block);
}

template class AFreeMatrix<int>;
template class AFreeMatrix<std::complex<float>>;
