#pragma once
#include <vxiso/extractor/VxIsosurfaceByteCaseTable.h>

#include <kx/KxDArray.h>
#include <kx/KxPrimType.h>
#include <kx/KxVec3.h>

#include <cstdint>

class KxProgressInterface;
class SoTriSurface;
class VxCoord3;
class VxObject;
class VxRegScalarField3;

// The older marching-cubes extractor, still used for block-structured and procedural fields. One
// plain class, one traversal over an access policy per kind of field (uniform values of each type,
// any field through its coordinates, a function), its own byte tables, and output written straight
// into an SoTriSurface. Method 1 ("compactify") merges the vertices whose nearest grid node is the
// same into their mean and drops the triangles that collapse.
//
// Everything runs on the calling thread. A KxException (from a callback or the progress sink)
// leaves method 0 to the caller; method 1 reports it itself. When memory runs out the surface keeps
// what it had.
class VxIsosurfaceExternal
{
public:
    // Interpolation parameter on the edge between two nodes, given their linear indices
    // ((z * ny + y) * nx + x, first node the lower end of the edge): 0 puts the vertex on the first
    // node, 1 on the second. Values outside [0, 1] are clamped, NaN counts as 0.5.
    using IntersectionCallback = float (*)(int, int, VxObject*);
    // Value of node (x, y, z) of a procedural field; the first argument is the user pointer.
    using ProceduralFunction = float (*)(void*, int, int, int);

    enum Mode
    {
        UNIF_BYTE = 0,
        UNIF_SHORT = 1,
        UNIF_INT = 2,
        UNIF_FLOAT = 3,
        UNIF_DOUBLE = 4,
        CURVILINEAR = 5,
        UNIF_USHORT = 6,
        PROCEDURAL = 7
    };

    // dims: node counts nx, ny, nz. method: 0 plain, 1 compactify, anything else computes nothing.
    // param is kept with the method and not read. coords places the nodes in the curvilinear mode
    // (null: the field's own coordinates). progress may be null.
    VxIsosurfaceExternal(const unsigned long* dims, float threshold, int method, float param,
                         SoTriSurface* surface, VxCoord3* coords, KxProgressInterface* progress);

    void setIntersectionCallback(IntersectionCallback callback, VxObject* object);

    // Values of the given type at origin + (x, y, z) * voxelSize, x fastest. Types without a mode
    // of their own fall to the curvilinear mode, which reads the field of an earlier
    // computeCurvilinear (and computes nothing without one).
    void computeUniform(void* data, const KxPrimType& type, const KxVec3f& origin, const KxVec3f& voxelSize);
    void computeProcedural(const KxVec3f& origin, const KxVec3f& voxelSize, ProceduralFunction function,
                           void* userData);
    // Any field, values through evalReg, node positions from the coordinates. Its dimensions must
    // be the constructor's.
    void computeCurvilinear(VxRegScalarField3* field);

    int getMode() const { return m_mode; }
    int getMethod() const { return m_method; }
    float getParameter() const { return m_param; }

    // The case rows of vxiso::tables::g_marchingCases in bytes: nodes above, cut edges, triangles.
    static constexpr vxiso::tables::ByteCaseTable<unsigned char> LUT =
        vxiso::tables::makeByteCaseTable<unsigned char>();

    // Cell-relative grid offsets (dx0, dy0, dz0, dx1, dy1, dz1) of the first and second end node of
    // edges 1..12; row 0 is unused.
    static constexpr signed char edge_ends[13][6] = {
        {0, 0, 0, 0, 0, 0}, {0, 0, 0, 1, 0, 0}, {1, 0, 0, 1, 1, 0}, {0, 1, 0, 1, 1, 0}, {0, 0, 0, 0, 1, 0},
        {0, 0, 1, 1, 0, 1}, {1, 0, 1, 1, 1, 1}, {0, 1, 1, 1, 1, 1}, {0, 0, 1, 0, 1, 1}, {0, 0, 0, 0, 0, 1},
        {1, 0, 0, 1, 0, 1}, {0, 1, 0, 0, 1, 1}, {1, 1, 0, 1, 1, 1}};

private:
    // How the traversal reads the nodes of a mode: the values, their comparison with the threshold,
    // the node positions, and whether gradients of the values give the normals.
    template <class T> class UniformAccess;
    class CurvilinearAccess;
    class ProceduralAccess;

    void computeSurfaceInternal();
    // False when nothing usable was produced (memory ran out, nothing to compute).
    bool computeSurfaceMC();
    void computeSurfaceCC();

    // Calls f with the access of the current mode.
    template <class F> void withAccess(F&& f);
    template <class Access> void march(const Access& access);
    template <class Access> int caseIndex(int z, int y, int x, const Access& access);
    template <class Access> int addIntersection(int z, int y, int x, int edge, const Access& access);
    template <class Access>
    KxVec3f intersection(int z, int y, int x, int edge, const Access& access, KxVec3f& normal,
                         unsigned long& nearestNode) const;
    template <class Access>
    KxVec3f userIntersection(int z, int y, int x, int edge, const Access& access, KxVec3f& normal,
                             unsigned long& nearestNode) const;

    bool inputsMatchDims();
    // Node (x, y, z) of the uniform grid.
    KxVec3f gridPosition(int x, int y, int z) const;
    unsigned long nodeIndex(int x, int y, int z) const
    {
        return (unsigned long)((uint64_t(z) * m_ny + uint64_t(y)) * m_nx + uint64_t(x));
    }
    void freeWork();

    int m_mode = -1;
    void* m_data = nullptr;
    KxPrimType m_type;
    float m_sx = 1.f, m_sy = 1.f, m_sz = 1.f;
    float m_ox = 0.f, m_oy = 0.f, m_oz = 0.f;
    VxCoord3* m_coords;
    VxRegScalarField3* m_field = nullptr;
    ProceduralFunction m_procedural = nullptr;
    void* m_proceduralData = nullptr;
    uint64_t m_nx, m_ny, m_nz;
    float m_threshold;
    IntersectionCallback m_callback = nullptr;
    VxObject* m_callbackObject = nullptr;
    SoTriSurface* m_surface;
    KxProgressInterface* m_progress;
    int m_method;
    float m_param;
    int m_caseBits = 0;

    // Compactify: the vertex that each grid node's intersections merge into, the vertex each
    // intersection went to, and how many intersections each vertex sums.
    KxDArray<int> m_nodeVertex;
    KxDArray<int> m_remap;
    KxDArray<int> m_mergeCount;

    // The surface being built; handed to the surface node when complete.
    KxDArray<float> m_coordsOut;
    KxDArray<float> m_normalsOut;
    KxDArray<int32_t> m_trianglesOut;
    bool m_produced = false;
    uint64_t m_maxElements = 0; // vertices or triangles that can be numbered

    // Vertex ids of the edges along x and y of the node layers below and above the current cells,
    // and of the edges along z between them, one per node of a layer.
    KxDArray<int> m_lowX, m_lowY, m_highX, m_highY, m_upZ;
};
