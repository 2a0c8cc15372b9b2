#pragma once
#include "VxisoOptions.h"

#include <kx/KxHandle.h>

#include <QString>
#include <QStringList>

#include <vector>

class SoNode;
class VxHostSession;
class VxPlanarModBase;
class VxRegScalarField3;
class VxSpatialData;

// What the subcommands that work on a slice share: the slice and value options, the slice itself,
// the pictures and scenes they write.

// Exactly one of --slice and --plane, one of --values and --uniform, not both --resolution and
// --quality, a plane normal with a direction, an output in one of the formats that `what` (what
// the command writes) is written as (extensions without
// the dot; with pictureWillDo, a --png alone does too), a picture that can be drawn. Throws
// VxisoUsageError.
void vxisoCheckSliceOptions(const VxisoOptions& o, const char* what, const QStringList& formats,
                            bool pictureWillDo = false);

// The iso values as the modules compute them from their ports (in single precision).
std::vector<float> vxisoIsoValues(const VxisoOptions& o);

// A lattice an ortho slice can cut through its nodes; null for other fields.
const VxRegScalarField3* vxisoOrthoLattice(const VxSpatialData& data);

// The slice, as the host object `name` of type `cut` (an arbitrary cut or a module derived from
// one) on the data "volume": through --plane, or across --slice's axis through the node INDEX of a
// lattice or the middle of the field. With `ortho`, a lattice's --slice is an ortho slice instead.
void vxisoSetUpSlice(VxHostSession& host, const VxisoOptions& o, const VxSpatialData& data,
                     const QString& cut, const QString& name, bool ortho);

// The input, after the outputs were found writable: a scalar field (throws KxException otherwise).
KxHandle<VxSpatialData> vxisoReadField(const VxisoOptions& o);

// The host with the package loaded and the input as "volume"; the package's messages go to the
// record only (the command speaks for itself).
void vxisoStartHost(VxHostSession& host, VxSpatialData* data);

// The module's "spacing", "uniform" and "explicit" ports from --uniform or --values.
void vxisoSetIsoValuePorts(VxHostSession& host, const QString& module, const VxisoOptions& o,
                           const std::vector<float>& values);

// Sets a module's slider, widening its range when the value lies beyond it.
void vxisoSetSlider(VxHostSession& host, const QString& module, const QString& port, double value,
                    const QString& what);

// Writes a scene as an Open Inventor file; throws KxException.
void vxisoWriteScene(SoNode* scene, const QString& path);

// Draws --png straight at the slice, from the side its normal points to (u right, v up) when
// `front`, else from the other side (u left), unless --view or --up chose.
void vxisoDrawPicture(VxHostSession& host, VxisoOptions o, const VxPlanarModBase* slice, bool front);
