#include <kx/KxBitfield.h>

void KxBitfield::resize(std::size_t nBits, bool initial)
{
    m_nBits = nBits;
    m_words.assign((nBits + 63) / 64, initial ? ~uint64_t(0) : 0);
    clearTail();
}

void KxBitfield::setAll(bool on)
{
    for (uint64_t& w : m_words) w = on ? ~uint64_t(0) : 0;
    clearTail();
}

// Bits past nBits stay zero so that counting and comparing need no masks.
void KxBitfield::clearTail()
{
    if (m_nBits & 63) m_words.back() &= (uint64_t(1) << (m_nBits & 63)) - 1;
}

std::size_t KxBitfield::nSetBits() const
{
    std::size_t n = 0;
    for (uint64_t w : m_words) n += std::size_t(__builtin_popcountll(w));
    return n;
}

long long KxBitfield::firstSetBit() const
{
    for (std::size_t i = 0; i < m_words.size(); ++i)
        if (m_words[i]) return (long long)(i * 64 + std::size_t(__builtin_ctzll(m_words[i])));
    return -1;
}

void KxBitfield::fromLabels(std::size_t n, const unsigned char* labels, unsigned char label)
{
    resize(n, false);
    for (std::size_t i = 0; i < n; ++i)
        if (labels[i] == label) set(i);
}

void KxBitfield::toLabels(std::size_t n, unsigned char* labels, unsigned char label, LabelPolicy policy) const
{
    for (std::size_t i = 0; i < n && i < m_nBits; ++i) {
        if ((*this)[i])
            labels[i] = label;
        else if (policy == OVERWRITE_UNSET)
            labels[i] = 0;
    }
}
