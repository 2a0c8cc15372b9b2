#include <vx/VxPointProbe.h>
#include <vx/VxPort.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

KX_SOURCE(VxPointProbe, VxSpatialData)

VxPointProbe::VxPointProbe()
{
    setLabel("PointProbe");
    // A saved network makes the probe again and replays its position and values.
    setLoadCommand("create VxPointProbe");
}

void VxPointProbe::setValues(const std::vector<double>& values)
{
    if (values == m_values) return;
    m_values = values;
    touchDownstream();
}

void VxPointProbe::setPosition(const KxVec3f& p)
{
    if (p == m_position) return;
    m_position = p;
    touchDownstream();
}

QStringList VxPointProbe::commands() const
{
    return QStringList{"setValues", "getValues", "setPosition", "getPosition"} + VxObject::commands();
}

void VxPointProbe::savePorts(FILE* fp)
{
    VxObject::savePorts(fp);
    QStringList values;
    for (double v : m_values) values << vxscript::number(v);
    const QByteArray name = getName().toUtf8();
    fprintf(fp, "\"%s\" setPosition %s %s %s\n", name.constData(),
            vxscript::number(m_position.x).toUtf8().constData(),
            vxscript::number(m_position.y).toUtf8().constData(),
            vxscript::number(m_position.z).toUtf8().constData());
    fprintf(fp, "\"%s\" setValues %s\n", name.constData(), values.join(' ').toUtf8().constData());
}

int VxPointProbe::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::setResult;
    auto fail = [&](const QString& text) {
        setResult(interp, QString("\"%1\": %2").arg(getName(), text));
        return TCL_ERROR;
    };
    auto numbers = [&](int from, std::vector<double>& out) {
        for (int i = from; i < argc; ++i) {
            char* end = nullptr;
            const double d = strtod(argv[i], &end);
            if (end == argv[i] || *end || std::isnan(d)) return i;
            out.push_back(d);
        }
        return 0;
    };
    const char* word = argc >= 2 ? argv[1] : "";
    if (!strcmp(word, "setValues") || !strcmp(word, "setPosition")) {
        const bool position = word[3] == 'P';
        std::vector<double> v;
        if (const int bad = numbers(2, v))
            return fail(QString("%1: \"%2\" is not a number").arg(word, argv[bad]));
        if (position && v.size() != 3) return fail("usage: setPosition X Y Z");
        if (position)
            setPosition(KxVec3f(float(v[0]), float(v[1]), float(v[2])));
        else
            setValues(v);
        return TCL_OK;
    }
    if (!strcmp(word, "getValues")) {
        QStringList values;
        for (double v : m_values) values << vxscript::number(v);
        setResult(interp, values.join(' '));
        return TCL_OK;
    }
    if (!strcmp(word, "getPosition")) {
        setResult(interp, QString("%1 %2 %3")
                              .arg(vxscript::number(m_position.x), vxscript::number(m_position.y),
                                   vxscript::number(m_position.z)));
        return TCL_OK;
    }
    return VxObject::parse(interp, argc, argv);
}
