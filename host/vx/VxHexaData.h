#pragma once
#include <vx/VxHexaGrid.h>

#include <kx/KxHandle.h>

// What every data object on a hexahedral grid has: the grid, shared.
class VxHexaData
{
public:
    VxHexaGrid* grid() const { return m_grid.get(); }

protected:
    explicit VxHexaData(VxHexaGrid* grid) : m_grid(grid) {}
    ~VxHexaData() = default;

    KxHandle<VxHexaGrid> m_grid;
};
