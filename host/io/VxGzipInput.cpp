#include <io/VxGzipInput.h>

#include <io/VxInputFile.h>

#include <algorithm>
#include <cstring>
#include <new>

// ISA-L's inflater: three to four times zlib's speed on the scans users read.
#include <isa-l/igzip_lib.h>

namespace {

constexpr std::size_t kInputBlock = 1 << 18;
// Small reads are served from blocks inflated ahead. A whole small file is then inflated at its
// first read, and damage anywhere in it is reported as such rather than as the nonsense its header
// decodes to. Reads of a block or more go straight to their target.
constexpr std::size_t kOutputBlock = 2 * kInputBlock;
// One part of a larger read at a time; a damaged part loses what it had inflated.
constexpr uint64_t kPart = uint64_t(1) << 30;

bool startsMember(const unsigned char* p, unsigned n)
{
    return n > 1 && p[0] == 0x1f && p[1] == 0x8b;
}

// The inflater's errors in the words gzip tools use.
const char* corruption(int status)
{
    switch (status) {
    case ISAL_INVALID_BLOCK:
        return "invalid block";
    case ISAL_INVALID_SYMBOL:
        return "invalid code";
    case ISAL_INVALID_LOOKBACK:
        return "invalid distance too far back";
    case ISAL_INVALID_WRAPPER:
        return "incorrect header";
    case ISAL_UNSUPPORTED_METHOD:
        return "unknown compression method";
    case ISAL_INCORRECT_CHECKSUM:
        return "incorrect data check";
    default:
        return "compressed data error";
    }
}

// Ready for a gzip member (header and trailer checked), keeping the input that is left.
void startMember(inflate_state& z)
{
    uint8_t* next = z.next_in;
    const uint32_t avail = z.avail_in;
    isal_inflate_reset(&z);
    z.crc_flag = ISAL_GZIP;
    z.next_in = next;
    z.avail_in = avail;
}

} // namespace

VxGzipInput::VxGzipInput(VxInputFile& file) : m_file(file) {}

VxGzipInput::~VxGzipInput() = default;

bool VxGzipInput::compressed()
{
    if (!m_looked) lookAtStart();
    return m_wasGzip;
}

// The first two bytes tell a gzip file from any other; the file stays where it was.
void VxGzipInput::lookAtStart()
{
    m_looked = true;
    unsigned char magic[2];
    const uint64_t start = m_file.tell();
    const uint64_t got = m_file.read(magic, 2);
    m_file.seek(start);
    if (!startsMember(magic, unsigned(got))) {
        m_mode = Mode::Copy;
        return;
    }
    m_wasGzip = true;
    m_mode = Mode::Gzip;
    try {
        m_in.resize(kInputBlock);
        m_out.resize(kOutputBlock);
        m_z = std::make_unique<inflate_state>();
    } catch (const std::bad_alloc&) {
        m_state = State::NoMemory;
        return;
    }
    // gzip members only: a zlib stream inside is not ours to guess at.
    isal_inflate_init(m_z.get());
    m_z->next_in = m_in.data();
    m_z->avail_in = 0;
    startMember(*m_z);
}

// After a member: another one, or the end (anything but a gzip signature ends the data).
void VxGzipInput::lookAfterMember()
{
    if (m_z->avail_in < 2) {
        refill();
        if (m_z->avail_in == 0) return;
    }
    if (startsMember(m_z->next_in, m_z->avail_in)) {
        startMember(*m_z);
        m_mode = Mode::Gzip;
        return;
    }
    m_z->avail_in = 0;
    m_inputEnded = true;
}

// Tops up the input after what is left of it.
void VxGzipInput::refill()
{
    if (m_inputEnded) return;
    if (m_z->avail_in) std::memmove(m_in.data(), m_z->next_in, m_z->avail_in);
    const std::size_t want = m_in.size() - m_z->avail_in;
    const uint64_t got = m_file.read(m_in.data() + m_z->avail_in, want);
    m_inputEnded = got < want;
    m_z->next_in = m_in.data();
    m_z->avail_in += unsigned(got);
}

// Inflates into to until it is full or the member ends; false when the data is damaged. The
// inflater may hold the member's last bytes after it has taken all the input, so the input has
// ended early only when a call with none left makes no output.
bool VxGzipInput::inflateInto(unsigned char* to, unsigned n, unsigned& produced)
{
    m_z->next_out = to;
    m_z->avail_out = n;
    for (;;) {
        if (m_z->avail_in == 0) refill();
        const uint32_t roomBefore = m_z->avail_out, inputBefore = m_z->avail_in;
        const int status = isal_inflate(m_z.get());
        if (status < 0) {
            m_state = State::Corrupt;
            m_corruption = corruption(status);
            return false;
        }
        // A call that takes no input and makes no output would be made again forever.
        const bool stuck = inputBefore && m_z->avail_in == inputBefore && m_z->avail_out == roomBefore;
        if (status != ISAL_DECOMP_OK || stuck) {
            m_state = State::Broken;
            return false;
        }
        if (m_z->block_state == ISAL_BLOCK_FINISH) {
            m_mode = Mode::Look;
            break;
        }
        if (m_z->avail_out == 0) break;
        if (m_z->avail_in == 0 && m_inputEnded && m_z->avail_out == roomBefore) {
            m_state = State::EndedEarly;
            break;
        }
    }
    produced = n - m_z->avail_out;
    return true;
}

