"""A ZT2.0 scene file as Blender objects: the import side of the add-on.

The file is read with ztexport.read; everything here inverts what gather.py
and the exporter do, so that an imported scene exports again to the same
file as far as Blender can hold it. What has no place in Blender is named in
the warnings handed back, never dropped silently.
"""

import math
import os
import re

import bpy
import numpy as np
from mathutils import Matrix, Vector

from .gather import AMBIENT_PROPERTY, POINT_WATTS_PER_MULTIPLIER, SUN_STRENGTH_PER_MULTIPLIER, USER_PROPERTIES_TEXT

# The file keeps colours on a 0..255 scale.
COLOUR_SCALE = 255.0
# The host's far attenuation end when nothing sets it; the export writes one
# only for a light with a custom distance.
DEFAULT_ATTENUATION_END = 200.0
# Two file normals of one corner further apart than this make its edge sharp.
NORMAL_TOLERANCE = 1e-4
# The map channel the host keeps vertex colours in.
VERTEX_COLOUR_CHANNEL = 1
# A view whose x axis leans out of the horizontal by more than this (or is
# upside down) has a roll that Track To would take away.
ROLL_TOLERANCE = 1e-4
# A camera or spot whose view is further than this (radians, about half a
# degree) from its target's direction is not aimed at it: the constraint
# would turn it. A file written from the host aims exactly; a scene written
# by hand may be off by a little.
AIM_TOLERANCE = 0.01
# The frame number of an image file: the last run of digits of its stem, as
# Blender numbers the files of an image sequence (and the export reads them).
_FRAME_NUMBER = re.compile(r"^(.*?)(\d+)(\D*)$")
# The file's world is the host's turned so that Y is up, with Z mirrored: a
# world point (x, y, z) is the file's (x, z, y). Below the world, each node's
# own axes are the host's with z negated, so mesh positions and normals are
# (x, y, -z) of Blender's, a root's transform is A x M x P and a child's
# A x M x A, A negating z and P exchanging y and z (both their own inverses).
_MIRROR = np.diag([1.0, 1.0, -1.0, 1.0])
_TURN = np.array([[1.0, 0, 0, 0], [0, 0, 1.0, 0], [0, 1.0, 0, 0], [0, 0, 0, 1.0]])
_FLIP_Z = np.array([1.0, 1.0, -1.0])


def blender_matrix(rows, unit_scale=1.0, has_parent=False):
    """The file's 4 rows of 3 (row vectors) as a Blender matrix (column
    vectors, Z up), the translation divided by the unit scale."""
    m = np.identity(4)
    m[:, :3] = np.asarray(rows, np.float64)
    host = _MIRROR @ m @ (_MIRROR if has_parent else _TURN)
    result = Matrix.Identity(4)
    for i in range(3):
        for j in range(3):
            result[j][i] = host[i][j]
        result[i][3] = host[3][i] / unit_scale
    return result


def _colour(values):
    return [float(values[0]) / COLOUR_SCALE, float(values[1]) / COLOUR_SCALE, float(values[2]) / COLOUR_SCALE]


def _parse_user_properties(text):
    """`key=value` lines as {key: value}, numbers as numbers; None when the
    text is not such a list or would not be written back the same (the export
    writes the properties in name order), so that it is kept as it stands."""
    found = {}
    for line in text.split("\r\n"):
        key, equals, value = line.partition("=")
        if not equals or not key or key != key.strip() or key.startswith("_") or key == USER_PROPERTIES_TEXT:
            return None
        for kind in (int, float):
            try:
                found[key] = kind(value)
                break
            except ValueError:
                continue
        else:
            found[key] = value
    again = "\r\n".join("%s=%s" % (key, found[key]) for key in sorted(found))
    return found if again == text else None


def _unscaled(matrix):
    """A matrix without its scale: a bone's rest has none."""
    loc, quat, _ = matrix.decompose()
    return Matrix.Translation(loc) @ quat.to_matrix().to_4x4()


