#pragma once
#include <kx/KxTypedObject.h>

#include <QString>

#include <atomic>

// Base of every module and data object: a typed, reference-counted object with a label.
class VxObject : public KxTypedObject
{
    KX_HEADER(VxObject)

public:
    void ref() const { m_refCount.fetch_add(1, std::memory_order_relaxed); }
    void unref() const
    {
        if (m_refCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }
    int getRefCount() const { return m_refCount.load(); }

    const QString& getLabel() const { return m_label; }
    void setLabel(const QString& label) { m_label = label; }

protected:
    VxObject() = default;
    ~VxObject() override = default;

private:
    mutable std::atomic<int> m_refCount{0};
    QString m_label;
};
