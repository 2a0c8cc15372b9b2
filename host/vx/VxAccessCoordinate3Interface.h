#pragma once
#include <kx/KxInterface.h>

#include <Inventor/SbVec3f.h>

#include <vector>

// Read access to the point arrays of an object's geometry (the lines of an isoline module, say), so
// that other modules can use them in place.
class VxAccessCoordinate3Interface : public KxInterface
{
    KX_INTERFACE_HEADER(VxAccessCoordinate3Interface)

public:
    // Appends one pointer and one count per point array; false, appending nothing, when the object
    // has no points to offer.
    virtual bool getCoordinates(std::vector<SbVec3f*>& points, std::vector<int>& counts) const = 0;
};

// The interface forwarded to an object's own getCoordinates: an object offers it without deriving
// from the interface. The owner hands it to VxObject::addInterface; it must not be used after the
// owner is gone.
template <class T> class VxAccessCoordinate3InterfaceProxyTemplate : public VxAccessCoordinate3Interface
{
public:
    explicit VxAccessCoordinate3InterfaceProxyTemplate(const T* owner) : m_owner(owner) {}

    bool getCoordinates(std::vector<SbVec3f*>& points, std::vector<int>& counts) const override
    {
        return m_owner->getCoordinates(points, counts);
    }

private:
    const T* m_owner;
};