class _Builder:
    def __init__(self, context, path, scene_file, warnings, skin_data=None):
        self.context = context
        self.scene = context.scene
        self.path = path
        self.file = scene_file
        self.warnings = warnings
        self.skin_data = skin_data
        settings = self.scene.unit_settings
        self.unit_scale = settings.scale_length if settings.system != "NONE" else 1.0
        self.collection = context.view_layer.active_layer_collection.collection
        self.materials = {}  # file name -> bpy material
        self.objects = {}    # node name -> bpy object
        self.meshes = {}     # node name -> bpy mesh, for the references to it
        self.welds = {}      # node name -> the Blender vertex of each file vertex
        self.bones = set()   # node names built as bones
        self.sequences = {}  # first frame's path -> the image sequence loaded from it
        material_list = scene_file.materials
        self.file_materials = {m.name: m for m in material_list.materials} if material_list else {}
        self.texture_folders = [os.path.dirname(os.path.abspath(path))]
        if material_list is not None and material_list.texture_path:
            first = material_list.texture_path.split(";")[0]
            self.texture_folders.insert(0, os.path.join(self.texture_folders[0], first))

    def warn(self, text):
        self.warnings.append(text)

    # --- materials -------------------------------------------------------

    def _image(self, material_name, texture):
        """The texture's image and, for an image list, the frames of it the
        Image Texture node plays ({"frame_offset", "frame_duration"}), else
        None."""
        names = list(texture.file_names)
        if not names:
            return None, None
        for folder in self.texture_folders:
            candidate = os.path.normpath(os.path.join(folder, names[0]))
            if os.path.isfile(candidate):
                break
        else:
            self.warn("Material \"%s\": image \"%s\" is not in the texture path beside the file; the map is left "
                      "out" % (material_name, names[0]))
            return None, None
        if len(names) > 1:
            offset = _sequence_offset(names)
            if offset is None:
                self.warn("Material \"%s\": the %d images of texture \"%s\" are not files numbered one after "
                          "another, which Blender needs of an image sequence; only the first, \"%s\", is imported" %
                          (material_name, len(names), texture.name, names[0]))
            else:
                missing = [n for n in names[1:] if not os.path.isfile(os.path.join(os.path.dirname(candidate), n))]
                if missing:
                    self.warn("Material \"%s\": frames %s of texture \"%s\" are not beside its first frame; "
                              "Blender shows none there" % (material_name, ", ".join('"%s"' % n for n in missing),
                                                             texture.name))
                # Not shared with a still image of the same file: the source differs.
                image = self.sequences.get(candidate)
                if image is None:
                    image = self.sequences[candidate] = bpy.data.images.load(candidate, check_existing=False)
                    image.source = "SEQUENCE"
                    image.name = texture.name  # the export names the texture after the image
                return image, {"frame_offset": offset, "frame_duration": len(names)}
        image = bpy.data.images.load(candidate, check_existing=True)
        image.name = texture.name
        return image, None

    def material(self, name):
        if name in self.materials:
            return self.materials[name]
        material = bpy.data.materials.new(name)
        material.use_nodes = True
        node = next(n for n in material.node_tree.nodes if n.type == "BSDF_PRINCIPLED")
        record = self.file_materials.get(name)
        if record is None:
            self.warn("Material \"%s\" is not in the file's material list; Blender's defaults stand" % name)
        else:
            inputs = node.inputs
            inputs["Base Color"].default_value = _colour(record.diffuse) + [1.0]
            # The export writes Specular x (1 - Roughness) as the grey: at
            # Blender's Specular 0.5 a roughness gives it back, brighter
            # highlights need a higher Specular.
            grey = max(0.0, min(1.0, sum(_colour(record.specular)) / 3.0))
            if grey <= 0.5:
                inputs["Specular"].default_value = 0.5
                inputs["Roughness"].default_value = 1.0 - grey / 0.5
            else:
                inputs["Specular"].default_value = grey
                inputs["Roughness"].default_value = 0.0
            inputs["Emission"].default_value = _colour(record.ambient) + [1.0]
            inputs["Emission Strength"].default_value = 1.0
            material.diffuse_color = _colour(record.diffuse) + [1.0]
            # The diffuse layer feeds Base Color; the mask layer, the record's
            # opacity, feeds Alpha through its image's alpha.
            layers = list(record.layers) + [None] * (5 - len(record.layers))
            for layer, output, socket, row in ((layers[0], "Color", "Base Color", 0), (layers[4], "Alpha", "Alpha", 1)):
                if layer is None:
                    continue
                image, frames = self._image(name, layer)
                if image is None:
                    continue
                texture = material.node_tree.nodes.new("ShaderNodeTexImage")
                texture.image = image
                if frames is not None:
                    # The list's first frame plays at the scene's first, the file's frame 0.
                    user = texture.image_user
                    user.frame_start = self.scene.frame_start
                    user.frame_offset = frames["frame_offset"]
                    user.frame_duration = frames["frame_duration"]
                    user.use_auto_refresh = True
                texture.location = (node.location.x - 300, node.location.y - 300 * row)
                material.node_tree.links.new(texture.outputs[output], inputs[socket])
            if any(layer is not None for layer in layers[1:4]):
                self.warn("Material \"%s\": the textures of layers 2 to 4 are not imported (no Blender input has "
                          "their role)" % name)
        self.materials[name] = material
        return material

    # --- objects ---------------------------------------------------------

    def mesh_data(self, mesh):
        """A Blender mesh of the file's mesh: vertices of one position welded
        (the file splits them per group, seam and smoothing), sharp edges where
        the file's normals part, material slots per group."""
        data = bpy.data.meshes.new(mesh.name)
        positions = np.asarray(mesh.positions, np.float64) * _FLIP_Z / self.unit_scale
        faces = np.asarray(mesh.faces, np.int64).reshape(-1, 3)
        if len(positions) == 0 or len(faces) == 0:
            return data
        # Negating z mirrors: the corners turn the other way round, and the
        # export writes a triangle's corners last first.
        faces = faces[:, [2, 1, 0]]
        unique, first, inverse = np.unique(positions, axis=0, return_index=True, return_inverse=True)
        order = np.argsort(first, kind="stable")
        rank = np.empty_like(order)
        rank[order] = np.arange(len(order))
        welded = rank[inverse.reshape(-1)]
        self.welds[mesh.name] = welded
        vertices = unique[order]
        triangles = welded[faces]
        # A material's group cut in parts (the file's 16-bit indices) is one slot.
        slot_names = list(dict.fromkeys(mesh.material_names))
        slot_of_group = np.array([slot_names.index(n) for n in mesh.material_names] or [0], np.int64)
        group_of = slot_of_group[np.repeat(np.arange(len(mesh.group_triangle_counts)), mesh.group_triangle_counts)]
        keep = ((triangles[:, 0] != triangles[:, 1]) & (triangles[:, 1] != triangles[:, 2]) &
                (triangles[:, 0] != triangles[:, 2]))
        if not keep.all():
            self.warn("Mesh \"%s\": %d triangles with two corners at one position are left out" %
                      (mesh.name, int((~keep).sum())))
            faces, triangles, group_of = faces[keep], triangles[keep], group_of[keep]
        count = len(triangles)
        data.vertices.add(len(vertices))
        data.vertices.foreach_set("co", vertices.astype(np.float32).ravel())
        data.loops.add(count * 3)
        data.loops.foreach_set("vertex_index", triangles.astype(np.int32).ravel())
        data.polygons.add(count)
        data.polygons.foreach_set("loop_start", np.arange(0, count * 3, 3, dtype=np.int32))
        data.polygons.foreach_set("loop_total", np.full(count, 3, np.int32))
        data.polygons.foreach_set("material_index", group_of.astype(np.int32))
        data.polygons.foreach_set("use_smooth", np.ones(count, bool))
        data.update(calc_edges=True)

        for name in slot_names:
            data.materials.append(self.material(name))

        channels = {c.channel: c for c in mesh.map_channels}
        if 0 in channels:
            coordinates = np.asarray(channels[0].coordinates, np.float32)
            uv = np.empty((count * 3, 2), np.float32)
            uv[:, 0] = coordinates[faces.ravel(), 0]
            uv[:, 1] = -coordinates[faces.ravel(), 1]
            data.uv_layers.new(name="UVMap").data.foreach_set("uv", uv.ravel())
        if VERTEX_COLOUR_CHANNEL in channels:
            # (red, -green, blue) per file vertex, the colours as picked (sRGB),
            # as the export writes them; per face corner, since the welded
            # vertices may have several.
            coordinates = np.asarray(channels[VERTEX_COLOUR_CHANNEL].coordinates, np.float32)[faces.ravel()]
            rgba = np.ones((count * 3, 4), np.float32)
            rgba[:, 0], rgba[:, 1], rgba[:, 2] = coordinates[:, 0], -coordinates[:, 1], coordinates[:, 2]
            attribute = data.color_attributes.new("Color", "FLOAT_COLOR", "CORNER")
            attribute.data.foreach_set("color_srgb", rgba.ravel())
            data.color_attributes.active_color = attribute
            data.color_attributes.render_color_index = data.color_attributes.active_color_index
        for channel in sorted(set(channels) - {0, VERTEX_COLOUR_CHANNEL}):
            self.warn("Mesh \"%s\": map channel %d is not imported" % (mesh.name, channel))

        normals = np.asarray(mesh.normals, np.float64) * _FLIP_Z
        self._sharp_edges(data, faces, triangles, normals)
        data.use_auto_smooth = True
        data.auto_smooth_angle = math.pi
        # The file's normals, corner by corner, as custom split normals: the
        # mesh shows them exactly (a flat plane stays flat), while the sharp
        # edges above are what an export makes its smoothing groups from.
        # A (0, 0, 0) normal, the file's "none", leaves the corner to Blender.
        corner = normals[faces.ravel()]
        length = np.linalg.norm(corner, axis=1, keepdims=True)
        corner = np.divide(corner, length, out=np.zeros_like(corner), where=length > 0)
        data.normals_split_custom_set(corner.astype(np.float32).tolist())
        return data

    def _sharp_edges(self, data, faces, triangles, normals):
        """Marks an edge sharp when the triangles on its two sides give one of
        its ends different normals in the file."""
        ends = np.stack([triangles, np.roll(triangles, -1, axis=1)], axis=2).reshape(-1, 2)
        corner_normals = np.stack([faces, np.roll(faces, -1, axis=1)], axis=2).reshape(-1, 2)
        swap = ends[:, 0] > ends[:, 1]
        ends[swap] = ends[swap][:, ::-1]
        corner_normals[swap] = corner_normals[swap][:, ::-1]
        n = normals[corner_normals]  # (edges, 2 ends, 3)
        key = ends[:, 0] * (len(data.vertices) + 1) + ends[:, 1]
        order = np.argsort(key, kind="stable")
        key, n = key[order], n[order]
        same_edge = key[1:] == key[:-1]
        parted = same_edge & (np.abs(n[1:] - n[:-1]).max(axis=(1, 2)) > NORMAL_TOLERANCE)
        sharp_keys = np.unique(np.concatenate([key[1:][parted], key[:-1][parted]]))
        # An edge of one triangle only is a border: nothing to smooth across.
        edge_vertices = np.empty(len(data.edges) * 2, np.int64)
        data.edges.foreach_get("vertices", edge_vertices)
        edge_vertices = np.sort(edge_vertices.reshape(-1, 2), axis=1)
        edge_keys = edge_vertices[:, 0] * (len(data.vertices) + 1) + edge_vertices[:, 1]
        data.edges.foreach_set("use_edge_sharp", np.isin(edge_keys, sharp_keys))

    def camera_data(self, camera):
        data = bpy.data.cameras.new(camera.name)
        # The file's field of view is the horizontal one.
        data.sensor_fit = "HORIZONTAL"
        data.angle_x = camera.fov
        data.clip_start = camera.near / self.unit_scale
        data.clip_end = camera.far / self.unit_scale
        return data

    def light_data(self, light):
        kind = {"omni": "POINT", "spot": "SPOT", "directional": "SUN"}.get(light.type)
        if kind is None:
            kind = "POINT"
            self.warn("Light \"%s\": a %s light is imported as a point light" % (light.name, light.type))
        data = bpy.data.lights.new(light.name, kind)
        colour = _colour(light.color)
        multiplier = light.intensity
        if any(c < 0.0 for c in colour):
            # A negative light keeps its sign in the colour; Blender's energy takes it.
            colour, multiplier = [-c for c in colour], -multiplier
        data.color = colour
        data.energy = multiplier * (SUN_STRENGTH_PER_MULTIPLIER if kind == "SUN" else POINT_WATTS_PER_MULTIPLIER)
        if kind == "SPOT":
            data.spot_size = max(light.falloff, 1e-6)
            data.spot_blend = max(0.0, min(1.0, 1.0 - light.hotspot / data.spot_size))
        if kind != "SUN" and abs(light.attenuation_end - DEFAULT_ATTENUATION_END * self.unit_scale) > 1e-4:
            data.use_custom_distance = True
            data.cutoff_distance = light.attenuation_end / self.unit_scale
        return data

    def new_object(self, name, data):
        obj = bpy.data.objects.new(name, data)
        self.collection.objects.link(obj)
        if obj.name != name:
            self.warn("Node \"%s\" is named \"%s\" in Blender (the name was taken)" % (name, obj.name))
        self.objects[name] = obj
        return obj

    def node(self, kind, record):
        if kind == "mesh":
            # A reference shares the mesh of the node it names.
            data = self.meshes.get(record.reference_name or record.name)
            if data is None:
                self.warn("Mesh \"%s\" refers to \"%s\", which has no mesh in the file; it is left empty" %
                          (record.name, record.reference_name))
                data = bpy.data.meshes.new(record.name)
        elif kind == "camera":
            data = self.camera_data(record)
        elif kind == "light":
            data = self.light_data(record)
        else:
            data = None
            if record.class_name != "Dummy":
                self.warn("Helper \"%s\" of class \"%s\" is imported as an empty" % (record.name, record.class_name))
        obj = self.new_object(record.name, data)
        if record.node.user_properties:
            properties = _parse_user_properties(record.node.user_properties)
            if properties is None:
                obj[USER_PROPERTIES_TEXT] = record.node.user_properties
            else:
                for key, value in properties.items():
                    obj[key] = value
        return obj

    # --- skins -----------------------------------------------------------

    def _keyed_locals(self):
        """{node name: (parent name, samples (n,), local rows (n, 4, 3))} from
        the file's keys, else its objects' transforms."""
        nodes = {}
        for node in self.file.nodes():
            nodes[node.name] = (node.parent or "", np.zeros(1), np.asarray(node.transform, np.float64)[None])
        for a in self.file.transform_animations:
            if len(a.keys):
                nodes[a.name] = (a.parent_name, np.asarray(a.keys.samples, np.float64),
                                 np.asarray(a.keys.values, np.float64))
        return nodes

    def _file_world(self, nodes, name, sample, seen=()):
        """A node's world matrix (4x4, rows) in the file at a sample, linear
        between its keys, as the exporter's keys interpolate."""
        parent, samples, values = nodes[name]
        at = int(np.searchsorted(samples, sample, side="right")) - 1
        if at < 0:
            rows = values[0]
        elif at + 1 >= len(samples):
            rows = values[at]
        else:
            f = (sample - samples[at]) / (samples[at + 1] - samples[at])
            rows = values[at] * (1.0 - f) + values[at + 1] * f
        m = np.identity(4)
        m[:, :3] = rows
        if parent and parent in nodes and parent not in seen:
            return m @ self._file_world(nodes, parent, sample, seen + (name,))
        return m

    def skin(self, skin):
        """The .skd as an armature whose bones stand at the skin's bone nodes in
        the first sample's pose (the file's bind pose), keyed at every sample,
        and vertex groups on the skinned mesh with the weights."""
        name = skin.node_names[0] if len(skin.node_names) else ""
        mesh_obj = self.objects.get(name)
        welds = self.welds.get(name)
        if mesh_obj is None or welds is None or len(welds) != len(skin.influence_count):
            self.warn("The skin of \"%s\" does not fit a mesh of the file; it is not imported" % name)
            return
        nodes = self._keyed_locals()
        names = list(skin.bone_names)
        used = set(int(b) for b in np.asarray(skin.influence_bone))
        # Bones: the nodes the skin names that are no object of the file (the
        # skeleton's nodes), and any other node a vertex hangs on, but the mesh's
        # own node: a vertex held by it stays with the object.
        bones = [n for i, n in enumerate(names)
                 if n != name and n in nodes and (n not in self.objects or i in used)]
        missing = [n for i, n in enumerate(names) if n not in nodes and i in used]
        if missing:
            self.warn("Skin of \"%s\": bones %s have no node in the file; their vertices stay with the mesh" %
                      (name, ", ".join('"%s"' % n for n in missing)))
        if not bones:
            return
        samples = max([a.num_samples for a in self.file.transform_animations] or [1])
        parent_name = nodes[name][0]
        parent = self.objects.get(parent_name)
        own = next((a for a in self.file.transform_animations if a.name == name), None)
        if own is not None and len(own.keys) > 1 and np.ptp(np.asarray(own.keys.values), axis=0).max() > 1e-6:
            self.warn("Skin of \"%s\": the mesh moves apart from its bones; Blender moves it with its parent only" %
                      name)
        # The armature stands where the mesh's parent does (Blender deforms in
        # the armature's space relative to the mesh's): the mesh follows its
        # bones from the bind pose and nothing moves it twice.
        data = bpy.data.armatures.new(name + " Skeleton")
        armature = self.new_object(name + " Skeleton", data)
        armature.parent = parent
        armature.matrix_parent_inverse = Matrix.Identity(4)

        def armature_space(bone, sample):
            world = blender_matrix(self._file_world(nodes, bone, sample)[:, :3], self.unit_scale)
            if parent is None:
                return world
            up = blender_matrix(self._file_world(nodes, parent_name, sample)[:, :3], self.unit_scale)
            return up.inverted_safe() @ world

        rest = {b: armature_space(b, 0) for b in bones}
        bone_parent = {}
        for b in bones:
            up = nodes[b][0]
            while up and up not in bones and up in nodes:
                up = nodes[up][0]
            bone_parent[b] = up if up in bones else None
        view_layer = bpy.context.view_layer
        active = view_layer.objects.active
        view_layer.objects.active = armature
        bpy.ops.object.mode_set(mode="EDIT")
        edit = {}
        for b in bones:
            eb = data.edit_bones.new(b)
            head = rest[b].translation
            children = [rest[c].translation for c in bones if bone_parent[c] == b]
            lengths = [(c - head).length for c in children if (c - head).length > 1e-4]
            eb.head = head
            eb.tail = head + Vector((0.0, 1.0, 0.0)) * (min(lengths) if lengths else 0.25)
            eb.matrix = _unscaled(rest[b])
            edit[b] = eb
        for b in bones:
            if bone_parent[b]:
                edit[b].parent = edit[bone_parent[b]]
        bpy.ops.object.mode_set(mode="OBJECT")
        view_layer.objects.active = active
        if len(data.bones) != len(bones):
            self.warn("Skin of \"%s\": %d bones are not imported" % (name, len(bones) - len(data.bones)))
        self.bones.update(bones)

        # The weights, per Blender vertex from the file vertices welded into it.
        groups = {b: mesh_obj.vertex_groups.new(name=b) for b in bones}
        starts, counts = np.asarray(skin.influence_start), np.asarray(skin.influence_count)
        held, weights = np.asarray(skin.influence_bone), np.asarray(skin.influence_weight)
        for v in range(len(counts)):
            for k in range(starts[v], starts[v] + counts[v]):
                group = groups.get(names[held[k]])
                if group is not None:
                    group.add([int(welds[v])], float(weights[k]), "REPLACE")
        modifier = mesh_obj.modifiers.new("Armature", "ARMATURE")
        modifier.object = armature
        self.pose_keys(armature, bones, bone_parent, rest, armature_space, samples)

    def pose_keys(self, armature, bones, bone_parent, rest, armature_space, samples):
        """Every bone keyed at every sample: its pose relative to its rest."""
        if samples <= 1:
            return  # the rest is the pose
        start = self.scene.frame_start
        action = bpy.data.actions.new(armature.name + "Action")
        armature.animation_data_create().action = action
        frames = start + np.arange(samples, dtype=np.float64)
        for b in bones:
            armature.pose.bones[b].rotation_mode = "QUATERNION"
        tracks = {b: ([], [], []) for b in bones}
        for sample in range(samples):
            poses = {b: armature_space(b, sample) for b in bones}
            for b in bones:
                up = bone_parent[b]
                rest_local = _unscaled(rest[up]).inverted_safe() @ _unscaled(rest[b]) if up else _unscaled(rest[b])
                parent_pose = poses[up] if up else Matrix.Identity(4)
                basis = rest_local.inverted_safe() @ parent_pose.inverted_safe() @ poses[b]
                loc, quat, size = basis.decompose()
                rotations = tracks[b][1]
                if rotations and rotations[-1].dot(quat) < 0.0:
                    quat.negate()
                tracks[b][0].append(loc)
                rotations.append(quat)
                tracks[b][2].append(size)
        for b in bones:
            path = 'pose.bones["%s"].' % bpy.utils.escape_identifier(b)
            for member, values, width in (("location", tracks[b][0], 3), ("rotation_quaternion", tracks[b][1], 4),
                                          ("scale", tracks[b][2], 3)):
                for index in range(width):
                    _fcurve(action, path + member, index, frames, [v[index] for v in values])

    def build(self):
        scene_file = self.file
        kinds = ([("mesh", m) for m in scene_file.meshes] + [("camera", c) for c in scene_file.cameras] +
                 [("light", light) for light in scene_file.lights] + [("helper", h) for h in scene_file.helpers])
        kinds.sort(key=lambda pair: pair[1].node.order)
        for kind, record in kinds:
            if kind == "mesh" and not record.reference_name:
                self.meshes[record.name] = self.mesh_data(record)
        for kind, record in kinds:
            self.node(kind, record)
        motion = self.motion_nodes()
        # Parents, then transforms: a child's file transform is relative to its parent.
        placed = [(record.name, record.node.parent, record.node.transform) for _, record in kinds]
        placed += [(a.name, a.parent_name, a.keys.values[0]) for a in motion]
        for name, parent_name, transform in placed:
            obj = self.objects[name]
            if parent_name:
                parent = self.objects.get(parent_name)
                if parent is None:
                    self.warn("Node \"%s\": its parent \"%s\" is not in the file; it is a root" %
                              (name, parent_name))
                else:
                    obj.parent = parent
            obj.matrix_parent_inverse = Matrix.Identity(4)
            obj.matrix_basis = blender_matrix(transform, self.unit_scale, obj.parent is not None)
        self.environment()
        self.animation()
        for a in self.file.light_animations:
            self.light_keys(a, self.scene.frame_start)
        self.aim(motion)
        if self.skin_data is not None:
            self.skin(self.skin_data)

    def motion_nodes(self):
        """The nodes that only have animation (a camera's or spot's target, the
        bones of a skeleton without its .skd) as empties; the skin's bones are
        left to the skin. Returns their animations."""
        bones = set(self.skin_data.bone_names) if self.skin_data is not None else set()
        motion = [a for a in self.file.transform_animations
                  if a.name not in self.objects and a.name not in bones and len(a.keys)]
        for a in motion:
            self.new_object(a.name, None)
        return motion

    def aim(self, motion):
        """A camera or spot whose target node `NAME.Target` the file holds is
        aimed at its empty: Track To, as the host aims them (up towards the
        world's Z), or Damped Track where the file's view has a roll Track To
        would lose (it turns the keyed view no more than needed). One that
        does not look at its target in the file keeps its own view."""
        nodes = None
        for a in motion:
            name = a.name[:-len(".Target")] if a.name.endswith(".Target") else None
            obj = self.objects.get(name) if name else None
            if obj is None or not (obj.type == "CAMERA" or (obj.type == "LIGHT" and obj.data.type == "SPOT")):
                continue
            if nodes is None:
                nodes = self._keyed_locals()
            samples = max(1, max([k.num_samples for k in self.file.transform_animations] or [1]))
            rolled = astray = False
            for sample in range(samples):
                world = blender_matrix(self._file_world(nodes, name, sample)[:, :3], self.unit_scale)
                target = blender_matrix(self._file_world(nodes, a.name, sample)[:, :3], self.unit_scale)
                x_axis, y_axis = world.col[0].xyz.normalized(), world.col[1].xyz.normalized()
                to_target = target.translation - world.translation
                if to_target.length > 1e-9 and (-world.col[2].xyz.normalized()).angle(to_target) > AIM_TOLERANCE:
                    astray = True
                    break
                if abs(x_axis.z) > ROLL_TOLERANCE or y_axis.z < -ROLL_TOLERANCE:
                    rolled = True
            if astray:
                self.warn("\"%s\" does not look at its target \"%s\" in the file (at sample %d); it is not aimed "
                          "at the empty" % (name, a.name, sample))
                continue
            constraint = obj.constraints.new("DAMPED_TRACK" if rolled else "TRACK_TO")
            constraint.target = self.objects[a.name]
            constraint.track_axis = "TRACK_NEGATIVE_Z"
            if not rolled:
                constraint.up_axis = "UP_Y"

    def environment(self):
        env = self.file.environment
        if env is None:
            return
        if self.scene.world is None:
            self.scene.world = bpy.data.worlds.new("World")
        self.scene.world.color = _colour(env.background)
        # Blender has no ambient light: the colour is kept on the world, where
        # the export finds it again.
        if any(env.ambient[:3]):
            self.scene.world[AMBIENT_PROPERTY] = _colour(env.ambient)

    # --- animation -------------------------------------------------------

    def animation(self):
        animations = [a for a in self.file.transform_animations if a.name in self.objects]
        if not animations:
            return
        rates = sorted(set(a.sample_rate for a in animations))
        rate = rates[-1]
        if len(rates) > 1:
            self.warn("Animations sampled at %s per second are keyed at %d frames per second" % (rates, rate))
        render = self.scene.render
        render.fps, render.fps_base = rate, 1.0
        start = self.scene.frame_start
        self.scene.frame_end = start + max(a.num_samples for a in animations)
        for a in animations:
            self.transform_keys(self.objects[a.name], a, start)
            self.visibility_keys(self.objects[a.name], a, start)

    def light_keys(self, animation, start):
        """A light's changing colour, intensity, cone and distance as keys on
        its light data at the samples of any of its tracks, linear between, as
        the file's keys interpolate. The exporter writes a track for every
        light: one of a single key is already in the light."""
        tracks = {"color": animation.color_keys, "intensity": animation.intensity_keys,
                  "hotspot": animation.hotspot_keys, "falloff": animation.falloff_keys,
                  "attenuation_end": animation.attenuation_end_keys}
        changing = [n for n, k in tracks.items() if len(k) > 1]
        if len(animation.attenuation_start_keys) > 1:
            self.warn("Light \"%s\": its changing attenuation start is not imported" % animation.name)
        if not changing:
            return
        obj = self.objects.get(animation.name)
        if obj is None or obj.type != "LIGHT":
            self.warn("Light animation of \"%s\": no light of that name in the file; not imported" % animation.name)
            return
        data = obj.data
        samples = np.unique(np.concatenate([np.asarray(tracks[n].samples, np.float64) for n in changing]))
        at = {n: _keyed(k, samples) for n, k in tracks.items() if len(k)}
        colour = at["color"][:, :3] / COLOUR_SCALE if "color" in at else np.tile(np.array(data.color), (len(samples), 1))
        multiplier = at["intensity"] if "intensity" in at else np.full(len(samples), data.energy / (
            SUN_STRENGTH_PER_MULTIPLIER if data.type == "SUN" else POINT_WATTS_PER_MULTIPLIER))
        # A negative light keeps its sign in the colour; Blender's energy takes it.
        negative = (colour < 0.0).any(axis=1)
        colour = np.where(negative[:, None], -colour, colour)
        multiplier = np.where(negative, -multiplier, multiplier)
        per = SUN_STRENGTH_PER_MULTIPLIER if data.type == "SUN" else POINT_WATTS_PER_MULTIPLIER
        values = {}  # data path -> (n, width) values
        if "color" in changing or "intensity" in changing:
            values["color"] = colour
            values["energy"] = (multiplier * per)[:, None]
        if data.type == "SPOT" and ("falloff" in changing or "hotspot" in changing):
            size = np.maximum(at.get("falloff", np.full(len(samples), data.spot_size)), 1e-6)
            values["spot_size"] = size[:, None]
            if "hotspot" in at:
                values["spot_blend"] = np.clip(1.0 - at["hotspot"] / size, 0.0, 1.0)[:, None]
        if data.type != "SUN" and "attenuation_end" in changing:
            data.use_custom_distance = True
            values["cutoff_distance"] = (at["attenuation_end"] / self.unit_scale)[:, None]
        action = data.animation_data.action if data.animation_data and data.animation_data.action else None
        if action is None:
            action = bpy.data.actions.new(data.name + "Action")
            data.animation_data_create().action = action
        frames = start + samples
        for path, track in values.items():
            for index in range(track.shape[1]):
                # Below this a change is the rounding of the file's float values.
                if np.ptp(track[:, index]) > 1e-6 * max(1.0, np.abs(track[:, index]).max()):
                    _fcurve(action, path, index, frames, track[:, index])
                else:
                    # Still: the value stands, keyed by none.
                    if track.shape[1] == 1:
                        setattr(data, path, float(np.median(track[:, 0])))
                    else:
                        getattr(data, path)[index] = float(np.median(track[:, index]))

    def transform_keys(self, obj, animation, start):
        keys = animation.keys
        if len(keys) <= 1:
            return  # the node's own transform holds it
        frames = start + np.asarray(keys.samples, np.float64)
        location, rotation, scale = [], [], []
        previous = None
        for value in keys.values:
            loc, quat, size = blender_matrix(value, self.unit_scale, bool(animation.parent_name)).decompose()
            if previous is not None and previous.dot(quat) < 0.0:
                quat.negate()  # interpolated along the shorter arc, as the exporter sampled it
            previous = quat
            location.append(loc)
            rotation.append(quat)
            scale.append(size)
        obj.rotation_mode = "QUATERNION"
        action = bpy.data.actions.new(obj.name + "Action")
        obj.animation_data_create().action = action
        for path, values, width in (("location", location, 3), ("rotation_quaternion", rotation, 4),
                                    ("scale", scale, 3)):
            for index in range(width):
                _fcurve(action, path, index, frames, [v[index] for v in values])

    def visibility_keys(self, obj, animation, start):
        keys = animation.visibility_keys
        values = np.asarray(keys.values, np.float64).reshape(-1)
        if len(values) == 0 or (values > 0.5).all():
            return
        frames = start + np.asarray(keys.samples, np.float64)
        action = obj.animation_data.action if obj.animation_data else None
        if action is None:
            action = bpy.data.actions.new(obj.name + "Action")
            obj.animation_data_create().action = action
        if ((values > 0.0) & (values < 1.0)).any():
            self.warn("Node \"%s\": partial visibility is imported as shown or hidden" % obj.name)
        _fcurve(action, "hide_render", 0, frames, [0.0 if v > 0.5 else 1.0 for v in values], "CONSTANT")
        obj.hide_render = bool(values[0] <= 0.5)


