# A ball cut out of a cube of tetrahedra. The script writes the mesh itself: a 16^3 lattice of
# cubes, each cut into the six tetrahedra around its diagonal, as a VTK legacy file that holds the
# distance from the centre on each node. It loads the file, cuts it at radius 0.4 with VxIsoTetra
# and exports the sphere, its normals pointing outward (towards the larger distances).
#   vxhost examples/tetra-ball.tcl [OUTPUT.ply]
set output [expr {$argc > 0 ? [lindex $argv 0] : "tetra-ball.ply"}]
set mesh [file rootname $output]-mesh.vtk
set n 16

set f [open $mesh w]
set nodes [expr {($n + 1) ** 3}]
puts $f "# vtk DataFile Version 3.0\ncube of tetrahedra\nASCII\nDATASET UNSTRUCTURED_GRID"
puts $f "POINTS $nodes float"
for {set k 0} {$k <= $n} {incr k} {
    for {set j 0} {$j <= $n} {incr j} {
        for {set i 0} {$i <= $n} {incr i} { puts $f "[expr {double($i) / $n}] [expr {double($j) / $n}] [expr {double($k) / $n}]" }
    }
}
# The six paths from a cube's corner 0 0 0 to 1 1 1, one axis a step; a path whose axis order is
# an odd permutation gives a negatively oriented tetrahedron, so its middle nodes trade places.
set paths {{0 1 2 0} {1 2 0 0} {2 0 1 0} {0 2 1 1} {2 1 0 1} {1 0 2 1}}
set cells [expr {6 * $n ** 3}]
puts $f "CELLS $cells [expr {5 * $cells}]"
for {set k 0} {$k < $n} {incr k} {
    for {set j 0} {$j < $n} {incr j} {
        for {set i 0} {$i < $n} {incr i} {
            foreach path $paths {
                set at [list $i $j $k]
                set tetra {}
                foreach axis [concat [lrange $path 0 2] -1] {
                    lappend tetra [expr {([lindex $at 2] * ($n + 1) + [lindex $at 1]) * ($n + 1) + [lindex $at 0]}]
                    if {$axis >= 0} { lset at $axis [expr {[lindex $at $axis] + 1}] }
                }
                if {[lindex $path 3]} { set tetra [lreplace $tetra 1 2 [lindex $tetra 2] [lindex $tetra 1]] }
                puts $f "4 $tetra"
            }
        }
    }
}
puts $f "CELL_TYPES $cells"
for {set c 0} {$c < $cells} {incr c} { puts $f 10 }
puts $f "POINT_DATA $nodes\nSCALARS distance float 1\nLOOKUP_TABLE default"
for {set k 0} {$k <= $n} {incr k} {
    for {set j 0} {$j <= $n} {incr j} {
        for {set i 0} {$i <= $n} {incr i} {
            puts $f [expr {sqrt(($i - $n / 2.0) ** 2 + ($j - $n / 2.0) ** 2 + ($k - $n / 2.0) ** 2) / $n}]
        }
    }
}
close $f

load $mesh cube
create VxIsoTetra ball
ball data connect cube
ball threshold setValue 0.4
ball fire
puts "Isosurface contains [ball getNumTriangles] triangles"
ball exportData ply $output
puts "wrote $output"
