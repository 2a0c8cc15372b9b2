#include <vx/VxColormap.h>
#include <vx/VxPort.h>

#include <algorithm>
#include <cmath>
#include <cstring>

KX_SOURCE(VxColormap, VxObject)

namespace {
float unit(float v)
{
    return std::isnan(v) ? 0.f : std::min(1.f, std::max(0.f, v));
}

VxColormap::RGBA opaque(unsigned rgb)
{
    return {float(rgb >> 16 & 0xff) / 255.f, float(rgb >> 8 & 0xff) / 255.f, float(rgb & 0xff) / 255.f, 1.f};
}

// The built-in maps, in the order presets() lists them. Viridis and coolwarm keep equal steps in
// perceived lightness (coolwarm from both ends towards the white middle), so that equal value
// steps look equal.
QVector<VxColormap::RGBA> presetSamples(int index)
{
    auto hex = [](std::initializer_list<unsigned> rgb) {
        QVector<VxColormap::RGBA> samples;
        for (unsigned c : rgb) samples.append(opaque(c));
        return samples;
    };
    switch (index) {
    case 0:
        return hex({0x000000, 0xffffff});
    case 1:
        return hex({0x440154, 0x482475, 0x414487, 0x355f8d, 0x2a788e, 0x21918c, 0x22a884, 0x44bf70, 0x7ad151,
                    0xbddf26, 0xfde725});
    case 2:
        return hex({0x3b4cc0, 0x5d7ce6, 0x7b9ff9, 0x9ebeff, 0xc0d4f5, 0xdddcdc, 0xf2cbb7, 0xf7ac8e, 0xee8468,
                    0xd65244, 0xb40426});
    default:
        return {{0.19f, 0.07f, 0.55f, 1.f}, {0.16f, 0.45f, 0.95f, 1.f}, {0.1f, 0.75f, 0.75f, 1.f},
                {0.45f, 0.85f, 0.2f, 1.f},  {0.95f, 0.75f, 0.1f, 1.f},  {0.9f, 0.3f, 0.05f, 1.f},
                {0.55f, 0.02f, 0.02f, 1.f}};
    }
}

QString sampleText(const VxColormap::RGBA& s)
{
    using vxscript::number;
    return QString("%1 %2 %3 %4").arg(number(s.r), number(s.g), number(s.b), number(s.a));
}
} // namespace

VxColormap::VxColormap() : m_samples{{0.f, 0.f, 0.f, 1.f}, {1.f, 1.f, 1.f, 1.f}}
{
    setLabel("Colormap");
    // A saved network makes the map again and replays its range and samples.
    setLoadCommand("create VxColormap");
}

void VxColormap::setRange(float min, float max)
{
    if (std::isnan(min) || std::isnan(max)) return;
    if (min > max) std::swap(min, max);
    if (min == m_min && max == m_max) return;
    m_min = min;
    m_max = max;
    touchDownstream();
}

void VxColormap::setSamples(const QVector<RGBA>& samples)
{
    if (samples.isEmpty()) return;
    QVector<RGBA> clamped;
    for (const RGBA& s : samples) clamped.append({unit(s.r), unit(s.g), unit(s.b), unit(s.a)});
    if (clamped == m_samples) return;
    m_samples = clamped;
    touchDownstream();
}

VxColormap::RGBA VxColormap::getRGBA(float value) const
{
    const int n = m_samples.size();
    float t = m_max > m_min && !std::isnan(value) ? (value - m_min) / (m_max - m_min) : 0.f;
    t = std::min(1.f, std::max(0.f, t)) * float(n - 1);
    const int i = std::min(int(t), n - 1);
    if (i == n - 1) return m_samples[i];
    const float f = t - float(i);
    const RGBA& a = m_samples[i];
    const RGBA& b = m_samples[i + 1];
    return {a.r + (b.r - a.r) * f, a.g + (b.g - a.g) * f, a.b + (b.b - a.b) * f, a.a + (b.a - a.a) * f};
}

QStringList VxColormap::presets()
{
    return {"grey", "viridis", "coolwarm", "rainbow"};
}