def _keyed(keys, samples):
    """A track at the given samples, linear between its keys and held past
    its ends; (n,) or (n, width) values."""
    at = np.asarray(keys.samples, np.float64)
    values = np.asarray(keys.values, np.float64)
    if values.ndim == 1:
        return np.interp(samples, at, values)
    return np.stack([np.interp(samples, at, values[:, i]) for i in range(values.shape[1])], axis=1)


def _sequence_offset(names):
    """The frame offset of the Blender image sequence whose frames are the
    files `names` (the first's number less one); None when they are not one
    name numbered one after another, as Blender names a sequence's files."""
    first = _FRAME_NUMBER.match(os.path.splitext(names[0])[0])
    if first is None:
        return None
    head, digits, tail = first.groups()
    ext = os.path.splitext(names[0])[1]
    number = int(digits)
    for k, name in enumerate(names):
        if name != "%s%0*d%s%s" % (head, len(digits), number + k, tail, ext):
            return None
    return number - 1


def _fcurve(action, path, index, frames, values, interpolation="LINEAR"):
    curve = action.fcurves.new(path, index=index)
    curve.keyframe_points.add(len(frames))
    points = np.empty(len(frames) * 2, np.float32)
    points[0::2] = frames
    points[1::2] = values
    curve.keyframe_points.foreach_set("co", points)
    curve.keyframe_points.foreach_set("interpolation",
                                      [bpy.types.Keyframe.bl_rna.properties["interpolation"].enum_items[
                                          interpolation].value] * len(frames))
    curve.update()
    return curve


def build(context, path):
    """Reads the scene file `path` (and its .skd beside it) into the scene of
    `context`; returns the warnings. Raises ztexport.FormatError for a file that
    does not read."""
    import ztexport
    scene_file = ztexport.read_scene(path)
    warnings = []
    skin_path = os.path.splitext(path)[0] + ".skd"
    skin = None
    if os.path.isfile(skin_path):
        try:
            skin = ztexport.read_skin(skin_path)
        except ztexport.FormatError as error:
            # The scene stands without its skin.
            warnings.append("%s (the skin is not imported)" % error)
    for chunk in scene_file.skipped:
        warnings.append("%s: chunk %s at offset %d is not imported" % (os.path.basename(path), chunk.name,
                                                                      chunk.offset))
    _Builder(context, path, scene_file, warnings, skin).build()
    return warnings
