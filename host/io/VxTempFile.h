#pragma once
#include <QByteArray>
#include <QString>

// A temporary sibling of the target that takes the target's place only when complete; anything
// short of commit() removes it again and leaves the target as it was.
class VxTempFile
{
public:
    explicit VxTempFile(const QString& target);
    ~VxTempFile() { discard(); }
    VxTempFile(const VxTempFile&) = delete;
    VxTempFile& operator=(const VxTempFile&) = delete;

    int fd() const { return m_fd; }

    // Each returns false with "cannot write <target>: <reason>" in error.
    bool open(QString* error);
    // Makes the data durable before the rename, so that a crash cannot leave an empty file under
    // the target's name in place of the old one.
    bool commit(QString* error);
    bool fail(QString* error, int err);

private:
    void discard();

    QString m_target;
    QByteArray m_targetName;
    QByteArray m_tempName;
    int m_fd = -1;
};
