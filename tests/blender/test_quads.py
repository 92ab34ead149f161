"""The export reads a mesh of triangles and quads where it lies and splits
its quads itself: the triangles must be those of Blender's own copy of the
mesh (to_mesh() and calc_loop_triangles), diagonal for diagonal, on quads
that fold every which way; a mesh with an n-gon takes Blender's route."""

import bpy
import numpy as np

import zt2_test_support as t
from io_scene_zt2 import gather

t.new_scene()
noise = bpy.data.textures.new("Noise", "CLOUDS")
noise.noise_scale = 0.05


def monkey(name, subdivisions, x):
    """Suzanne (triangles and quads; quads only once subdivided), pushed
    about by a noise texture so that hardly a quad stays flat."""
    bpy.ops.mesh.primitive_monkey_add(location=(x, 0, 0))
    obj = bpy.context.active_object
    obj.name = name
    if subdivisions:
        obj.modifiers.new("Subdivision", "SUBSURF").levels = subdivisions
    displace = obj.modifiers.new("Displace", "DISPLACE")
    displace.texture = noise
    displace.strength = 0.3
    return obj


monkeys = [monkey("Mixed", 0, -3.0), monkey("Quads", 2, 3.0)]
bpy.ops.mesh.primitive_cylinder_add(vertices=12)  # its caps are n-gons
cylinder = bpy.context.active_object
depsgraph = bpy.context.evaluated_depsgraph_get()

quads = triangles = 0
for obj in monkeys:
    evaluated = obj.evaluated_get(depsgraph)
    polygons = gather._in_place_polygons(obj, evaluated)
    t.check(polygons is not None, "%s is not read in place" % obj.name)
    mesh = evaluated.data
    positions = np.empty(len(mesh.vertices) * 3, np.float32)
    mesh.vertices.foreach_get("co", positions)
    loop_vertex = np.empty(len(mesh.loops), np.uint32)
    mesh.loops.foreach_get("vertex_index", loop_vertex)
    loops, polygon_of = gather._split_quads(positions, loop_vertex, *polygons)

    copy = evaluated.to_mesh()
    copy.calc_loop_triangles()
    blender_loops = np.empty(len(copy.loop_triangles) * 3, np.uint32)
    copy.loop_triangles.foreach_get("loops", blender_loops)
    blender_polygons = np.empty(len(copy.loop_triangles), np.uint32)
    copy.loop_triangles.foreach_get("polygon_index", blender_polygons)
    evaluated.to_mesh_clear()

    t.check(np.array_equal(loops, blender_loops) and np.array_equal(polygon_of, blender_polygons),
            "%s: %d of %d triangles differ from Blender's" %
            (obj.name, int(np.count_nonzero((loops.reshape(-1, 3) != blender_loops.reshape(-1, 3)).any(axis=1)))
             if len(loops) == len(blender_loops) else -1, len(blender_loops) // 3))
    quads += int(np.count_nonzero(polygons[1] == 4))
    triangles += len(loops) // 3
t.check(gather._in_place_polygons(cylinder, cylinder.evaluated_get(depsgraph)) is None,
        "a mesh with n-gons is read in place")
print("blender quads: %d quads of two meshes (one with triangles too) split as Blender's copy splits them, "
      "%d triangles" % (quads, triangles))
