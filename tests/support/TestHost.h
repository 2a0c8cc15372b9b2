#pragma once
// The host as the tests drive it: scripts evaluated in this process, and host programs run to their
// end as a user runs them.
#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxObject.h>
#include <vx/VxObjectPool.h>

#include <QProcess>
#include <QString>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>

// Readable failures, and texts that go straight into failure messages.
inline std::ostream& operator<<(std::ostream& os, const QString& s)
{
    return os << s.toStdString();
}

namespace vxtest {

// Runs a script; fails the test on a script error and returns the result.
inline QString tcl(const QString& script)
{
    QString result;
    const int code = VxApplication::instance()->interpreter()->eval(script, &result);
    EXPECT_EQ(code, TCL_OK) << script.toStdString() << "\n-> " << result.toStdString();
    return result;
}

// Runs a script that must fail; returns the error.
inline QString tclError(const QString& script)
{
    QString result;
    const int code = VxApplication::instance()->interpreter()->eval(script, &result);
    EXPECT_EQ(code, TCL_ERROR) << script.toStdString() << " succeeded: " << result.toStdString();
    return result;
}

inline VxMessage* messages()
{
    return VxApplication::instance()->message();
}

template <class T> T* object(const char* name)
{
    return static_cast<T*>(VxApplication::instance()->objectPool()->findObject(name));
}

// Names the object and hands it to the pool, as a reader's or script's "load" does.
inline void addObject(VxObject* o, const char* name)
{
    o->setLabel(name);
    VxApplication::instance()->objectPool()->addObject(o);
}

// The lines an object writes for its ports into a saved network.
inline std::string savedPorts(VxObject& o)
{
    char* text = nullptr;
    size_t size = 0;
    FILE* fp = open_memstream(&text, &size);
    o.savePorts(fp);
    fclose(fp);
    const std::string saved(text, size);
    free(text);
    return saved;
}

struct ProgramRun
{
    int exitCode = -1; // -1 when the program crashed or did not end
    QString out, err;
};

// Runs a program to its end in workDir (when given), with extra environment variables ("NAME=VALUE")
// and the input on its standard input.
inline ProgramRun runProgram(const QString& program, const QStringList& args, const QString& workDir = {},
                             const QStringList& env = {}, const QByteArray& input = {})
{
    QProcess p;
    if (!workDir.isEmpty()) p.setWorkingDirectory(workDir);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const QString& v : env) environment.insert(v.section('=', 0, 0), v.section('=', 1));
    p.setProcessEnvironment(environment);
    p.start(program, args);
    EXPECT_TRUE(p.waitForStarted()) << program.toStdString();
    p.write(input);
    p.closeWriteChannel();
    EXPECT_TRUE(p.waitForFinished(120000)) << program.toStdString() << " did not end";
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAllStandardOutput()), QString::fromUtf8(p.readAllStandardError())};
}

} // namespace vxtest
