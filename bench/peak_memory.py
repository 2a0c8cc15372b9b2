#!/usr/bin/python3
"""Peak memory of a command, sampled every millisecond from /proc: the anonymous pages (what the
command allocated: volume, surface, buffers), the file pages (the program and its shared libraries,
shared with every process that maps them) and the kernel's high-water mark of both together.

usage: bench/peak_memory.py COMMAND [ARGS...]"""
import subprocess
import sys
import time

if len(sys.argv) < 2:
    sys.exit(__doc__)
child = subprocess.Popen(sys.argv[1:], stdout=subprocess.DEVNULL)
peak = {"RssAnon": 0, "RssFile": 0, "VmHWM": 0}
while child.poll() is None:
    try:
        with open(f"/proc/{child.pid}/status") as status:
            for line in status:
                key = line.split(":")[0]
                if key in peak:
                    peak[key] = max(peak[key], int(line.split()[1]))
    except (OSError, ValueError, IndexError):
        pass  # the child ended between poll and read
    time.sleep(0.001)
print("peak anonymous %.1f MiB, file %.1f MiB, high-water mark %.1f MiB (exit %d)"
      % (peak["RssAnon"] / 1024, peak["RssFile"] / 1024, peak["VmHWM"] / 1024, child.returncode))
sys.exit(child.returncode)
