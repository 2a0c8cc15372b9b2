#include <meshkit/PoCartesianGrid2D.h>

#include <Inventor/SoInput.h>
#include <Inventor/SoOutput.h>

#include <algorithm>
#include <charconv>

namespace meshkit {

SO_SFIELD_SOURCE(PoSFCartesianGrid2D, PoCartesianGridGeometry, const PoCartesianGridGeometry&)

void PoSFCartesianGrid2D::initClass()
{
    SO_SFIELD_INIT_CLASS(PoSFCartesianGrid2D, inherited);
}

void PoSFCartesianGrid2D::setGeometry(const SbVec3f& origin, const SbVec3f& uStep, const SbVec3f& vStep,
                                      int numU, int numV, const float* values)
{
    PoCartesianGridGeometry g;
    g.origin = origin, g.uStep = uStep, g.vStep = vStep;
    if (numU > 0 && numV > 0 && values) {
        g.numU = numU, g.numV = numV;
        g.values.assign(values, values + std::size_t(numU) * std::size_t(numV));
    }
    setValue(g);
}

SbBool PoSFCartesianGrid2D::readValue(SoInput* in)
{
    PoCartesianGridGeometry g;
    for (SbVec3f* v : {&g.origin, &g.uStep, &g.vStep})
        for (int k = 0; k < 3; ++k)
            if (!in->read((*v)[k])) return FALSE;
    if (!in->read(g.numU) || !in->read(g.numV) || g.numU < 0 || g.numV < 0) return FALSE;
    const std::size_t n = std::size_t(g.numU) * std::size_t(g.numV);
    // A count past what a file could hold is a corrupt file, not a request for memory.
    if (n > (std::size_t(1) << 28)) return FALSE;
    g.values.resize(n);
    for (float& v : g.values)
        if (!in->read(v)) return FALSE;
    value = std::move(g);
    return TRUE;
}

void PoSFCartesianGrid2D::writeValue(SoOutput* out) const
{
    // Text gets the shortest form that reads back as the same float, in any locale.
    auto number = [out](float v) {
        if (out->isBinary()) return out->write(v);
        char text[32];
        const auto end = std::to_chars(text, text + sizeof text - 1, v).ptr;
        *end = '\0';
        out->write(text);
    };
    auto space = [out] {
        if (!out->isBinary()) out->write(' ');
    };
    for (const SbVec3f* v : {&value.origin, &value.uStep, &value.vStep})
        for (int k = 0; k < 3; ++k) {
            number((*v)[k]);
            space();
        }
    out->write(value.numU);
    space();
    out->write(value.numV);
    for (float v : value.values) {
        space();
        number(v);
    }
}

SO_NODE_SOURCE(PoCartesianGrid2D)

void PoCartesianGrid2D::initClass()
{
    SO_NODE_INIT_CLASS(PoCartesianGrid2D, PoMesh, "PoMesh");
}

PoCartesianGrid2D::PoCartesianGrid2D()
{
    SO_NODE_CONSTRUCTOR(PoCartesianGrid2D);
    SO_NODE_ADD_FIELD(grid, (PoCartesianGridGeometry()));
}

PoCartesianGrid2D::~PoCartesianGrid2D() = default;

int PoCartesianGrid2D::getNumNodes() const
{
    const PoCartesianGridGeometry& g = grid.getValue();
    return g.numU * g.numV;
}

SbVec3f PoCartesianGrid2D::getNode(int i) const
{
    const PoCartesianGridGeometry& g = grid.getValue();
    return g.origin + g.uStep * float(i % g.numU) + g.vStep * float(i / g.numU);
}

float PoCartesianGrid2D::getValue(int i) const
{
    return grid.getValue().values[std::size_t(i)];
}

int PoCartesianGrid2D::getNumCells() const
{
    const PoCartesianGridGeometry& g = grid.getValue();
    return g.numU > 1 && g.numV > 1 ? (g.numU - 1) * (g.numV - 1) : 0;
}

void PoCartesianGrid2D::getCell(int c, int32_t nodes[4]) const
{
    const int nu = grid.getValue().numU;
    const int r = c / (nu - 1), col = c % (nu - 1);
    nodes[0] = r * nu + col;
    nodes[1] = (r + 1) * nu + col;
    nodes[2] = (r + 1) * nu + col + 1;
    nodes[3] = r * nu + col + 1;
}

SbVec3f PoCartesianGrid2D::getUAxis() const
{
    SbVec3f u = grid.getValue().uStep;
    u.normalize();
    return u;
}

SbVec3f PoCartesianGrid2D::getVAxis() const
{
    SbVec3f v = grid.getValue().vStep;
    v.normalize();
    return v;
}

SO_NODE_SOURCE(PoQuadrangleMesh)

void PoQuadrangleMesh::initClass()
{
    SO_NODE_INIT_CLASS(PoQuadrangleMesh, PoMesh, "PoMesh");
}

PoQuadrangleMesh::PoQuadrangleMesh()
{
    SO_NODE_CONSTRUCTOR(PoQuadrangleMesh);
    SO_NODE_ADD_FIELD(points, (SbVec3f(0, 0, 0)));
    SO_NODE_ADD_FIELD(quadrangles, (0));
    SO_NODE_ADD_FIELD(values, (0.f));
    SO_NODE_ADD_FIELD(uAxis, (1, 0, 0));
    SO_NODE_ADD_FIELD(vAxis, (0, 1, 0));
    points.setNum(0);
    quadrangles.setNum(0);
    values.setNum(0);
    points.setDefault(TRUE);
    quadrangles.setDefault(TRUE);
    values.setDefault(TRUE);
}

PoQuadrangleMesh::~PoQuadrangleMesh() = default;

int PoQuadrangleMesh::getNumNodes() const
{
    return std::min(points.getNum(), values.getNum());
}

SbVec3f PoQuadrangleMesh::getNode(int i) const
{
    return points[i];
}

float PoQuadrangleMesh::getValue(int i) const
{
    return values[i];
}

int PoQuadrangleMesh::getNumCells() const
{
    return quadrangles.getNum() / 4;
}

void PoQuadrangleMesh::getCell(int c, int32_t nodes[4]) const
{
    // An index that is no node makes a cell without values, which every reader leaves out.
    for (int k = 0; k < 4; ++k) {
        const int32_t i = quadrangles[4 * c + k];
        nodes[k] = i >= 0 && i < getNumNodes() ? i : -1;
    }
}

SbVec3f PoQuadrangleMesh::getUAxis() const
{
    SbVec3f u = uAxis.getValue();
    u.normalize();
    return u;
}

SbVec3f PoQuadrangleMesh::getVAxis() const
{
    SbVec3f v = vAxis.getValue();
    v.normalize();
    return v;
}

} // namespace meshkit
