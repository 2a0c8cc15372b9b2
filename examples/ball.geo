// The unit ball, for gmsh: `gmsh -3 -format msh22 examples/ball.geo -o ball.msh` fills it with
// about 16,000 nodes and 90,000 tetrahedra (make demo does this, then adds a field).
SetFactory("OpenCASCADE");
Sphere(1) = {0, 0, 0, 1};
Mesh.MeshSizeMax = 0.06;