// The next block ahead, unless the data has ended.
bool VxGzipInput::fetch()
{
    do {
        if (m_mode == Mode::Look) {
            lookAfterMember();
            if (m_mode == Mode::Look) return true;
        } else {
            unsigned produced = 0;
            if (!inflateInto(m_out.data(), unsigned(m_out.size()), produced)) return false;
            m_next = 0;
            m_have = produced;
        }
    } while (m_have == 0 && (!m_inputEnded || m_z->avail_in));
    return true;
}

// Up to n (at most one part) inflated bytes; none when the data turns out damaged on the way.
uint64_t VxGzipInput::readPart(unsigned char* to, uint64_t n)
{
    uint64_t got = 0;
    while (n > 0) {
        uint64_t step = 0;
        if (m_have) {
            step = std::min<uint64_t>(m_have, n);
            std::memcpy(to, m_out.data() + m_next, step);
            m_next += step;
            m_have -= step;
        } else if (m_inputEnded && m_z->avail_in == 0 &&
                   (m_mode != Mode::Gzip || m_state == State::EndedEarly)) {
            // Inside a member the inflater is asked once more, with no input: it may still hold
            // bytes, and only it can tell that the member's trailer is missing.
            break;
        } else if (m_mode == Mode::Look || n < m_out.size()) {
            if (!fetch()) return 0;
            continue;
        } else {
            unsigned produced = 0;
            if (!inflateInto(to, unsigned(n), produced)) return 0;
            step = produced;
        }
        to += step;
        n -= step;
        got += step;
    }
    return got;
}

uint64_t VxGzipInput::read(void* to, uint64_t n)
{
    if (!m_looked) lookAtStart();
    uint64_t got = 0;
    if (m_mode == Mode::Copy) {
        got = m_file.read(to, n);
    } else {
        auto* out = static_cast<unsigned char*>(to);
        while (got < n && (m_state == State::Fine || m_state == State::EndedEarly)) {
            const uint64_t part = std::min(n - got, kPart);
            const uint64_t done = readPart(out + got, part);
            got += done;
            if (done < part) break;
        }
    }
    m_delivered += got;
    return got;
}

QString VxGzipInput::damage() const
{
    switch (m_state) {
    case State::Corrupt:
        return QString("gzip data is corrupt (%1)").arg(m_corruption);
    case State::NoMemory:
        return "out of memory while decompressing";
    default:
        return QString();
    }
}

QString VxGzipInput::shortRead(uint64_t got, uint64_t wanted, const QString& what) const
{
    const QString broken = damage();
    if (!broken.isEmpty()) return broken;
    return QString("%1 ends after %2 of the %3 bytes of %4; the file is truncated")
        .arg(m_wasGzip ? "gzip stream" : "file")
        .arg(got)
        .arg(wanted)
        .arg(what);
}

void VxGzipInput::checkRoom(uint64_t offset, uint64_t bytes, const QString& what)
{
    const uint64_t size = m_file.size();
    if (!compressed() && size < offset + bytes)
        m_file.fail(QString("file holds %1 bytes, but %2 values at offset %3 need %4")
                        .arg(size)
                        .arg(what)
                        .arg(offset)
                        .arg(offset + bytes));
    // No deflate stream expands more than about 1032 times.
    if (compressed() && double(size) * 1032.0 + 4096.0 < double(offset + bytes))
        m_file.fail(QString("a gzip file of %1 bytes cannot hold the %2 values (%3 bytes) its header "
                            "describes; the file is truncated or the header is wrong")
                        .arg(size)
                        .arg(what)
                        .arg(bytes));
}

void VxGzipInput::readExactly(void* to, uint64_t n, const QString& what)
{
    const uint64_t got = read(to, n);
    if (got < n) m_file.fail(shortRead(got, n, what));
}

void VxGzipInput::skipTo(uint64_t offset, const QString& what)
{
    // In small steps, served from the blocks inflated ahead.
    std::vector<unsigned char> scratch(1 << 16);
    while (tell() < offset) {
        const uint64_t step = std::min<uint64_t>(offset - tell(), scratch.size());
        if (read(scratch.data(), step) < step) m_file.fail(shortRead(tell(), offset, what));
    }
}

void VxGzipInput::finish()
{
    if (!compressed()) return;
    unsigned char extra;
    read(&extra, 1);
    if (m_state == State::Corrupt) m_file.fail(damage());
    if (m_state == State::EndedEarly)
        m_file.fail("gzip stream ends before its checksum; the file is truncated");
}
