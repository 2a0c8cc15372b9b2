# Contour lines with their values on the middle axial slice of the MRI template, for vxviewer (or
# vxhost). The head's surface is one module more: "create VxIsosurface head; head data connect ch2;
# head threshold setValue 3; head doIt hit".
#   vxviewer examples/head-workflow.tcl --view +z
load /usr/share/mricron/templates/ch2.nii.gz ch2
create VxOrthoSlice slice
slice data connect ch2
create VxColormap colors
colors setRange 20 100
colors setPreset rainbow
create VxIsolines contours
contours data connect ch2
contours slice connect slice
contours colormap connect colors
contours spacing setValue 0
contours uniform setValue 0 20
contours uniform setValue 1 100
contours uniform setValue 2 5
contours quality setValue 1
contours font setFont {DejaVu Sans} 12
contours font setFontColor 1 1 1
contours annotateEvery setValue 0 2
contours annotateOnOff setValue 1
# The label sliders take their ranges from the field when it is first computed.
contours fire
contours textScale setValue 0.5
contours textSpacing setValue 30
