#pragma once
#include <QString>
#include <QStringList>

class VxUniformScalarField3;

// Procedural float fields on [-1, 1]^3 whose surface at 0 is a known shape: a sphere, a torus and
// a gyroid. Values are positive inside (sphere, torus), so normals point outward.
class VxBuiltinField
{
public:
    static QStringList names();
    // A new size^3 field (reference count 0), or null with a message for an unknown name or size.
    static VxUniformScalarField3* create(const QString& name, int size, QString* error);
};
