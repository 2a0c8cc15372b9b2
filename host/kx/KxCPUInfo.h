#pragma once
#include <string>
#include <vector>

// Processor topology as the process can use it: packages (sockets), cores per package and logical
// units (hardware threads) per core. Only logical CPUs that are online and in the process's affinity
// mask count, so the product of the three is the number of threads that can run at once:
// where the process is restricted (taskset, container cpusets), the counts describe the part it may
// use. When that part is irregular (packages with different core counts, cores with different thread
// counts) every usable logical CPU counts as one core of one package, which keeps the product right.
// When the topology cannot be read: 1 package, one core per usable CPU (hardware concurrency if even
// the affinity mask is unknown), 1 unit per core.
class KxCPUInfo
{
public:
    // This machine: /sys/devices/system/cpu and the affinity mask of the calling thread.
    KxCPUInfo();
    // The tree under cpuDir, laid out like /sys/devices/system/cpu (an "online" list, and cpuN/topology/
    // physical_package_id, die_id (optional) and core_id), restricted to allowedCpus unless that is empty.
    KxCPUInfo(const std::string& cpuDir, const std::vector<int>& allowedCpus);

    int getCPUCount() const { return m_packages; }
    int getCoreCount() const { return m_coresPerPackage; }
    int getLPUCount() const { return m_lpusPerCore; }

    // The logical CPUs in the affinity mask of the calling thread; empty if it cannot be read.
    static std::vector<int> affinityCpus();

private:
    void read(const std::string& cpuDir, const std::vector<int>& allowedCpus);
    void setFlat(int logicalCpus);

    int m_packages = 1;
    int m_coresPerPackage = 1;
    int m_lpusPerCore = 1;
};

// The machine's topology, read on first use.
const KxCPUInfo& kxCPUInfo();
