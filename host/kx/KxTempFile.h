#pragma once
#include <QByteArray>
#include <QString>

// A temporary sibling of the target that takes the target's place only when complete; anything
// short of commit() removes it again and leaves the target as it was. A signal that ends the
// process while the file is open (SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ, a crash, ...) removes
// it too: the process then ends by that signal as it would have, so its exit status still names it.
// Signals that are ignored or have a handler of their own when the file is opened are left alone.
class KxTempFile
{
public:
    explicit KxTempFile(const QString& target);
    ~KxTempFile() { discard(); }
    KxTempFile(const KxTempFile&) = delete;
    KxTempFile& operator=(const KxTempFile&) = delete;

    int fd() const { return m_fd; }
    // The temporary file's name once open, for other processes that write into it too.
    QString tempPath() const { return QString::fromLocal8Bit(m_tempName); }

    // Each returns false with "cannot write <target>: <reason>" in error.
    bool open(QString* error);
    // Writes all of bytes at the end of the file (for contents made in memory first).
    bool write(const QByteArray& bytes, QString* error);
    // Makes the data durable before the rename, so that a crash cannot leave an empty file under
    // the target's name in place of the old one.
    bool commit(QString* error);
    bool fail(QString* error, int err);

private:
    void discard();
    void forget();

    QString m_target;
    QByteArray m_targetName;
    QByteArray m_tempName;
    int m_fd = -1;
    int m_slot = -1; // where the signal handler finds the temporary name; -1 when it is not there
};
