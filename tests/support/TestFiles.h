#pragma once
// Files, folders and helper scripts shared by the reader and writer tests.
#include <kx/KxBox3.h>

#include <QDir>
#include <QString>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <sys/wait.h>

namespace vxtest {

inline std::string slurp(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

inline void spit(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

// Each width-byte value with its bytes in the other order.
inline std::string byteSwapped(std::string bytes, std::size_t width)
{
    for (std::size_t i = 0; i + width <= bytes.size(); i += width)
        std::reverse(bytes.begin() + long(i), bytes.begin() + long(i + width));
    return bytes;
}

// What python3 prints for the arguments (a script and its own); empty when the module cannot be
// imported, so that the caller skips.
inline std::string runPython(const std::string& module, const std::string& args)
{
    if (std::system(("/usr/bin/python3 -c 'import " + module + "' >/dev/null 2>&1").c_str()) != 0) return {};
    FILE* p = popen(("/usr/bin/python3 " + args + " 2>&1").c_str(), "r");
    std::string out;
    char buf[65536];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    EXPECT_EQ(pclose(p), 0) << out.substr(0, 3000);
    return out;
}

inline void expectBox(const KxBox3f& b, const std::vector<float>& want, const std::string& what,
                      float tol = 1e-5f)
{
    const float got[6] = {b.xmin, b.xmax, b.ymin, b.ymax, b.zmin, b.zmax};
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(got[i], want[std::size_t(i)], tol) << what << " box[" << i << "]";
}

// A test with a fresh folder of its own.
class TempDirTest : public ::testing::Test
{
protected:
    std::string path(const std::string& name) const { return dir.path().toStdString() + "/" + name; }
    QString qpath(const std::string& name) const { return QString::fromStdString(path(name)); }
    // What the folder, or a folder in it, holds: hidden names too.
    QStringList entries(const std::string& folder = "") const
    {
        return QDir(qpath(folder))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    // A shell command run in the folder, its output caught in files there named after tag.
    struct Result
    {
        int status = -1; // -1 when it did not exit normally
        std::string out, err;
    };
    Result shell(const std::string& command, const std::string& tag = "std") const
    {
        const int raw = std::system(
            ("cd " + path("") + " && " + command + " >" + tag + "out.txt 2>" + tag + "err.txt").c_str());
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(path(tag + "out.txt")),
                slurp(path(tag + "err.txt"))};
    }
    QTemporaryDir dir;
};

} // namespace vxtest
