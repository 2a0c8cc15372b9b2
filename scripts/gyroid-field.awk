# Copies a Gmsh 2.2 ASCII mesh and appends a node field "gyroid": sin x cos y + sin y cos z +
# sin z cos x at three times each node's position, one period and a half across the unit ball.
#   awk -f scripts/gyroid-field.awk ball.msh > ball-gyroid.msh
{ print }
/^\$Nodes/ { inNodes = 1; header = 1; next }
/^\$EndNodes/ { inNodes = 0 }
inNodes && header { header = 0; next }  # the node count
inNodes && NF == 4 {
  x = 3 * $2; y = 3 * $3; z = 3 * $4
  tag[++n] = $1
  value[n] = sin(x) * cos(y) + sin(y) * cos(z) + sin(z) * cos(x)
}
END {
  if (n == 0) { print "gyroid-field.awk: no nodes (a Gmsh 2.2 ASCII mesh is needed)" > "/dev/stderr"; exit 1 }
  # One string tag (the name), one real tag (the time), three integer tags: time step, components, count.
  printf "$NodeData\n1\n\"gyroid\"\n1\n0\n3\n0\n1\n%d\n", n
  for (i = 1; i <= n; ++i) printf "%s %.9g\n", tag[i], value[i]
  print "$EndNodeData"
}
