"""A cube with two materials (one with an image on Base Color and its alpha on Alpha), sharp edges
around its top and its UV layout's seams, moved, turned and scaled, with the
scene's unit scale not 1."""

import os

import bpy
import numpy as np

import zt2_test_support as t

scene = t.new_scene()
scene.unit_settings.scale_length = 0.5

bpy.ops.mesh.primitive_cube_add(size=2.0, location=(1.0, 2.0, 3.0), rotation=(0.3, 0.2, 0.1))
cube = bpy.context.active_object
cube.name = "Cube"
cube.scale = (1.0, 2.0, 0.5)
mesh = cube.data
for polygon in mesh.polygons:
    polygon.use_smooth = True
top = next(p for p in mesh.polygons if p.normal.z > 0.9)
top_edges = set(top.edge_keys)
for edge in mesh.edges:
    if tuple(sorted(edge.vertices)) in top_edges:
        edge.use_edge_sharp = True
        edge.use_seam = True

maps = os.path.join(os.path.dirname(os.environ["XDG_CONFIG_HOME"]), "maps")
os.makedirs(maps)
image_path = os.path.join(maps, "checker.png")
image = bpy.data.images.new("checker", 8, 8)
image.generated_type = "UV_GRID"
image.filepath_raw = image_path
image.file_format = "PNG"
image.save()

red = bpy.data.materials.new("Red")
red.use_nodes = True
bsdf = red.node_tree.nodes["Principled BSDF"]
bsdf.inputs["Base Color"].default_value = (1.0, 0.0, 0.0, 1.0)
bsdf.inputs["Specular"].default_value = 0.8
bsdf.inputs["Roughness"].default_value = 0.25
bsdf.inputs["Emission"].default_value = (0.0, 0.5, 0.0, 1.0)
bsdf.inputs["Emission Strength"].default_value = 2.0

textured = bpy.data.materials.new("Textured")
textured.use_nodes = True
tree = textured.node_tree
node = tree.nodes.new("ShaderNodeTexImage")
node.image = image
tree.links.new(node.outputs["Color"], tree.nodes["Principled BSDF"].inputs["Base Color"])
# The image's alpha is the material's opacity: the mask layer.
tree.links.new(node.outputs["Alpha"], tree.nodes["Principled BSDF"].inputs["Alpha"])

mesh.materials.append(red)
mesh.materials.append(textured)
for polygon in mesh.polygons:
    polygon.material_index = 1 if polygon.index >= 4 else 0

path = t.export("cube")
exported = t.read(path)

t.check(len(exported.meshes) == 1, "one mesh expected, found %d" % len(exported.meshes))
out = exported.meshes[0]
groups = out.groups()
t.check(sorted(g.material for g in groups) == ["Red", "Textured"],
        "material groups %r" % [g.material for g in groups])
counts = {g.material: g.triangle_count for g in groups}
t.check(counts == {"Red": 8, "Textured": 4}, "triangles per material %r" % counts)

materials = {m.name: m for m in exported.materials.materials}
t.check(sorted(materials) == ["Red", "Textured"], "material list %r" % sorted(materials))
r = materials["Red"]
t.check(np.allclose(r.diffuse, (255, 0, 0, 255)), "Red's diffuse %r" % (r.diffuse,))
grey = 0.8 * (1.0 - 0.25) * 255
t.check(np.allclose(r.specular[:3], (grey, grey, grey), atol=0.01), "Red's specular %r" % (r.specular,))
t.check(np.allclose(r.ambient[:3], (0, 255, 0), atol=0.01), "Red's emission as ambient %r" % (r.ambient,))
t.check(r.layers[0] is None, "Red has no diffuse map")
layer = materials["Textured"].layers[0]
t.check(layer is not None and layer.file_names == ["checker.png"], "Textured's diffuse map %r" %
        (layer and layer.file_names))
mask = materials["Textured"].layers[4]
t.check(mask is not None and mask.file_names == ["checker.png"] and all(l is None for l in materials["Textured"].layers[1:4]),
        "Textured's mask layer %r" % (mask and mask.file_names))
t.check(os.path.isfile(os.path.join(os.path.dirname(path), "checker.png")), "the image was not copied")

# Sharp edges around the top: its corners carry the flat normal there and a
# smooth one on the sides.
world = t.exported_world_positions(exported, out)
axes = t.world_matrix(exported, out.node)[:3, :3]
normals = np.asarray(out.normals, np.float64) @ axes
normals /= np.linalg.norm(normals, axis=1)[:, None]
top_normal = t.to_file_axes(np.array(cube.matrix_world.to_3x3() @ top.normal))
top_normal /= np.linalg.norm(top_normal)
flat = np.abs(normals @ top_normal - 1.0) < 1e-4
t.check(flat.sum() == 4, "%d vertices carry the top's flat normal, 4 expected" % flat.sum())
top_corners = world[flat]
elsewhere = ~flat & (np.linalg.norm(world[:, None, :] - top_corners[None, :, :], axis=2).min(axis=1) < 1e-4)
t.check(elsewhere.sum() >= 4, "the top corners are not split along the sharp edges")

# UVs: every exported (position, u, v) is one of Blender's face corners.
channel = out.map_channels[0]
uv_layer = mesh.uv_layers.active
corner_uv = np.empty(len(mesh.loops) * 2, np.float32)
uv_layer.data.foreach_get("uv", corner_uv)
corner_uv = corner_uv.reshape(-1, 2)
corner_vertex = np.empty(len(mesh.loops), np.int32)
mesh.loops.foreach_get("vertex_index", corner_vertex)
blender_world = t.blender_world_positions(cube)[corner_vertex]
exported_uv = np.asarray(channel.coordinates, np.float64)[:, :2] * (1.0, -1.0)
pairs_a = np.hstack([world, exported_uv])
pairs_b = np.hstack([blender_world, corner_uv])
uv_deviation = np.abs(pairs_a[:, None, :] - pairs_b[None, :, :]).max(axis=2).min(axis=1).max()
t.check(uv_deviation < 1e-4, "exported UVs do not match Blender's corners (%.3g)" % uv_deviation)
t.check(len(world) > 8, "the UV seams split no vertex")


# The same document through zt2export gives the same bytes.
t.check(t.same_bytes_as_zt2export(path, {"exportSkinning": 0}), "zt2export wrote other bytes for the document")

t.report("cube", t.position_deviation(exported, cube))

# Imported again, the mask layer feeds Alpha from the image's alpha, beside its diffuse use.
t.new_scene()
t.check(bpy.ops.import_scene.zt2(filepath=path) == {"FINISHED"}, "the cube's import")
inputs = next(n for n in bpy.data.materials["Textured"].node_tree.nodes if n.type == "BSDF_PRINCIPLED").inputs
fed = {name: inputs[name].links[0] for name in ("Base Color", "Alpha") if inputs[name].is_linked}
t.check(set(fed) == {"Base Color", "Alpha"} and fed["Alpha"].from_socket.name == "Alpha" and
        fed["Alpha"].from_node.image == fed["Base Color"].from_node.image,
        "the imported Textured's inputs %r" % {k: (v.from_node.name, v.from_socket.name) for k, v in fed.items()})
