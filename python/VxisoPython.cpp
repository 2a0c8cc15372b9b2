// The Python module `vxiso`: the marching-cubes engine on NumPy arrays read in place, the volume and
// mesh readers and the surface writers. The engine's arrays become NumPy's without a copy.
#include <vxiso/VxIsosurfaceExtractor.h>
#include <vxiso/VxIsosurfaceFilter.h>
#include <vxiso/VxTetraSurface.h>
#include <vxiso/isolines/VxIsolineContouring.h>

#include <io/VxBlockReader.h>
#include <io/VxMeshReader.h>
#include <io/VxRawReader.h>
#include <io/VxSurfaceWriter.h>
#include <io/VxVolumeReader.h>
#include <kx/KxBitfield.h>
#include <kx/KxException.h>
#include <kx/KxMemory.h>
#include <kx/KxMorphology.h>
#include <kx/KxVec3.h>
#include <oiv/SoTriSurface.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxHexaScalarField3.h>
#include <vx/VxLabelLattice3.h>
#include <vx/VxLocation3.h>
#include <vx/VxRectilinearCoord3.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxTetraScalarField3.h>
#include <vx/VxUniformLabelField3.h>
#include <vx/VxUnstructuredGrid.h>

#include <Inventor/SoDB.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <tbb/global_control.h>

#include <QFileInfo>

#include <array>
#include <cmath>
#include <optional>
#include <set>
#include <thread>

namespace py = pybind11;

static_assert(sizeof(KxVec3f) == 3 * sizeof(float) && sizeof(KxVec3i) == 3 * sizeof(int32_t),
              "the engine's vectors must be packed triples to become (n, 3) arrays");

namespace {

// The element type of a native-order array of one of the eight value types.
KxPrimType primTypeOf(const py::dtype& dtype)
{
    if (dtype.byteorder() == '>') return KxPrimType::UNKNOWN;
    const char kind = dtype.kind();
    const auto size = dtype.itemsize();
    if (kind == 'u')
        return size == 1   ? KxPrimType::UINT8
               : size == 2 ? KxPrimType::UINT16
               : size == 4 ? KxPrimType::UINT32
                           : KxPrimType::UNKNOWN;
    if (kind == 'i')
        return size == 1   ? KxPrimType::INT8
               : size == 2 ? KxPrimType::INT16
               : size == 4 ? KxPrimType::INT32
                           : KxPrimType::UNKNOWN;
    if (kind == 'f')
        return size == 4 ? KxPrimType::FLOAT : size == 8 ? KxPrimType::DOUBLE : KxPrimType::UNKNOWN;
    return KxPrimType::UNKNOWN;
}

std::string str(const py::handle& o)
{
    return py::str(o).cast<std::string>();
}

std::array<double, 3> triple(const char* name, const py::object& o)
{
    std::array<double, 3> v;
    try {
        v = o.cast<std::array<double, 3>>();
    } catch (const py::cast_error&) {
        throw py::value_error(std::string(name) + " must be three numbers, not " + str(py::repr(o)));
    }
    for (double x : v)
        if (!std::isfinite(x)) throw py::value_error(std::string(name) + " must be finite numbers");
    return v;
}

// Reports progress to an optional callback and lets Ctrl-C (or an exception of the callback) stop
// the engine. Called on the thread that released the GIL, while the engine runs on its own.
class PythonProgress : public KxProgressInterface
{
public:
    explicit PythonProgress(py::object callback) : m_callback(std::move(callback)) {}

