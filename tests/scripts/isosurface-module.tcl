# The isosurface module driven by vxhost as a user's script drives it, for what the in-process module
# tests do not see: the surfaces extracted while the threshold is dragged and after "Down Sample".
# The test compares what this prints (the module's own lines and the "--" markers) with the expected text.
proc step {text} { puts "-- $text" }

# 256 x 256 x 32 bytes, 0 for x < 128 and 200 from there: a plane, 2 x 255 x 31 triangles at full
# resolution. Just large enough (2,097,152 nodes) to be down-sampled while the threshold is dragged.
set f [open plane.nrrd wb]
puts -nonewline $f "NRRD0004\ntype: uchar\ndimension: 3\nsizes: 256 256 32\nencoding: raw\n\n"
puts -nonewline $f [string repeat "[string repeat \x00 128][string repeat \xc8 128]" [expr {256 * 32}]]
close $f
load plane.nrrd plane
create VxIsosurface iso
iso data connect plane
iso options setValue 0 0
iso threshold setValue 100

step "dragging: every axis averaged by n/128 (2 2 1), then the full field on release"
iso threshold drag 100
iso doIt hit
iso fire
iso threshold release
iso doIt hit
iso fire
step "dragging without simplified rendering: the value waits for the release"
preferences simplifiedRendering 0
iso threshold drag 90
iso doIt hit
iso fire
iso threshold release
iso doIt hit
iso fire
step "Down Sample 4 4 4"
iso downSampleOnOff setValue 1
foreach axis {0 1 2} { iso resolution setValue $axis 4 }
iso doIt hit
iso fire
