#pragma once

// The task scheduler synchronises its threads inside a library that the race detector does not see.
// These marks tell the detector about that synchronisation (work handed to the scheduler happens
// before the tasks run, and the tasks before the caller goes on), so that it checks our own accesses
// and nothing else. Outside a race-detector build they are nothing.
//
// The scheduler also copies a loop body on one thread and runs the copy on another; reading the
// copy's few fields is exempt (VXISO_IGNORE_READS_*), everything after is checked.
#if defined(__SANITIZE_THREAD__)
extern "C" void __tsan_acquire(void* addr);
extern "C" void __tsan_release(void* addr);
extern "C" void AnnotateIgnoreReadsBegin(const char* file, int line);
extern "C" void AnnotateIgnoreReadsEnd(const char* file, int line);
#define VXISO_HAPPENS_BEFORE(addr) __tsan_release((void*)(addr))
#define VXISO_HAPPENS_AFTER(addr) __tsan_acquire((void*)(addr))
#define VXISO_IGNORE_READS_BEGIN() AnnotateIgnoreReadsBegin(__FILE__, __LINE__)
#define VXISO_IGNORE_READS_END() AnnotateIgnoreReadsEnd(__FILE__, __LINE__)
#else
#define VXISO_HAPPENS_BEFORE(addr) ((void)0)
#define VXISO_HAPPENS_AFTER(addr) ((void)0)
#define VXISO_IGNORE_READS_BEGIN() ((void)0)
#define VXISO_IGNORE_READS_END() ((void)0)
#endif
