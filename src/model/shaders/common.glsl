// One invocation per output element; the dispatch is two-dimensional
// because one dimension holds at most 65535 workgroups.
layout(local_size_x = 64) in;

uint ElementIndex() {
  return (gl_WorkGroupID.y * gl_NumWorkGroups.x + gl_WorkGroupID.x) * 64u + gl_LocalInvocationID.x;
}