    void setProgressValue(float value) override
    {
        if (m_interrupted || m_callback.is_none()) return;
        py::gil_scoped_acquire gil;
        try {
            m_callback(value);
        } catch (py::error_already_set& e) {
            m_error = std::move(e);
            m_interrupted = true;
        }
    }
    bool wasInterrupted() override
    {
        if (!m_interrupted) {
            py::gil_scoped_acquire gil;
            if (PyErr_CheckSignals() != 0) {
                m_error = py::error_already_set();
                m_interrupted = true;
            }
        }
        return m_interrupted;
    }
    // The exception that stopped the extraction: the callback's, or KeyboardInterrupt.
    [[noreturn]] void raise()
    {
        if (m_error)
            m_error->restore();
        else
            PyErr_SetNone(PyExc_KeyboardInterrupt);
        throw py::error_already_set();
    }

private:
    py::object m_callback;
    std::optional<py::error_already_set> m_error;
    bool m_interrupted = false;
};

// An engine array as an (n, 3) NumPy array that frees the block when NumPy lets it go.
template <class T, class V> py::array_t<T> adopt(KxDArray<V>& values, py::ssize_t rows = -1)
{
    const py::ssize_t n = rows < 0 ? py::ssize_t(values.size()) : rows;
    T* block = reinterpret_cast<T*>(values.release());
    if (!block) return py::array_t<T>(std::vector<py::ssize_t>{0, 3});
    py::capsule owner(block, [](void* p) { kxfree(p); });
    return py::array_t<T>({n, py::ssize_t(3)}, block, owner);
}

// The mask's non-zero nodes as 0/1 labels in the engine's node order (the volume's memory order).
std::unique_ptr<VxLabelLattice3> maskLabels(const py::object& mask, const py::array& volume, bool fortran,
                                            const KxDim3l& dims, bool relaxed)
{
    if (!py::isinstance<py::array>(mask))
        throw py::value_error("mask must be a NumPy array, not " + str(py::type::of(mask).attr("__name__")));
    const py::array m = mask;
    bool same = m.ndim() == 3;
    for (int a = 0; same && a < 3; ++a) same = m.shape(a) == volume.shape(a);
    if (!same)
        throw py::value_error("the mask has shape " + str(m.attr("shape")) + " but the volume has " +
                              str(volume.attr("shape")) + "; they must match");
    const py::module_ np = py::module_::import("numpy");
    const py::array inside = np.attr("asarray")(np.attr("not_equal")(m, 0), "uint8", fortran ? "F" : "C");
    auto labels = std::make_unique<VxLabelLattice3>(dims, KxPrimType::UINT8);
    auto* out = static_cast<unsigned char*>(labels->getLabels(0));
    std::memcpy(out, inside.data(), std::size_t(dims.count()));
    if (relaxed) { // the region grows by one node in every direction (26 neighbours)
        const std::size_t n = std::size_t(dims.count());
        KxBitfield a(n, true);
        KxBitfield b(a);
        a.fromLabels(n, out, 1);
        KxMorphology::dilation3D(a, b, KxVec3i(int(dims.nx), int(dims.ny), int(dims.nz)), 1);
        b.toLabels(n, out, 1, KxBitfield::LabelPolicy(3));
    }
    return labels;
}

// A volume read in place as the engine's field: its x is NumPy's axis axis[0], and so on.
struct Borrowed
{
    py::array volume;
    bool cOrder;
    int axis[3];
    std::unique_ptr<VxUniformScalarField3> field;
};

Borrowed borrow(const py::object& object, const std::array<double, 3>& spacing,
                const std::array<double, 3>& origin)
{
    if (!py::isinstance<py::array>(object))
        throw py::value_error("volume must be a NumPy array, not " +
                              str(py::type::of(object).attr("__name__")));
    const py::array volume = object;
    if (volume.ndim() != 3)
        throw py::value_error("volume must be a 3-D array, not " + std::to_string(volume.ndim()) + "-D");
    const KxPrimType type = primTypeOf(volume.dtype());
    if (!type.isValid())
        throw py::value_error("volume holds " + str(volume.dtype()) +
                              " values; it must hold native uint8, int8, uint16, int16, uint32, int32, "
                              "float32 or float64 values");
    const int flags = py::detail::array_proxy(volume.ptr())->flags;
    const bool cOrder = flags & py::detail::npy_api::NPY_ARRAY_C_CONTIGUOUS_;
    const bool fOrder = flags & py::detail::npy_api::NPY_ARRAY_F_CONTIGUOUS_;
    if (!cOrder && !fOrder)
        throw py::value_error("volume must be C- or F-contiguous (np.ascontiguousarray makes a copy)");

    // The engine's x runs fastest in memory: in C order it is NumPy's last axis, in F order its first.
    Borrowed b{volume, cOrder, {cOrder ? 2 : 0, 1, cOrder ? 0 : 2}, nullptr};
    const KxDim3l dims{volume.shape(b.axis[0]), volume.shape(b.axis[1]), volume.shape(b.axis[2])};
    KxVec3f lo, step, hi;
    for (int a = 0; a < 3; ++a) {
        lo[a] = float(origin[b.axis[a]]);
        step[a] = float(spacing[b.axis[a]]);
        hi[a] = lo[a] + float(std::max<int64_t>(dims[a] - 1, 0)) * step[a];
    }
    try {
        b.field = std::make_unique<VxUniformScalarField3>(dims, type, const_cast<void*>(volume.data()),
                                                          VxBorrowedValues());
    } catch (const KxException& e) {
        throw py::value_error(e.what());
    }
    b.field->setBoundingBox(KxBox3f(lo.x, hi.x, lo.y, hi.y, lo.z, hi.z), step);
    return b;
}

py::tuple marchingCubes(const py::object& object, double level, const py::object& spacingArg,
                        const py::object& originArg, bool compactify, const py::object& undefined,
                        const py::object& mask, bool relaxed, const py::object& cores,
                        const py::object& progress)
{
    const std::array<double, 3> spacing = triple("spacing", spacingArg), origin = triple("origin", originArg);
    const Borrowed b = borrow(object, spacing, origin);
    const bool cOrder = b.cOrder;
    VxUniformScalarField3* field = b.field.get();
    const KxDim3l dims = field->getDims();
    if (std::isnan(level)) throw py::value_error("level must be a number, not nan");
    int64_t numberOfCores = std::max(1u, std::thread::hardware_concurrency());
    if (!cores.is_none()) {
        if (!PyIndex_Check(cores.ptr()))
            throw py::value_error("cores must be an integer, not " + str(py::repr(cores)));
        numberOfCores = py::int_(cores).cast<int64_t>();
        if (numberOfCores < 1 || numberOfCores > 4096)
            throw py::value_error("cores must be between 1 and 4096, not " + std::to_string(numberOfCores));
    }

    if (!undefined.is_none()) {
        if (!PyNumber_Check(undefined.ptr()) || py::isinstance<py::array>(undefined))
            throw py::value_error("undefined must be a number, not " + str(py::repr(undefined)));
        field->setUndefinedValue(py::float_(undefined).cast<double>());
    }
    std::unique_ptr<VxLabelLattice3> labels;
    if (!mask.is_none())
        labels = maskLabels(mask, b.volume, !cOrder, dims, relaxed);
    else if (relaxed)
        throw py::value_error("relaxed belongs to mask");

    PythonProgress sink(progress);
    VxIsosurfaceExtractor extractor(field, nullptr, &sink);
    extractor.compact = compactify ? 1 : 0;
    extractor.isoValue = float(level);
    extractor.numberOfCores = numberOfCores;
    try {
        py::gil_scoped_release released;
        std::unique_ptr<tbb::global_control> cap;
        if (numberOfCores > 1)
            cap = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism,
                                                        std::size_t(numberOfCores));
        if (labels)
            extractor.compute(vxiso::filter::LabelIsoSurfaceFilter(*field, labels.get()));
        else
            extractor.compute();
    } catch (const KxInterrupted&) {
        sink.raise();
    } catch (const KxOutOfMemory& e) {
        PyErr_SetString(PyExc_MemoryError, e.what());
        throw py::error_already_set();
    } catch (const KxException& e) {
        throw py::value_error(e.what());
    }

