#include <kx/KxMemory.h>

#include <cstring>
#include <new>

void* kxmalloc(std::size_t bytes)
{
    return bytes ? ::operator new[](bytes) : nullptr;
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
