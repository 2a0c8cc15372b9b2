#pragma once
#include <cstddef>

// Memory of the foundation library. Blocks come from the array form of operator new so that an
// Open Inventor field which takes ownership of a block (and frees it with delete[]) frees it
// correctly.
void* kxmalloc(std::size_t bytes);
void* kxrealloc(void* block, std::size_t oldBytes, std::size_t newBytes);
void kxfree(void* block);

// For the programs' main: blocks of 128 KiB and more are taken from the system and given back to it
// when freed. glibc otherwise raises that limit to the largest block freed so far, and the buffers
// that each thread of a parallel extraction frees stay in its heap: megabytes at the peak of a run.
void kxReturnLargeBlocksToSystem();
