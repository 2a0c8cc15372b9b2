#include <vxiso/VxIsosurfaceExternal.h>

#include <kx/KxException.h>
#include <kx/KxProgressInterface.h>
#include <oiv/SoTriSurface.h>
#include <vx/VxApplication.h>
#include <vx/VxCoord3.h>
#include <vx/VxMessage.h>
#include <vx/VxRegScalarField3.h>
#include <vxiso/extractor/VxIsosurfaceTools.h>

#include <QString>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <new>
#include <type_traits>

namespace {

constexpr bool edgeEndsFollowTheCellTables()
{
    using namespace vxiso::tables;
    for (int e = 1; e <= 12; ++e)
        for (int end = 0; end < 2; ++end)
            for (int a = 0; a < 3; ++a)
                if (VxIsosurfaceExternal::edge_ends[e][3 * end + a] !=
                    g_nodeCoords[g_edgeEndNodeIds[e][end]][a])
                    return false;
    return true;
}
static_assert(edgeEndsFollowTheCellTables(), "edge_ends must name the same end nodes as g_edgeEndNodeIds");

// The uniform mode of a value type; types without one of their own fall to the curvilinear mode.
template <class T> constexpr int uniformMode()
{
    using X = VxIsosurfaceExternal;
    return std::is_same<T, unsigned char>::value    ? X::UNIF_BYTE
           : std::is_same<T, short>::value          ? X::UNIF_SHORT
           : std::is_same<T, int>::value            ? X::UNIF_INT
           : std::is_same<T, float>::value          ? X::UNIF_FLOAT
           : std::is_same<T, double>::value         ? X::UNIF_DOUBLE
           : std::is_same<T, unsigned short>::value ? X::UNIF_USHORT
                                                    : X::CURVILINEAR;
}

VxMessage* console()
{
    return VxApplication::instance()->message();
}

// A parameter off the edge would put the vertex outside its cell (a callback's answer, or a value
// that is NaN); keep it on the edge.
template <class R> float onEdge(R t)
{
    if (t >= R(0) && t <= R(1)) return float(t);
    if (t < R(0)) return 0.f;
    if (t > R(1)) return 1.f;
    return 0.5f;
}

// Differences over the neighbouring nodes along each axis: central inside, one-sided at the border.
template <class Value>
KxVec3f gradientAt(const Value& value, int x, int y, int z, const int n[3], const float spacing[3])
{
    const int p[3] = {x, y, z};
    float g[3];
    for (int a = 0; a < 3; ++a) {
        int lo[3] = {x, y, z}, hi[3] = {x, y, z};
        const bool down = p[a] > 0, up = p[a] < n[a] - 1;
        if (down) --lo[a];
        if (up) ++hi[a];
        const float diff = float(value(hi[0], hi[1], hi[2])) - float(value(lo[0], lo[1], lo[2]));
        const float step = (down && up ? 2.f : 1.f) * spacing[a];
        g[a] = step != 0.f ? diff / step : 0.f;
    }
    return {g[0], g[1], g[2]};
}

// Field notification is off while the arrays are replaced, and always comes back on.
class NotifyGuard
{
public:
    explicit NotifyGuard(SoTriSurface* s) : m_fields{&s->coords, &s->normals, &s->triangles}
    {
        for (SoField* f : m_fields) f->enableNotify(FALSE);
    }
    ~NotifyGuard()
    {
        for (SoField* f : m_fields) {
            f->enableNotify(TRUE);
            f->touch();
        }
    }

private:
    SoField* m_fields[3];
};

} // namespace

VxIsosurfaceExternal::VxIsosurfaceExternal(const unsigned long* dims, float threshold, int method,
                                           float param, SoTriSurface* surface, VxCoord3* coords,
                                           KxProgressInterface* progress)
    : m_coords(coords), m_nx(dims ? dims[0] : 0), m_ny(dims ? dims[1] : 0), m_nz(dims ? dims[2] : 0),
      m_threshold(threshold), m_surface(surface), m_progress(progress), m_method(method), m_param(param)
{
}

void VxIsosurfaceExternal::setIntersectionCallback(IntersectionCallback callback, VxObject* object)
{
    m_callback = callback;
    m_callbackObject = object;
}

