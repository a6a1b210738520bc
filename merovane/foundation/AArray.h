// AArray: growing array with an additive step; APtrArray: array of pointers that may own its objects.
#pragma once

#include <cstring>

#include <merovane/platform/Export.h>

// Elements are moved with memcpy, so T must be plain data. Storage grows by `growBy` elements
// each time it is full (additively, never doubling), through the two virtual slots allocate and
// release, so a derived array can place its storage elsewhere. There is no virtual destructor:
// arrays are not deleted through a base pointer.
//
// No access is bounds-checked: the caller keeps indices below `count`.
template <class T>
class AArray {
public:
    AArray() = default;
    // count and capacity n; the elements are not cleared.
    explicit AArray(int n) {
        if (n > 0) {
            data = allocate(n);
            count = capacity = n;
        }
    }
    AArray(const AArray& other) { copyFrom(other); }
    AArray& operator=(const AArray& other) {
        if (this != &other) copyFrom(other);
        return *this;
    }
    ~AArray() { AArray::release(data); }

    // Releases the storage; growBy stays. Returns the array.
    AArray& Free() {
        release(data);
        data = nullptr;
        count = capacity = 0;
        return *this;
    }

    // Discards the contents and allocates exactly n elements, which are not cleared.
    void SetCount(int n) {
        release(data);
        data = nullptr;
        count = capacity = 0;
        if (n > 0) {
            data = allocate(n);
            count = capacity = n;
        }
    }

    // Inserts `value` before `index` (0 <= index <= count) and returns index. A full array grows by
    // growBy elements; with growBy not above 0 a full array cannot grow, nothing is stored and the
    // result is -1.
    int InsertAt(int index, const T& value) {
        if (count >= capacity) {
            if (growBy <= 0) return -1;
            T* grown = allocate(capacity + growBy);
            if (data != nullptr) {
                std::memcpy(static_cast<void*>(grown), static_cast<const void*>(data), sizeof(T) * count);
                release(data);
            }
            capacity += growBy;
            data = grown;
        }
        if (index < count)
            std::memmove(static_cast<void*>(data + index + 1), static_cast<const void*>(data + index),
                         sizeof(T) * (count - index));
        // memcpy rather than assignment: T may be a packed record whose alignment the copy must not assume.
        std::memcpy(static_cast<void*>(data + index), static_cast<const void*>(&value), sizeof(T));
        ++count;
        return index;
    }

    // All bytes of the elements in use to 0.
    void ZeroInit() {
        if (data != nullptr && count > 0) std::memset(static_cast<void*>(data), 0, sizeof(T) * count);
    }

    // Appends `value`; the same as InsertAt(count, value).
    int Add(const T& value) { return InsertAt(count, value); }

    T& operator[](int index) { return data[index]; }
    const T& operator[](int index) const { return data[index]; }

    T* begin() { return data; }
    T* end() { return data + count; }
    const T* begin() const { return data; }
    const T* end() const { return data + count; }

    int count = 0;      // elements in use
    int capacity = 0;   // elements allocated
    int growBy = 256;   // growth step in elements
    T* data = nullptr;  // storage, null when nothing is allocated

protected:
    virtual T* allocate(int n) { return new T[n]; }
    virtual void release(T* p) { delete[] p; }

private:
    void copyFrom(const AArray& other) {
        release(data);
        data = nullptr;
        growBy = other.growBy;
        count = capacity = 0;
        if (other.count > 0) {
            data = allocate(other.count);
            std::memcpy(static_cast<void*>(data), static_cast<const void*>(other.data),
                        sizeof(T) * other.count);
        }
        count = capacity = other.count;
    }
};

// An AArray of pointers. While `owner` is not 0, emptying (Free) or destroying the array deletes its
// non-null elements; SetCount and stores into `data` delete nothing. A copy holds the same pointers
// but never owns them (owner 0), so no object is deleted twice.
template <class P>
class APtrArray : public AArray<P> {
public:
    APtrArray() = default;
    APtrArray(const APtrArray& other) : AArray<P>(other), owner(0) {}
    APtrArray& operator=(const APtrArray& other) {
        if (this != &other) {
            deleteElements();
            AArray<P>::operator=(other);
            owner = 0;
        }
        return *this;
    }
    ~APtrArray() { deleteElements(); }

    APtrArray& Free() {
        deleteElements();
        AArray<P>::Free();
        return *this;
    }

    int owner = 1;

private:
    void deleteElements() {
        if (owner == 0 || this->count < 1) return;
        for (int i = 0; i < this->count; ++i) {
            delete this->data[i];
            this->data[i] = nullptr;
        }
    }
};

extern template class MEROVANE_API AArray<int>;
extern template class MEROVANE_API AArray<unsigned int>;
extern template class MEROVANE_API AArray<float>;
extern template class MEROVANE_API AArray<double>;
