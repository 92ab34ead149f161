"""Export, import, export again: a scene built in code (meshes with two
materials, sharp edges and a UV map, a hierarchy under a turning empty, a
camera and three lights) goes through the import operator into an empty
scene and exports again to the same file; the bundled example imports with
its nodes, parents and meshes."""

import math
import os
import subprocess

import bpy
import numpy as np

import zt2_test_support as t

scene = t.new_scene()
scene.frame_start, scene.frame_end = 1, 9
scene.render.fps = 25

red = bpy.data.materials.new("Red")
red.use_nodes = True
bsdf = red.node_tree.nodes["Principled BSDF"]
bsdf.inputs["Base Color"].default_value = (0.8, 0.1, 0.1, 1.0)
bsdf.inputs["Roughness"].default_value = 0.3
bsdf.inputs["Emission"].default_value = (0.1, 0.05, 0.0, 1.0)
maps = os.path.join(os.path.dirname(os.environ["XDG_CONFIG_HOME"]), "maps")
os.makedirs(maps)
image = bpy.data.images.new("grid", 8, 8)
image.generated_type = "UV_GRID"
image.filepath_raw = os.path.join(maps, "grid.png")
image.file_format = "PNG"
image.save()
texture = red.node_tree.nodes.new("ShaderNodeTexImage")
texture.image = image
red.node_tree.links.new(texture.outputs["Color"], bsdf.inputs["Base Color"])
blue = bpy.data.materials.new("Blue")
blue.use_nodes = True
blue.node_tree.nodes["Principled BSDF"].inputs["Base Color"].default_value = (0.1, 0.2, 0.9, 1.0)

root = bpy.data.objects.new("Root", None)
scene.collection.objects.link(root)
root.location = (1.0, -2.0, 0.5)
root["role"], root["level"] = "player", 3
root.rotation_euler = (0.0, 0.0, 0.3)
root.keyframe_insert("rotation_euler", frame=1)
root.rotation_euler = (0.2, 0.0, 1.8)
root.keyframe_insert("rotation_euler", frame=9)

bpy.ops.mesh.primitive_cube_add(size=2.0, location=(0.0, 2.0, 1.0))
cube = bpy.context.active_object
cube.name = "Box"
cube.data.materials.append(red)
cube.data.materials.append(blue)
cube.data.polygons[5].material_index = 1
for edge in cube.data.edges:
    edge.use_edge_sharp = edge.index % 2 == 0
cube.data.polygons.foreach_set("use_smooth", [True] * 6)
cube.parent = root
cube.scale = (1.0, 0.5, 2.0)

bpy.ops.mesh.primitive_uv_sphere_add(segments=10, ring_count=6, radius=0.7, location=(-3.0, 0.0, 0.0))
ball = bpy.context.active_object
ball.name = "Ball"
ball.data.materials.append(blue)
bpy.ops.object.shade_smooth()
twin = bpy.data.objects.new("Ball Twin", ball.data)
scene.collection.objects.link(twin)
twin.location = (-3.0, 2.0, 1.0)

camera = bpy.data.objects.new("Eye", bpy.data.cameras.new("Eye"))
scene.collection.objects.link(camera)
camera.data.lens = 35.0
camera.data.clip_start, camera.data.clip_end = 0.5, 300.0
camera.location = (0.0, -10.0, 3.0)
camera.rotation_euler = (math.radians(80), 0.0, 0.0)

for name, kind, colour, energy in (("Lamp", "POINT", (1.0, 0.9, 0.8), 500.0),
                                   ("Spot", "SPOT", (0.2, 1.0, 0.4), 2500.0),
                                   ("Sun", "SUN", (1.0, 1.0, 0.9), 2.0)):
    light = bpy.data.objects.new(name, bpy.data.lights.new(name, kind))
    scene.collection.objects.link(light)
    light.data.color, light.data.energy = colour, energy
    light.location = (2.0, 3.0, 4.0)
    light.rotation_euler = (0.3, 0.2, 0.1)
    if kind == "SPOT":
        light.data.spot_size, light.data.spot_blend = math.radians(50), 0.3
        light.data.use_custom_distance, light.data.cutoff_distance = True, 60.0