void VxIsosurfaceExternal::computeUniform(void* data, const KxPrimType& type, const KxVec3f& origin,
                                          const KxVec3f& voxelSize)
{
    m_mode = CURVILINEAR;
    kxDispatchPrimType(type, data, [this](auto* values) {
        m_mode = uniformMode<std::remove_pointer_t<decltype(values)>>();
    });
    m_type = type;
    m_data = data;
    m_ox = origin.x, m_oy = origin.y, m_oz = origin.z;
    m_sx = voxelSize.x, m_sy = voxelSize.y, m_sz = voxelSize.z;
    if (m_mode != CURVILINEAR && !data) {
        console()->error("Isosurface: the uniform field has no values.");
        return;
    }
    computeSurfaceInternal();
}

void VxIsosurfaceExternal::computeProcedural(const KxVec3f& origin, const KxVec3f& voxelSize,
                                             ProceduralFunction function, void* userData)
{
    m_mode = PROCEDURAL;
    m_procedural = function;
    m_proceduralData = userData;
    m_ox = origin.x, m_oy = origin.y, m_oz = origin.z;
    m_sx = voxelSize.x, m_sy = voxelSize.y, m_sz = voxelSize.z;
    if (!function) {
        console()->error("Isosurface: the procedural field has no function.");
        return;
    }
    computeSurfaceInternal();
}

void VxIsosurfaceExternal::computeCurvilinear(VxRegScalarField3* field)
{
    m_mode = CURVILINEAR;
    m_field = field;
    if (!inputsMatchDims()) {
        m_field = nullptr;
        return;
    }
    computeSurfaceInternal();
}

bool VxIsosurfaceExternal::inputsMatchDims()
{
    if (!m_field) {
        console()->error("Isosurface: no field to extract from.");
        return false;
    }
    if (!m_coords) m_coords = m_field->lattice().coords();
    const KxDim3l want{int64_t(m_nx), int64_t(m_ny), int64_t(m_nz)};
    auto mismatch = [&](const char* what, const KxDim3l& have) {
        console()->error(
            QString("Isosurface: the %1 has %2 x %3 x %4 nodes, the extraction was set up for %5 x %6 x %7.")
                .arg(what)
                .arg(have.nx)
                .arg(have.ny)
                .arg(have.nz)
                .arg(want.nx)
                .arg(want.ny)
                .arg(want.nz));
        return false;
    };
    if (!(m_field->getDims() == want)) return mismatch("field", m_field->getDims());
    if (!m_coords) return mismatch("field's coordinates", KxDim3l());
    if (!(m_coords->dims() == want)) return mismatch("field's coordinates", m_coords->dims());
    return true;
}

KxVec3f VxIsosurfaceExternal::gridPosition(int x, int y, int z) const
{
    return KxVec3f(m_ox + float(x) * m_sx, m_oy + float(y) * m_sy, m_oz + float(z) * m_sz);
}

// ---------------------------------------------------------------------------------------------
// Access to the nodes, one policy per kind of field: values, their comparison with the threshold,
// node positions, and whether gradients of the values give the normals.

// Values of element type T on the uniform grid, compared with the threshold in T. An integer type
// truncates the threshold toward zero: 100.7 on bytes is 100, so that values of 101 and more are
// above. Beyond the type's range the comparison is decided for every value alike.
template <class T> class VxIsosurfaceExternal::UniformAccess
{
public:
    static constexpr bool hasGradients = true;

    UniformAccess(const VxIsosurfaceExternal& x, const T* values) : m_x(x), m_values(values)
    {
        if constexpr (std::is_integral<T>::value) {
            const double lo = double(std::numeric_limits<T>::lowest()),
                         hi = double(std::numeric_limits<T>::max());
            const double t = std::trunc(double(x.m_threshold));
            m_everyNodeAbove = t < lo;
            m_threshold = T(std::isnan(t) || t > hi ? hi : m_everyNodeAbove ? lo : t);
        } else {
            m_threshold = T(x.m_threshold);
        }
    }

    bool everyNodeAbove() const { return m_everyNodeAbove; }
    T value(int x, int y, int z) const { return m_values[m_x.nodeIndex(x, y, z)]; }
    bool above(int x, int y, int z) const { return m_threshold < value(x, y, z); }
    KxVec3f position(int x, int y, int z) const { return m_x.gridPosition(x, y, z); }

private:
    const VxIsosurfaceExternal& m_x;
    const T* m_values;
    T m_threshold;
    bool m_everyNodeAbove = false;
};

