#pragma once
#include <QString>

// Progress reporting of long work: a phase with a text, a value in 0..1, and interruption.
class KxProgressInterface
{
public:
    virtual ~KxProgressInterface() = default;

    virtual void startWorking(const QString& text) { (void)text; }
    virtual void stopWorking() {}
    virtual void setProgressValue(float value) = 0;
    virtual float getProgressValue() const { return 0.f; }
    virtual void setProgressInfo(const QString& text) { (void)text; }
    virtual bool wasInterrupted() { return false; }
    virtual void busy() {}
    virtual void notBusy() {}
};
