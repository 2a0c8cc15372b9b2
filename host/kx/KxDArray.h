#pragma once
#include <kx/KxMemory.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>

// Growable array of plain values. Grows to the larger of the needed size and 1.5 times the current
// size. Its block can be released to a new owner (an Open Inventor field) without copying.
template <class T> class KxDArray
{
    static_assert(std::is_trivially_copyable<T>::value, "KxDArray holds plain values only");

public:
    KxDArray() = default;
    explicit KxDArray(std::size_t n) { resize(n); }
    KxDArray(std::size_t n, const T& value) { resize(n, value); }
    KxDArray(const KxDArray& o) { *this = o; }
    KxDArray(KxDArray&& o) noexcept { swap(o); }
    ~KxDArray() { kxfree(m_data); }

    KxDArray& operator=(const KxDArray& o)
    {
        if (this != &o) {
            clear();
            reserveExact(o.m_size);
            copyIn(o.m_data, o.m_size);
            m_size = o.m_size;
        }
        return *this;
    }
    KxDArray& operator=(KxDArray&& o) noexcept
    {
        KxDArray tmp(std::move(o));
        swap(tmp);
        return *this;
    }

    void swap(KxDArray& o) noexcept
    {
        std::swap(m_data, o.m_data);
        std::swap(m_size, o.m_size);
        std::swap(m_capacity, o.m_capacity);
    }

    std::size_t size() const { return m_size; }
    std::size_t capacity() const { return m_capacity; }
    bool empty() const { return m_size == 0; }
    T* data() { return m_data; }
    const T* data() const { return m_data; }
    T& operator[](std::size_t i) { return m_data[i]; }
    const T& operator[](std::size_t i) const { return m_data[i]; }
    T* begin() { return m_data; }
    T* end() { return m_data + m_size; }
    const T* begin() const { return m_data; }
    const T* end() const { return m_data + m_size; }
    T& back() { return m_data[m_size - 1]; }
    const T& back() const { return m_data[m_size - 1]; }

    void push_back(const T& v)
    {
        if (m_size == m_capacity) grow(m_size + 1);
        m_data[m_size++] = v;
    }
    void append(const T& v) { push_back(v); }

    // Appends n uninitialised elements and returns a pointer to the first.
    T* extend(std::size_t n)
    {
        if (m_size + n > m_capacity) grow(m_size + n);
        T* p = m_data + m_size;
        m_size += n;
        return p;
    }

    void resize(std::size_t n)
    {
        if (n > m_capacity) grow(n);
        m_size = n;
    }
    void resize(std::size_t n, const T& value)
    {
        std::size_t old = m_size;
        resize(n);
        std::fill(m_data + std::min(old, n), m_data + n, value);
    }
    void fill(const T& value) { std::fill(begin(), end(), value); }
    void reserve(std::size_t n)
    {
        if (n > m_capacity) reserveExact(n);
    }
    void clear() { m_size = 0; }

    // Frees unused capacity so that the block is exactly size() elements long.
    void shrinkToFit()
    {
        if (m_capacity != m_size) reserveExact(m_size);
    }

    // Hands the block to the caller, who must free it with kxfree (or delete[] of T); the array is
    // empty afterwards.
    T* release()
    {
        T* p = m_data;
        m_data = nullptr;
        m_size = m_capacity = 0;
        return p;
    }

    // Removes the elements for which pred is true, keeping the order of the others.
    template <class Pred> std::size_t removeIf(Pred pred)
    {
        T* last = std::remove_if(begin(), end(), pred);
        std::size_t removed = end() - last;
        m_size -= removed;
        return removed;
    }

private:
    // Out of line, so that push_back stays small enough to inline in loops that rarely grow.
    [[gnu::noinline, gnu::cold]] void grow(std::size_t needed)
    {
        reserveExact(std::max(needed, m_size + m_size / 2));
    }
    void reserveExact(std::size_t n)
    {
        m_data = static_cast<T*>(kxrealloc(m_data, m_size * sizeof(T), n * sizeof(T)));
        m_capacity = n;
    }
    void copyIn(const T* src, std::size_t n)
    {
        if (n) std::memcpy(m_data, src, n * sizeof(T));
    }

    T* m_data = nullptr;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
};
