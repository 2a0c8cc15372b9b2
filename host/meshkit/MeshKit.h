#pragma once

// The kit: Open Inventor nodes for values on meshes in a plane (a slice). Property nodes make a mesh,
// a data mapping and text properties current; representation nodes after them draw: the data mapping
// fills the mesh with colours, the contouring draws contour lines with number labels.
//
// Scenes with the kit's nodes read and write as any Open Inventor scene once the kit is initialised.
namespace meshkit {

// Registers the nodes, the field type and the element; safe to call any number of times and from
// any thread.
void init();

} // namespace meshkit
