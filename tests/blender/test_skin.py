"""A tube skinned to a three-bone leg that walks: the bones' keys, the skin's
weights against the vertex groups, and the vertices skinned from the file
against Blender's deformed mesh at every frame; imported with its .skd (an
armature) and without (the bones as keyed empties)."""

import math
import os
import shutil

import bpy
import numpy as np

import io_scene_zt2
import zt2_test_support as t

scene = t.new_scene()
scene.frame_start, scene.frame_end = 1, 17
scene.frame_set(1)

# Hip, Thigh and Shin down a leg three units tall; Toe and Heel hold nothing
# until the influence limit is tried at the end.
rig_data = bpy.data.armatures.new("RigData")
rig = bpy.data.objects.new("Rig", rig_data)
scene.collection.objects.link(rig)
rig.location = (0.5, 0.0, 0.0)
bpy.context.view_layer.objects.active = rig
bpy.ops.object.mode_set(mode="EDIT")
bones = {}
for name, head, tail, parent in (("Hip", (0, 0, 3), (0, 0, 2), None), ("Thigh", (0, 0, 2), (0, 0.1, 1), "Hip"),
                                 ("Shin", (0, 0.1, 1), (0, 0, 0), "Thigh"), ("Toe", (0, 0, 0), (0, -0.3, 0), "Shin"),
                                 ("Heel", (0, 0, 0), (0, 0.2, 0), "Shin")):
    bone = rig_data.edit_bones.new(name)
    bone.head, bone.tail = head, tail
    if parent:
        bone.parent = bones[parent]
    bones[name] = bone
bpy.ops.object.mode_set(mode="OBJECT")

# An open tube of 12 sides and 13 rings from z 0 to 3.
sides, rings = 12, 13
angles = np.arange(sides) * 2.0 * math.pi / sides
heights = np.linspace(0.0, 3.0, rings)
points = [(0.3 * math.cos(a), 0.3 * math.sin(a), z) for z in heights for a in angles]
quads = [(r * sides + s, r * sides + (s + 1) % sides, (r + 1) * sides + (s + 1) % sides, (r + 1) * sides + s)
         for r in range(rings - 1) for s in range(sides)]
mesh = bpy.data.meshes.new("LegMesh")
mesh.from_pydata(points, [], quads)
leg = bpy.data.objects.new("Leg", mesh)
scene.collection.objects.link(leg)
leg.parent = rig
leg.matrix_parent_inverse = rig.matrix_world.inverted()

# Weights falling off linearly from each bone's middle; the top ring is held
# by a group that names no bone, so it stays with the object.
middles = {"Hip": 2.5, "Thigh": 1.5, "Shin": 0.5}
groups = {name: leg.vertex_groups.new(name=name) for name in middles}
extra = leg.vertex_groups.new(name="Extra")
for index, (_, _, z) in enumerate(points):
    if z >= 3.0 - 1e-6:
        extra.add([index], 0.7, "REPLACE")
        continue
    for name, middle in middles.items():
        weight = max(0.0, 1.0 - abs(z - middle) / 1.1)
        if weight > 0.0:
            groups[name].add([index], weight * 0.8, "REPLACE")  # not normalised: the export does it
modifier = leg.modifiers.new("Armature", "ARMATURE")
modifier.object = rig

# The walk: the first frame is the rest pose, so that blended vertices follow
# their bones exactly (the file's bind pose is the first frame).
walk = {"Hip": [(1, 0.0), (9, 0.2), (17, 0.0)], "Thigh": [(1, 0.0), (5, 0.6), (13, -0.5), (17, 0.0)],
        "Shin": [(1, 0.0), (7, 0.9), (11, 0.2), (17, 0.0)]}
for name, keys in walk.items():
    pose_bone = rig.pose.bones[name]
    pose_bone.rotation_mode = "XYZ"
    for frame, angle in keys:
        pose_bone.rotation_euler = (angle, 0.0, 0.1 * angle)
        pose_bone.keyframe_insert("rotation_euler", frame=frame)
rig.keyframe_insert("location", frame=1)
rig.location = (0.5, 2.0, 0.0)
rig.keyframe_insert("location", frame=17)
# A mesh named after the rig, which name order would export last: the skinned
# mesh must be the last, since the exporter's .skd holds the last mesh's skin.
bpy.ops.mesh.primitive_plane_add(size=6.0)
bpy.context.active_object.name = "Stage"

# Exported from the middle of the walk: the file still binds the skin in the
# first frame's pose, and the scene is left at the frame it was at.
scene.frame_set(6)