    KxDArray<KxVec3f> coords = extractor.takeCoords(), normals = extractor.takeNormals();
    KxDArray<KxVec3i> triangles = extractor.takeTriangles();
    if (cOrder) {
        // Back to NumPy's index order; the swap mirrors space, so each triangle turns round too to
        // keep facing along its normals.
        // One pass over both: the arrays are far larger than the caches.
        const std::size_t both = std::min(coords.size(), normals.size());
        KxVec3f *c = coords.data(), *n = normals.data();
        for (std::size_t i = 0; i < both; ++i) {
            std::swap(c[i].x, c[i].z);
            std::swap(n[i].x, n[i].z);
        }
        for (std::size_t i = both; i < coords.size(); ++i) std::swap(c[i].x, c[i].z);
        for (std::size_t i = both; i < normals.size(); ++i) std::swap(n[i].x, n[i].z);
        for (KxVec3i& t : triangles) std::swap(t.y, t.z);
    }
    return py::make_tuple(adopt<float>(coords), adopt<int32_t>(triangles), adopt<float>(normals));
}

// Contour lines on the slice of nodes `index` across NumPy axis `axis`, in array index coordinates.
py::list isolines(const py::object& object, const std::vector<double>& values, int axis, int64_t index,
                  const py::object& resolution)
{
    const Borrowed b = borrow(object, {1, 1, 1}, {0, 0, 0});
    if (axis < 0 || axis > 2) throw py::value_error("axis must be 0, 1 or 2, not " + std::to_string(axis));
    const int e = b.axis[0] == axis ? 0 : b.axis[1] == axis ? 1 : 2; // the engine's axis across the slice
    const KxDim3l dims = b.field->getDims();
    if (index < 0 || index >= dims[e])
        throw py::value_error("index must be between 0 and " + std::to_string(dims[e] - 1) + ", not " +
                              std::to_string(index));
    std::vector<float> isoValues;
    for (double v : values) {
        if (std::isnan(v)) throw py::value_error("values must be numbers, not nan");
        isoValues.push_back(float(v));
    }
    // As the isoline module samples an ortho slice: resolution x resolution samples spanning the
    // slice, by default one a node along its longer side (at least 16), and the slice's box widened
    // by a hair so that the last row and column count.
    const int u = e == 0 ? 1 : 0, v = e == 2 ? 1 : 2;
    VxIsolineSampling sampling;
    sampling.resolution = int(std::clamp<int64_t>(std::max(dims[u], dims[v]), 16, 4096));
    if (!resolution.is_none()) {
        sampling.resolution = py::int_(resolution).cast<int>();
        if (sampling.resolution < 16 || sampling.resolution > 4096)
            throw py::value_error("resolution must be between 16 and 4096, not " +
                                  std::to_string(sampling.resolution));
    }
    sampling.origin[e] = float(index);
    sampling.uStep = SbVec3f(0, 0, 0);
    sampling.vStep = SbVec3f(0, 0, 0);
    sampling.uStep[u] = float(dims[u] - 1) / float(sampling.resolution - 1);
    sampling.vStep[v] = float(dims[v] - 1) / float(sampling.resolution - 1);
    const float slack = 1e-5f * float(std::max({dims[0], dims[1], dims[2]}) - 1);
    float bounds[6];
    for (int a = 0; a < 3; ++a) {
        bounds[2 * a] = (a == e ? float(index) : 0.f) - slack;
        bounds[2 * a + 1] = (a == e ? float(index) : float(dims[a] - 1)) + slack;
    }
    const KxBox3f box(bounds[0], bounds[1], bounds[2], bounds[3], bounds[4], bounds[5]);

    VxIsolineContouring contouring;
    contouring.setIsoValues(isoValues.data(), int(isoValues.size()));
    const std::unique_ptr<VxLocation3> location = b.field->createLocation();
    struct Location
    {
        VxLocation3& at;
        bool set(const SbVec3f& p) { return at.set(p); }
        bool move(const SbVec3f& p) { return at.move(p); }
        bool evaluate(float& value) { return at.eval(value); }
    } at{*location};
    {
        py::gil_scoped_release released;
        contouring.doGeneric(sampling, box, at);
    }
    const VxIsolineLines& lines = contouring.lines();
    py::list out;
    const SbVec3f* p = lines.points.data();
    for (int l = 0; l < lines.getNumLines(); ++l) {
        const int n = lines.numVertices[std::size_t(l)];
        py::array_t<float> points({py::ssize_t(n), py::ssize_t(3)});
        for (int k = 0; k < n; ++k, ++p)
            for (int a = 0; a < 3; ++a) points.mutable_at(k, b.axis[a]) = (*p)[a];
        out.append(py::make_tuple(lines.lineValues[std::size_t(l)], points));
    }
    return out;
}