// Any field through evalReg, nodes where its coordinates put them. Normals of curvilinear cells are
// left to the surface: they are dropped after the extraction.
class VxIsosurfaceExternal::CurvilinearAccess
{
public:
    static constexpr bool hasGradients = false;

    explicit CurvilinearAccess(const VxIsosurfaceExternal& x) : m_x(x) {}

    bool everyNodeAbove() const { return false; }
    float value(int x, int y, int z) const { return m_x.m_field->evalReg(x, y, z); }
    bool above(int x, int y, int z) const { return m_x.m_threshold < value(x, y, z); }
    KxVec3f position(int x, int y, int z) const { return m_x.m_coords->pos(x, y, z); }

private:
    const VxIsosurfaceExternal& m_x;
};

// A function sampled at the nodes of the uniform grid.
class VxIsosurfaceExternal::ProceduralAccess
{
public:
    static constexpr bool hasGradients = true;

    explicit ProceduralAccess(const VxIsosurfaceExternal& x) : m_x(x) {}

    bool everyNodeAbove() const { return false; }
    float value(int x, int y, int z) const { return m_x.m_procedural(m_x.m_proceduralData, x, y, z); }
    bool above(int x, int y, int z) const { return m_x.m_threshold < value(x, y, z); }
    KxVec3f position(int x, int y, int z) const { return m_x.gridPosition(x, y, z); }

private:
    const VxIsosurfaceExternal& m_x;
};

template <class F> void VxIsosurfaceExternal::withAccess(F&& f)
{
    if (m_mode == PROCEDURAL) {
        f(ProceduralAccess(*this));
    } else if (m_mode == CURVILINEAR) {
        f(CurvilinearAccess(*this));
    } else {
        kxDispatchPrimType(m_type, m_data, [&](auto* values) {
            using T = std::remove_pointer_t<decltype(values)>;
            if constexpr (uniformMode<T>() != CURVILINEAR) f(UniformAccess<T>(*this, values));
        });
    }
}

// ---------------------------------------------------------------------------------------------
// Case indices. Along a row the four nodes shared with the previous cell keep their bits: nodes
// 1, 5 become 0, 4 and nodes 2, 6 become 3, 7; only the four nodes at x + 1 are read.

template <class Access> int VxIsosurfaceExternal::caseIndex(int z, int y, int x, const Access& access)
{
    if (access.everyNodeAbove()) return m_caseBits = 255;
    const auto above = [&access](int i, int j, int k) { return access.above(i, j, k); };
    int bits;
    if (x == 0) {
        bits = int(above(x, y, z)) | int(above(x + 1, y, z)) << 1 | int(above(x + 1, y + 1, z)) << 2 |
               int(above(x, y + 1, z)) << 3 | int(above(x, y, z + 1)) << 4 |
               int(above(x + 1, y, z + 1)) << 5 | int(above(x + 1, y + 1, z + 1)) << 6 |
               int(above(x, y + 1, z + 1)) << 7;
    } else {
        bits = (m_caseBits & 34) >> 1 | (m_caseBits & 68) << 1;
        bits |= int(above(x + 1, y, z)) << 1 | int(above(x + 1, y + 1, z)) << 2 |
                int(above(x + 1, y, z + 1)) << 5 | int(above(x + 1, y + 1, z + 1)) << 6;
    }
    return m_caseBits = bits;
}

// ---------------------------------------------------------------------------------------------
// Intersections: the point where the threshold lies on the edge, interpolated from the edge's first
// node, the negated gradient interpolated alike as the normal, and the nearer end node.