# The point light is hidden from renders over frames 4 to 6.
lamp = bpy.data.objects["Lamp"]
for frame, hide in ((1, False), (4, True), (7, False)):
    lamp.hide_render = hide
    lamp.keyframe_insert("hide_render", frame=frame)

scene.frame_set(1)
first = t.export("import-first")
blink = next(a for a in t.read(first).transform_animations if a.name == "Lamp").visibility_keys
shown = dict(zip(blink.samples.tolist(), blink.values.tolist()))
t.check(shown.get(2) == 1.0 and shown.get(3) == 0.0 and shown.get(5) == 0.0 and shown.get(6) == 1.0,
        "Lamp's visibility keys %r" % shown)

# Into an empty scene, and out again.
t.new_scene()
result = bpy.ops.import_scene.zt2(filepath=first)
t.check(result == {"FINISHED"}, "the import operator answered %s" % result)
scene = bpy.context.scene
t.check(scene.render.fps == 25 and scene.frame_end - scene.frame_start == 8,
        "frame rate %d, range %d..%d" % (scene.render.fps, scene.frame_start, scene.frame_end))
t.check(bpy.data.objects["Box"].parent == bpy.data.objects["Root"], "Box's parent")
t.check(bpy.data.objects["Root"].get("role") == "player" and bpy.data.objects["Root"].get("level") == 3,
        "Root's user properties %r" % bpy.data.objects["Root"].items())
t.check(bpy.data.objects["Ball Twin"].data == bpy.data.objects["Ball"].data, "Ball Twin does not share Ball's mesh")
t.check([s.material.name for s in bpy.data.objects["Box"].material_slots] == ["Red", "Blue"],
        "Box's material slots %r" % [s.material.name for s in bpy.data.objects["Box"].material_slots])
t.check(bpy.data.images[0].filepath == os.path.join(os.path.dirname(first), "grid.png"),
        "the image beside the file was not loaded: %r" % [i.filepath for i in bpy.data.images])
hidden_at = []
for frame in range(scene.frame_start, scene.frame_end + 1):
    scene.frame_set(frame)
    hidden_at.append(bpy.data.objects["Lamp"].hide_render)
t.check(hidden_at == [False] * 3 + [True] * 3 + [False] * 3, "Lamp hidden from renders at %r" % hidden_at)
scene.frame_set(scene.frame_start)
os.makedirs(os.path.join(os.path.dirname(first), "again"))
second = t.export(os.path.join("again", "import-second"))

difference = t.ztexport.diff(first, second, tolerance=1e-5)
print(difference.text)
t.check(difference.equal, "the imported scene exports to another file:\n%s" % difference.text)

# The bundled example, exported by zt2export, imports with its nodes, parents and meshes.
examples = os.path.join(os.path.dirname(__file__), "..", "..", "examples")
example = os.path.join(os.path.dirname(first), "example.zt2")
run = subprocess.run([os.environ["ZT2EXPORT"], os.path.join(examples, "example.scene.json"), "-o", example,
                      "--quiet"], capture_output=True, text=True)
t.check(run.returncode == 0, "zt2export failed (%d): %s%s" % (run.returncode, run.stdout, run.stderr))
expected = t.read(example)
t.new_scene()
t.check(bpy.ops.import_scene.zt2(filepath=example) == {"FINISHED"}, "the example's import")
# Every node, and as an empty each node that only has animation (the camera's target).
motion = sorted(set(a.name for a in expected.transform_animations) - set(n.name for n in expected.nodes()))
names = sorted([n.name for n in expected.nodes()] + motion)
t.check(sorted(o.name for o in bpy.data.objects) == names and motion == ["Camera01.Target"],
        "objects %r, nodes %r" % (sorted(o.name for o in bpy.data.objects), names))
# The ambient colour, which Blender has no light for, stays on the world and goes out again.
ambient = bpy.context.scene.world.get("ztAmbientColor")
t.check(ambient is not None and np.allclose(list(ambient), np.asarray(expected.environment.ambient[:3]) / 255.0,
                                            atol=1e-6), "the world's ambient colour %r" % (ambient and list(ambient)))
again = t.read(t.export("example-again")).environment
t.check(list(again.ambient) == list(expected.environment.ambient), "exported again, the ambient colour %r, %r first" %
        (list(again.ambient), list(expected.environment.ambient)))
