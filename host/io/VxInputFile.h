#pragma once
#include <QString>

#include <cstdint>
#include <string>
#include <vector>

// Raised inside the volume readers; their entry points turn it into "<file>: <why>".
struct VxReadFailure
{
    QString file, why;
};

// A file read front to back: header lines, text tokens, then blocks of values. Buffered, so that a
// header of many short lines costs a few system calls; large blocks go straight to their target.
// Every failure is a VxReadFailure naming the file.
class VxInputFile
{
public:
    // Opens path for reading; kind names what the file should be ("a NRRD file") in messages.
    VxInputFile(const QString& path, const char* kind);
    ~VxInputFile();
    VxInputFile(const VxInputFile&) = delete;
    VxInputFile& operator=(const VxInputFile&) = delete;

    const QString& path() const { return m_path; }
    uint64_t size() const { return m_size; }
    // Offset of the next byte to be read.
    uint64_t tell() const { return m_bufferStart + m_pos; }
    void seek(uint64_t offset);
    bool atEnd() const { return tell() >= m_size; }

    // The next line without its end ("\n" or "\r\n"); false at the end of the file. A line longer
    // than maxLength fails: no header of ours has such lines, a binary file does.
    bool readLine(std::string& line, std::size_t maxLength = 1 << 16);
    // The next run of non-blank characters; false at the end of the file.
    bool readToken(std::string& token, std::size_t maxLength = 4096);
    // Skips the rest of the current line, its end included; false when the file ends first.
    bool skipLine();
    // Up to n bytes; fewer only at the end of the file.
    uint64_t read(void* to, uint64_t n);

    [[noreturn]] void fail(const QString& why) const;

private:
    bool fill();

    QString m_path;
    int m_fd = -1;
    uint64_t m_size = 0;
    std::vector<char> m_buffer;
    uint64_t m_bufferStart = 0; // file offset of m_buffer[0]
    std::size_t m_pos = 0, m_end = 0;
};
