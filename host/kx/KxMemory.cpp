#include <kx/KxException.h>
#include <kx/KxMemory.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include <malloc.h>

#include <sys/mman.h>

namespace {

// Large arrays (meshes, volumes) are written once from start to end; with 4 KiB pages the page faults
// cost as much as the writing. Ask for huge pages on the 2 MiB-aligned inside of such blocks.
void preferHugePages(void* block, std::size_t bytes)
{
    constexpr std::uintptr_t huge = std::uintptr_t(2) << 20;
    if (bytes < 2 * huge) return;
    const std::uintptr_t begin = (reinterpret_cast<std::uintptr_t>(block) + huge - 1) & ~(huge - 1);
    const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(block) + bytes) & ~(huge - 1);
    if (end > begin) ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

} // namespace

KxOutOfMemory::KxOutOfMemory(std::size_t bytes) : m_bytes(bytes)
{
    const char* units[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    double size = double(bytes);
    int unit = 0;
    while (size >= 1024 && unit < 6) size /= 1024, ++unit;
    if (unit == 0)
        std::snprintf(m_text, sizeof m_text, "out of memory: could not get %zu bytes", bytes);
    else
        std::snprintf(m_text, sizeof m_text, "out of memory: could not get %.1f %s (%zu bytes)", size,
                      units[unit], bytes);
}

KxOutOfMemory::KxOutOfMemory(const char* couldNot) : m_bytes(0)
{
    std::snprintf(m_text, sizeof m_text, "out of memory: %s", couldNot);
}

void* kxmalloc(std::size_t bytes)
{
    if (!bytes) return nullptr;
    void* block = ::operator new[](bytes, std::nothrow);
    if (!block) throw KxOutOfMemory(bytes);
    preferHugePages(block, bytes);
    return block;
}

void* kxrealloc(void* block, std::size_t oldBytes, std::size_t newBytes)
{
    void* grown = kxmalloc(newBytes);
    if (block) {
        std::memcpy(grown, block, oldBytes < newBytes ? oldBytes : newBytes);
        kxfree(block);
    }
    return grown;
}

void kxfree(void* block)
{
    ::operator delete[](block);
}

void kxReturnLargeBlocksToSystem()
{
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
}
