#pragma once
#include <kx/KxDArray.h>

#include <cstddef>

// Array with room for N elements inline; larger contents move to a KxDArray.
template <class T, std::size_t N> class KxSmallArray
{
public:
    std::size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    T* data() { return m_size <= N ? m_inline : m_heap.data(); }
    const T* data() const { return m_size <= N ? m_inline : m_heap.data(); }
    T& operator[](std::size_t i) { return data()[i]; }
    const T& operator[](std::size_t i) const { return data()[i]; }
    T* begin() { return data(); }
    T* end() { return data() + m_size; }
    const T* begin() const { return data(); }
    const T* end() const { return data() + m_size; }

    void push_back(const T& v)
    {
        if (m_size < N) {
            m_inline[m_size++] = v;
            return;
        }
        if (m_size == N) {
            m_heap.clear();
            for (std::size_t i = 0; i < N; ++i) m_heap.push_back(m_inline[i]);
        }
        m_heap.push_back(v);
        ++m_size;
    }
    void clear()
    {
        m_size = 0;
        m_heap.clear();
    }
    void resize(std::size_t n)
    {
        if (n <= N) {
            if (m_size > N)
                for (std::size_t i = 0; i < n; ++i) m_inline[i] = m_heap[i];
            m_size = n;
            m_heap.clear();
            return;
        }
        if (m_size <= N) {
            m_heap.clear();
            for (std::size_t i = 0; i < m_size; ++i) m_heap.push_back(m_inline[i]);
        }
        m_heap.resize(n);
        m_size = n;
    }

private:
    T m_inline[N] = {};
    KxDArray<T> m_heap;
    std::size_t m_size = 0;
};
