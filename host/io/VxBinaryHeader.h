#pragma once
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

class VxGzipInput;

// A binary header of fixed layout whose first four bytes give its own size, which also tells the
// byte order it was written in (NIfTI's 348 or 540 bytes). Its fields are read at their offsets and
// come out in the host's byte order.
class VxBinaryHeader
{
public:
    // Reads the header where in stands and leaves in right behind it. sizes are the header sizes
    // the format knows (each at least 4), format names it in messages ("NIfTI"). Fails, naming the
    // file, when the data is damaged, too short, or starts with none of the sizes in either order.
    static VxBinaryHeader read(VxGzipInput& in, std::initializer_list<int32_t> sizes, const char* format);

    std::size_t size() const { return m_bytes.size(); }
    // Written in the other byte order than the host's.
    bool swapped() const { return m_swapped; }
    // The signed integer of width bytes (1, 2, 4 or 8) at offset.
    int64_t integer(std::size_t offset, int width) const;
    // The floating-point number of width bytes (4 or 8) at offset.
    double real(std::size_t offset, int width) const;
    // Whether the n bytes at offset are those of text.
    bool holds(std::size_t offset, const char* text, std::size_t n) const;

private:
    VxBinaryHeader(std::vector<unsigned char> bytes, bool swapped);
    // The width bytes at offset in the host's order, in to.
    void field(std::size_t offset, int width, unsigned char* to) const;

    std::vector<unsigned char> m_bytes;
    bool m_swapped;
};
