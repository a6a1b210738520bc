// AFreeMatrix: a dense matrix with any number of dimensions, one aligned element block and a file form.
#pragma once

#include <complex>
#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include <merovane/foundation/AArray.h>
#include <merovane/foundation/AFile.h>
#include <merovane/platform/Export.h>

// The dimensions are the elements of the base array: AArray::count is the number of dimensions and
// element k the extent of dimension k. The elements lie row-major, the last dimension running
// fastest, in one block aligned to 32 bytes (null when there are none); offsets are 64-bit.
//
// Variadic lists are plain unsigned ints, one per slot. Extent lists (constructor, GrowBy) are closed
// by a 0, which is not an extent; index lists (operator(), Index) have one index per dimension and no
// closing 0, and are not checked.
//
// File form, little-endian without gaps: int32 number of dimensions, uint32 per extent, uint64
// element count, then count x sizeof(T) bytes of elements (absent for a count of 0). A matrix
// without elements and dimensions stores as 12 bytes.
//
// Exported for int and std::complex<float> (two floats, real part first).
template <class T>
class AFreeMatrix : public AArray<unsigned int> {
public:
    // No dimensions, no elements.
    AFreeMatrix();
    // As the default, then Load(file); a failed load is not reported and leaves what it got.
    explicit AFreeMatrix(AFile& file);
    // Full copy of dimensions and elements, with the source's growth step.
    AFreeMatrix(const AFreeMatrix& other);
    // Extents d0, d1, ... closed by 0; the elements are not cleared. d0 = 0 gives an empty matrix.
    // Without memory for the elements `data` stays null and nElements 0.
    explicit AFreeMatrix(unsigned int d0, ...);
    ~AFreeMatrix();

    // Re-dimensions to the extents d0, ... closed by 0 (the arguments are the new extents, nothing is
    // added). When the new element count equals the old one the block is kept and its contents are
    // read in the new shape; otherwise the old elements are gone and the new ones are not cleared.
    // Returns the element count, 0 for no elements or when the block cannot be allocated.
    std::size_t GrowBy(unsigned int d0, ...);
    // GrowBy(0): no dimensions, no elements.
    void Free();

    // As the copy constructor, over what is held; the block is kept when the counts are equal.
    AFreeMatrix& operator=(const AFreeMatrix& other);
    // Every element to `value`.
    AFreeMatrix& operator=(const T& value);
    AFreeMatrix& Fill(const T& value);
    // Every byte of the elements to 0.
    AFreeMatrix& ZeroFill();

    // The element at indices i0, ... (one per dimension; with no dimensions i0 alone).
    T& operator()(unsigned int i0, ...);
    // Offset of the element at indices i0, ..., as for operator().
    std::size_t Index(unsigned int i0, ...);

    T* lpArray() { return data; }
    std::size_t count() const { return static_cast<std::size_t>(nElements); }
    // Size of the elements in bytes.
    std::size_t SIZEOF() const { return static_cast<std::size_t>(nElements) * sizeof(T); }
    unsigned int GetDims() const { return static_cast<unsigned int>(AArray<unsigned int>::count); }
    // Extent k, not checked against GetDims().
    unsigned int GetDim(unsigned int k) const { return AArray<unsigned int>::data[k]; }

    // The file form above. 1 on success, 0 on failure (no text is set). A failed Load leaves the matrix
    // as far as it got: the dimensions may come from the file while the elements did not, in which
    // case the matrix holds no elements (a stream too short for what it announces fails without
    // allocating for it). An element count other than the product of the extents fails the same
    // way, so that no index within the extents can reach outside the block.
    int Load(AFile& file);
    int Store(AFile& file);

    T* data = nullptr;            // the elements, 32-byte aligned, null when there are none
    std::uint64_t nElements = 0;  // product of the extents; 0 with no dimensions

protected:
    // A block of n elements aligned to 32 bytes, null when there is no memory; released by AFREE.
    T* AMALLOC(std::size_t n);
    void AFREE(T* block);

private:
    // Offset of the indices in `args` (the first given separately), one per dimension.
    std::size_t offsetOf(unsigned int i0, std::va_list args) const;
    // Resets the dimensions to the extents d0, ... closed by 0 and returns their product (0 for d0 = 0).
    std::uint64_t setExtents(unsigned int d0, std::va_list args);
};

extern template class MEROVANE_API AFreeMatrix<int>;
extern template class MEROVANE_API AFreeMatrix<std::complex<float>>;
