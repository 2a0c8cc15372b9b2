# The left hippocampus, cut out of the MRI template by the AAL atlas of mricron-data (both on the
# same 181 x 217 x 181 grid): the atlas becomes the mask of its region 37 (Hippocampus_L), and the
# masked isosurface keeps the tissue surface inside it.
#   vxhost examples/hippocampus-surface.tcl [OUTPUT.ply] [strict|relaxed]
set output [expr {$argc > 0 ? [lindex $argv 0] : "hippocampus.ply"}]
set mode [expr {$argc > 1 ? [lindex $argv 1] : "relaxed"}]

load /usr/share/mricron/templates/ch2.nii.gz ch2
load -labels /usr/share/mricron/templates/aal.nii.gz atlas
puts "region voxels: [atlas keepLabel 37]"

create VxMaskedLabelIsosurface hippocampus
hippocampus data connect ch2
hippocampus mask connect atlas
hippocampus maskRestrictionType setIndex [expr {$mode eq "relaxed" ? 1 : 0}]
hippocampus threshold setValue 80
hippocampus doIt hit
hippocampus fire
hippocampus exportData ply $output
puts "wrote $output"