// The module's surface of a tetrahedral mesh: (verts, faces, normals), the engine's arrays handed
// over; the normals are those the module's surface is lit with.
py::tuple tetraSurface(const py::object& pointsArg, const py::object& tetrasArg, const py::object& valuesArg,
                       double level, const py::object& progress)
{
    using Floats = py::array_t<float, py::array::c_style | py::array::forcecast>;
    using Ints = py::array_t<int32_t, py::array::c_style | py::array::forcecast>;
    const Floats points = Floats::ensure(pointsArg), values = Floats::ensure(valuesArg);
    const Ints tetras = Ints::ensure(tetrasArg);
    if (!points || points.ndim() != 2 || points.shape(1) != 3)
        throw py::value_error("points must be an array of shape (n, 3)");
    if (!tetras || tetras.ndim() != 2 || tetras.shape(1) != 4)
        throw py::value_error("tetrahedra must be an array of shape (m, 4)");
    if (!values || values.ndim() != 1 || values.shape(0) != points.shape(0))
        throw py::value_error("values must hold one value a point (" + std::to_string(points.shape(0)) + ")");
    if (std::isnan(level)) throw py::value_error("level must be a number, not nan");
    if (points.shape(0) > INT32_MAX) throw py::value_error("more points than 32-bit indices can number");
    const int32_t n = int32_t(points.shape(0));
    const int32_t* t = tetras.data();
    for (py::ssize_t i = 0; i < 4 * tetras.shape(0); ++i)
        if (t[i] < 0 || t[i] >= n)
            throw py::value_error("tetrahedron " + std::to_string(i / 4) + " refers to point " +
                                  std::to_string(t[i]) + ", but there are " + std::to_string(n));
    PythonProgress sink(progress);
    VxTetraSurface s;
    KxDArray<KxVec3f> normals;
    try {
        py::gil_scoped_release released;
        s = VxTetraSurface::extract(points.data(), n, t, 4, std::size_t(tetras.shape(0)), values.data(),
                                    float(level), &sink);
        normals.resize(std::size_t(s.numVertices));
        static_assert(sizeof(SbVec3f) == sizeof(KxVec3f), "normals are written as Inventor vectors");
        SoTriSurface::areaWeightedNormals(s.numVertices, reinterpret_cast<const SbVec3f*>(s.xyz.data()),
                                          int(s.numTriangles), s.triangles.data(),
                                          reinterpret_cast<SbVec3f*>(normals.data()));
    } catch (const KxInterrupted&) {
        sink.raise();
    } catch (const std::bad_alloc&) {
        PyErr_SetString(PyExc_MemoryError, "not enough memory for the surface of the tetrahedra");
        throw py::error_already_set();
    }
    return py::make_tuple(adopt<float>(s.xyz, s.numVertices),
                          adopt<int32_t>(s.triangles, py::ssize_t(s.numTriangles)), adopt<float>(normals));
}

[[noreturn]] void readFailed(const std::string& path, const QString& error)
{
    const QFileInfo file(QString::fromStdString(path));
    if (!file.exists() || !file.isReadable() || file.isDir()) {
        PyErr_SetString(PyExc_OSError, error.toStdString().c_str());
        throw py::error_already_set();
    }
    throw py::value_error(error.toStdString());
}

