#pragma once
#include <vx/VxModule.h>
#include <vx/VxSpatialData.h>

#include <kx/KxBox3.h>
#include <kx/KxHandle.h>

#include <Inventor/SbVec3f.h>

class SoCoordinate3;
class SoMatrixTransform;
class SoTexture2;
class SoSwitch;
class SoTextureCoordinate2;
class VxPortColormap;
class QImage;

// Base of the slice modules: a plane through the connected field, drawn as a rectangle textured
// with the field's values through the colour map (grey over the field's range without one). Points
// where the field has no value are left clear.
//
// The plane lives in the field's own frame; the drawing carries the field's transformation
// (getTransform). Modules that draw on the slice (overlays) hang their scene under the overlay root,
// in the same frame.
//
// Sampling convention: a sampling of the slice is an origin and two step vectors du and dv; sample
// (row r, column c) lies at origin + c du + r dv. Derived slices say how they place it.
class VxPlanarModBase : public VxModule
{
    KX_HEADER(VxPlanarModBase)

public:
    ~VxPlanarModBase() override;

    // A point on the plane, its unit normal, and two unit directions in it, with normal = u x v.
    const SbVec3f& origin() const { return m_origin; }
    const SbVec3f& normal() const { return m_normal; }
    const SbVec3f& uVec() const { return m_u; }
    const SbVec3f& vVec() const { return m_v; }
    // Whether the slice has a plane through a field (a field is connected and the plane is valid).
    bool hasPlane() const { return m_hasPlane; }

    // Draws the plane again on the next run, as it is (an overlay's view of the field changed).
    void planeTouch();

    // The box of the part of the plane inside the field's box, widened by 1e-5 of the field's
    // largest extent, so that samples at the far border computed in single precision lie inside
    // it even under a test without tolerance. Empty (default box) without a plane.
    KxBox3f getBoundingBox() const;

    // A res x res sampling of the part of the plane inside the field's bounding box (see the
    // convention above); false without a plane, when the plane misses the box, or for res < 2.
    virtual bool getSamplingParameters(int res, SbVec3f& origin, SbVec3f& du, SbVec3f& dv) const;

    // The field's transformation, which the drawing carries; false (and the identity) without one.
    bool getTransform(SbMatrix& m) const;

    // The drawing as last made: its texels (RGBA, one a sample; row r lies at corner + r * ev /
    // (rows - 1), so v runs up the rows), the sampled rectangle's corner, and its sides along u and
    // v. False when the slice shows nothing.
    bool getDrawing(QImage& image, SbVec3f& corner, SbVec3f& uSide, SbVec3f& vSide) const;

    VxScalarField3* getField() const { return vxconnection_cast<VxScalarField3>(portData); }
    VxPortColormap& portColormap() { return *m_colormap; }

    // Where overlays hang their scene: drawn with the slice, in the field's frame.
    SoSeparator* getOverlayRoot() const { return m_overlays.get(); }

    void compute() override;

protected:
    explicit VxPlanarModBase(const KxTypeInfo* dataType);

    // Sets the plane (u and v unit and orthogonal). Readers are told when it changed.
    void setPlane(const SbVec3f& origin, const SbVec3f& u, const SbVec3f& v);
    void clearPlane();
    // The rectangle, in plane coordinates about origin() along u and v, that holds the part of the
    // plane inside the field's box; false when the plane misses the box.
    bool getPlaneRect(float& u0, float& u1, float& v0, float& v1) const;
    // Sample counts of the drawing along u and v.
    virtual void getDrawingResolution(int& nu, int& nv) const = 0;
    // An nu x nv sampling of the plane, placed as getSamplingParameters places it for res x res.
    virtual bool getSampling(int nu, int nv, SbVec3f& origin, SbVec3f& du, SbVec3f& dv) const;

private:
    void draw();

    VxPortColormap* m_colormap;
    SbVec3f m_origin{0, 0, 0}, m_normal{0, 0, 1}, m_u{1, 0, 0}, m_v{0, 1, 0};
    bool m_hasPlane = false;
    bool m_redraw = true;
    KxHandle<SoMatrixTransform> m_transform;
    KxHandle<SoSwitch> m_plane;
    KxHandle<SoTexture2> m_texture;
    KxHandle<SoCoordinate3> m_corners;
    KxHandle<SoTextureCoordinate2> m_texCoords;
    KxHandle<SoSeparator> m_overlays;
};
