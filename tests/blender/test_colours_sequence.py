"""Two grids with colour attributes (per point in floats, per corner in
bytes) and a second UV map, under a material whose Base Color is an image
sequence: the file's vertex colours, the report of what is left out, and
the sequence's frames named by the texture and copied beside the file."""

import os
import subprocess

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
    # Smooth: a flat grid's faces come back from the file smooth (its normals
    # are all alike), and the round trip below compares the files.
    mesh.polygons.foreach_set("use_smooth", [True] * len(mesh.polygons))
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

# Imported into an empty scene: the vertex colours as a colour attribute per
# face corner (red and green as exported, blue lost), the image list as an
# image sequence playing the same frames; exported again to the same file.
t.new_scene()
t.check(bpy.ops.import_scene.zt2(filepath=path) == {"FINISHED"}, "the import of colours_sequence")
import_error = 0.0
for name in cases:
    mesh = bpy.data.objects[name].data
    attributes = mesh.color_attributes
    t.check(len(attributes) == 1 and attributes.active_color is not None and
            attributes.active_color.domain == "CORNER", "%s: colour attributes %r" %
            (name, [(a.name, a.domain) for a in attributes]))
    corners = np.empty(len(mesh.loops) * 4, np.float32)
    attributes.active_color.data.foreach_get("color_srgb", corners)
    corners = corners.reshape(-1, 4)
    # Each imported corner against the painted colours at its position.
    co = np.empty(len(mesh.vertices) * 3, np.float32)
    mesh.vertices.foreach_get("co", co)
    at = np.empty(len(mesh.loops), np.int32)
    mesh.loops.foreach_get("vertex_index", at)
    wanted = srgb(linear_colour(co.reshape(-1, 3)[at].astype(np.float64)))
    import_error = max(import_error, np.abs(corners[:, :2] - wanted[:, :2]).max(), np.abs(corners[:, 2]).max())
    t.check(import_error <= cases[name][3], "%s: imported colours off by %.3g" % (name, import_error))
nodes = [n for n in bpy.data.materials["Wave"].node_tree.nodes if n.type == "TEX_IMAGE"]
t.check(len(nodes) == 1 and nodes[0].image is not None, "Wave's image nodes %r" % nodes)
image, user = nodes[0].image, nodes[0].image_user
t.check(image.source == "SEQUENCE" and bpy.path.abspath(image.filepath) == os.path.join(folder, "wave_002.png") and
        (user.frame_offset, user.frame_duration, user.frame_start) == (1, 3, bpy.context.scene.frame_start),
        "the sequence: %s %r, offset %d, %d frames from %d" % (image.source, image.filepath, user.frame_offset,
                                                               user.frame_duration, user.frame_start))
# Read now: the image user belongs to this scene, which a new scene frees.
sequence = (user.frame_duration, user.frame_offset)
os.makedirs(os.path.join(folder, "again"))
again = t.export(os.path.join("again", "colours_sequence"))
# Blender's sRGB conversion there and back moves the colours by up to 4e-5.
difference = t.ztexport.diff(path, again, tolerance=1e-4)
t.check(difference.equal, "the imported scene exports to another file:\n%s" % difference.text)

# A list whose files are not numbered one after another cannot be a Blender
# sequence: its first image is imported, with a warning.
document = io_scene_zt2.gather.gather(bpy.context)
listed = [os.path.join(folder, "again", n) for n in ("wave_004.png", "wave_002.png")]
document.extra_files["wave.ifl"] = ("\n".join(listed) + "\n").encode()
shuffled_folder = os.path.join(folder, "shuffled")
os.makedirs(shuffled_folder)
shuffled = os.path.join(shuffled_folder, "shuffled.zt2")
run = subprocess.run([os.environ["ZT2EXPORT"], io_scene_zt2.write_document(document, shuffled_folder), "-o",
                        shuffled, "--quiet"], capture_output=True, text=True)
t.check(run.returncode == 0, "zt2export failed (%d): %s%s" % (run.returncode, run.stdout, run.stderr))
t.new_scene()
warnings = io_scene_zt2.build.build(bpy.context, shuffled)
t.check(any('are not files numbered one after another' in w and '"wave_004.png"' in w for w in warnings),
        "no warning of the list that is no sequence: %r" % warnings)
image = next(n for n in bpy.data.materials["Wave"].node_tree.nodes if n.type == "TEX_IMAGE").image
t.check(image.source == "FILE" and image.filepath.endswith("wave_004.png"), "the shuffled list's image: %s %r" %
        (image.source, image.filepath))
# A movie's frames are not decoded: its map is left out, with what to do instead.
film = bpy.data.materials.new("Film")
film.use_nodes = True
movie = film.node_tree.nodes.new("ShaderNodeTexImage")
movie.image = bpy.data.images.new("clip", 4, 4)
movie.image.source = "MOVIE"
film.node_tree.links.new(movie.outputs["Color"], film.node_tree.nodes["Principled BSDF"].inputs["Base Color"])
bpy.ops.mesh.primitive_plane_add()
bpy.context.active_object.data.materials.append(film)
document = io_scene_zt2.gather.gather(bpy.context)
t.check(any('image "clip" is a movie' in w and "render its frames as an image sequence" in w
            for w in document.warnings), "no warning of the movie: %r" % document.warnings)
print("blender colours_sequence import: colours off by %.3g; a sequence of %d frames from offset %d; exported again "
      "equal within 1e-4" % ((import_error,) + sequence))
