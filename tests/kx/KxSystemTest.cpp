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
#include <tuple>
#include <vector>

#include <sched.h>

#include <gtest/gtest.h>

namespace {

// Lays out a tree like /sys/devices/system/cpu in dir, with logical CPU packages * cores * threads
// numbered package-major, then core, then thread, and the online list as given ("" for all).
void writeCpuTree(const QString& dir, int packages, int cores, int threads, const std::string& online)
{
    auto write = [&](const std::string& name, const std::string& text) {
        std::ofstream(dir.toStdString() + "/" + name) << text;
    };
    write("online", online.empty() ? "0-" + std::to_string(packages * cores * threads - 1) + "\n" : online);
    for (int p = 0; p < packages; ++p)
        for (int c = 0; c < cores; ++c)
            for (int t = 0; t < threads; ++t) {
                const std::string cpu = "cpu" + std::to_string((p * cores + c) * threads + t);
                QDir(dir).mkpath(QString::fromStdString(cpu + "/topology"));
                write(cpu + "/topology/physical_package_id", std::to_string(p) + "\n");
                write(cpu + "/topology/core_id", std::to_string(c) + "\n"); // repeats per package
            }
}

// CPUs x cores x logical processors.
std::string topology(const KxCPUInfo& i)
{
    return std::to_string(i.getCPUCount()) + "x" + std::to_string(i.getCoreCount()) + "x" +
           std::to_string(i.getLPUCount());
}

// Runs until released, so that the test decides when it ends; each release lets one run through.
struct GatedThread : KxThread
{
    ~GatedThread() override
    {
        open = true;
        join();
    }
    void run() override
    {
        while (!open.exchange(false)) std::this_thread::yield();
        ++runs;
        if (fail) throw std::runtime_error("no memory");
    }
    std::atomic<bool> open{false}, fail{false};
    std::atomic<int> runs{0};
};

} // namespace

TEST(KxCPUInfo, ProductIsTheAffinityCountOfThisProcess)
{
    cpu_set_t set;
    ASSERT_EQ(sched_getaffinity(0, sizeof set, &set), 0);
    const KxCPUInfo& info = kxCPUInfo();
    EXPECT_EQ(info.getCPUCount() * info.getCoreCount() * info.getLPUCount(), CPU_COUNT(&set));
    EXPECT_EQ(int(KxCPUInfo::affinityCpus().size()), CPU_COUNT(&set));
}

// What the process may use of fake trees under an affinity mask ({} for all); without a tree (0
// packages), one core per allowed CPU, or per hardware thread.
TEST(KxCPUInfo, CountsWhatTheProcessMayUseAndFallsBackToOneCorePerCpu)
{
    using Case = std::tuple<int, int, int, std::string, std::vector<int>, std::string>;
    for (const auto& [packages, cores, threads, online, mask, expected] : std::vector<Case>{
             {2, 4, 2, "", {}, "2x4x2"},
             {2, 4, 2, "", {8, 9, 10, 11}, "1x2x2"},              // both threads of two cores of package 1
             {2, 4, 2, "", {0, 2, 4, 6, 8, 10, 12, 14}, "2x4x1"}, // one thread of each core
             {2, 4, 2, "", {0, 1, 2}, "1x3x1"},                   // a core and a half: one thread per CPU
             {2, 4, 2, "0-3,5\n", {}, "1x5x1"},                   // offline CPUs do not count
             {2, 4, 2, "0-3,5\n", {0, 1, 2, 3}, "1x2x2"},
             {1, 1, 2, "garbage", {}, "1x1x2"}, // the cpuN directories tell
             {1, 1, 1, "0-5\n", {}, "1x6x1"},   // online CPUs without topology files
             {0, 0, 0, "", {0, 1, 2}, "1x3x1"},
             {0, 0, 0, "", {}, "1x" + std::to_string(std::thread::hardware_concurrency()) + "x1"}}) {
        QTemporaryDir dir;
        if (packages) writeCpuTree(dir.path(), packages, cores, threads, online);
        EXPECT_EQ(topology(KxCPUInfo(packages ? dir.path().toStdString() : "/nonexistent/cpu", mask)),
                  expected)
            << packages << "x" << cores << "x" << threads << " online " << online;
    }
}

TEST(KxEnvironment, ExistsTellsEmptyFromUnsetAndNeverMatchesAPrefix)
{
    unsetenv("KX_TEST_VAR");
    EXPECT_FALSE(KxEnvironment::exists("KX_TEST_VAR"));
    EXPECT_EQ(KxEnvironment::value("KX_TEST_VAR", "none"), QString("none"));
    setenv("KX_TEST_VAR", "", 1);
    EXPECT_TRUE(KxEnvironment::exists("KX_TEST_VAR") && !KxEnvironment::exists("KX_TEST_VAR", true));
    setenv("KX_TEST_VAR", "a=b", 1);
    // Not a prefix match on NAME=VALUE.
    EXPECT_TRUE(!KxEnvironment::exists("KX_TEST_VAR=a") && !KxEnvironment::exists(""));
    unsetenv("KX_TEST_VAR");
}

TEST(KxThread, WaitTimesOutWhileRunningAndCarriesWhatRunThrows)
{
    GatedThread t;
    EXPECT_TRUE(t.wait(0)); // never started
    t.start();
    EXPECT_TRUE(t.isRunning());
    EXPECT_FALSE(t.wait(20));
    t.start(); // ignored while running
    t.open = true;
    while (!t.wait(10)) { // a bounded wait sees the end too
    }
    EXPECT_FALSE(t.isRunning());
    EXPECT_EQ(t.runs, 1);

    // What run() throws reaches the waiting thread once, and the thread runs again afterwards.
    t.fail = true;
    t.start();
    t.open = true;
    try {
        t.wait();
        ADD_FAILURE() << "nothing thrown";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "no memory");
    }
    EXPECT_TRUE(t.wait());
    t.fail = false;
    t.start();
    t.open = true;
    EXPECT_TRUE(t.wait());
    EXPECT_EQ(t.runs, 3);
}
