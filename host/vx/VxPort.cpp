#include <vx/VxObject.h>
#include <vx/VxPort.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

VxPort::VxPort(VxObject* owner, const QString& label, const QString& name)
    : m_owner(owner), m_label(label), m_name(name)
{
    if (m_owner) m_owner->addPort(this);
}

VxPort::~VxPort()
{
    if (m_owner && m_listed) m_owner->removePort(this);
}

void VxPort::setLabel(const QString& label)
{
    m_label = label;
}

void VxPort::touch(unsigned mask)
{
    m_flags |= mask;
    if (m_owner) m_owner->portTouched(this);
}

void VxPort::untouch(bool)
{
    m_flags = 0;
}

void VxPort::removeFromOwnerAllPorts()
{
    if (m_owner && m_listed) m_owner->removePort(this);
}

QStringList VxPort::verbs() const
{
    return {"show", "hide", "isVisible", "touch", "untouch", "isNew", "getLabel", "getToolTip"};
}

int VxPort::parse(Tcl_Interp* interp, int argc, char** argv)
{
    if (argc < 2) {
        vxscript::setResult(
            interp, QString("port \"%1\": a verb is missing; verbs: %2").arg(m_name, verbs().join(", ")));
        return TCL_ERROR;
    }
    const char* verb = argv[1];
    if (!strcmp(verb, "show")) {
        show();
        return TCL_OK;
    }
    if (!strcmp(verb, "hide")) {
        hide();
        return TCL_OK;
    }
    if (!strcmp(verb, "isVisible")) {
        vxscript::setResult(interp, isVisible() ? "1" : "0");
        return TCL_OK;
    }
    if (!strcmp(verb, "touch")) {
        touch();
        return TCL_OK;
    }
    if (!strcmp(verb, "untouch")) {
        untouch();
        return TCL_OK;
    }
    if (!strcmp(verb, "isNew")) {
        vxscript::setResult(interp, isNew() ? "1" : "0");
        return TCL_OK;
    }
    if (!strcmp(verb, "getLabel")) {
        vxscript::setResult(interp, m_label);
        return TCL_OK;
    }
    if (!strcmp(verb, "getToolTip")) {
        vxscript::setResult(interp, m_toolTip);
        return TCL_OK;
    }
    return error(interp, QString("unknown verb \"%1\"; verbs: %2").arg(verb, verbs().join(", ")));
}

int VxPort::error(Tcl_Interp* interp, const QString& text) const
{
    QString owner = m_owner ? m_owner->getName() : QString();
    vxscript::setResult(interp, owner.isEmpty() ? QString("port \"%1\": %2").arg(m_name, text)
                                                : QString("\"%1\" port \"%2\": %3").arg(owner, m_name, text));
    return TCL_ERROR;
}

int VxPort::usage(Tcl_Interp* interp, const char* verb, const char* arguments) const
{
    return error(interp, QString("usage: %1 %2 %3").arg(m_name, verb, arguments).trimmed());
}

int VxPort::reply(Tcl_Interp* interp, int argc, char** argv, const QString& text) const
{
    if (argc != 2) return usage(interp, argv[1], "");
    vxscript::setResult(interp, text);
    return TCL_OK;
}

bool VxPort::optionalIndex(Tcl_Interp* interp, int argc, char** argv, int full, int count,
                           const char* arguments, int& index) const
{
    if (argc != full && argc != full - 1) {
        usage(interp, argv[1], arguments);
        return false;
    }
    return vxscript::toIndex(interp, *this, argc == full ? argv[2] : "0", count, index);
}

int VxPort::parseSetLabel(Tcl_Interp* interp, int argc, char** argv, int count,
                          const std::function<void(int, const QString&)>& set) const
{
    if (argc != 4) return usage(interp, argv[1], "INDEX TEXT");
    int index = 0;
    if (!vxscript::toIndex(interp, *this, argv[2], count, index)) return TCL_ERROR;
    set(index, QString::fromUtf8(argv[3]));
    return TCL_OK;
}

int VxPort::parseSetFlag(Tcl_Interp* interp, int argc, char** argv, int count,
                         const std::function<void(int, bool)>& set) const
{
    if (argc != 4) return usage(interp, argv[1], "INDEX ON");
    int index = 0;
    bool on = false;
    if (!vxscript::toIndex(interp, *this, argv[2], count, index) ||
        !vxscript::toBool(interp, *this, argv[3], on))
        return TCL_ERROR;
    set(index, on);
    return TCL_OK;
}

int VxPort::parseSetNum(Tcl_Interp* interp, int argc, char** argv, const std::function<void(int)>& set) const
{
    int count = 0;
    if (argc != 3) return usage(interp, argv[1], "COUNT");
    if (!vxscript::toInt(interp, *this, argv[2], count)) return TCL_ERROR;
    if (count < 0) return error(interp, QString("the count %1 is negative").arg(count));
    set(count);
    return TCL_OK;
}

