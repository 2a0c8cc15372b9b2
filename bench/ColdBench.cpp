// What a user of the command meets: every run a fresh process, ours and the peer's interleaved, the
// median of several runs and their spread (slowest over fastest). Two races:
//   engine: the first extraction of a process, from the request to the finished surface, on volumes
//           built or read before the clock starts (vxiso_peer_bench --cold-one does one such run);
//   command: the whole `vxiso surface` on the MRI scan against the same job as a VTK Python pipeline
//           (read the gzipped NIfTI, flying edges with normals, binary PLY), wall time and peak memory.
#include "ColdBench.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

struct Sample
{
    double ms = 0;     // what the run measured (engine) or its wall time (command)
    double peakMb = 0; // the process's peak resident memory
    bool ok = false;
};

// Runs argv to its end with stdout read into *out; wall time and peak memory from the kernel.
Sample spawn(const std::vector<std::string>& args, std::string* out)
{
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    int pipeFd[2];
    if (::pipe(pipeFd) != 0) return {};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFd[1], 1);
    posix_spawn_file_actions_addclose(&actions, pipeFd[0]);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const auto t0 = std::chrono::steady_clock::now();
    pid_t pid = 0;
    const int failed = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFd[1]);
    std::string text;
    char buf[4096];
    for (ssize_t n; (n = ::read(pipeFd[0], buf, sizeof buf)) > 0;) text.append(buf, std::size_t(n));
    ::close(pipeFd[0]);
    if (failed) return {};
    int status = 0;
    rusage usage{};
    ::wait4(pid, &status, 0, &usage);
    Sample s;
    s.ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    s.peakMb = double(usage.ru_maxrss) / 1024.0;
    s.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (out) *out = text;
    return s;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

double spread(const std::vector<double>& v)
{
    if (v.empty()) return 0;
    const auto [lo, hi] = std::minmax_element(v.begin(), v.end());
    return *lo > 0 ? *hi / *lo : 0;
}

struct Series
{
    std::vector<double> ms, peakMb;
    int failures = 0;
    void add(const Sample& s)
    {
        if (!s.ok) {
            ++failures;
            return;
        }
        ms.push_back(s.ms);
        peakMb.push_back(s.peakMb);
    }
};

void engineRace(const std::string& self, const ColdOptions& o)
{
    std::printf("\nCold engine: the first extraction of a fresh process; median of %d runs, ours and VTK's "
                "interleaved; spread = slowest / fastest\n",
                o.runs);
    std::printf("%-16s %7s %10s %7s %10s %7s %8s\n", "volume", "threads", "ours ms", "spread", "vtk ms",
                "spread", "o/v");
    for (int v = 0; v < coldVolumeCount(o); ++v)
        for (int threads = 1; threads <= 2; ++threads) {
            Series ours, vtk;
            for (int r = 0; r < o.runs; ++r)
                for (const char* side : {"ours", "vtk"}) {
                    std::string out;
                    std::vector<std::string> args = {self, "--cold-one", side, std::to_string(v),
                                                     std::to_string(threads)};
                    args.insert(args.end(), o.forward.begin(), o.forward.end());
                    Sample s = spawn(args, &out);
                    // The child prints its own measurement: the clock around the extraction alone.
                    s.ok = s.ok && std::sscanf(out.c_str(), "%lf", &s.ms) == 1;
                    (side[0] == 'o' ? ours : vtk).add(s);
                }
            const double mo = median(ours.ms), mv = median(vtk.ms);
            std::printf("%-16s %7d %10.1f %7.2f %10.1f %7.2f %8.2f%s\n", coldVolumeName(o, v).c_str(),
                        threads, mo, spread(ours.ms), mv, spread(vtk.ms), mv > 0 ? mo / mv : 0,
                        ours.failures + vtk.failures ? "  (some runs failed)" : "");
            std::fflush(stdout);
        }
}

void commandRace(const std::string& binDir, const ColdOptions& o)
{
    struct stat st;
    if (::stat(o.ch2better.c_str(), &st) != 0) {
        std::printf("\nCold command: %s not found (install mricron-data); left out\n", o.ch2better.c_str());
        return;
    }
    const std::string dir = "/tmp/vxiso-cold-" + std::to_string(::getpid());
    ::mkdir(dir.c_str(), 0700);
    std::printf("\nCold command: %s -t 100.5 to binary PLY, wall time and peak memory; median of %d runs, "
                "interleaved\n",
                o.ch2better.c_str(), o.runs);
    std::printf("%-8s %10s %7s %9s %10s %7s %9s %8s %8s\n", "threads", "vxiso ms", "spread", "vxiso MB",
                "vtk.py ms", "spread", "vtk MB", "o/v ms", "o/v MB");
    for (int threads = 1; threads <= 2; ++threads) {
        Series ours, vtk;
        for (int r = 0; r < o.runs; ++r) {
            ours.add(spawn({binDir + "/vxiso", "surface", o.ch2better, "-t", "100.5", "-o", dir + "/ours.ply",
                            "--cores", std::to_string(threads)},
                           nullptr));
            vtk.add(spawn({"/usr/bin/python3", o.pipelineScript, o.ch2better, "100.5", dir + "/vtk.ply",
                           std::to_string(threads)},
                          nullptr));
        }
        const double mo = median(ours.ms), mv = median(vtk.ms);
        const double po = median(ours.peakMb), pv = median(vtk.peakMb);
        std::printf("%-8d %10.1f %7.2f %9.1f %10.1f %7.2f %9.1f %8.2f %8.2f%s\n", threads, mo,
                    spread(ours.ms), po, mv, spread(vtk.ms), pv, mv > 0 ? mo / mv : 0, pv > 0 ? po / pv : 0,
                    ours.failures + vtk.failures ? "  (some runs failed)" : "");
        std::fflush(stdout);
    }
    std::remove((dir + "/ours.ply").c_str());
    std::remove((dir + "/vtk.ply").c_str());
    ::rmdir(dir.c_str());
}

} // namespace

void runColdRaces(const std::string& self, const ColdOptions& o)
{
    const std::string binDir = self.substr(0, self.rfind('/'));
    engineRace(self, o);
    commandRace(binDir, o);
}
