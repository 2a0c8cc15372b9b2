# The isosurface module driven by vxhost as a user's script drives it. The test compares what this
# prints (the module's own lines and the "--" markers) with the expected text.
proc check {what got want} {
    if {$got ne $want} { error "$what: got \"$got\", want \"$want\"" }
}
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

step "no Apply, no surface"
iso threshold setValue 100
iso fire
step "Apply"
iso doIt hit
iso fire
step "Apply again: up to date"
iso doIt hit
iso fire
step "a new threshold without Apply"
iso threshold setValue 50
iso fire
step "compactify, then a threshold above every value"
iso options setValue 0 1
iso doIt hit
iso fire
iso threshold setMinMax 0 300
iso threshold setValue 250
iso doIt hit
iso fire

step "dragging: every axis averaged by n/128 (2 2 1)"
iso options setValue 0 0
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
preferences simplifiedRendering 1

step "Down Sample 4 4 4, Average clamped to half the axis"
check "Average hidden" [iso resolution isVisible] 0
iso downSampleOnOff setValue 1
iso resolution setValue 0 4
iso resolution setValue 1 4
iso resolution setValue 2 100
iso fire
check "Average shown" [iso resolution isVisible] 1
check "clamped" [iso resolution getValue] "4 4 16"
iso resolution setValue 2 4
iso doIt hit
iso fire
iso downSampleOnOff setValue 0

step "setParamCC"
check "help" [iso setParamCC] "usage: iso setParamCC VALUE"
iso setParamCC 0.25

step "saved networks say \"doIt hit\" only after a computation"
create VxIsosurface fresh
fresh data connect plane
fresh threshold setValue 100
saveNetwork before.tcl
fresh doIt hit
fresh fire
fresh exportData ply first.ply
saveNetwork after.tcl
foreach {file want} {before.tcl 0 after.tcl 1} {
    set in [open $file]
    set text [read $in]
    close $in
    check "$file says \"fresh\" doIt hit" [expr {[string first "\"fresh\" doIt hit" $text] >= 0}] $want
}