// A data object's array without a copy: NumPy holds a reference to the object. strides in bytes;
// empty gives the dense array in F or C order.
py::array viewOf(VxObject* owner, const py::dtype& dtype, std::vector<py::ssize_t> shape, const void* data,
                 bool fortran, std::vector<py::ssize_t> strides = {})
{
    owner->ref();
    py::capsule keep(owner, [](void* p) { static_cast<VxObject*>(p)->unref(); });
    if (strides.empty()) {
        strides.resize(shape.size());
        py::ssize_t stride = dtype.itemsize();
        for (std::size_t i = 0; i < shape.size(); ++i) {
            const std::size_t a = fortran ? i : shape.size() - 1 - i;
            strides[a] = stride;
            stride *= shape[a];
        }
    }
    return py::array(dtype, shape, strides, data, keep);
}

py::dtype dtypeOf(KxPrimType type)
{
    return py::dtype(type == KxPrimType::FLOAT    ? "float32"
                     : type == KxPrimType::DOUBLE ? "float64"
                                                  : type.name());
}

using DataHold = std::unique_ptr<VxSpatialData, void (*)(VxSpatialData*)>;
DataHold hold(VxSpatialData* data)
{
    data->ref();
    return DataHold(data, [](VxSpatialData* d) { d->unref(); });
}

// The 4 x 4 matrix that places a data object in space (column vectors), or None.
py::object transformOf(const VxSpatialData& data)
{
    SbMatrix m;
    if (!data.getTransform(m)) return py::none();
    py::array_t<float> t({4, 4});
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) t.mutable_at(i, j) = m[j][i]; // Inventor's rows are columns
    return std::move(t);
}

// A mesh as its values (per node or per cell, as the file gives them) and a placement that holds
// the nodes and the cells; the values and nodes are read in place.
py::tuple meshArrays(VxSpatialData* data, const VxVolumeInfo& info)
{
    const DataHold held = hold(data);
    const VxUnstructuredGrid* grid = nullptr;
    const float* values = nullptr;
    std::size_t count = 0;
    int encoding = 0;
    py::array_t<int32_t> cells;
    // Cells as (n, nodes) rows; the grids keep them in structs, so they are copied.
    auto rowsOf = [](const auto* cell, int32_t n) {
        constexpr int size = sizeof(cell->nodes) / sizeof(int32_t);
        py::array_t<int32_t> rows({py::ssize_t(n), py::ssize_t(size)});
        for (int32_t c = 0; c < n; ++c)
            std::memcpy(rows.mutable_data(c, 0), cell[c].nodes, sizeof(cell->nodes));
        return rows;
    };
    if (auto* tetra = dynamic_cast<VxTetraScalarField3*>(data)) {
        grid = tetra->getGrid(), values = tetra->getValues(), count = tetra->getNumValues();
        encoding = tetra->getEncoding();
        cells = rowsOf(tetra->getGrid()->getTetras(), tetra->getGrid()->getNumTetras());
    } else if (auto* hexa = dynamic_cast<VxHexaScalarField3*>(data)) {
        grid = hexa->grid(), values = hexa->getValues(), count = hexa->getNumValues();
        encoding = hexa->getEncoding();
        cells = rowsOf(hexa->grid()->getHexas(), hexa->grid()->getNumHexas());
    }
    if (!grid) throw py::value_error("the mesh reader returned no grid");
    py::dict placement;
    placement["format"] = info.format.toStdString();
    placement["points"] =
        viewOf(data, py::dtype("float32"), {grid->getNumNodes(), 3}, grid->getNodes(), false);
    placement["cells"] = cells;
    placement["kind"] = cells.shape(1) == 4 ? "tetrahedra" : "hexahedra";
    placement["per"] = encoding == 0 ? "node" : encoding == 1 ? "corner" : "cell";
    placement["transform"] = transformOf(*data);
    return py::make_tuple(viewOf(data, py::dtype("float32"), {py::ssize_t(count)}, values, false), placement);
}

// Where a lattice's nodes are: spacing and origin of uniform coordinates, the planes of each axis of
// rectilinear ones, every node's position of curvilinear ones (viewed in place).
void placeNodes(VxRegScalarField3* field, py::dict& placement)
{
    const KxDim3l& d = field->getDims();
    VxCoord3* coords = field->lattice().coords();
    switch (field->coordType()) {
    case VX_COORD_UNIFORM: {
        const KxVec3f s = static_cast<VxUniformCoord3*>(coords)->getVoxelSize();
        const KxBox3f box = coords->getBoundingBox();
        placement["kind"] = "uniform";
        placement["spacing"] = py::make_tuple(s.x, s.y, s.z);
        placement["origin"] = py::make_tuple(box.xmin, box.ymin, box.zmin);
        break;
    }
    case VX_COORD_RECTILINEAR: {
        const auto* axes = static_cast<VxRectilinearCoord3*>(coords);
        placement["kind"] = "rectilinear";
        placement["axes"] =
            py::make_tuple(viewOf(field, py::dtype("float32"), {d.nx}, axes->coords(0), false),
                           viewOf(field, py::dtype("float32"), {d.ny}, axes->coords(1), false),
                           viewOf(field, py::dtype("float32"), {d.nz}, axes->coords(2), false));
        break;
    }
    case VX_COORD_CURVILINEAR: {
        // points[i, j, k] is node (i, j, k); the reader keeps x, y, z together, x fastest.
        const py::ssize_t f = sizeof(float);
        placement["kind"] = "curvilinear";
        placement["points"] = viewOf(field, py::dtype("float32"), {d.nx, d.ny, d.nz, 3},
                                     static_cast<VxCurvilinearCoord3*>(coords)->positions(), true,
                                     {3 * f, 3 * f * d.nx, 3 * f * d.nx * d.ny, f});
        break;
    }
    default:
        throw py::value_error("the volume reader returned coordinates of an unknown kind");
    }
}

