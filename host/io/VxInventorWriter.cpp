#include <io/VxInventorWriter.h>

#include <io/VxChunkWriter.h>

#include <Inventor/SoOutput.h>
#include <Inventor/actions/SoWriteAction.h>
#include <Inventor/nodes/SoNode.h>

#include <cerrno>
#include <charconv>
#include <cstdio> // fopencookie

namespace {

// Coin prints floats with at most eight significant digits, which moves a few percent of them by
// one unit in the last place; the shortest round-trip text keeps every coordinate exact.
class ExactOutput : public SoOutput
{
public:
    using SoOutput::write;
    void write(const float f) override
    {
        if (isBinary()) return SoOutput::write(f);
        char text[32];
        *std::to_chars(text, text + sizeof text - 1, f).ptr = '\0';
        SoOutput::write(static_cast<const char*>(text));
    }
};

ssize_t writeToChunks(void* cookie, const char* data, size_t n)
{
    static_cast<VxChunkWriter*>(cookie)->put(data, n);
    return ssize_t(n);
}

} // namespace

// Coin writes through a FILE*; routing it into the chunk writer keeps the real error code of a
// failed write instead of whatever errno holds after Coin's own work.
void VxInventorWriter::write(SoNode* root, VxChunkWriter& w)
{
    cookie_io_functions_t io = {nullptr, writeToChunks, nullptr, nullptr};
    FILE* fp = ::fopencookie(&w, "w", io);
    if (!fp) {
        w.fail(errno);
        return;
    }
    std::setvbuf(fp, nullptr, _IOFBF, size_t(1) << 16);
    {
        ExactOutput out;
        out.setFilePointer(fp);
        SoWriteAction action(&out);
        action.apply(root);
    }
    std::fclose(fp);
}
