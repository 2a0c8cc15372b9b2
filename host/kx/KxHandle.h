#pragma once
#include <utility>

// Counted reference to an object with ref()/unref() (host objects and Open Inventor nodes).
template <class T> class KxHandle
{
public:
    KxHandle() = default;
    KxHandle(T* p) : m_ptr(p) { acquire(); }
    KxHandle(const KxHandle& o) : m_ptr(o.m_ptr) { acquire(); }
    KxHandle(KxHandle&& o) noexcept : m_ptr(o.m_ptr) { o.m_ptr = nullptr; }
    ~KxHandle() { release(); }

    KxHandle& operator=(T* p)
    {
        if (p != m_ptr) {
            T* old = m_ptr;
            m_ptr = p;
            acquire();
            if (old) old->unref();
        }
        return *this;
    }
    KxHandle& operator=(const KxHandle& o) { return *this = o.m_ptr; }
    KxHandle& operator=(KxHandle&& o) noexcept
    {
        std::swap(m_ptr, o.m_ptr);
        return *this;
    }

    T* get() const { return m_ptr; }
    T* operator->() const { return m_ptr; }
    T& operator*() const { return *m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }
    operator T*() const { return m_ptr; }

private:
    void acquire()
    {
        if (m_ptr) m_ptr->ref();
    }
    void release()
    {
        if (m_ptr) m_ptr->unref();
        m_ptr = nullptr;
    }
    T* m_ptr = nullptr;
};