// A lattice's values as an F-ordered array indexed [x, y, z] (the file's axes, as marching_cubes
// places them), read in place, and its placement.
py::tuple latticeArrays(VxSpatialData* data, const QString& format)
{
    const DataHold held = hold(data);
    py::dict placement;
    placement["format"] = format.toStdString();
    py::array values;
    if (auto* labels = dynamic_cast<VxUniformLabelField3*>(data)) {
        const KxDim3l& d = labels->getDims();
        values = viewOf(labels, dtypeOf(labels->lattice().primType()), {d.nx, d.ny, d.nz},
                        labels->lattice().getLabels(0), true);
        const KxVec3f s = labels->getVoxelSize();
        const KxBox3f box = labels->getBoundingBox();
        placement["kind"] = "labels";
        placement["spacing"] = py::make_tuple(s.x, s.y, s.z);
        placement["origin"] = py::make_tuple(box.xmin, box.ymin, box.zmin);
        placement["undefined"] = py::none();
    } else if (auto* field = dynamic_cast<VxRegScalarField3*>(data)) {
        const KxDim3l& d = field->getDims();
        values =
            viewOf(field, dtypeOf(field->primType()), {d.nx, d.ny, d.nz}, field->lattice().dataPtr(), true);
        placeNodes(field, placement);
        placement["undefined"] =
            field->hasUndefinedValue() ? py::object(py::float_(field->getUndefinedValue())) : py::none();
    } else {
        throw py::value_error("the volume reader returned no lattice");
    }
    placement["transform"] = transformOf(*data);
    return py::make_tuple(values, placement);
}

// The blocks of a multi-block field, each read as latticeArrays reads a volume.
py::tuple blockArrays(VxBlockStructuredScalarField3* blocks)
{
    const DataHold held = hold(blocks);
    py::list values, placements;
    for (int b = 0; b < blocks->getNumBlocks(); ++b) {
        const py::tuple block = latticeArrays(blocks->getField(b), "block");
        values.append(block[0]);
        placements.append(block[1]);
    }
    py::dict placement;
    placement["format"] = "vxblocks";
    placement["kind"] = "blocks";
    placement["blocks"] = placements;
    placement["transform"] = transformOf(*blocks);
    return py::make_tuple(values, placement);
}

// A headerless volume's description from a dict: dims and dtype, optionally spacing, origin, offset,
// swap_bytes and undefined, as the command's raw options give them.
VxRawDescription rawDescription(const py::dict& raw)
{
    static const std::set<std::string> keys{"dims",   "dtype",      "spacing",  "origin",
                                            "offset", "swap_bytes", "undefined"};
    for (const auto& item : raw)
        if (!keys.count(str(item.first)))
            throw py::value_error(
                "raw has no key " + str(py::repr(item.first)) +
                "; it takes dims, dtype, spacing, origin, offset, swap_bytes and undefined");
    if (!raw.contains("dims") || !raw.contains("dtype")) throw py::value_error("raw needs dims and dtype");
    VxRawDescription d;
    const std::array<double, 3> dims = triple("raw dims", raw["dims"]);
    for (int a = 0; a < 3; ++a) {
        if (dims[a] != std::floor(dims[a])) throw py::value_error("raw dims must be whole numbers");
        d.dims[a] = int64_t(dims[a]);
    }
    d.type = primTypeOf(py::dtype::from_args(raw["dtype"]));
    if (!d.type.isValid())
        throw py::value_error("raw dtype " + str(py::repr(raw["dtype"])) +
                              " is none of uint8, int8, uint16, int16, uint32, int32, float32, float64");
    auto vec = [&raw](const char* key) {
        const std::array<double, 3> v = triple((std::string("raw ") + key).c_str(), raw[key]);
        return KxVec3d(v[0], v[1], v[2]);
    };
    if (raw.contains("spacing")) d.spacing = vec("spacing");
    if (raw.contains("origin")) d.origin = vec("origin");
    if (raw.contains("offset")) {
        const int64_t offset = py::int_(raw["offset"]).cast<int64_t>();
        if (offset < 0) throw py::value_error("raw offset must not be negative");
        d.offset = uint64_t(offset);
    }
    d.swapBytes = raw.contains("swap_bytes") && py::bool_(raw["swap_bytes"]);
    if (raw.contains("undefined") && !raw["undefined"].is_none()) {
        d.hasUndefined = true;
        d.undefinedValue = py::float_(raw["undefined"]).cast<double>();
    }
    const QString problem = VxRawReader::checkDescription(d);
    if (!problem.isEmpty()) throw py::value_error(problem.toStdString());
    return d;
}

