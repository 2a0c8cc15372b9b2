#include <vx/VxPort3DPointList.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {
bool finitePoint(const SbVec3f& p)
{
    return !std::isnan(p[0]) && !std::isnan(p[1]) && !std::isnan(p[2]);
}

QString pointText(const SbVec3f& p)
{
    using vxscript::number;
    return QString("%1 %2 %3").arg(number(p[0]), number(p[1]), number(p[2]));
}
} // namespace

VxPort3DPointList::VxPort3DPointList(VxObject* owner, const QString& label, const QString& name, int count)
    : VxPort(owner, label, name), m_points(size_t(std::max(count, 0)), SbVec3f(0, 0, 0))
{
}

void VxPort3DPointList::setNum(int count)
{
    count = std::max(count, 0);
    if (count == getNum()) return;
    m_points.resize(size_t(count), SbVec3f(0, 0, 0));
    touch(NEW_VALUE);
}

SbVec3f VxPort3DPointList::getValue(int index) const
{
    return index >= 0 && index < getNum() ? m_points[size_t(index)] : SbVec3f(0, 0, 0);
}

void VxPort3DPointList::setValue(int index, const SbVec3f& point)
{
    if (index < 0 || index >= getNum() || !finitePoint(point) || m_points[size_t(index)] == point) return;
    m_points[size_t(index)] = point;
    touch(NEW_VALUE);
}

void VxPort3DPointList::setValue(const std::vector<SbVec3f>& points)
{
    if (!std::all_of(points.begin(), points.end(), finitePoint) || points == m_points) return;
    m_points = points;
    touch(NEW_VALUE);
}

void VxPort3DPointList::appendPoint(const SbVec3f& point)
{
    if (!finitePoint(point)) return;
    m_points.push_back(point);
    touch(NEW_VALUE);
}

void VxPort3DPointList::removePoint(int index)
{
    if (index < 0 || index >= getNum()) return;
    m_points.erase(m_points.begin() + index);
    touch(NEW_VALUE);
}

QStringList VxPort3DPointList::verbs() const
{
    return QStringList{"setValue", "getValue", "appendPoint", "removePoint",
                       "setNum",   "getNum",   "setState",    "getState"} +
           VxPort::verbs();
}

QStringList VxPort3DPointList::saveState() const
{
    QStringList points;
    for (const SbVec3f& p : m_points) points << pointText(p);
    // The points as one list, so that a single point or none reads back as such.
    return {vxscript::join({"setState", vxscript::join(points)})};
}

int VxPort3DPointList::parse(Tcl_Interp* interp, int argc, char** argv)
{
    using vxscript::setResult;
    if (argc < 2) return VxPort::parse(interp, argc, argv);
    const char* verb = argv[1];
    auto is = [verb](const char* v) { return !strcmp(verb, v); };
    // A point from "X Y Z" words at argv[first], or one word "{X Y Z}".
    auto toPoint = [&](int count, char** words, SbVec3f& p) {
        QStringList w;
        if (!vxscript::toWords(interp, *this, count, words, 0, w)) return false;
        if (w.size() != 3) {
            error(interp, QString("\"%1\" is not a point X Y Z").arg(w.join(' ')));
            return false;
        }
        for (int i = 0; i < 3; ++i)
            if (!vxscript::toFloat(interp, *this, w[i].toUtf8().constData(), p[i])) return false;
        return true;
    };
    int index;
    SbVec3f p;

    if (is("setValue")) {
        if (argc != 4 && argc != 6) return usage(interp, verb, "INDEX X Y Z");
        if (!vxscript::toIndex(interp, *this, argv[2], getNum(), index) || !toPoint(argc - 3, argv + 3, p))
            return TCL_ERROR;
        setValue(index, p);
        return TCL_OK;
    }
    if (is("appendPoint")) {
        if (argc != 3 && argc != 5) return usage(interp, verb, "X Y Z");
        if (!toPoint(argc - 2, argv + 2, p)) return TCL_ERROR;
        appendPoint(p);
        return TCL_OK;
    }
    if (is("getValue") || is("removePoint")) {
        if (argc != 3) return usage(interp, verb, "INDEX");
        if (!vxscript::toIndex(interp, *this, argv[2], getNum(), index)) return TCL_ERROR;
        if (is("removePoint"))
            removePoint(index);
        else
            setResult(interp, pointText(m_points[size_t(index)]));
        return TCL_OK;
    }
    if (is("setNum")) return parseSetNum(interp, argc, argv, [this](int count) { setNum(count); });
    if (is("getNum")) return reply(interp, argc, argv, QString::number(getNum()));
    if (is("setState")) {
        // One {X Y Z} per point; no words clears the list. A single point must be given inside an
        // outer list ("setState {{1 2 3}}"), as getState returns it.
        std::vector<SbVec3f> points;
        QStringList items;
        if (!vxscript::toWords(interp, *this, argc, argv, 2, items)) return TCL_ERROR;
        for (const QString& item : items) {
            QByteArray text = item.toUtf8();
            char* one[] = {text.data()};
            if (!toPoint(1, one, p)) return TCL_ERROR;
            points.push_back(p);
        }
        setValue(points);
        return TCL_OK;
    }
    if (is("getState")) {
        QStringList points;
        for (const SbVec3f& pt : m_points) points << pointText(pt);
        return reply(interp, argc, argv, vxscript::join(points));
    }
    return VxPort::parse(interp, argc, argv);
}
