#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

// Fixed-size set of bits, e.g. a 3-D mask in x-fastest order.
class KxBitfield
{
public:
    enum LabelPolicy
    {
        OVERWRITE_UNSET = 0, // unset bits write label 0
        KEEP_UNSET = 1,      // unset bits leave the label as it was
        // Set bits write the label over whatever was there, unset bits leave it: a region grown in
        // the mask takes over its neighbours' voxels, the rest of the label field stays.
        INSERT = 3
    };

    KxBitfield() = default;
    explicit KxBitfield(std::size_t nBits, bool initial = false) { resize(nBits, initial); }

    void resize(std::size_t nBits, bool initial = false);
    std::size_t nBits() const { return m_nBits; }

    void set(std::size_t i) { m_words[i >> 6] |= uint64_t(1) << (i & 63); }
    void unset(std::size_t i) { m_words[i >> 6] &= ~(uint64_t(1) << (i & 63)); }
    void set(std::size_t i, bool on) { on ? set(i) : unset(i); }
    bool operator[](std::size_t i) const { return (m_words[i >> 6] >> (i & 63)) & 1; }
    void setAll(bool on);

    std::size_t nSetBits() const;
    std::size_t nUnsetBits() const { return m_nBits - nSetBits(); }
    // Index of the first set bit, or -1 when none is set.
    long long firstSetBit() const;

    // Bit i is set where labels[i] == label (n labels).
    void fromLabels(std::size_t n, const unsigned char* labels, unsigned char label);
    // Writes label where bit i is set; unset bits per policy.
    void toLabels(std::size_t n, unsigned char* labels, unsigned char label, LabelPolicy policy) const;

    bool operator==(const KxBitfield& o) const { return m_nBits == o.m_nBits && m_words == o.m_words; }

private:
    void clearTail();
    std::vector<uint64_t> m_words;
    std::size_t m_nBits = 0;
};
