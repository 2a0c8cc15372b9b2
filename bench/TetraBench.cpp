// VxIsoTetra against VTK's vtkContour3DLinearGrid and vtkContourGrid, in one process, on one
// tetrahedral mesh in memory: a lattice of n^3 cubes (n = 100: 6 million tetrahedra) cut into the
// six tetrahedra around each cube's diagonal, with a smooth field on its nodes (a gyroid of three
// periods across the lattice, cut at 0.2). Everyone runs on one thread (VTK's sequential path, its
// SMP tools at one thread) and merges the vertices of shared edges. Times are medians of --reps
// runs after one warm-up; compare them as ratios within one run only.
// Run: make tetra-bench   (or build/bin/vxiso_tetra_bench [--n 100] [--reps 5])
#include <vx/VxApplication.h>
#include <vx/VxInterpreter.h>
#include <vx/VxMessage.h>
#include <vx/VxObjectPool.h>
#include <vx/VxPackageManager.h>
#include <vx/VxTetraScalarField3.h>
#include <vx/VxTriBase.h>

#include <kx/KxHandle.h>

#include <oiv/SoTriSurface.h>

#include <vtkCellArray.h>
#include <vtkCellType.h>
#include <vtkContour3DLinearGrid.h>
#include <vtkContourGrid.h>
#include <vtkFloatArray.h>
#include <vtkIdTypeArray.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkSMPTools.h>
#include <vtkUnstructuredGrid.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace {

struct Run
{
    double ms = 0;
    long long vertices = 0, triangles = 0;
};

// The median of reps runs after one warm-up; each run times itself, so that what it frees of the
// previous run's output stays off the clock where the contender allows it.
Run median(int reps, const std::function<Run()>& timedRun)
{
    timedRun();
    std::vector<Run> runs;
    for (int r = 0; r < reps; ++r) runs.push_back(timedRun());
    std::sort(runs.begin(), runs.end(), [](const Run& a, const Run& b) { return a.ms < b.ms; });
    return runs[runs.size() / 2];
}

double msSince(std::chrono::steady_clock::time_point t0)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

struct Mesh
{
    std::vector<float> xyz, values;
    std::vector<int32_t> tetras;
};

// Kuhn's subdivision of the n^3 cubes of the unit cube, every tetrahedron positively oriented (the
// paths whose axis order is odd trade their middle nodes).
Mesh kuhnMesh(int n)
{
    Mesh m;
    const int nodes = n + 1;
    const double k2pi = 6 * M_PI; // three periods
    for (int k = 0; k < nodes; ++k)
        for (int j = 0; j < nodes; ++j)
            for (int i = 0; i < nodes; ++i) {
                const double x = double(i) / n, y = double(j) / n, z = double(k) / n;
                m.xyz.insert(m.xyz.end(), {float(x), float(y), float(z)});
                m.values.push_back(float(std::sin(k2pi * x) * std::cos(k2pi * y) +
                                         std::sin(k2pi * y) * std::cos(k2pi * z) +
                                         std::sin(k2pi * z) * std::cos(k2pi * x)));
            }
    const int axes[6][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1}, {0, 2, 1}, {1, 0, 2}, {2, 1, 0}};
    const int32_t step[3] = {1, nodes, nodes * nodes};
    m.tetras.reserve(std::size_t(24) * n * n * n);
    for (int k = 0; k < n; ++k)
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i)
                for (int p = 0; p < 6; ++p) {
                    int32_t v[4] = {int32_t((k * nodes + j) * nodes + i)};
                    for (int s = 0; s < 3; ++s) v[s + 1] = v[s] + step[axes[p][s]];
                    if (p >= 3) std::swap(v[1], v[2]);
                    m.tetras.insert(m.tetras.end(), v, v + 4);
                }
    return m;
}

// ---- ours: the module, loaded from the package and driven as a script drives it -----------------

QString tcl(const QString& script)
{
    QString result;
    if (VxApplication::instance()->interpreter()->eval(script, &result) != TCL_OK) {
        std::fprintf(stderr, "vxiso_tetra_bench: %s: %s\n", qPrintable(script), qPrintable(result));
        std::exit(1);
    }
    return result;
}

Run runOurs()
{
    const auto t0 = std::chrono::steady_clock::now();
    tcl("iso action hit; iso fire");
    Run r;
    r.ms = msSince(t0);
    const SoTriSurface* s =
        static_cast<VxTriBase*>(VxApplication::instance()->objectPool()->findObject("iso"))->getTriSurface();
    r.vertices = s->getNumPoints(), r.triangles = s->getNumTriangles();
    return r;
}

// ---- the peers -------------------------------------------------------------------------------------