aim = bpy.data.objects["Camera01"].constraints
t.check(len(aim) == 1 and aim[0].target == bpy.data.objects["Camera01.Target"], "Camera01 is not aimed at its target")
# Aimed, it sees what the file's camera sees: the example's view, written by
# hand, passes 0.0012 radians beside its target. The spot's dimming is keyed.
bpy.context.scene.frame_set(bpy.context.scene.frame_start)
view = t.io_scene_zt2.build.blender_matrix(t.world_matrix(expected, expected.find_node("Camera01"))[:, :3])
view_error = np.abs(np.array(bpy.data.objects["Camera01"].matrix_world) - np.array(view)).max()
t.check(view_error < 2e-3, "Camera01's view is off by %.3g" % view_error)
spot = bpy.data.objects["Spot01"].data
dimming = next(a for a in expected.light_animations if a.name == "Spot01").intensity_keys
energies = [spot.animation_data.action.fcurves.find("energy").evaluate(bpy.context.scene.frame_start + f)
            for f in dimming.samples]
t.check(len(dimming) > 1 and np.allclose(energies, np.asarray(dimming.values) * 1000.0, atol=0.01),
        "Spot01's keyed power %r, the file's multipliers %r" % (energies, dimming.values))
for node in expected.nodes():
    parent = bpy.data.objects[node.name].parent
    t.check((parent.name if parent else None) == (node.parent or None),
            "%s's parent %r, %r in the file" % (node.name, parent and parent.name, node.parent))
    text = t.io_scene_zt2.gather._user_properties(bpy.data.objects[node.name])
    t.check(text == node.user_properties, "%s's user properties %r, %r in the file" %
            (node.name, text, node.user_properties))
meshes = [o for o in bpy.data.objects if o.type == "MESH"]
t.check(len(meshes) == len(expected.meshes), "%d mesh objects, %d in the file" % (len(meshes), len(expected.meshes)))
by_name = {m.name: m for m in expected.meshes}
for mesh in expected.meshes:
    obj = bpy.data.objects[mesh.name]
    if mesh.reference_name:
        t.check(obj.data == bpy.data.objects[mesh.reference_name].data, "%s does not share %s's mesh" %
                (mesh.name, mesh.reference_name))
        mesh = by_name[mesh.reference_name]
    t.check(len(obj.data.polygons) == len(mesh.faces), "%s: %d triangles, %d in the file" %
            (obj.name, len(obj.data.polygons), len(mesh.faces)))
    # Each corner shows the file's normal at it (z negated, corners reversed).
    obj.data.calc_normals_split()
    shown = np.empty(len(obj.data.loops) * 3, np.float32)
    obj.data.loops.foreach_get("normal", shown)
    filed = np.asarray(mesh.normals, np.float64)[np.asarray(mesh.faces).reshape(-1, 3)[:, [2, 1, 0]].ravel()] * [1, 1, -1]
    normal_error = np.abs(shown.reshape(-1, 3) - filed).max() if len(filed) == len(shown) // 3 else float("inf")
    t.check(normal_error < 1e-4, "%s's corner normals are off by %.3g" % (obj.name, normal_error))
# Placed where the file has them: the axes undone.
bpy.context.scene.frame_set(bpy.context.scene.frame_start)
t.report("import example", max(t.position_deviation(expected, bpy.data.objects[m.name])
                               for m in expected.meshes if not m.reference_name))
print("blender import: round trip equal; example: %d objects (the camera's target an empty it is aimed at), %d meshes, "
      "view off by %.3g" % (len(names), len(meshes), view_error))

# A file that is no scene file cancels the import with the file, the place and the cause, and builds nothing.
bad = os.path.join(os.path.dirname(first), "bad.zt2")
with open(bad, "wb") as f:
    f.write(b"\x00\x00\x01\x00" + b"not a scene file")
t.new_scene()
try:
    bpy.ops.import_scene.zt2(filepath=bad)
except RuntimeError as error:
    print("refused: %s" % error)
    t.check("bad.zt2" in str(error) and "offset" in str(error), "the refusal does not say where: %s" % error)
else:
    t.fail("a broken file was imported")
t.check(len(bpy.data.objects) == 0 and len(bpy.data.meshes) == 0, "a refused import left objects behind")