# No key reduction: every sample the pose changes at is a key.
path = t.export("skin", positionDelta=0.0, rotationDelta=0.0)
t.check(scene.frame_current == 6, "the export left the scene at frame %d" % scene.frame_current)
scene.frame_set(1)
exported = t.read(path)
skd = t.read(path[:-len(".zt2")] + ".skd")
t.check(list(skd.node_names) == ["Leg"], "the .skd skins %r" % list(skd.node_names))
parents = {n.name: n.parent for n in exported.nodes()}
t.check(parents.get("Leg") == "Rig", "Leg's parent %r" % parents.get("Leg"))
animations = {a.name: a for a in exported.transform_animations}
for name, parent in (("Hip", "Rig"), ("Thigh", "Hip"), ("Shin", "Thigh"), ("Toe", "Shin")):
    t.check(name in animations and animations[name].parent_name == parent, "bone %s: %r" %
            (name, animations[name].parent_name if name in animations else "no keys"))
samples = animations["Leg"].num_samples
t.check(samples == scene.frame_end - scene.frame_start, "%d samples" % samples)

mesh = next(m for m in exported.meshes if m.name == "Leg")
local = np.hstack([np.asarray(mesh.positions, np.float64), np.ones((len(mesh.positions), 1))])
t.check(len(skd.influence_count) == len(local), "%d skin vertices for %d mesh vertices" %
        (len(skd.influence_count), len(local)))


def keyed_local(animation, sample):
    """A node's transform at a sample, linear between its keys (rows of 4x3)."""
    frames = np.asarray(animation.keys.samples, np.float64)
    values = np.asarray(animation.keys.values, np.float64)
    at = np.searchsorted(frames, sample, side="right") - 1
    if at < 0:
        return t.matrix(values[0])
    if at + 1 >= len(frames):
        return t.matrix(values[at])
    f = (sample - frames[at]) / (frames[at + 1] - frames[at])
    return t.matrix(values[at] * (1.0 - f) + values[at + 1] * f)


def world_at(name, sample):
    animation = animations[name]
    m = keyed_local(animation, sample)
    return m @ world_at(animation.parent_name, sample) if animation.parent_name else m


def blender_vertices():
    """Blender's deformed vertices, world, in the file's axes."""
    return t.blender_world_positions(leg)


# Each exported vertex is the Blender vertex at its place in the first frame
# (the tube's vertices all stand apart).
start = local @ world_at("Leg", 0)
first = blender_vertices()
distances = np.linalg.norm(start[:, None, :3] - first[None, :, :], axis=2)
match = distances.argmin(axis=1)
deviation = distances.min(axis=1).max()

# The weights: the vertex groups that name bones, normalised; none gives the object itself.
bone_names = list(skd.bone_names)
weight_error = 0.0
for v, blender_index in enumerate(match):
    held = {}
    for element in leg.data.vertices[blender_index].groups:
        name = leg.vertex_groups[element.group].name
        if name in middles and element.weight > 0.0:
            held[name] = element.weight
    total = sum(held.values())
    expected = {name: w / total for name, w in held.items()} if held else {"Leg": 1.0}
    begin, count = skd.influence_start[v], skd.influence_count[v]
    found = {bone_names[b]: float(w) for b, w in zip(skd.influence_bone[begin:begin + count],
                                                      skd.influence_weight[begin:begin + count])}
    t.check(sorted(found) == sorted(expected), "vertex %d is held by %r, %r expected" % (v, found, expected))
    weight_error = max(weight_error, max(abs(found[n] - expected[n]) for n in expected))
t.check(weight_error < 1e-6, "weights differ by %.3g" % weight_error)

# Skinned from the file: each bone's world at the sample times its inverse at
# the first; a vertex of no bone follows its node.
influences = [(skd.influence_bone[skd.influence_start[v]:skd.influence_start[v] + skd.influence_count[v]],
               skd.influence_weight[skd.influence_start[v]:skd.influence_start[v] + skd.influence_count[v]])
              for v in range(len(local))]
motion = 0.0
originals = []  # Blender's deformed vertices per sample, for the import below
for sample in range(samples):
    moves = {name: np.linalg.inv(world_at(name, 0)) @ world_at(name, sample) for name in set(bone_names)}
    skinned = np.zeros((len(local), 3))
    for v, (held_by, weights) in enumerate(influences):
        for b, w in zip(held_by, weights):
            skinned[v] += w * (start[v] @ moves[bone_names[b]])[:3]
    scene.frame_set(scene.frame_start + sample)
    originals.append(blender_vertices())
    blender = originals[-1][match]
    deviation = max(deviation, np.linalg.norm(skinned - blender, axis=1).max())
    motion = max(motion, np.linalg.norm(blender - first[match], axis=1).max())
scene.frame_set(1)
t.check(motion > 1.0, "the walk moves no vertex further than %.3g" % motion)

# The influence limit: a vertex held by all five bones keeps its four strongest.
for name, weight in (("Toe", 0.05), ("Heel", 0.02)):
    leg.vertex_groups.new(name=name).add([20], weight, "REPLACE")
for name in middles:
    groups[name].add([20], 0.3, "REPLACE")
