# Contour lines on the middle axial slice of the MRI template of Debian's mricron-data, written as
# VTK legacy polydata (the iso value of each line as its cell data).
#   vxhost examples/isolines-head.tcl [OUTPUT.vtk]
# Five values spread evenly over the scan's range, from air (0) to its brightest voxels.
set output [expr {$argc > 0 ? [lindex $argv 0] : "isolines-head.vtk"}]

load /usr/share/mricron/templates/ch2.nii.gz ch2
create VxOrthoSlice slice
slice data connect ch2
slice sliceOrientation setValue 0
slice fire
create VxIsolines contours
contours data connect ch2
contours slice connect slice
contours spacing setValue 0
contours uniform setValue 2 5
# One sample a node of the slice.
contours quality setValue 1
contours fire
puts "iso values: [contours uniform getValue]"
set lines [contours exportAsLineSet]
$lines exportData vtk $output
puts "wrote $output"
