#include <kx/KxCPUInfo.h>
#include <kx/KxEnvironment.h>
#include <kx/KxThread.h>

#include <QDir>
#include <QTemporaryDir>

#include <atomic>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

#include <sched.h>

#include <gtest/gtest.h>

namespace {

// A tree laid out like /sys/devices/system/cpu, with logical CPU packages * cores * threads numbered
// package-major, then core, then thread.
class FakeCpuTree
{
public:
    FakeCpuTree(int packages, int cores, int threads, const std::string& online = "")
    {
        const int n = packages * cores * threads;
        write("online", online.empty() ? "0-" + std::to_string(n - 1) + "\n" : online);
        for (int p = 0; p < packages; ++p)
            for (int c = 0; c < cores; ++c)
                for (int t = 0; t < threads; ++t) {
                    const std::string cpu = "cpu" + std::to_string((p * cores + c) * threads + t);
                    QDir(m_dir.path()).mkpath(QString::fromStdString(cpu + "/topology"));
                    write(cpu + "/topology/physical_package_id", std::to_string(p) + "\n");
                    write(cpu + "/topology/core_id", std::to_string(c) + "\n"); // repeats per package
                }
    }
    std::string dir() const { return m_dir.path().toStdString(); }
    void write(const std::string& name, const std::string& text)
    {
        std::ofstream(dir() + "/" + name) << text;
    }

private:
    QTemporaryDir m_dir;
};

// CPUs x cores x logical processors.
std::string topology(const KxCPUInfo& i)
{
    return std::to_string(i.getCPUCount()) + "x" + std::to_string(i.getCoreCount()) + "x" +
           std::to_string(i.getLPUCount());
}

} // namespace

TEST(KxCPUInfo, ProductIsTheAffinityCountOfThisProcess)
{
    cpu_set_t set;
    ASSERT_EQ(sched_getaffinity(0, sizeof set, &set), 0);
    const KxCPUInfo& info = kxCPUInfo();
    EXPECT_EQ(info.getCPUCount() * info.getCoreCount() * info.getLPUCount(), CPU_COUNT(&set));
    EXPECT_EQ(int(KxCPUInfo::affinityCpus().size()), CPU_COUNT(&set));
}

TEST(KxCPUInfo, CountsWhatTheProcessMayUse)
{
    FakeCpuTree tree(2, 4, 2); // cpu (p * 4 + c) * 2 + t
    EXPECT_EQ(topology(KxCPUInfo(tree.dir(), {})), "2x4x2");
    // Restricted to both threads of two cores of the second package.
    EXPECT_EQ(topology(KxCPUInfo(tree.dir(), {8, 9, 10, 11})), "1x2x2");
    // One thread of each core of both packages.
    EXPECT_EQ(topology(KxCPUInfo(tree.dir(), {0, 2, 4, 6, 8, 10, 12, 14})), "2x4x1");
    // Irregular (a whole core and half of another): still one thread per usable CPU.
    EXPECT_EQ(topology(KxCPUInfo(tree.dir(), {0, 1, 2})), "1x3x1");
    // CPUs in the mask but offline do not count.
    tree.write("online", "0-3,5\n");
    EXPECT_EQ(topology(KxCPUInfo(tree.dir(), {})), "1x5x1"); // cpu 5 without its sibling
    EXPECT_EQ(topology(KxCPUInfo(tree.dir(), {0, 1, 2, 3})), "1x2x2");
}

TEST(KxCPUInfo, FallsBackToOneCorePerCpuWhenTopologyIsMissing)
{
    EXPECT_EQ(topology(KxCPUInfo("/nonexistent/cpu", {0, 1, 2})), "1x3x1");
    const KxCPUInfo unknown("/nonexistent/cpu", {});
    EXPECT_EQ(unknown.getCPUCount() * unknown.getLPUCount(), 1);

    // An unreadable online list: the cpuN directories tell which CPUs exist.
    FakeCpuTree tree(1, 1, 2);
    tree.write("online", "garbage");
    EXPECT_EQ(topology(KxCPUInfo(tree.dir(), {})), "1x1x2");

    // Online CPUs without topology files.
    FakeCpuTree bare(1, 1, 1, "0-5\n");
    EXPECT_EQ(topology(KxCPUInfo(bare.dir(), {})), "1x6x1");
}

TEST(KxEnvironment, ExistsTellsEmptyFromUnsetAndNeverMatchesAPrefix)
{
    unsetenv("KX_TEST_VAR");
    EXPECT_FALSE(KxEnvironment::exists("KX_TEST_VAR"));
    EXPECT_EQ(KxEnvironment::value("KX_TEST_VAR", "none"), QString("none"));
    setenv("KX_TEST_VAR", "", 1);
    EXPECT_TRUE(KxEnvironment::exists("KX_TEST_VAR"));
    EXPECT_FALSE(KxEnvironment::exists("KX_TEST_VAR", true));
    setenv("KX_TEST_VAR", "a=b", 1);
    EXPECT_FALSE(KxEnvironment::exists("KX_TEST_VAR=a")); // not a prefix match on NAME=VALUE
    EXPECT_FALSE(KxEnvironment::exists(""));
    unsetenv("KX_TEST_VAR");
}

namespace {

// Runs until released, so that the test decides when it ends; each release lets one run through.
class GatedThread : public KxThread
{
public:
    ~GatedThread() override
    {
        open = true;
        join();
    }
    std::atomic<bool> open{false}, fail{false};
    std::atomic<int> runs{0};

protected:
    void run() override
    {
        while (!open.exchange(false)) std::this_thread::yield();
        ++runs;
        if (fail) throw std::runtime_error("no memory");
    }
};

} // namespace

TEST(KxThread, WaitTimesOutWhileRunningAndSucceedsAfterwards)
{
    GatedThread t;
    EXPECT_TRUE(t.wait(0)); // never started
    t.start();
    EXPECT_TRUE(t.isRunning());
    EXPECT_FALSE(t.wait(20));
    t.start(); // ignored while running
    t.open = true;
    EXPECT_TRUE(t.wait());
    EXPECT_FALSE(t.isRunning());
    EXPECT_EQ(t.runs, 1);

    // It can run again, and a bounded wait also sees the end.
    t.start();
    EXPECT_FALSE(t.wait(1));
    t.open = true;
    while (!t.wait(10)) {
    }
    EXPECT_EQ(t.runs, 2);

    // What run() throws reaches the waiting thread once, and the thread runs again afterwards.
    t.fail = true;
    t.start();
    t.open = true;
    EXPECT_THROW(
        try { t.wait(); } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "no memory");
            throw;
        },
        std::runtime_error);
    EXPECT_TRUE(t.wait());
    t.fail = false;
    t.start();
    t.open = true;
    EXPECT_TRUE(t.wait());
    EXPECT_EQ(t.runs, 4);
}
