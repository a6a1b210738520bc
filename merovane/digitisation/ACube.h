// ACube<T>: an owning three-dimensional table (antenna row x IF band x hand) with aligned rows.
#pragma once

#include <cstdint>
#include <new>

#include <merovane/platform/AlignedAlloc.h>
#include <merovane/platform/Export.h>

// rows[a][f][p] for a < nAnt, f < nIF, p < nPol. The root is an array of nAnt pointers, each to an
// array of nIF row pointers; each row of nPol elements starts on a 32-byte boundary. Indices are
// not checked: callers keep them below the extents. Starts empty (null root, extents 0).
//
// Not copyable: it owns its rows. The destructor releases them, so an owner need not call Free,
// though doing so is harmless.
template <class T>
class ACube {
  public:
    ACube() = default;
    ACube(const ACube&) = delete;
    ACube& operator=(const ACube&) = delete;
    ~ACube() { Free(); }

    // Releases what the cube held, then allocates nAnt x nIF x nPol elements, not cleared. A
    // negative extent counts as 0. Throws std::bad_alloc when memory runs out (the cube is then empty).
    void Create(int nAnt, int nIF, int nPol) {
        Free();
        if (nAnt < 0) nAnt = 0;
        if (nIF < 0) nIF = 0;
        if (nPol < 0) nPol = 0;
        T*** root = new T**[nAnt]();
        for (int a = 0; a < nAnt; ++a) {
            root[a] = new (std::nothrow) T*[nIF]();
            if (root[a] == nullptr) {
                release(root, a, nIF);
                throw std::bad_alloc();
            }
            for (int f = 0; f < nIF; ++f) {
                void* row = AlignedMalloc(sizeof(T) * static_cast<std::size_t>(nPol), kMatrixAlignment);
                if (row == nullptr) {
                    release(root, a + 1, nIF);
                    throw std::bad_alloc();
                }
                root[a][f] = static_cast<T*>(row);
            }
        }
        rows = root;
        this->nAnt = nAnt;
        this->nIF = nIF;
        this->nPol = nPol;
    }

    // Releases everything and clears the root and the extents; safe on an empty cube.
    void Free() {
        if (rows != nullptr) release(rows, nAnt, nIF);
        rows = nullptr;
        nAnt = nIF = nPol = 0;
    }

    // Sets every element to `value`.
    void Fill(const T& value) {
        for (int a = 0; a < nAnt; ++a)
            for (int f = 0; f < nIF; ++f)
                for (int p = 0; p < nPol; ++p) rows[a][f][p] = value;
    }

    // cube[a][f][p].
    T** operator[](int a) { return rows[a]; }
    const T* const* operator[](int a) const { return rows[a]; }

    T*** rows = nullptr;
    std::int32_t nAnt = 0;
    std::int32_t nIF = 0;
    std::int32_t nPol = 0;

  private:
    // Releases the first `built` antenna entries of `root` (their non-null rows) and the root.
    static void release(T*** root, int built, int nIF) {
        for (int a = 0; a < built; ++a) {
            if (root[a] == nullptr) continue;
            for (int f = 0; f < nIF; ++f) AlignedFree(root[a][f]);
            delete[] root[a];
        }
        delete[] root;
    }
};

extern template class MEROVANE_API ACube<double>;
extern template class MEROVANE_API ACube<int>;