template <class Access>
KxVec3f VxIsosurfaceExternal::intersection(int z, int y, int x, int edge, const Access& access,
                                           KxVec3f& normal, unsigned long& nearestNode) const
{
    const auto value = [&access](int i, int j, int k) { return access.value(i, j, k); };
    using R = std::conditional_t<std::is_same<std::decay_t<decltype(value(0, 0, 0))>, double>::value, double,
                                 float>;
    const signed char* e = edge_ends[edge];
    const int ax = x + e[0], ay = y + e[1], az = z + e[2];
    const int bx = x + e[3], by = y + e[4], bz = z + e[5];
    const R fa = R(value(ax, ay, az)), fb = R(value(bx, by, bz));
    const float t = onEdge((R(m_threshold) - fa) / (fb - fa));
    nearestNode = t > 0.5f ? nodeIndex(bx, by, bz) : nodeIndex(ax, ay, az);
    if constexpr (Access::hasGradients) {
        const int n[3] = {int(m_nx), int(m_ny), int(m_nz)};
        const float spacing[3] = {m_sx, m_sy, m_sz};
        const KxVec3f ga = gradientAt(value, ax, ay, az, n, spacing);
        const KxVec3f gb = gradientAt(value, bx, by, bz, n, spacing);
        normal =
            KxVec3f(-(ga.x + t * (gb.x - ga.x)), -(ga.y + t * (gb.y - ga.y)), -(ga.z + t * (gb.z - ga.z)));
        if (!vxiso::tools::isFinite(normal))
            normal = vxiso::tools::normalAcrossEdge(access.position(ax, ay, az), access.position(bx, by, bz),
                                                    R(m_threshold) < fa);
    } else {
        normal = KxVec3f();
    }
    const KxVec3f pa = access.position(ax, ay, az), pb = access.position(bx, by, bz);
    return KxVec3f(pa.x + t * (pb.x - pa.x), pa.y + t * (pb.y - pa.y), pa.z + t * (pb.z - pa.z));
}

// The callback places the vertex and gives no normal.
template <class Access>
KxVec3f VxIsosurfaceExternal::userIntersection(int z, int y, int x, int edge, const Access& access,
                                               KxVec3f& normal, unsigned long& nearestNode) const
{
    const signed char* e = edge_ends[edge];
    const int ax = x + e[0], ay = y + e[1], az = z + e[2];
    const int bx = x + e[3], by = y + e[4], bz = z + e[5];
    const unsigned long a = nodeIndex(ax, ay, az), b = nodeIndex(bx, by, bz);
    const float t = onEdge(m_callback(int(a), int(b), m_callbackObject));
    nearestNode = t > 0.5f ? b : a;
    normal = KxVec3f();
    const KxVec3f pa = access.position(ax, ay, az), pb = access.position(bx, by, bz);
    return KxVec3f(pa.x + t * (pb.x - pa.x), pa.y + t * (pb.y - pa.y), pa.z + t * (pb.z - pa.z));
}

// ---------------------------------------------------------------------------------------------
// Traversal.

template <class Access>
int VxIsosurfaceExternal::addIntersection(int z, int y, int x, int edge, const Access& access)
{
    KxVec3f normal;
    unsigned long nearest = 0;
    const KxVec3f p = m_callback ? userIntersection(z, y, x, edge, access, normal, nearest)
                                 : intersection(z, y, x, edge, access, normal, nearest);
    const std::size_t vertices = m_coordsOut.size() / 3;
    // This extractor cannot count ahead: it refuses the vertex that would not fit a 32-bit number.
    if (std::max<uint64_t>(vertices, m_remap.size()) >= m_maxElements)
        vxiso::tools::checkSurfaceSize(std::max<uint64_t>(vertices, m_remap.size()) + 1, 0);
    auto append = [&] {
        float* c = m_coordsOut.extend(3);
        c[0] = p.x, c[1] = p.y, c[2] = p.z;
        float* n = m_normalsOut.extend(3);
        n[0] = normal.x, n[1] = normal.y, n[2] = normal.z;
    };
    if (m_method != 1) {
        append();
        return int(vertices);
    }
    int& merged = m_nodeVertex[nearest];
    if (merged < 0) {
        merged = int(vertices);
        append();
        m_mergeCount.push_back(1);
    } else {
        float* c = m_coordsOut.data() + 3 * std::size_t(merged);
        c[0] += p.x, c[1] += p.y, c[2] += p.z;
        float* n = m_normalsOut.data() + 3 * std::size_t(merged);
        n[0] += normal.x, n[1] += normal.y, n[2] += normal.z;
        ++m_mergeCount[std::size_t(merged)];
    }
    m_remap.push_back(merged);
    return int(m_remap.size() - 1);
}

