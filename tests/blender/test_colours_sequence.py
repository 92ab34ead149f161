"""Two grids with colour attributes (per point in floats, per corner in
bytes) and a second UV map, under a material whose Base Color is an image
sequence: the file's vertex colours, the report of what is left out, and
the sequence's frames named by the texture and copied beside the file."""

import os

import bpy
import numpy as np

import io_scene_zt2
import zt2_test_support as t

scene = t.new_scene()

maps = os.path.join(os.path.dirname(os.environ["XDG_CONFIG_HOME"]), "sequence")
os.makedirs(maps)
for number in range(1, 5):
    frame = bpy.data.images.new("frame%d" % number, 4, 4)
    frame.generated_color = (number / 4.0, 0.2, 0.5, 1.0)
    frame.filepath_raw = os.path.join(maps, "wave_%03d.png" % number)
    frame.file_format = "PNG"
    frame.save()
sequence = bpy.data.images.load(os.path.join(maps, "wave_001.png"))
sequence.source = "SEQUENCE"

material = bpy.data.materials.new("Wave")
material.use_nodes = True
tree = material.node_tree
node = tree.nodes.new("ShaderNodeTexImage")
node.image = sequence
# Frames 2 to 4 of the files: the node starts one image in.
node.image_user.frame_duration = 3
node.image_user.frame_offset = 1
tree.links.new(node.outputs["Color"], tree.nodes["Principled BSDF"].inputs["Base Color"])


def linear_colour(points):
    """A colour that depends on the position alone, 0..1 (Blender's linear values)."""
    return np.stack([0.5 + 0.2 * points[:, 0], 0.5 + 0.2 * points[:, 1], np.full(len(points), 0.3)], axis=1)


def srgb(linear):
    return np.where(linear <= 0.0031308, linear * 12.92, 1.055 * np.power(linear, 1 / 2.4) - 0.055)


cases = {
    # object: (location, colour attribute domain, data type, tolerance)
    "Painted": ((-3.0, 0.0, 0.0), "POINT", "FLOAT_COLOR", 1e-4),
    "Corners": ((3.0, 0.0, 0.0), "CORNER", "BYTE_COLOR", 1.0 / 255.0 + 1e-4),
}
for name, (location, domain, kind, _) in cases.items():
    bpy.ops.mesh.primitive_grid_add(x_subdivisions=4, y_subdivisions=3, size=2.0, location=location)
    obj = bpy.context.active_object
    obj.name = name
    mesh = obj.data
    mesh.materials.append(material)
    co = np.empty(len(mesh.vertices) * 3, np.float32)
    mesh.vertices.foreach_get("co", co)
    co = co.reshape(-1, 3)
    if domain == "CORNER":
        at = np.empty(len(mesh.loops), np.int32)
        mesh.loops.foreach_get("vertex_index", at)
        co = co[at]
    attribute = mesh.color_attributes.new("Paint", kind, domain)
    colours = np.hstack([linear_colour(co), np.ones((len(co), 1))]).astype(np.float32)
    attribute.data.foreach_set("color", colours.ravel())
    # A second attribute, not the active one, is left out with a warning.
    mesh.color_attributes.new("Dirt", "FLOAT_COLOR", "POINT")
    mesh.color_attributes.active_color = attribute
mesh.uv_layers.new(name="Second")

path = t.export("colours_sequence")
exported = t.read(path)

colour_error = 0.0
for name, (_, _, _, tolerance) in cases.items():
    mesh = next(m for m in exported.meshes if m.name == name)
    channels = {c.channel: c for c in mesh.map_channels}
    t.check(1 in channels, "%s: no vertex colours (map channels %r)" % (name, sorted(channels)))
    colours = np.asarray(channels[1].coordinates, np.float64)
    positions = t.exported_world_positions(exported, mesh)
    local = (np.hstack([positions[:, [0, 2, 1]], np.ones((len(positions), 1))]) @
             np.array(bpy.data.objects[name].matrix_world.inverted()).T)[:, :3]
    # The file's map channels hold (u, -v, 0): red and minus green; blue is lost.
    wanted = srgb(linear_colour(local))
    error = max(np.abs(colours[:, 0] - wanted[:, 0]).max(), np.abs(colours[:, 1] + wanted[:, 1]).max())
    t.check(error <= tolerance, "%s: vertex colours off by %.3g" % (name, error))
    colour_error = max(colour_error, error)

document = io_scene_zt2.gather.gather(bpy.context)
for words in ('"Corners": only UV map "UVMap" is exported', '"Second" left out',
              'only colour attribute "Paint" is exported as vertex colours; "Dirt" left out'):
    t.check(any(words in w for w in document.warnings), "no warning %r: %r" % (words, document.warnings))
lists = [name for name in document.extra_files if name.endswith(".ifl")]
t.check(lists == ["wave.ifl"], "image lists %r" % lists)
entries = document.extra_files["wave.ifl"].decode().split()
wanted = [os.path.join(maps, "wave_%03d.png" % n) for n in (2, 3, 4)]
t.check(entries == wanted, "wave.ifl names %r" % entries)

material_list = exported.materials
record = next(m for m in material_list.materials if m.name == "Wave")
names = list(record.layers[0].file_names)
t.check(names == ["wave_002.png", "wave_003.png", "wave_004.png"], "the texture names %r" % names)
folder = os.path.dirname(path)
t.check(all(os.path.isfile(os.path.join(folder, n)) for n in names), "the frames were not copied beside the file")
print("blender colours_sequence: vertex colours off by at most %.3g; %d frames listed and copied" %
      (colour_error, len(names)))
