// vxiso info: what a volume holds, as the readers see it.
#include "VxisoInputs.h"
#include "VxisoSubcommands.h"

#include <io/VxVolumeReader.h>
#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxCoord3.h>
#include <vx/VxHexaScalarField3.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxTetraScalarField3.h>
#include <vx/VxUniformLabelField3.h>

#include <charconv>
#include <cstdio>
#include <set>
#include <string>

namespace {

// Numbers as the user typed them: integers without a point, others in at most ten digits.
std::string number(double v)
{
    char text[48];
    std::snprintf(text, sizeof text, "%.10g", v);
    return text;
}

// Coordinates are floats: their shortest exact text, without the noise of widening to double.
std::string number(float v)
{
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, v).ptr);
}

std::string triple(const KxVec3f& v)
{
    return number(v.x) + " " + number(v.y) + " " + number(v.z);
}

void printBox(const KxBox3f& box)
{
    std::printf("bounding box: %s %s %s %s %s %s\n", number(box.xmin).c_str(), number(box.xmax).c_str(),
                number(box.ymin).c_str(), number(box.ymax).c_str(), number(box.zmin).c_str(),
                number(box.zmax).c_str());
}

void printTransform(const VxSpatialData& data)
{
    SbMatrix m;
    if (!data.getTransform(m)) {
        std::printf("transform: none\n");
        return;
    }
    // Rows as the axes of the volume in world space, then the shift.
    std::printf("transform: rotates or mirrors the axes about the first node:\n");
    for (int r = 0; r < 4; ++r)
        std::printf("  %s %s %s\n", number(m[r][0]).c_str(), number(m[r][1]).c_str(),
                    number(m[r][2]).c_str());
}

const char* coordinateKind(const VxCoord3* coords)
{
    return !coords || coords->coordType() == VX_COORD_UNIFORM ? "uniform"
           : coords->coordType() == VX_COORD_RECTILINEAR      ? "rectilinear"
                                                              : "curvilinear";
}

void printGeometry(const VxSpatialData& data, const KxDim3l& d, const VxCoord3* coords)
{
    std::printf("dimensions: %lld x %lld x %lld\n", (long long)d.nx, (long long)d.ny, (long long)d.nz);
    const KxBox3f box = data.getBoundingBox();
    const char* kind = coordinateKind(coords);
    std::printf("coordinates: %s\n", kind);
    if (!coords || coords->coordType() == VX_COORD_UNIFORM)
        std::printf("spacing: %s\n", triple(vxisoVoxelSize(data, d)).c_str());
    else
        std::printf("spacing: varies (%s coordinates)\n", kind);
    std::printf("origin: %s\n", triple(coords ? coords->pos(0, 0, 0) : box.getMin()).c_str());
    printBox(box);
    printTransform(data);
}

void printLabels(const VxUniformLabelField3& labels)
{
    const VxLabelLattice3& lattice = labels.lattice();
    printGeometry(labels, labels.getDims(), nullptr);
    std::printf("type: %s labels\n", lattice.primType().name());
    std::set<float> distinct;
    for (int64_t i = 0; i < labels.getDims().count(); ++i) distinct.insert(lattice.labelAt(i));
    std::printf("label range: %s %s\n", number(*distinct.begin()).c_str(),
                number(*distinct.rbegin()).c_str());
    std::printf("labels: %zu besides the background 0\n", distinct.size() - distinct.count(0.f));
    std::printf("undefined value: none\n");
}