py::tuple readFile(const std::string& path, bool labels, const std::optional<std::string>& scalars,
                   const std::optional<py::dict>& raw)
{
    const QString qpath = QString::fromStdString(path);
    QString error;
    VxVolumeInfo info;
    const bool mesh = VxMeshReader::isMeshPath(qpath), blocks = VxBlockReader::isBlockPath(qpath);
    // The texts of the host's loader and of the command's options.
    if (labels && (mesh || blocks))
        throw py::value_error("\"" + path + "\": a " + (mesh ? "mesh" : "multi-block field") +
                              " cannot be read as labels");
    if (scalars && !mesh)
        throw py::value_error("scalars chooses the field of a mesh file (.vtu, .msh, .vtk)");
    VxReadOptions options;
    options.labels = labels;
    if (raw) {
        options.raw = rawDescription(*raw);
        VxSpatialData* data = VxVolumeReader::read(qpath, options, &error, &info);
        if (!data) readFailed(path, error);
        return latticeArrays(data, info.format);
    }
    if (blocks) {
        VxBlockStructuredScalarField3* data = VxBlockReader::read(qpath, &error);
        if (!data) readFailed(path, error);
        return blockArrays(data);
    }
    if (mesh) {
        VxSpatialData* data =
            VxMeshReader::read(qpath, QString::fromStdString(scalars.value_or("")), &error, &info);
        if (!data) readFailed(path, error);
        return meshArrays(data, info);
    }
    VxSpatialData* data = VxVolumeReader::read(qpath, options, &error, &info);
    if (!data) readFailed(path, error);
    return latticeArrays(data, info.format);
}

// The writers take a surface node: it borrows the arrays (Coin frees only what it was told to own).
void writeFile(const std::string& path, const py::object& vertsArg, const py::object& facesArg,
               const py::object& normalsArg, bool ascii)
{
    const QString qpath = QString::fromStdString(path);
    if (VxSurfaceWriter::formatForPath(qpath) == VxSurfaceWriter::UNKNOWN)
        throw py::value_error("cannot write " + path + ": unknown mesh format " +
                              VxSurfaceWriter::extensionHint().toStdString());
    using Floats = py::array_t<float, py::array::c_style | py::array::forcecast>;
    using Ints = py::array_t<int32_t, py::array::c_style | py::array::forcecast>;
    auto rows = [](const py::array& a, const char* name) {
        if (a.ndim() != 2 || a.shape(1) != 3)
            throw py::value_error(std::string(name) + " must have shape (n, 3)");
        return int(a.shape(0));
    };
    const Floats verts = Floats::ensure(vertsArg);
    const Ints faces = Ints::ensure(facesArg);
    if (!verts || !faces) throw py::value_error("verts and faces must be arrays of numbers");
    const int numVerts = rows(verts, "verts"), numFaces = rows(faces, "faces");
    const int32_t* f = faces.data();
    for (int64_t i = 0; i < 3 * int64_t(numFaces); ++i)
        if (f[i] < 0 || f[i] >= numVerts)
            throw py::value_error("face " + std::to_string(i / 3) + " refers to vertex " +
                                  std::to_string(f[i]) + ", but there are " + std::to_string(numVerts));
    Floats normals;
    if (!normalsArg.is_none()) {
        normals = Floats::ensure(normalsArg);
        if (!normals || rows(normals, "normals") != numVerts)
            throw py::value_error("normals must have shape (" + std::to_string(numVerts) + ", 3), as verts");
    }
    static const bool coin = [] {
        SoDB::init();
        SoTriSurface::initClass();
        return true;
    }();
    (void)coin;
    SoTriSurface* surface = new SoTriSurface;
    surface->ref();
    surface->coords.setValuesPointer(numVerts, verts.data());
    surface->triangles.setValuesPointer(numFaces, f);
    if (normals) surface->normals.setValuesPointer(numVerts, normals.data());
    QString error;
    bool written;
    {
        py::gil_scoped_release released;
        VxSurfaceWriteOptions options;
        options.ascii = ascii;
        written = VxSurfaceWriter::write(*surface, qpath, options, &error);
    }
    surface->unref();
    if (!written) {
        PyErr_SetString(PyExc_OSError, error.toStdString().c_str());
        throw py::error_already_set();
    }
}

} // namespace

