#include <kx/KxCPUInfo.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <thread>
#include <tuple>

#include <dirent.h>
#include <sched.h>

namespace {

// Parses a kernel CPU list such as "0-3,8,10-11"; empty on any malformed part.
std::vector<int> parseCpuList(const std::string& text)
{
    std::vector<int> cpus;
    std::stringstream in(text);
    std::string part;
    while (std::getline(in, part, ',')) {
        part.erase(std::remove_if(part.begin(), part.end(), [](char c) { return c == '\n' || c == ' '; }),
                   part.end());
        if (part.empty()) continue;
        int first = 0, last = 0;
        char dash = 0;
        std::stringstream range(part);
        if (!(range >> first)) return {};
        last = first;
        if (range >> dash && (dash != '-' || !(range >> last))) return {};
        if (first < 0 || last < first || last > (1 << 20)) return {};
        for (int c = first; c <= last; ++c) cpus.push_back(c);
    }
    return cpus;
}

bool readText(const std::string& path, std::string& text)
{
    std::ifstream f(path);
    if (!f) return false;
    std::getline(f, text, '\0');
    return true;
}

bool readInt(const std::string& path, int& value)
{
    std::ifstream f(path);
    return bool(f >> value);
}

// Online logical CPUs: the "online" list, or every cpuN directory when there is no readable list.
std::vector<int> onlineCpus(const std::string& cpuDir)
{
    std::string text;
    std::vector<int> cpus;
    if (readText(cpuDir + "/online", text)) cpus = parseCpuList(text);
    if (!cpus.empty()) return cpus;
    if (DIR* dir = opendir(cpuDir.c_str())) {
        while (dirent* e = readdir(dir)) {
            int n = 0;
            char rest = 0;
            if (std::sscanf(e->d_name, "cpu%d%c", &n, &rest) == 1 && n >= 0) cpus.push_back(n);
        }
        closedir(dir);
    }
    std::sort(cpus.begin(), cpus.end());
    return cpus;
}

} // namespace

KxCPUInfo::KxCPUInfo()
{
    read("/sys/devices/system/cpu", affinityCpus());
}

KxCPUInfo::KxCPUInfo(const std::string& cpuDir, const std::vector<int>& allowedCpus)
{
    read(cpuDir, allowedCpus);
}

std::vector<int> KxCPUInfo::affinityCpus()
{
    // The mask's size must cover the kernel's CPU count; grow until the call accepts it.
    for (int n = 1024; n <= (1 << 20); n *= 2) {
        cpu_set_t* set = CPU_ALLOC(n);
        if (!set) return {};
        const std::size_t bytes = CPU_ALLOC_SIZE(n);
        CPU_ZERO_S(bytes, set);
        if (sched_getaffinity(0, bytes, set) == 0) {
            std::vector<int> cpus;
            for (int c = 0; c < n; ++c)
                if (CPU_ISSET_S(c, bytes, set)) cpus.push_back(c);
            CPU_FREE(set);
            return cpus;
        }
        CPU_FREE(set);
        if (errno != EINVAL) return {};
    }
    return {};
}

void KxCPUInfo::setFlat(int logicalCpus)
{
    m_packages = 1;
    m_coresPerPackage = std::max(1, logicalCpus);
    m_lpusPerCore = 1;
}

void KxCPUInfo::read(const std::string& cpuDir, const std::vector<int>& allowedCpus)
{
    std::vector<int> usable = onlineCpus(cpuDir);
    if (!allowedCpus.empty()) {
        const std::set<int> allowed(allowedCpus.begin(), allowedCpus.end());
        usable.erase(std::remove_if(usable.begin(), usable.end(), [&](int c) { return !allowed.count(c); }),
                     usable.end());
    }
    if (usable.empty()) {
        setFlat(!allowedCpus.empty() ? int(allowedCpus.size()) : int(std::thread::hardware_concurrency()));
        return;
    }

    // A core is known by (package, die, core id): core ids repeat across packages and, on parts made
    // of several dies, across dies.
    std::map<int, std::set<std::tuple<int, int, int>>> coresOfPackage;
    std::map<std::tuple<int, int, int>, int> lpusOfCore;
    for (int cpu : usable) {
        const std::string topo = cpuDir + "/cpu" + std::to_string(cpu) + "/topology/";
        int package = 0, die = 0, core = 0;
        if (!readInt(topo + "physical_package_id", package) || !readInt(topo + "core_id", core)) {
            setFlat(int(usable.size()));
            return;
        }
        readInt(topo + "die_id", die);
        const auto key = std::make_tuple(package, die, core);
        coresOfPackage[package].insert(key);
        ++lpusOfCore[key];
    }

    const std::size_t cores = coresOfPackage.begin()->second.size();
    const int lpus = lpusOfCore.begin()->second;
    bool regular = true;
    for (const auto& p : coresOfPackage) regular = regular && p.second.size() == cores;
    for (const auto& c : lpusOfCore) regular = regular && c.second == lpus;
    if (!regular) {
        setFlat(int(usable.size()));
        return;
    }
    m_packages = int(coresOfPackage.size());
    m_coresPerPackage = int(cores);
    m_lpusPerCore = lpus;
}

const KxCPUInfo& kxCPUInfo()
{
    static const KxCPUInfo info;
    return info;
}