void printBlocks(const VxBlockStructuredScalarField3& blocks)
{
    std::printf("blocks: %d\n", blocks.getNumBlocks());
    for (int b = 0; b < blocks.getNumBlocks(); ++b) {
        const VxRegScalarField3& field = *blocks.getField(b);
        const KxDim3l& d = field.getDims();
        const KxBox3f box = field.getBoundingBox();
        std::printf("block %d: %lld x %lld x %lld %s, %s coordinates, box %s %s %s %s %s %s\n", b,
                    (long long)d.nx, (long long)d.ny, (long long)d.nz, field.primType().name(),
                    coordinateKind(field.lattice().coords()), number(box.xmin).c_str(),
                    number(box.xmax).c_str(), number(box.ymin).c_str(), number(box.ymax).c_str(),
                    number(box.zmin).c_str(), number(box.zmax).c_str());
    }
    double lo = 0, hi = 0;
    if (blocks.getRange(lo, hi)) std::printf("value range: %s %s\n", number(lo).c_str(), number(hi).c_str());
}

void printField(const VxRegScalarField3& field)
{
    printGeometry(field, field.getDims(), field.lattice().coords());
    std::printf("type: %s\n", field.primType().name());
    double lo = 0, hi = 0;
    if (field.getRange(lo, hi, VxRegScalarField3::RANGE_SKIP_UNDEFINED))
        std::printf("value range: %s %s\n", number(lo).c_str(), number(hi).c_str());
    else
        std::printf("value range: none (no defined value)\n");
    if (field.hasUndefinedValue())
        std::printf("undefined value: %s\n", number(field.getUndefinedValue()).c_str());
    else
        std::printf("undefined value: none\n");
}

void printMeshValues(bool perNode, bool have, double lo, double hi)
{
    std::printf("encoding: %s\n", perNode ? "one value per node" : "one value per cell");
    if (have)
        std::printf("value range: %s %s\n", number(lo).c_str(), number(hi).c_str());
    else
        std::printf("value range: none (no value that is a number)\n");
}

void printTetra(const VxTetraScalarField3& field)
{
    const VxTetraGrid& grid = *field.getGrid();
    std::printf("cells: %d tetrahedra\n", grid.getNumTetras());
    std::printf("nodes: %lld\n", (long long)grid.getNumNodes());
    std::printf("negatively oriented tetrahedra: %d\n", grid.countNegativelyOriented());
    double lo = 0, hi = 0;
    const bool have = field.getRange(lo, hi);
    printMeshValues(field.getEncoding() == VxTetraScalarField3::PER_NODE, have, lo, hi);
    printBox(field.getBoundingBox());
}

void printHexa(const VxHexaScalarField3& field)
{
    std::printf("cells: %lld hexahedra\n", (long long)field.grid()->getNumHexas());
    std::printf("nodes: %lld\n", (long long)field.grid()->getNumNodes());
    double lo = 0, hi = 0;
    const bool have = field.getRange(lo, hi);
    printMeshValues(field.getEncoding() == VxHexaScalarField3::PER_NODE, have, lo, hi);
    printBox(field.getBoundingBox());
}

} // namespace

int vxisoInfo(const std::vector<std::string>& args)
{
    VxisoOptions o = vxisoParseOptions(args, VxisoCommand::Info);
    vxisoChooseInput(o);
    VxVolumeInfo info;
    KxHandle<VxSpatialData> data = vxisoReadInput(o, info);
    const std::string name = !o.fieldName.empty()    ? o.fieldName
                             : !o.volumeFile.empty() ? o.volumeFile
                                                     : o.rawFile;
    std::printf("file: %s\n", name.c_str());
    std::printf("format: %s\n", qPrintable(info.format));
    if (const auto* labels = kx_type_cast<VxUniformLabelField3>(data.get()))
        printLabels(*labels);
    else if (const auto* blocks = kx_type_cast<VxBlockStructuredScalarField3>(data.get()))
        printBlocks(*blocks);
    else if (const auto* tetra = kx_type_cast<VxTetraScalarField3>(data.get()))
        printTetra(*tetra);
    else if (const auto* hexa = kx_type_cast<VxHexaScalarField3>(data.get()))
        printHexa(*hexa);
    else
        printField(*static_cast<const VxRegScalarField3*>(data.get()));
    for (const QString& note : info.notes) std::printf("note: %s\n", qPrintable(note));
    std::fflush(stdout);
    return 0;
}