// Every grid edge is intersected once: its vertex id is kept per node, for the edges along x and y
// of the node layers below (z) and above (z + 1) the current cells and for the edges along z
// between them. A cell finds there the vertices made by its neighbours at x - 1, y - 1 and z - 1.
template <class Access> void VxIsosurfaceExternal::march(const Access& access)
{
    const int nx = int(m_nx), ny = int(m_ny), nz = int(m_nz);
    const std::size_t layer = std::size_t(nx) * std::size_t(ny);
    for (KxDArray<int>* a : {&m_lowX, &m_lowY, &m_highX, &m_highY, &m_upZ}) a->resize(layer, -1);
    m_lowX.fill(-1);
    m_lowY.fill(-1);
    int ids[13];
    for (int z = 0; z + 1 < nz; ++z) {
        if (m_progress) {
            m_progress->setProgressValue(float(z) / float(nz - 1));
            if (m_progress->wasInterrupted()) break;
        }
        m_highX.fill(-1);
        m_highY.fill(-1);
        m_upZ.fill(-1);
        for (int y = 0; y + 1 < ny; ++y) {
            for (int x = 0; x + 1 < nx; ++x) {
                const unsigned char* row = LUT[caseIndex(z, y, x, access)];
                if (!row[9]) continue;
                const std::size_t n0 = std::size_t(y) * std::size_t(nx) + std::size_t(x);
                for (int c = 0; c < row[9]; ++c) {
                    const int e = row[10 + c];
                    int* slot;
                    switch (e) {
                    case 1:
                        slot = &m_lowX[n0];
                        break;
                    case 2:
                        slot = &m_lowY[n0 + 1];
                        break;
                    case 3:
                        slot = &m_lowX[n0 + nx];
                        break;
                    case 4:
                        slot = &m_lowY[n0];
                        break;
                    case 5:
                        slot = &m_highX[n0];
                        break;
                    case 6:
                        slot = &m_highY[n0 + 1];
                        break;
                    case 7:
                        slot = &m_highX[n0 + nx];
                        break;
                    case 8:
                        slot = &m_highY[n0];
                        break;
                    case 9:
                        slot = &m_upZ[n0];
                        break;
                    case 10:
                        slot = &m_upZ[n0 + 1];
                        break;
                    case 11:
                        slot = &m_upZ[n0 + nx];
                        break;
                    default:
                        slot = &m_upZ[n0 + nx + 1];
                        break;
                    }
                    if (*slot < 0) *slot = addIntersection(z, y, x, e, access);
                    ids[e] = *slot;
                }
                if (m_trianglesOut.size() / 3 + row[22] > m_maxElements)
                    vxiso::tools::checkSurfaceSize(0, m_trianglesOut.size() / 3 + row[22]);
                const int corners = 3 * row[22];
                int32_t* t = m_trianglesOut.extend(std::size_t(corners));
                for (int c = 0; c < corners; ++c) t[c] = ids[row[23 + c]];
            }
        }
        m_lowX.swap(m_highX);
        m_lowY.swap(m_highY);
    }
}

bool VxIsosurfaceExternal::computeSurfaceMC()
{
    // A uniform field of a type without a mode of its own has nothing to read here.
    if (m_mode == CURVILINEAR && !m_field) return false;

    try {
        m_coordsOut.clear();
        m_normalsOut.clear();
        m_trianglesOut.clear();
        m_caseBits = 0;
        if (m_method == 1) {
            const std::size_t nodes = std::size_t(m_nx * m_ny * m_nz);
            m_nodeVertex.clear();
            m_nodeVertex.resize(nodes, -1);
            m_remap.clear();
            m_remap.reserve(nodes / 100 + 5);
            m_mergeCount.clear();
            m_mergeCount.reserve(1000);
        }
        if (m_nx >= 2 && m_ny >= 2 && m_nz >= 2) withAccess([this](const auto& access) { march(access); });
    } catch (const std::bad_alloc&) {
        freeWork();
        console()->printf("Open Inventor Memory exception. Try with a higher Threshold.");
        return false;
    }
    if (m_method == 0)
        console()->printf("Isosurface contains %d triangles.\n", int(m_trianglesOut.size() / 3));
    m_produced = true;
    return true;
}