bool VxColormap::setPreset(const QString& name)
{
    const int index = presets().indexOf(name);
    if (index < 0) return false;
    setSamples(presetSamples(index));
    return true;
}

QStringList VxColormap::commands() const
{
    return QStringList{"setRange", "getRange",  "setSamples", "getSamples",
                       "getColor", "setPreset", "getPresets"} +
           VxObject::commands();
}

void VxColormap::savePorts(FILE* fp)
{
    VxObject::savePorts(fp);
    QStringList samples;
    for (const RGBA& s : m_samples) samples << QString("{%1}").arg(sampleText(s));
    QByteArray name = getName().toUtf8();
    fprintf(fp, "\"%s\" setRange %s %s\n", name.constData(), vxscript::number(m_min).toUtf8().constData(),
            vxscript::number(m_max).toUtf8().constData());
    fprintf(fp, "\"%s\" setSamples %s\n", name.constData(), samples.join(' ').toUtf8().constData());
}

int VxColormap::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::setResult;
    auto fail = [&](const QString& text) {
        setResult(interp, QString("\"%1\": %2").arg(getName(), text));
        return TCL_ERROR;
    };
    auto toFloat = [&](const char* word, float& v) {
        char* end = nullptr;
        double d = strtod(word, &end);
        if (end == word || *end || std::isnan(d)) return false;
        v = float(d);
        return true;
    };
    const char* word = argc >= 2 ? argv[1] : "";
    if (!strcmp(word, "setRange")) {
        float lo, hi;
        if (argc != 4) return fail("usage: setRange MIN MAX");
        if (!toFloat(argv[2], lo) || !toFloat(argv[3], hi))
            return fail(QString("setRange: \"%1 %2\" are not two numbers").arg(argv[2], argv[3]));
        setRange(lo, hi);
        return TCL_OK;
    }
    if (!strcmp(word, "getRange")) {
        setResult(interp, QString("%1 %2").arg(vxscript::number(m_min), vxscript::number(m_max)));
        return TCL_OK;
    }
    if (!strcmp(word, "setSamples")) {
        // setSamples {R G B A} {R G B A} ...
        QVector<RGBA> samples;
        for (int i = 2; i < argc; ++i) {
            int n = 0;
            const char** parts = nullptr;
            bool ok = Tcl_SplitList(nullptr, argv[i], &n, &parts) == TCL_OK && n == 4;
            float c[4] = {0, 0, 0, 0};
            for (int k = 0; ok && k < 4; ++k) ok = toFloat(parts[k], c[k]);
            if (parts) Tcl_Free(reinterpret_cast<char*>(parts));
            if (!ok)
                return fail(QString("setSamples: sample %1 \"%2\" is not four numbers R G B A")
                                .arg(i - 2)
                                .arg(argv[i]));
            samples.append({c[0], c[1], c[2], c[3]});
        }
        if (samples.isEmpty()) return fail("usage: setSamples {R G B A} ?{R G B A} ...?");
        setSamples(samples);
        return TCL_OK;
    }
    if (!strcmp(word, "getSamples")) {
        QStringList samples;
        for (const RGBA& s : m_samples) samples << sampleText(s);
        setResult(interp, vxscript::join(samples));
        return TCL_OK;
    }
    if (!strcmp(word, "getColor")) {
        float v;
        if (argc != 3) return fail("usage: getColor VALUE");
        if (!toFloat(argv[2], v)) return fail(QString("getColor: \"%1\" is not a number").arg(argv[2]));
        setResult(interp, sampleText(getRGBA(v)));
        return TCL_OK;
    }
    if (!strcmp(word, "setPreset")) {
        if (argc != 3) return fail("usage: setPreset NAME");
        if (!setPreset(argv[2]))
            return fail(QString("setPreset: unknown colour map \"%1\"; known: %2")
                            .arg(argv[2], presets().join(", ")));
        return TCL_OK;
    }
    if (!strcmp(word, "getPresets")) {
        setResult(interp, vxscript::join(presets()));
        return TCL_OK;
    }
    return VxObject::parse(interp, argc, argv);
}
