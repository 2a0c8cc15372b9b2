#pragma once
#include <QString>

#include <cstdint>
#include <memory>
#include <vector>

class VxInputFile;
struct inflate_state;

// The bytes of a file that may be gzip-compressed as a whole, header and all (.nii.gz), read front
// to back: inflated when the file starts with the gzip signature (member after member; whatever
// follows the last member is ignored), passed through as they are when it does not. Read failures
// of the file itself are its VxReadFailure.
class VxGzipInput
{
public:
    // Reads file from where it stands.
    explicit VxGzipInput(VxInputFile& file);
    ~VxGzipInput();
    VxGzipInput(const VxGzipInput&) = delete;
    VxGzipInput& operator=(const VxGzipInput&) = delete;

    VxInputFile& file() const { return m_file; }
    // Whether the file is gzip-compressed: its first two bytes say, read now if no read has.
    bool compressed();
    // Bytes delivered so far.
    uint64_t tell() const { return m_delivered; }

    // Up to n bytes; fewer at the end of the data, none once the data is damaged.
    uint64_t read(void* to, uint64_t n);
    // Why the data cannot be read on (corrupt compressed data, no memory to inflate it), or an
    // empty string: the data is intact, though it may have ended early.
    QString damage() const;

    // Fails unless the file can hold the values a header places at offset: bytes of them, described
    // by what ("5x4x3 int16"). A compressed file must be large enough to inflate to that much, so
    // that a header which lies about its size is refused before anything is allocated.
    void checkRoom(uint64_t offset, uint64_t bytes, const QString& what);
    // The next n bytes, which hold `what`; fails with the damage or with where the data ended.
    void readExactly(void* to, uint64_t n, const QString& what);
    // Reads on to offset; the bytes up to there hold `what`. Fails alike.
    void skipTo(uint64_t offset, const QString& what);
    // After the last read: a compressed member that is not finished must still end with an intact
    // checksum. Fails when it does not.
    void finish();

private:
    enum class Mode
    {
        Look, // at the start, or after a member: a gzip signature or the end of the data follows
        Copy, // not compressed: straight from the file
        Gzip  // inside a member
    };
    enum class State
    {
        Fine,
        EndedEarly, // the file ended inside a member
        Corrupt,
        NoMemory,
        Broken // the inflater asked for what a gzip member never needs (a dictionary); no more data
    };

    void lookAtStart();
    void lookAfterMember();
    void refill();
    bool fetch();
    bool inflateInto(unsigned char* to, unsigned n, unsigned& produced);
    uint64_t readPart(unsigned char* to, uint64_t n);
    QString shortRead(uint64_t got, uint64_t wanted, const QString& what) const;

    VxInputFile& m_file;
    Mode m_mode = Mode::Look;
    State m_state = State::Fine;
    QString m_corruption;  // what is wrong with corrupt data
    bool m_looked = false; // the first two bytes are known
    bool m_wasGzip = false;
    bool m_inputEnded = false;
    std::unique_ptr<inflate_state> m_z; // set up when the file is compressed
    std::vector<unsigned char> m_in, m_out;
    std::size_t m_next = 0, m_have = 0; // unread inflated bytes in m_out
    uint64_t m_delivered = 0;
};
