#pragma once
#include <cstddef>

// Memory of the foundation library. Blocks come from the array form of operator new so that an
// Open Inventor field which takes ownership of a block (and frees it with delete[]) frees it
// correctly.
void* kxmalloc(std::size_t bytes);
void* kxrealloc(void* block, std::size_t oldBytes, std::size_t newBytes);
void kxfree(void* block);
