# The skin of the head in the MRI template of Debian's mricron-data, as a mesh.
#   vxhost examples/head-surface.tcl [OUTPUT.ply]
# Air is 0 to 2 in this scan and skin starts near 4, so a threshold of 3 follows the skin.
set output [expr {$argc > 0 ? [lindex $argv 0] : "head.ply"}]

load /usr/share/mricron/templates/ch2.nii.gz ch2
create VxIsosurface head
head data connect ch2
head threshold setValue 3
head doIt hit
head fire
head exportData ply $output
puts "wrote $output"