document = io_scene_zt2.gather.gather(bpy.context)
t.check(any("\"Leg\": 1 vertices are held by more than 4 bones" in w for w in document.warnings),
        "no warning of the influence limit: %r" % document.warnings)
t.check(not any(".skd holds" in w for w in document.warnings), "the skin is not the .skd's: %r" % document.warnings)
# A mesh below the skinned one is exported after it, and its skin is the .skd's: said.
bpy.ops.mesh.primitive_cube_add(size=0.2)
shoe = bpy.context.active_object
shoe.name, shoe.parent = "Shoe", leg
document = io_scene_zt2.gather.gather(bpy.context, animation=False)
t.check(any('The .skd holds the skin of "Shoe"' in w for w in document.warnings),
        "no warning of the .skd's mesh: %r" % document.warnings)
bpy.data.objects.remove(shoe)
cases = [
    # weights of one vertex -> kept weights
    ([0.5, 0.1, 0.2, 0.1, 0.1], [0.5 / 0.9, 0.2 / 0.9, 0.1 / 0.9, 0.1 / 0.9]),
    ([0.2, 0.2], [0.5, 0.5]),
    ([], []),
]
for given, kept in cases:
    width = max(len(given), 1)
    counts, indices, weights, lost = io_scene_zt2.skin.limit_influences(
        np.array([len(given)]), np.arange(width)[None, :], np.array([given + [0.0] * (width - len(given))]))
    t.check(counts[0] == len(kept) and np.allclose(weights[0, :counts[0]], kept) and lost == (len(given) > 4),
            "limit of %r: %r" % (given, weights[0, :counts[0]]))

# Imported into an empty scene: an armature with the skin's bones, keyed at
# every sample, deforms the mesh by the .skd's weights as Blender did.
scene = t.new_scene()
scene.frame_start = 1
t.check(bpy.ops.import_scene.zt2(filepath=path) == {"FINISHED"}, "the import was cancelled")
skeleton = bpy.data.objects.get("Leg Skeleton")
t.check(skeleton is not None and skeleton.type == "ARMATURE", "no armature: %r" % sorted(bpy.data.objects.keys()))
imported_bones = {b.name: (b.parent.name if b.parent else None) for b in skeleton.data.bones}
t.check(imported_bones == {"Hip": None, "Thigh": "Hip", "Shin": "Thigh", "Toe": "Shin", "Heel": "Shin"},
        "imported bones %r" % imported_bones)
imported = bpy.data.objects["Leg"]
t.check(sorted(g.name for g in imported.vertex_groups) == sorted(imported_bones) and
        any(m.type == "ARMATURE" and m.object == skeleton for m in imported.modifiers),
        "the imported Leg's groups %r" % [g.name for g in imported.vertex_groups])
scene.frame_set(1)
positions = t.blender_world_positions(imported)
distances = np.linalg.norm(positions[:, None, :] - originals[0][None, :, :], axis=2)
again = distances.argmin(axis=1)
import_deviation = distances.min(axis=1).max()
for sample in range(samples):
    scene.frame_set(1 + sample)
    import_deviation = max(import_deviation, np.linalg.norm(t.blender_world_positions(imported) -
                                                            originals[sample][again], axis=1).max())
t.report("skin (%d samples, %d vertices moved up to %.3g, weights off by %.3g; imported again: %.3g)" %
         (samples, len(local), motion, weight_error, import_deviation), max(deviation, import_deviation))

# Without its .skd the bones are nodes that only have animation: empties under
# the rig, keyed, each where the file puts its node at every sample.
bare_folder = os.path.join(os.path.dirname(path), "bare")
os.makedirs(bare_folder)
bare = os.path.join(bare_folder, "skin.zt2")
shutil.copyfile(path, bare)
t.new_scene()
t.check(bpy.ops.import_scene.zt2(filepath=bare) == {"FINISHED"}, "the import without .skd was cancelled")
empties = {o.name: (o.parent.name if o.parent else None) for o in bpy.data.objects if o.type == "EMPTY"}
t.check(empties == {"Rig": None, "Hip": "Rig", "Thigh": "Hip", "Shin": "Thigh", "Toe": "Shin", "Heel": "Shin"},
        "the empties without .skd: %r" % empties)
bone_error = 0.0
for sample in range(samples):
    bpy.context.scene.frame_set(1 + sample)
    for name in ("Hip", "Thigh", "Shin", "Toe", "Heel"):
        bone_error = max(bone_error, np.linalg.norm(
            t.to_file_axes(np.array(bpy.data.objects[name].matrix_world.translation)) - world_at(name, sample)[3, :3]))
t.check(bone_error < 1e-4, "the bones' empties are off by %.3g" % bone_error)
print("blender skin without .skd: the bones as keyed empties, off by %.3g at every sample" % bone_error)