void VxIsosurfaceExternal::computeSurfaceCC()
{
    try {
        if (!computeSurfaceMC()) return;
    } catch (const KxException& e) {
        m_produced = false;
        freeWork();
        console()->error(
            QString("Exception:\n%1\nTry to disable the compactify\noption and run again.").arg(e.text()));
        return;
    }
    for (std::size_t v = 0; v < m_mergeCount.size(); ++v) {
        float* c = m_coordsOut.data() + 3 * v;
        const float n = float(m_mergeCount[v]);
        c[0] /= n, c[1] /= n, c[2] /= n;
    }
    const std::size_t total = m_trianglesOut.size() / 3;
    std::size_t kept = 0;
    int32_t* t = m_trianglesOut.data();
    for (std::size_t i = 0; i < total; ++i) {
        const int32_t a = m_remap[std::size_t(t[3 * i])];
        const int32_t b = m_remap[std::size_t(t[3 * i + 1])];
        const int32_t c = m_remap[std::size_t(t[3 * i + 2])];
        if (a == b || b == c || a == c) continue;
        t[3 * kept] = a, t[3 * kept + 1] = b, t[3 * kept + 2] = c;
        ++kept;
    }
    m_trianglesOut.resize(3 * kept);
    // Nothing kept prints 0, not 100: the established text.
    const int percent = kept ? int(int64_t(total - kept) * 100 / int64_t(total)) : 0;
    console()->printf("Isosurface contains %d triangles (%d%% less)\n", int(kept), percent);
    m_remap = KxDArray<int>();
    m_mergeCount = KxDArray<int>();
    m_nodeVertex = KxDArray<int>();
}

void VxIsosurfaceExternal::computeSurfaceInternal()
{
    if (!m_surface) return;
    int64_t nodes = 0;
    if (m_nx > uint64_t(INT_MAX) || m_ny > uint64_t(INT_MAX) || m_nz > uint64_t(INT_MAX) ||
        __builtin_mul_overflow(int64_t(m_nx), int64_t(m_ny), &nodes) ||
        __builtin_mul_overflow(nodes, int64_t(m_nz), &nodes)) {
        console()->error(QString("Isosurface: %1 x %2 x %3 nodes are too many to index.")
                             .arg(qulonglong(m_nx))
                             .arg(qulonglong(m_ny))
                             .arg(qulonglong(m_nz)));
        return;
    }
    NotifyGuard guard(m_surface);
    m_produced = false;
    m_maxElements = vxiso::tools::maxSurfaceElements();
    if (m_method == 0)
        computeSurfaceMC();
    else if (m_method == 1)
        computeSurfaceCC();
    if (m_produced) {
        const int vertices = int(m_coordsOut.size() / 3);
        const int triangles = int(m_trianglesOut.size() / 3);
        // Curvilinear cells and user intersections bring no gradients; the surface makes its own.
        const bool normals = m_mode != CURVILINEAR && !m_callback;
        if (normals) {
            float* n = m_normalsOut.data();
            for (int v = 0; v < vertices; ++v, n += 3) {
                const float len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
                if (len > 0.f) n[0] /= len, n[1] /= len, n[2] /= len;
            }
        }
        m_surface->adoptCoords(vertices, m_coordsOut.release());
        if (normals)
            m_surface->adoptNormals(vertices, m_normalsOut.release());
        else
            m_surface->normals.setNum(0);
        m_surface->adoptTriangles(triangles, m_trianglesOut.release());
        m_surface->colors.setNum(0);
    }
    freeWork();
}

void VxIsosurfaceExternal::freeWork()
{
    for (KxDArray<int>* a :
         {&m_nodeVertex, &m_remap, &m_mergeCount, &m_lowX, &m_lowY, &m_highX, &m_highY, &m_upZ})
        *a = KxDArray<int>();
    m_coordsOut = KxDArray<float>();
    m_normalsOut = KxDArray<float>();
    m_trianglesOut = KxDArray<int32_t>();
}