vtkSmartPointer<vtkUnstructuredGrid> vtkGridOf(const Mesh& m)
{
    vtkNew<vtkFloatArray> xyz, values;
    xyz->SetNumberOfComponents(3);
    xyz->SetNumberOfTuples(vtkIdType(m.xyz.size() / 3));
    std::copy(m.xyz.begin(), m.xyz.end(), xyz->GetPointer(0));
    values->SetNumberOfTuples(vtkIdType(m.values.size()));
    std::copy(m.values.begin(), m.values.end(), values->GetPointer(0));
    values->SetName("values");
    vtkNew<vtkIdTypeArray> offsets, connectivity;
    const vtkIdType cells = vtkIdType(m.tetras.size() / 4);
    offsets->SetNumberOfTuples(cells + 1);
    for (vtkIdType c = 0; c <= cells; ++c) offsets->SetValue(c, 4 * c);
    connectivity->SetNumberOfTuples(vtkIdType(m.tetras.size()));
    std::copy(m.tetras.begin(), m.tetras.end(), connectivity->GetPointer(0));
    vtkNew<vtkCellArray> tetras;
    tetras->SetData(offsets, connectivity);
    vtkNew<vtkPoints> points;
    points->SetData(xyz);
    auto grid = vtkSmartPointer<vtkUnstructuredGrid>::New();
    grid->SetPoints(points);
    grid->SetCells(VTK_TETRA, tetras);
    grid->GetPointData()->SetScalars(values);
    return grid;
}

template <class Filter> Run runPeer(Filter* filter)
{
    filter->GetOutputDataObject(0)->Initialize(); // the previous surface is freed off the clock
    filter->Modified();
    const auto t0 = std::chrono::steady_clock::now();
    filter->Update();
    Run r;
    r.ms = msSince(t0);
    vtkPolyData* out = vtkPolyData::SafeDownCast(filter->GetOutputDataObject(0));
    r.vertices = out->GetNumberOfPoints();
    r.triangles = out->GetNumberOfPolys();
    return r;
}

int usage(const char* why)
{
    std::fprintf(stderr, "vxiso_tetra_bench: %s\nusage: vxiso_tetra_bench [--n CUBES] [--reps N]\n", why);
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    int n = 100, reps = 5;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (i + 1 >= argc) return usage(("unknown or incomplete option '" + a + "'").c_str());
        const int value = std::atoi(argv[++i]);
        if (a == "--n" && value >= 2 && value <= 160)
            n = value;
        else if (a == "--reps" && value >= 1)
            reps = value;
        else
            return usage(("bad option '" + a + " " + argv[i] + "' (--n 2..160, --reps 1 or more)").c_str());
    }
    vtkSMPTools::Initialize(1);

    const Mesh mesh = kuhnMesh(n);
    std::printf("mesh: %d^3 cubes in six tetrahedra each: %zu tetrahedra, %zu nodes; gyroid cut at 0.2\n", n,
                mesh.tetras.size() / 4, mesh.values.size());
    std::printf("one thread, median of %d runs after a warm-up\n\n", reps);

    VxPackageManager packages;
    QString why;
    if (!packages.load(VXISO_PACKAGE, &why)) {
        std::fprintf(stderr, "vxiso_tetra_bench: %s\n", qPrintable(why));
        return 1;
    }
    VxApplication::instance()->message()->setConsole(nullptr);
    Run ours;
    {
        KxHandle<VxTetraGrid> grid(new VxTetraGrid(mesh.xyz, mesh.tetras));
        auto* field = new VxTetraScalarField3(grid.get(), mesh.values, VxTetraScalarField3::PER_NODE);
        field->setLabel("mesh");
        VxApplication::instance()->objectPool()->addObject(field);
        tcl("create VxIsoTetra iso; iso data connect mesh; iso threshold setValue 0.2");
        ours = median(reps, runOurs);
        tcl("remove -all");
    }

    const vtkSmartPointer<vtkUnstructuredGrid> grid = vtkGridOf(mesh);
    vtkNew<vtkContour3DLinearGrid> linear;
    linear->SetInputData(grid);
    linear->SetValue(0, 0.2);
    linear->MergePointsOn();
    linear->InterpolateAttributesOff();
    linear->ComputeNormalsOff();
    linear->SequentialProcessingOn();
    const Run fast = median(reps, [&] { return runPeer(linear.Get()); });
    vtkNew<vtkContourGrid> general;
    general->SetInputData(grid);
    general->SetValue(0, 0.2);
    general->ComputeNormalsOff();
    general->ComputeScalarsOff();
    general->GenerateTrianglesOn();
    const Run slow = median(reps, [&] { return runPeer(general.Get()); });

    std::printf("%-24s %10s %10s %10s\n", "", "vertices", "triangles", "ms");
    const std::pair<const char*, Run> rows[] = {
        {"VxIsoTetra", ours}, {"vtkContour3DLinearGrid", fast}, {"vtkContourGrid", slow}};
    for (const auto& [name, r] : rows)
        std::printf("%-24s %10lld %10lld %10.1f\n", name, r.vertices, r.triangles, r.ms);
    const bool linearFaster = fast.ms <= slow.ms;
    std::printf("\nours / vtkContour3DLinearGrid: %.2f\nours / vtkContourGrid: %.2f\n"
                "ours / the faster peer (%s): %.2f\n",
                ours.ms / fast.ms, ours.ms / slow.ms,
                linearFaster ? "vtkContour3DLinearGrid" : "vtkContourGrid",
                ours.ms / std::min(fast.ms, slow.ms));
    if (ours.vertices != fast.vertices || ours.triangles != fast.triangles ||
        ours.vertices != slow.vertices || ours.triangles != slow.triangles)
        std::printf("note: the counts differ; the extractors do not agree on this mesh\n");
    return 0;
}