namespace vxscript {

void setResult(Tcl_Interp* interp, const QString& text)
{
    QByteArray utf8 = text.toUtf8();
    Tcl_SetObjResult(interp, Tcl_NewStringObj(utf8.constData(), utf8.size()));
}

static bool fail(Tcl_Interp* interp, const VxPort& port, const char* word, const char* what)
{
    QString owner = port.getOwner() ? port.getOwner()->getName() : QString();
    QString text = QString("port \"%1\": \"%2\" is not %3").arg(port.getName(), word, what);
    if (!owner.isEmpty()) text = QString("\"%1\" ").arg(owner) + text;
    setResult(interp, text);
    return false;
}

bool toInt(Tcl_Interp* interp, const VxPort& port, const char* word, int& value)
{
    char* end = nullptr;
    errno = 0;
    long v = strtol(word, &end, 0);
    if (end == word || *end || errno || v < INT32_MIN || v > INT32_MAX) {
        // Accept integral floating-point text such as "2.0" that scripts often produce.
        double d;
        end = nullptr;
        d = strtod(word, &end);
        if (end == word || *end || !std::isfinite(d) || d != std::floor(d) || std::fabs(d) > 2147483647.0)
            return fail(interp, port, word, "an integer");
        v = long(d);
    }
    value = int(v);
    return true;
}

bool toDouble(Tcl_Interp* interp, const VxPort& port, const char* word, double& value)
{
    char* end = nullptr;
    double v = strtod(word, &end);
    if (end == word || *end) return fail(interp, port, word, "a number");
    if (std::isnan(v)) return fail(interp, port, word, "a number (NaN)");
    value = v;
    return true;
}

bool toFloat(Tcl_Interp* interp, const VxPort& port, const char* word, float& value)
{
    double d;
    if (!toDouble(interp, port, word, d)) return false;
    value = float(d);
    return true;
}

bool toBool(Tcl_Interp* interp, const VxPort& port, const char* word, bool& value)
{
    int b;
    if (Tcl_GetBoolean(nullptr, word, &b) != TCL_OK) return fail(interp, port, word, "a boolean");
    value = b != 0;
    return true;
}

bool toIndex(Tcl_Interp* interp, const VxPort& port, const char* word, int count, int& index)
{
    if (!toInt(interp, port, word, index)) return false;
    if (index >= 0 && index < count) return true;
    QString owner = port.getOwner() ? port.getOwner()->getName() : QString();
    QString text = count > 0 ? QString("port \"%1\": index %2 is out of range 0..%3")
                                   .arg(port.getName())
                                   .arg(index)
                                   .arg(count - 1)
                             : QString("port \"%1\": index %2 is out of range (the port has no items)")
                                   .arg(port.getName())
                                   .arg(index);
    if (!owner.isEmpty()) text = QString("\"%1\" ").arg(owner) + text;
    setResult(interp, text);
    return false;
}

bool toWords(Tcl_Interp* interp, const VxPort& port, int argc, char** argv, int first, QStringList& words)
{
    words.clear();
    if (argc - first != 1) {
        for (int i = first; i < argc; ++i) words << QString::fromUtf8(argv[i]);
        return true;
    }
    int n = 0;
    const char** parts = nullptr;
    if (Tcl_SplitList(nullptr, argv[first], &n, &parts) != TCL_OK)
        return fail(interp, port, argv[first], "a proper list");
    for (int i = 0; i < n; ++i) words << QString::fromUtf8(parts[i]);
    Tcl_Free(reinterpret_cast<char*>(parts));
    return true;
}

// At least as many digits as the integer part has (up to maxDigits), so that 200 reads "200", not
// "2e+02".
static int withIntegerDigits(int precision, double v, int maxDigits)
{
    double a = std::fabs(v);
    int digits = a >= 1.0 && std::isfinite(a) ? int(std::floor(std::log10(a))) + 1 : 0;
    return digits <= maxDigits ? std::max(precision, digits) : precision;
}

QString number(double v)
{
    char buf[64];
    snprintf(buf, sizeof buf, "%.17g", v);
    // Prefer the shortest text that reads back exactly.
    for (int p = 1; p < 17; ++p) {
        char shorter[64];
        snprintf(shorter, sizeof shorter, "%.*g", p, v);
        if (strtod(shorter, nullptr) == v) {
            snprintf(shorter, sizeof shorter, "%.*g", withIntegerDigits(p, v, 17), v);
            return QString::fromLatin1(shorter);
        }
    }
    return QString::fromLatin1(buf);
}

QString number(float v)
{
    for (int p = 1; p <= 9; ++p) {
        char shorter[64];
        snprintf(shorter, sizeof shorter, "%.*g", p, double(v));
        if (strtof(shorter, nullptr) == v) {
            snprintf(shorter, sizeof shorter, "%.*g", withIntegerDigits(p, double(v), 9), double(v));
            return QString::fromLatin1(shorter);
        }
    }
    return QString::number(double(v), 'g', 9);
}

QString join(const QStringList& words)
{
    QList<QByteArray> utf8;
    std::vector<const char*> argv;
    for (const QString& w : words) utf8.append(w.toUtf8());
    for (const QByteArray& b : utf8) argv.push_back(b.constData());
    char* merged = Tcl_Merge(int(argv.size()), argv.data());
    QString line = QString::fromUtf8(merged);
    Tcl_Free(merged);
    return line;
}

} // namespace vxscript
