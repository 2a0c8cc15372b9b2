#include <vx/VxPort.h>
#include <vx/VxUniformLabelField3.h>

#include <cstdlib>
#include <cstring>

KX_ABSTRACT_SOURCE(VxUniformLabelField3, VxSpatialData)

VxUniformLabelField3::VxUniformLabelField3(const KxDim3l& dims, KxPrimType type, void* labels)
    : m_lattice(dims, type, labels),
      m_coords(dims, KxBox3f(0, float(dims.nx > 0 ? dims.nx - 1 : 0), 0, float(dims.ny > 0 ? dims.ny - 1 : 0),
                             0, float(dims.nz > 0 ? dims.nz - 1 : 0)))
{
}

int64_t VxUniformLabelField3::keepLabel(double label)
{
    int64_t kept = 0;
    const int64_t n = getDims().count();
    kxDispatchPrimType(m_lattice.primType(), m_lattice.getLabels(0), [&](auto* labels) {
        for (int64_t i = 0; i < n; ++i) {
            const bool keep = double(labels[i]) == label;
            labels[i] = keep ? 1 : 0;
            kept += keep;
        }
    });
    recordEdit("keepLabel " + vxscript::number(label));
    touchDownstream();
    return kept;
}

int64_t VxUniformLabelField3::countLabel(double label) const
{
    int64_t count = 0;
    const int64_t n = getDims().count();
    kxDispatchPrimType(m_lattice.primType(), const_cast<void*>(m_lattice.getLabels(0)), [&](auto* labels) {
        for (int64_t i = 0; i < n; ++i) count += double(labels[i]) == label;
    });
    return count;
}

QStringList VxUniformLabelField3::commands() const
{
    return QStringList{"keepLabel", "countLabel"} + VxSpatialData::commands();
}

int VxUniformLabelField3::parse(Tcl_Interp* interp, int argc, char** argv)
{
    if (argc >= 2 && (!strcmp(argv[1], "keepLabel") || !strcmp(argv[1], "countLabel"))) {
        double label;
        char* end = nullptr;
        if (argc != 3 || (label = strtod(argv[2], &end), end == argv[2] || *end)) {
            vxscript::setResult(interp, QString("usage: %1 %2 LABEL").arg(getName(), argv[1]));
            return TCL_ERROR;
        }
        const int64_t n = !strcmp(argv[1], "keepLabel") ? keepLabel(label) : countLabel(label);
        vxscript::setResult(interp, QString::number(n));
        return TCL_OK;
    }
    return VxSpatialData::parse(interp, argc, argv);
}