PYBIND11_MODULE(vxiso, m)
{
    using namespace py::literals;
    m.doc() =
        R"(Isosurfaces of NumPy volumes with the vxiso marching-cubes engine, and its file readers and writers.

marching_cubes(volume, level, ...) -> (verts, faces, normals) of a 3-D array, read in place.
isolines(volume, values, axis, index) -> [(value, points), ...] on a slice of nodes.
tetra_surface(points, tetrahedra, values, level) -> (verts, faces, normals) of a tetrahedral mesh.
read(path, *, labels=False, scalars=None, raw=None) -> (values, placement) of every volume and mesh
    the readers take; placement["kind"] is "uniform", "rectilinear", "curvilinear", "labels",
    "tetrahedra", "hexahedra" or "blocks" and says which other keys it has (see read's help).
write(path, verts, faces, normals=None) writes a surface in the format of the path's extension.
marching_cubes and tetra_surface release the GIL, call progress(fraction) as they go and stop on
Ctrl-C with KeyboardInterrupt. Bad input raises ValueError, files that cannot be opened or written
OSError, exhausted memory MemoryError, with the command's texts.)";
    m.def("marching_cubes", &marchingCubes, "volume"_a, "level"_a, "spacing"_a = py::make_tuple(1, 1, 1),
          "origin"_a = py::make_tuple(0, 0, 0), py::kw_only(), "compactify"_a = false,
          "undefined"_a = py::none(), "mask"_a = py::none(), "relaxed"_a = false, "cores"_a = py::none(),
          "progress"_a = py::none(),
          R"(Triangles where volume equals level: (verts, faces, normals).

volume: a C- or F-contiguous 3-D array of uint8, int8, uint16, int16, uint32, int32, float32 or
float64, read in place. Vertex i, j, k (columns of verts) is along the array's first, second and
third index, scaled by spacing and moved by origin (both in that order), as scikit-image does.
In the engine's terms x is the index that runs fastest in memory: the last one in C order.
A node counts as above the level when its value, in single precision, is greater. Normals point
toward lower values; each triangle turns counter-clockwise around its normal.
compactify merges vertices near a grid node; undefined marks a value (nan allowed) as missing;
mask keeps the surface on the non-zero nodes of an array of the volume's shape (relaxed grows
it by one node first); cores=1 runs the sequential traversal; progress(fraction) is called now
and then. Ctrl-C raises KeyboardInterrupt.)");
    m.def("isolines", &isolines, "volume"_a, "values"_a, "axis"_a, "index"_a, "resolution"_a = py::none(),
          R"(Contour lines of values on the slice of nodes index across axis, as a list of (value, points):
points (n, 3) float32 in array index coordinates, a closed line repeating its first point. The
slice is sampled on resolution x resolution points spanning it (16 to 4096; by default one a
node along its longer side, at least 16), as `vxiso isolines --slice` samples it.)");
    m.def("tetra_surface", &tetraSurface, "points"_a, "tetrahedra"_a, "values"_a, "level"_a, py::kw_only(),
          "progress"_a = py::none(),
          R"(The surface where values on the points of a tetrahedral mesh equal level, as (verts, faces,
normals), the surface of `vxiso surface MESH`: a point at or above the level counts as above it,
each cut edge has one vertex, and in a positively oriented tetrahedron each triangle faces the
points above. Each normal is the area-weighted mean of its triangles' normals, as the viewer lights
the module's surface. The GIL is released; progress(fraction) is called now and then, and Ctrl-C
(or an exception of progress) stops the extraction with KeyboardInterrupt (or that exception).)");
    m.def("read", &readFile, "path"_a, py::kw_only(), "labels"_a = false, "scalars"_a = py::none(),
          "raw"_a = py::none(),
          R"(A data file as (values, placement), values read in place (not copied); placement["kind"]
says what the file holds, placement["format"] its format, placement["transform"] a 4 x 4 matrix
(column vectors) or None.
Volumes: an F-ordered array indexed [x, y, z] in the file's own axes and undefined (a value or
None); kind "uniform" with spacing and origin (as marching_cubes takes them), "rectilinear" with
axes (the x, y and z of the planes of nodes), or "curvilinear" with points (nx, ny, nz, 3), the
position of every node. labels=True reads an integer volume as labels (kind "labels", uint8,
uint16 or int32, 0 the background; uniform volumes only). raw, a dict, reads the file as headerless
values (x fastest), as the command's raw options do: dims and dtype, optionally spacing, origin,
offset (bytes to skip), swap_bytes and undefined.
Meshes (.vtk unstructured grids, .vtu, .msh): the values (one a node, corner or cell: per) and
points (n, 3), cells (m, 4) or (m, 8) and kind "tetrahedra" or "hexahedra"; scalars names the
field to read (default: the first node field, else the first cell field).
Multi-block descriptions (.vxblocks): a list of block arrays and kind "blocks" with blocks, the
list of their placements.
Errors: OSError for a file that cannot be opened, ValueError for one that cannot be read, with
the reader's text.)");
    m.def("write", &writeFile, "path"_a, "verts"_a, "faces"_a, "normals"_a = py::none(), py::kw_only(),
          "ascii"_a = false,
          "Writes a surface; the extension picks the format (.ply .stl .obj .off .vtk .iv).");
}
