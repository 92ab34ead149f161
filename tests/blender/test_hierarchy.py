"""An empty with children: a mesh parented with a parent-inverse matrix, a
nested empty holding a mesh with a modifier, and a child hidden from renders;
the root empty turns over the frame range."""

import math
import os

import bpy
import numpy as np

import zt2_test_support as t

scene = t.new_scene()
scene.frame_start, scene.frame_end = 1, 11
scene.frame_set(1)


def empty(name, location, parent=None):
    obj = bpy.data.objects.new(name, None)
    scene.collection.objects.link(obj)
    obj.location = location
    obj.parent = parent
    return obj


root = empty("Root", (2.0, 0.0, 1.0))
root.rotation_euler = (0.0, 0.0, 0.5)
root.scale = (2.0, 2.0, 2.0)
root.keyframe_insert("rotation_euler", frame=1)
root.rotation_euler = (0.0, 0.0, 0.5 + math.pi / 2)
root.keyframe_insert("rotation_euler", frame=11)

bpy.ops.mesh.primitive_cube_add(size=1.0, location=(0.0, 3.0, 0.0))
child = bpy.context.active_object
child.name = "Child"
child.parent = root
child.matrix_parent_inverse = root.matrix_world.inverted()

# A second object showing Child's mesh: written once, Twin as a reference to it.
twin = bpy.data.objects.new("Twin", child.data)
scene.collection.objects.link(twin)
twin.location = (-4.0, 0.0, 2.0)
twin.rotation_euler = (0.0, 0.7, 0.0)

sub = empty("Sub", (1.0, 1.0, 0.0), parent=root)
sub.rotation_euler = (0.4, 0.0, 0.0)
bpy.ops.mesh.primitive_uv_sphere_add(segments=8, ring_count=4, radius=0.5)
leaf = bpy.context.active_object
leaf.name = "Leaf"
leaf.parent = sub
leaf.location = (0.0, 0.0, 1.5)
leaf.modifiers.new("Subdivision", "SUBSURF").levels = 1

hidden = empty("Hidden", (0.0, 0.0, 5.0), parent=root)
hidden.hide_render = True

scene.frame_set(1)
path = t.export("hierarchy")
exported = t.read(path)

helpers = sorted(h.name for h in exported.helpers)
t.check(helpers == ["Root", "Sub"], "helpers %r" % helpers)
parents = {n.name: n.parent for n in exported.nodes()}
t.check(parents.get("Child") == "Root" and parents.get("Sub") == "Root" and parents.get("Leaf") == "Sub",
        "parents %r" % parents)
t.check("Hidden" not in parents, "the node hidden from renders was exported")
animated = {a.name: a for a in exported.transform_animations}
t.check("Root" in animated and len(animated["Root"].keys) >= 2, "Root's turn has no keys: %r" % sorted(animated))

subdivided = next(m for m in exported.meshes if m.name == "Leaf")
faces = sum(g.triangle_count for g in subdivided.groups())
evaluated = leaf.evaluated_get(bpy.context.evaluated_depsgraph_get()).to_mesh()
evaluated.calc_loop_triangles()
expected = len(evaluated.loop_triangles)
leaf.evaluated_get(bpy.context.evaluated_depsgraph_get()).to_mesh_clear()
t.check(faces == expected and faces > 48, "Leaf has %d triangles, %d expected with its modifier" % (faces, expected))

deviation = max(t.position_deviation(exported, leaf), t.position_deviation(exported, child))
shared = next(m for m in exported.meshes if m.name == "Twin")
t.check(shared.reference_name == "Child" and len(shared.positions) == 0,
        "Twin is not written as a reference to Child's mesh: %r" % shared.reference_name)
original = next(m for m in exported.meshes if m.name == "Child")
points = np.hstack([np.asarray(original.positions, np.float64), np.ones((len(original.positions), 1))])
deviation = max(deviation, t.set_deviation((points @ t.world_matrix(exported, shared.node))[:, :3],
                                           t.blender_world_positions(twin)))

# Root's keys, one per sample from frame 1 (the last frame left out, as
# decreaseEndFrameByOne has it), place Leaf where Blender has it at every frame.
keys = animated["Root"].keys
t.check(list(keys.samples) == list(range(10)), "Root's key samples %r" % list(keys.samples))
mesh = next(m for m in exported.meshes if m.name == "Leaf")
local = np.hstack([np.asarray(mesh.positions, np.float64), np.ones((len(mesh.positions), 1))])
below_root = local @ t.matrix(mesh.node.transform) @ t.matrix(exported.find_node("Sub").transform)
keyed = 0.0
for sample, key in zip(keys.samples, keys.values):
    scene.frame_set(1 + sample)
    keyed = max(keyed, t.set_deviation((below_root @ t.matrix(key))[:, :3], t.blender_world_positions(leaf)))
scene.frame_set(1)
print("blender hierarchy keys: Leaf placed by Root's %d keys, off by at most %.3g" % (len(keys.samples), keyed))
t.report("hierarchy", max(deviation, keyed))

# The operator's properties are the options record's fields, with the exporter's limits.
properties = bpy.ops.export_scene.zt2.get_rna_type().properties
t.check(set(t.ztexport.option_names()) <= set(properties.keys()), "fields without a property: %r" %
        sorted(set(t.ztexport.option_names()) - set(properties.keys())))
t.check(properties["rescaleFactor"].hard_min == 0.0 and properties["rescaleFactor"].hard_max == 100.0,
        "rescaleFactor's limits %g..%g" % (properties["rescaleFactor"].hard_min, properties["rescaleFactor"].hard_max))
t.check(properties["sampleRate"].hard_max == 500 and properties["exportGeometry"].type == "BOOLEAN",
        "sampleRate's or exportGeometry's property")

# A folder that is not there cancels the operator with the exporter's words, and nothing is written.
missing = path[:-len(".zt2")] + "-missing/scene.zt2"
try:
    bpy.ops.export_scene.zt2(filepath=missing)
except RuntimeError as error:
    t.check("missing" in str(error), "the refusal does not name the folder: %s" % error)
else:
    t.fail("an export into a missing folder was not cancelled")

# Skinning asked for in a scene without skins: every node gets the Physique
# the exporter reads, each mesh bound to its own node, and the .skd says so.
skinned = path[:-len(".zt2")] + "-skinned.zt2"
t.check(bpy.ops.export_scene.zt2(filepath=skinned, exportSkinning=True) == {"FINISHED"}, "skinned export refused")
skd = t.read(skinned[:-len(".zt2")] + ".skd")
node = skd.node_names[0]
t.check(node in ("Child", "Leaf") and set(skd.bone_names[b] for b in skd.influence_bone) == {node} and
        (np.asarray(skd.influence_count) == 1).all() and (np.asarray(skd.influence_weight) == 1.0).all(),
        "the .skd of a scene without skins binds %s to %r" % (node, sorted(set(skd.bone_names))))
