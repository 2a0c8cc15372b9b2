#pragma once
#include <Inventor/SbBox3f.h>

class SoNode;

// The box of the shapes a scene draws, each shape's box taken in world axes; empty when it draws
// none. Open Inventor's bounding-box action joins boxes in the frame of one of them, so many small
// boxes turned every way (labels along curves) join into a box far larger than what is drawn: a
// camera fitted to this box shows the scene at its size.
SbBox3f oivShapesBox(SoNode* scene);
