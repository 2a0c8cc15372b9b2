#pragma once
#include <Inventor/nodes/SoSubNode.h>
#include <Inventor/nodes/SoText3.h>

// Text that always faces the viewer: an SoText3 drawn with the rotation of the model and view
// matrices taken out, keeping its position and its scale in x and y (in eye space the text's axes
// are the eye's). Files name it
// "Text3FacingCamera"; a program that has not loaded the package reads it as an unknown node with
// the fields of Text3.
//
// The class registers itself with the first instance (or with the package, so that files can be
// read before any label was made) and is withdrawn by exitClass when the package unloads: its type
// record would otherwise point into unloaded code. Coin's own clean-up at exit is not asked to do
// it, for the same reason.
class SoText3FacingCamera : public SoText3
{
    SO_NODE_HEADER(SoText3FacingCamera);

public:
    SoText3FacingCamera();

    static void initClass();
    static void exitClass();

    void GLRender(SoGLRenderAction* action) override;

protected:
    ~SoText3FacingCamera() override;
};
