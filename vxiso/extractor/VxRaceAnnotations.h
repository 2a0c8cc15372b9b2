#pragma once

// The task scheduler synchronises its threads inside a library that the race detector does not see.
// These marks tell the detector about that synchronisation (work handed to the scheduler happens
// before the tasks run, and the tasks before the caller goes on), so that it checks our own accesses
// and nothing else. Outside a race-detector build they are nothing.
#if defined(__SANITIZE_THREAD__)
extern "C" void __tsan_acquire(void* addr);
extern "C" void __tsan_release(void* addr);
#define VXISO_HAPPENS_BEFORE(addr) __tsan_release((void*)(addr))
#define VXISO_HAPPENS_AFTER(addr) __tsan_acquire((void*)(addr))
#else
#define VXISO_HAPPENS_BEFORE(addr) ((void)0)
#define VXISO_HAPPENS_AFTER(addr) ((void)0)
#endif
