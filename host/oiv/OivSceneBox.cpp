#include <oiv/OivSceneBox.h>

#include <Inventor/SbViewportRegion.h>
#include <Inventor/SoPath.h>
#include <Inventor/actions/SoGetBoundingBoxAction.h>
#include <Inventor/actions/SoSearchAction.h>
#include <Inventor/lists/SoPathList.h>
#include <Inventor/nodekits/SoBaseKit.h>
#include <Inventor/nodes/SoShape.h>

// The box of the shapes the scene draws, each shape's box taken in world axes. The bounding-box
// action of the whole scene joins boxes in the frame of one of them: many small boxes turned every
// way (labels along curves) join into a box far larger than what is drawn.
SbBox3f oivShapesBox(SoNode* scene)
{
    const SbBool kitsSearched = SoBaseKit::isSearchingChildren();
    SoBaseKit::setSearchingChildren(TRUE);
    SoSearchAction search;
    search.setType(SoShape::getClassTypeId());
    search.setInterest(SoSearchAction::ALL);
    search.apply(scene);
    SoBaseKit::setSearchingChildren(kitsSearched);
    SbBox3f box;
    const SoPathList& paths = search.getPaths();
    SoGetBoundingBoxAction action{SbViewportRegion()};
    for (int i = 0; i < paths.getLength(); ++i) {
        action.apply(paths[i]);
        box.extendBy(action.getBoundingBox());
    }
    return box;
}
