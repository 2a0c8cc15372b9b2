#pragma once
// Owners and a script driver for the port tests.
#include <vx/VxObject.h>
#include <vx/VxPort.h>

#include <tcl.h>

#include <string>
#include <vector>

namespace vxtest {

// An object that owns ports; counts the touches it hears of.
class PortOwner : public VxObject
{
public:
    explicit PortOwner(const QString& name) { setLabel(name); }
    ~PortOwner() override = default;
    void portTouched(VxPort*) override { ++touches; }
    int touches = 0;
};

// Runs "OBJECT PORT VERB ..." lines through the object's parse(), as the interpreter does.
class PortScript
{
public:
    explicit PortScript(Tcl_Interp* interp) : m_interp(interp) {}

    // The line's words follow the object's name; returns the Tcl code, the result in result().
    int run(VxObject& object, const std::string& line)
    {
        int n = 0;
        const char** parts = nullptr;
        if (Tcl_SplitList(nullptr, line.c_str(), &n, &parts) != TCL_OK) return -1;
        std::vector<std::string> words{object.getName().toStdString()};
        for (int i = 0; i < n; ++i) words.emplace_back(parts[i]);
        Tcl_Free(reinterpret_cast<char*>(parts));
        std::vector<char*> argv;
        for (std::string& w : words) argv.push_back(&w[0]);
        Tcl_ResetResult(m_interp);
        int code = object.parse(m_interp, int(argv.size()), argv.data());
        m_result = Tcl_GetStringResult(m_interp);
        return code;
    }
    // The result of a line that must succeed ("" and a test failure otherwise).
    std::string get(VxObject& object, const std::string& line)
    {
        int code = run(object, line);
        return code == TCL_OK ? m_result : "<error: " + m_result + ">";
    }
    const std::string& result() const { return m_result; }

private:
    Tcl_Interp* m_interp;
    std::string m_result;
};

} // namespace vxtest
