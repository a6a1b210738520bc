// AMatrix: row-major matrix in 32-byte aligned storage, the operand of the least-squares kernels.
#pragma once

#include <cstdint>
#include <cstring>

#include <merovane/platform/AlignedAlloc.h>
#include <merovane/platform/Export.h>

// Element (r, c) is data[r * cols + c]. Allocation failure is reported by a null `data`; a caller
// that needs the matrix tests it. Copies are deep.
template <class T>
class AMatrix {
public:
    AMatrix() = default;
    // rows x cols elements, not cleared.
    AMatrix(std::uint32_t r, std::uint32_t c) { allocate(r, c); }
    AMatrix(const AMatrix& other) { copyFrom(other); }
    AMatrix& operator=(const AMatrix& other) {
        if (this != &other) copyFrom(other);
        return *this;
    }
    virtual ~AMatrix() { AlignedFree(data); }

    // Same rows and cols: keeps everything and returns data. Otherwise the contents are gone and
    // the result is the new storage, null if there is no memory.
    T* Resize(std::uint32_t r, std::uint32_t c) {
        if (r == rows && c == cols) return data;
        AlignedFree(data);
        data = nullptr;
        allocate(r, c);
        return data;
    }

    // All bytes of the elements to 0, if there is storage.
    void Zero() {
        if (data != nullptr) std::memset(data, 0, sizeof(T) * static_cast<std::size_t>(rows) * cols);
    }

    T& operator()(std::uint32_t r, std::uint32_t c) { return data[static_cast<std::size_t>(r) * cols + c]; }
    const T& operator()(std::uint32_t r, std::uint32_t c) const {
        return data[static_cast<std::size_t>(r) * cols + c];
    }

    T* data = nullptr;
    std::uint32_t rows = 0;
    std::uint32_t cols = 0;

private:
    void allocate(std::uint32_t r, std::uint32_t c) {
        rows = r;
        cols = c;
        data = static_cast<T*>(AlignedMalloc(sizeof(T) * static_cast<std::size_t>(r) * c));
    }
    void copyFrom(const AMatrix& other) {
        if (Resize(other.rows, other.cols) != nullptr && other.data != nullptr)
            std::memcpy(data, other.data, sizeof(T) * static_cast<std::size_t>(rows) * cols);
    }
};

extern template class MEROVANE_API AMatrix<double>;
