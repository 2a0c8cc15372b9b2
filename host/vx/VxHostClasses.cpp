#include <vx/VxBlockStructuredScalarField3.h>
#include <vx/VxColormap.h>
#include <vx/VxHexaScalarField3.h>
#include <vx/VxHostClasses.h>
#include <vx/VxInventorScene.h>
#include <vx/VxLineSet.h>
#include <vx/VxObliqueSlice.h>
#include <vx/VxOrthoSlice.h>
#include <vx/VxOverlayModule.h>
#include <vx/VxPointProbe.h>
#include <vx/VxRegScalarField3.h>
#include <vx/VxTetraScalarField3.h>
#include <vx/VxTriBase.h>
#include <vx/VxUniformLabelField3.h>

void vxInitHostClasses()
{
    VxObject::getClassTypeId();
    VxModule::getClassTypeId();
    VxViewBase::getClassTypeId();
    VxTriBase::getClassTypeId();
    VxOverlayModule::getClassTypeId();
    VxPlanarModBase::getClassTypeId();
    VxArbitraryCut::getClassTypeId();
    VxObliqueSlice::getClassTypeId();
    VxOrthoSlice::getClassTypeId();
    VxSpatialData::getClassTypeId();
    VxScalarField3::getClassTypeId();
    VxRegScalarField3::getClassTypeId();
    VxUniformScalarField3::getClassTypeId();
    VxUniformLabelField3::getClassTypeId();
    VxColormap::getClassTypeId();
    VxLineSet::getClassTypeId();
    VxInventorScene::getClassTypeId();
    VxBlockStructuredScalarField3::getClassTypeId();
    VxPointProbe::getClassTypeId();
    VxUnstructuredGrid::getClassTypeId();
    VxTetraGrid::getClassTypeId();
    VxTetraScalarField3::getClassTypeId();
    VxHexaGrid::getClassTypeId();
    VxHexaScalarField3::getClassTypeId();
}
