#pragma once
#include <kx/KxProgressInterface.h>

#include <QString>

#include <atomic>

// Progress on a terminal: a bar on stderr, redrawn in place; nothing when stderr is no terminal.
// Ctrl-C during a phase asks the work to stop (wasInterrupted) instead of killing the host.
class VxTerminalProgress : public KxProgressInterface
{
public:
    VxTerminalProgress();
    ~VxTerminalProgress() override;
    void startWorking(const QString& text) override;
    void stopWorking() override;
    void setProgressValue(float value) override;
    float getProgressValue() const override { return m_value; }
    bool wasInterrupted() override;

private:
    void draw();
    QString m_text;
    float m_value = 0.f;
    int m_lastPercent = -1;
    bool m_tty;
    int m_depth = 0;
};
