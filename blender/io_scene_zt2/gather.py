"""Blender's evaluated scene as a scene-description document (docs/scene-format.md).

The document is plain JSON; every array that grows with the geometry goes
into one binary buffer beside it, filled from foreach_get through numpy so
that no Python code runs per vertex or per face. Nothing here writes a file:
gather() returns the document, the buffer's bytes and the extra files (packed
images) for the caller to put in its own folder.
"""

import math
import os
import re

import bpy
import numpy as np
from mathutils import Matrix

from . import skin as _skin

DOCUMENT_NAME = "scene.json"
BUFFER_NAME = "scene.bin"

# Blender's default strength of a point or spot light (watts) and of a sun
# (irradiance) both map to the host's default multiplier of 1.
POINT_WATTS_PER_MULTIPLIER = 1000.0
SUN_STRENGTH_PER_MULTIPLIER = 1.0

# Object types whose evaluated form converts to a mesh.
GEOMETRY_TYPES = {"MESH", "CURVE", "SURFACE", "FONT", "META"}
# The material of faces that have none, as Blender shows them.
DEFAULT_MATERIAL_NAME = "Default Surface"

LIGHT_TYPES = {"POINT": "omni", "SPOT": "spot", "SUN": "directional"}
# Constraints that aim an object at another: a camera or spot aimed so is the
# host's target camera or target spot, whose target is a node of its own.
AIM_CONSTRAINTS = {"TRACK_TO", "DAMPED_TRACK", "LOCKED_TRACK"}


class Buffer:
    """The binary side file: arrays appended one after another, little-endian.

    The arrays are kept as they are added (converted only where their type
    differs) and copied once, into the file's bytes, by bytes(); an array
    added must not change afterwards."""

    def __init__(self):
        self.parts = []
        self.size = 0

    def add(self, array, dtype, width):
        data = np.ascontiguousarray(array, dtype=np.dtype(dtype).newbyteorder("<")).reshape(-1)
        count = data.size // width
        reference = {"buffer": BUFFER_NAME, "byteOffset": self.size, "count": count}
        self.parts.append(data)
        self.size += data.nbytes
        return reference

    def bytes(self):
        """The file's bytes, as a numpy array of uint8 (a bytes-like object)."""
        out = np.empty(self.size, np.uint8)
        offset = 0
        for part in self.parts:
            out[offset:offset + part.nbytes] = part.view(np.uint8)
            offset += part.nbytes
        return out


class Document:
    """What gather() hands back."""

    def __init__(self):
        self.scene = {}
        self.buffer = Buffer()
        self.extra_files = {}  # name in the work folder -> bytes (packed images)
        self.warnings = []
        self.skinning = False  # whether the nodes carry Physique modifiers


def _rows(matrix, unit_scale):
    """A Blender 4x4 (column vectors) as the host's 4 rows of 3 (row vectors), the
    translation in scene units times the unit scale."""
    m = matrix
    return [[m[0][0], m[1][0], m[2][0]],
            [m[0][1], m[1][1], m[2][1]],
            [m[0][2], m[1][2], m[2][2]],
            [m[0][3] * unit_scale, m[1][3] * unit_scale, m[2][3] * unit_scale]]


def _local_matrix(obj_eval, exported_parent):
    world = obj_eval.matrix_world
    if exported_parent is None:
        return world.copy()
    return exported_parent.matrix_world.inverted_safe() @ world


# The world's custom property that holds an imported file's ambient colour.
AMBIENT_PROPERTY = "ztAmbientColor"


def _colour(values):
    return [float(values[0]), float(values[1]), float(values[2])]


class _Gatherer:
    def __init__(self, context, depsgraph, document):
        self.context = context
        self.scene = context.scene
        self.depsgraph = depsgraph
        self.doc = document
        settings = self.scene.unit_settings
        self.unit_scale = settings.scale_length if settings.system != "NONE" else 1.0
        self.materials = {}   # bpy material name -> material id
        self.texmaps = {}     # bpy image name -> texmap id
        self.out_materials = []
        self.out_texmaps = []
        self.exported = set()
        self.image_names = {BUFFER_NAME, DOCUMENT_NAME}  # the work folder's own files
        self.default_material = None
        self.shareable = set()  # names of meshes several exported objects show unmodified
        self.shared = {}        # mesh name -> object id in the document
        self.out_objects = []
        self.skinning = False
        self.skins = {}         # object name -> its Armature modifier
        self.skin_holders = set()  # skinned objects and their ancestors
        self.vertex_counts = {}  # object id or object name -> vertices of its mesh
        self.value_keys = {}    # camera or light object name -> {member: keyed value}
        self.targets = {}       # aimed object name -> (target node id, constraint target)
        self.physiques = {}     # skinned object name -> its Physique modifier

    # --- materials -------------------------------------------------------

    def _principled(self, material):
        if not material.use_nodes or material.node_tree is None:
            return None
        tree = material.node_tree
        output = next((n for n in tree.nodes if n.type == "OUTPUT_MATERIAL" and n.is_active_output), None)
        if output is not None and output.inputs["Surface"].is_linked:
            node = output.inputs["Surface"].links[0].from_node
            if node.type == "BSDF_PRINCIPLED":
                return node
        return next((n for n in tree.nodes if n.type == "BSDF_PRINCIPLED"), None)

    def _work_file_name(self, stem, ext):
        """A name of the work folder no other file of it has."""
        name, number = stem + ext, 1
        while name in self.image_names:
            number += 1
            name = "%s_%d%s" % (stem, number, ext)
        self.image_names.add(name)
        return name

    def _image_list(self, material, image, user):
        """An image sequence as the host's image list (.ifl), written into the
        work folder: one line per frame the Image Texture node plays, each the
        frame's absolute path. None, with a warning, when no frame is there."""
        base = os.path.normpath(bpy.path.abspath(image.filepath, library=image.library))
        folder, file_name = os.path.split(base)
        stem, ext = os.path.splitext(file_name)
        digits = re.search(r"(\d+)(?!.*\d)", stem)
        if digits is None or image.packed_file is not None:
            self.doc.warnings.append("Material \"%s\": image sequence \"%s\" has no frame number in its file name "
                                     "or is packed; the map is left out" % (material.name, image.name))
            return None
        # The node's first frame shows image number offset + 1.
        first = user.frame_offset + 1
        frames = [os.path.join(folder, "%s%0*d%s%s" % (stem[:digits.start()], len(digits.group(1)), number,
                                                        stem[digits.end():], ext))
                  for number in range(first, first + max(1, user.frame_duration))]
        present = [f for f in frames if os.path.isfile(f)]
        if not present:
            self.doc.warnings.append("Material \"%s\": no frame of image sequence \"%s\" is there (%s); the map "
                                     "is left out" % (material.name, image.name, frames[0]))
            return None
        if len(present) < len(frames):
            self.doc.warnings.append("Material \"%s\": %d of the %d frames of image sequence \"%s\" are missing "
                                     "and left out of its list" % (material.name, len(frames) - len(present),
                                                                   len(frames), image.name))
        name = self._work_file_name(bpy.path.clean_name(stem[:digits.start()].rstrip("_.-") or image.name), ".ifl")
        self.doc.extra_files[name] = ("\n".join(present) + "\n").encode("utf-8")
        return name

    def _image_texmap(self, material, image, user=None):
        if image.name in self.texmaps:
            return self.texmaps[image.name]
        if image.source == "MOVIE":
            # Its frames would have to be decoded and written as images:
            # the artist's own render of them as a sequence is the better copy.
            self.doc.warnings.append("Material \"%s\": image \"%s\" is a movie, which is not exported; render its "
                                     "frames as an image sequence to export them as an image list; the map is "
                                     "left out" % (material.name, image.name))
            return None
        if image.source not in ("FILE", "SEQUENCE", "GENERATED"):
            self.doc.warnings.append("Material \"%s\": image \"%s\" is a %s, which is not exported; "
                                     "the map is left out" % (material.name, image.name, image.source.lower()))
            return None
        if image.source == "SEQUENCE":
            path = self._image_list(material, image, user)
            if path is None:
                return None
        elif image.packed_file is not None:
            # Written into the work folder under its own file name, so that the
            # copy beside the export carries the name the user knows.
            stem, ext = os.path.splitext(bpy.path.basename(image.filepath) or image.name)
            name = self._work_file_name(bpy.path.clean_name(stem), ext or ".png")
            self.doc.extra_files[name] = bytes(image.packed_file.data)
            path = name
        elif image.source == "FILE" and image.filepath:
            path = os.path.normpath(bpy.path.abspath(image.filepath, library=image.library))
        else:
            self.doc.warnings.append("Material \"%s\": image \"%s\" has no file (generated or unsaved); the map "
                                     "is left out" % (material.name, image.name))
            return None
        texmap_id = "image:" + image.name
        self.out_texmaps.append({"id": texmap_id, "type": "ztTexture", "name": image.name,
                                 "params": {"mapFileName": path}})
        self.texmaps[image.name] = texmap_id
        return texmap_id

    def material_id(self, material):
        if material.name in self.materials:
            return self.materials[material.name]
        node = self._principled(material)
        texmap = mask = None
        if node is not None:
            inputs = node.inputs
            base = _colour(inputs["Base Color"].default_value)
            specular = float(inputs["Specular"].default_value)
            roughness = float(inputs["Roughness"].default_value)
            emission = [c * float(inputs["Emission Strength"].default_value)
                        for c in _colour(inputs["Emission"].default_value)]
            alpha = float(inputs["Alpha"].default_value)
            link = inputs["Base Color"].links[0] if inputs["Base Color"].is_linked else None
            if link is not None and link.from_node.type == "TEX_IMAGE" and link.from_node.image is not None:
                texmap = self._image_texmap(material, link.from_node.image, link.from_node.image_user)
            elif link is not None:
                self.doc.warnings.append("Material \"%s\": Base Color is fed by a \"%s\" node, not an image "
                                         "texture; its plain colour is used" % (material.name, link.from_node.name))
            # An image on Alpha is the mask layer, the record's one layer for
            # opacity; the other layers have no role a Blender input matches.
            link = inputs["Alpha"].links[0] if inputs["Alpha"].is_linked else None
            if link is not None and link.from_node.type == "TEX_IMAGE" and link.from_node.image is not None:
                mask = self._image_texmap(material, link.from_node.image, link.from_node.image_user)
            for name in ("Normal", "Specular", "Roughness", "Emission", "Metallic"):
                if inputs[name].is_linked:
                    self.doc.warnings.append("Material \"%s\": the map on %s is not exported (the material record "
                                             "has no layer for it)" % (material.name, name))
        else:
            # No node tree: the viewport display settings are what the user sees.
            base = _colour(material.diffuse_color)
            specular = float(material.specular_intensity)
            roughness = float(material.roughness)
            emission = [0.0, 0.0, 0.0]
            alpha = float(material.diffuse_color[3])
        if alpha < 1.0 and mask is None:
            self.doc.warnings.append("Material \"%s\": alpha %.3g is not exported (the material record has no "
                                     "opacity)" % (material.name, alpha))
        # The record has no glossiness: a rough surface gets a dimmer highlight.
        grey = max(0.0, min(1.0, specular)) * (1.0 - max(0.0, min(1.0, roughness)))
        record = {"id": "material:" + material.name, "type": "ztMaterial", "name": material.name,
                  "ambient": emission, "diffuse": base, "specular": [grey, grey, grey],
                  "params": {"plainLayerMode": 1, "layer1Flag": 1 if texmap else 0}}
        if texmap:
            record["texmaps"] = [texmap]
        if mask:
            # Slot 4 is the mask layer's. A diffuse layer beside a mask may not
            # be a plain copy (mode 0), which the exporter refuses: mode 1.
            record["texmaps"] = [texmap, None, None, None, mask]
            record["params"]["layer5Flag"] = 1
            if texmap:
                record["params"]["diffuseMode"] = 1
        self.out_materials.append(record)
        self.materials[material.name] = record["id"]
        return record["id"]

    def default_material_id(self):
        """What Blender renders a face without a material with; the exporter
        refuses a mesh without one."""
        if self.default_material is None:
            name, number = DEFAULT_MATERIAL_NAME, 0
            while name in bpy.data.materials:
                number += 1
                name = "%s.%03d" % (DEFAULT_MATERIAL_NAME, number)
            grey = 0.5 * (1.0 - 0.5)  # a new material's specular and roughness, as material_id converts them
            self.out_materials.append({"id": "default", "type": "ztMaterial", "name": name,
                                       "ambient": [0.0, 0.0, 0.0], "diffuse": [0.8, 0.8, 0.8],
                                       "specular": [grey, grey, grey], "params": {"plainLayerMode": 1}})
            self.default_material = "default"
        return self.default_material

    def node_material(self, obj):
        slots = [slot.material for slot in obj.material_slots]
        if len(slots) <= 1:
            return self.material_id(slots[0]) if slots and slots[0] else self.default_material_id()
        multi = {"id": "multi:" + obj.name, "type": "multi", "name": obj.name + " materials",
                 "subMaterials": [self.material_id(m) if m is not None else self.default_material_id()
                                  for m in slots]}
        self.out_materials.append(multi)
        return multi["id"]

    # --- objects ---------------------------------------------------------

    def mesh_object(self, obj, obj_eval):
        # A mesh object's evaluated data is its final mesh, modifiers applied:
        # read where it is, without the copy to_mesh() makes of it, when its
        # triangles can be made as that copy's are (_in_place_polygons).
        polygons = _in_place_polygons(obj, obj_eval)
        converted = polygons is None
        mesh = obj_eval.to_mesh() if converted else obj_eval.data
        try:
            if mesh is None:
                return None
            buf = self.doc.buffer
            vertex_count = len(mesh.vertices)
            self.vertex_counts[obj.name] = vertex_count
            if self.skinning and obj.name in self.skins:
                self.physiques[obj.name] = self.skin_physique(obj, mesh)
            positions = np.empty(vertex_count * 3, np.float32)
            mesh.vertices.foreach_get("co", positions)
            # Unsigned properties are copied as a block only into unsigned
            # arrays; into signed ones foreach_get goes item by item.
            loop_vertex = np.empty(len(mesh.loops), np.uint32)
            mesh.loops.foreach_get("vertex_index", loop_vertex)
            if converted:
                mesh.calc_loop_triangles()
                loops = np.empty(len(mesh.loop_triangles) * 3, np.uint32)
                mesh.loop_triangles.foreach_get("loops", loops)
                polygon_of = _triangle_polygons(mesh, loops)
            else:
                loops, polygon_of = _split_quads(positions, loop_vertex, *polygons)
            corners = loop_vertex[loops]
            material_index = _material_indices(mesh)
            groups, _ = mesh.calc_smooth_groups(use_bitflags=True)
            groups = np.asarray(groups, np.uint32)
            if self.unit_scale != 1.0:
                positions *= self.unit_scale
            out = {"vertices": buf.add(positions, np.float32, 3),
                   "faces": buf.add(corners, np.uint32, 3),
                   "smoothingGroups": buf.add(groups[polygon_of] if len(groups) else groups, np.uint32, 1),
                   "materialIds": buf.add(material_index[polygon_of], np.uint16, 1)}
            uv_layer = next((layer for layer in mesh.uv_layers if layer.active_render), mesh.uv_layers.active)
            if uv_layer is not None:
                loop_count = len(mesh.loops)
                uvw = np.zeros((loop_count, 3), np.float32)
                uv = np.empty(loop_count * 2, np.float32)
                uv_layer.data.foreach_get("uv", uv)
                uvw[:, :2] = uv.reshape(-1, 2)
                out["textureVertices"] = buf.add(uvw, np.float32, 3)
                out["textureFaces"] = buf.add(loops, np.uint32, 3)
                if len(mesh.uv_layers) > 1:
                    self.doc.warnings.append("Object \"%s\": only UV map \"%s\" is exported (the scene "
                                             "description carries one texture map channel); %s left out" %
                                             (obj.name, uv_layer.name, ", ".join(
                                                 '"%s"' % u.name for u in mesh.uv_layers if u != uv_layer)))
            colours = _active_colours(mesh)
            if colours is not None:
                out["vertexColors"] = buf.add(_srgb_colours(colours), np.float32, 3)
                out["colorFaces"] = buf.add(loops if colours.domain == "CORNER" else corners, np.uint32, 3)
                others = [a.name for a in mesh.color_attributes if a.name != colours.name]
                if others:
                    self.doc.warnings.append("Object \"%s\": only colour attribute \"%s\" is exported as vertex "
                                             "colours; %s left out" % (obj.name, colours.name,
                                                                       ", ".join('"%s"' % n for n in others)))
            return {"type": "mesh", "mesh": out}
        finally:
            if converted:
                obj_eval.to_mesh_clear()

    def skin_physique(self, obj, mesh):
        """The Physique modifier of a mesh its Armature modifier deforms, from
        the vertex groups that name deforming bones."""
        armature = self.skins[obj.name].object
        bones = _skin.deform_bones(armature)
        counts, indices, weights = _skin.vertex_weights(obj, mesh, bones)
        counts, indices, weights, lost = _skin.limit_influences(counts, indices, weights)
        if lost:
            self.doc.warnings.append("Object \"%s\": %d vertices are held by more than %d bones; each keeps its %d "
                                     "strongest, renormalised" % (obj.name, lost, _skin.MAX_INFLUENCES,
                                                                  _skin.MAX_INFLUENCES))
        table = [_skin.bone_id(armature, name) for name in bones]
        if (counts == 0).any():
            table.append(obj.name)  # vertices no bone holds stay with the object
        words = _skin.skin_words(counts, indices, weights, len(table) - 1)
        return _skin.physique(self.doc.buffer, table, words, len(counts))

    def camera_object(self, obj, obj_eval):
        cam = obj_eval.data
        aimed = obj.name in self.targets
        record = {"type": "camera", "className": "Target Camera" if aimed else "Free Camera"}
        record.update(_camera_values(obj_eval, self.depsgraph, self.scene.render, self.unit_scale))
        # Values that change over the frames are keyed.
        record.update(self.value_keys.get(obj.name, {}))
        if cam.type != "PERSP":
            self.doc.warnings.append("Camera \"%s\": a %s camera is exported as a perspective one" %
                                     (obj.name, cam.type.lower()))
        return record

    def light_object(self, obj, obj_eval):
        light = obj_eval.data
        kind = LIGHT_TYPES.get(light.type)
        if kind is None:
            self.doc.warnings.append("Light \"%s\": %s lights are exported as point lights" %
                                     (obj.name, light.type.lower()))
            kind = "omni"
        record = {"type": "light", "lightType": kind}
        record.update(_light_values(light, self.unit_scale))
        # Values that change over the frames are keyed.
        record.update(self.value_keys.get(obj.name, {}))
        if light.type == "SPOT":
            record["className"] = "Target Spot" if obj.name in self.targets else "Free Spot"
        return record

    def target_node(self, obj, keys):
        """The node an aimed camera or spot looks at: at the position of its
        constraint's target, a root of the scene."""
        target_id, target = self.targets[obj.name]
        node = {"name": obj.name + ".Target", "id": target_id, "object": {"type": "target"}}
        if target_id in keys:
            node["transform"] = keys[target_id]
        else:
            world = target.evaluated_get(self.depsgraph).matrix_world
            node["transform"] = {"matrix": _rows(Matrix.Translation(world.translation), self.unit_scale)}
        if self.skinning:
            node["modifiers"] = [{"type": "physique"}]
        return node

    def bone_nodes(self, armature, bone, keys):
        """A bone and the bones below it as nodes: no object, the pose as the
        transform, relative to the parent bone (the armature for a root bone)."""
        armature_eval = armature.evaluated_get(self.depsgraph)
        node_id = _skin.bone_id(armature, bone.name)
        node = {"name": bone.name, "id": node_id}
        if node_id in keys:
            node["transform"] = keys[node_id]
        else:
            node["transform"] = {"matrix": _rows(_bone_local(armature_eval, bone), self.unit_scale)}
        if self.skinning:
            node["modifiers"] = [{"type": "physique"}]
        if bone.children:
            node["children"] = [self.bone_nodes(armature, child, keys) for child in bone.children]
        return node

    def shared_mesh(self, obj, obj_eval):
        """The id of the document's object for a mesh several objects share;
        the exporter writes it once and the other nodes as references to it."""
        name = obj.data.name
        if name not in self.shared:
            record = self.mesh_object(obj, obj_eval)
            record["id"] = "mesh:" + name
            self.out_objects.append(record)
            self.shared[name] = record["id"]
            self.vertex_counts[record["id"]] = self.vertex_counts[obj.name]
        return self.shared[name]

    def object_record(self, obj, obj_eval):
        if obj.type == "MESH" and obj.data.name in self.shareable and not _modified(obj):
            return self.shared_mesh(obj, obj_eval)
        if obj.type in GEOMETRY_TYPES:
            return self.mesh_object(obj, obj_eval)
        if obj.type == "CAMERA":
            return self.camera_object(obj, obj_eval)
        if obj.type == "LIGHT":
            return self.light_object(obj, obj_eval)
        if obj.type != "EMPTY" and obj.type != "ARMATURE":
            self.doc.warnings.append("Object \"%s\": a %s is exported as a helper" % (obj.name, obj.type.lower()))
        return {"type": "helper", "className": "Dummy"}

    # --- nodes -----------------------------------------------------------

    def node(self, obj, parent, keys, visibility=None):
        obj_eval = obj.evaluated_get(self.depsgraph)
        parent_eval = parent.evaluated_get(self.depsgraph) if parent is not None else None
        node = {"name": obj.name}
        record = self.object_record(obj, obj_eval)
        if record is not None:
            node["object"] = record
        if isinstance(record, str) or (record is not None and record["type"] == "mesh"):
            material = self.node_material(obj_eval)
            if material is not None:
                node["material"] = material
        visibility = visibility or {}
        if obj.name in visibility:
            # Shown at some frames: exported, its visibility keyed.
            node["visibility"] = visibility[obj.name]
        elif obj.hide_render:
            node["hidden"] = True
        properties = _user_properties(obj)
        if properties:
            node["userProperties"] = properties
        if obj.name in keys:
            node["transform"] = keys[obj.name]
        else:
            node["transform"] = {"matrix": _rows(_local_matrix(obj_eval, parent_eval), self.unit_scale)}
        if self.skinning:
            # With skinning on the exporter reads every node's Physique: a mesh
            # without bones is bound to its own node, anything else has none.
            if obj.name in self.physiques:
                physique = self.physiques[obj.name]
            else:
                count = self.vertex_counts.get(record if isinstance(record, str) else obj.name, 0)
                physique = _skin.rigid_physique(self.doc.buffer, obj.name, count) if count else {"type": "physique"}
            node["modifiers"] = [physique]
        children = []
        if obj.type == "ARMATURE":
            children = [self.bone_nodes(obj, bone, keys) for bone in obj.data.bones if bone.parent is None]
        objects = sorted((c for c in obj.children if c.name in self.exported), key=self.order)
        children += [self.node(c, obj, keys, visibility) for c in objects]
        if children:
            node["children"] = children
        return node

    def order(self, obj):
        """Name order; with skinning on, the skinned meshes last: the exporter
        writes the .skd of each mesh it exports over the one before, so that it
        holds the skin of the last."""
        return (self.skinning and obj.name in self.skin_holders, obj.name)


# The custom property that holds a user property text that is no list of
# `key=value` lines, written as it stands.
USER_PROPERTIES_TEXT = "userProperties"


def _user_properties(obj):
    """The object's custom text and number properties as the host's user
    property text, one `key=value` line each, in name order."""
    lines = []
    for key in sorted(obj.keys()):
        value = obj[key]
        if key.startswith("_") or isinstance(value, bool) or not isinstance(value, (str, int, float)):
            continue
        lines.append(value if key == USER_PROPERTIES_TEXT else "%s=%s" % (key, value))
    return "\r\n".join(lines)


# The Blender versions whose to_mesh() copy splits quads as _split_quads does.
QUAD_SPLIT_VERSIONS = ((3, 4),)


def _in_place_polygons(obj, obj_eval):
    """(loop_start, loop_total) of the polygons of a mesh object's evaluated
    data when it can be exported where it is, else None. Only to_mesh()'s copy
    gives the triangles the export has always had: Blender splits a quad along
    a diagonal chosen with the face normal when the mesh holds one, as the
    evaluated data does, and without it in a fresh copy; the two choices part
    on quads that are not flat. So the data is read in place when it holds
    triangles and quads only, split here by the copy's rule, on the Blender
    versions that rule is theirs; not in edit mode either, where that data
    may stand for the edit mesh without arrays of its own."""
    if obj_eval.type != "MESH" or obj.mode == "EDIT" or obj_eval.data is None:
        return None
    if tuple(bpy.app.version[:2]) not in QUAD_SPLIT_VERSIONS:
        return None
    mesh = obj_eval.data
    polygon_count = len(mesh.polygons)
    loop_total = np.empty(polygon_count, np.uint32)
    mesh.polygons.foreach_get("loop_total", loop_total)
    loop_start = np.empty(polygon_count, np.int32)
    mesh.polygons.foreach_get("loop_start", loop_start)
    if polygon_count == 0:
        return loop_start.astype(np.uint32), loop_total
    if loop_total.min() < 3 or loop_total.max() > 4:
        return None
    # Blender numbers the triangles by their polygon's first corner, so only
    # polygons whose corners follow one another are taken.
    starts = np.zeros(polygon_count, np.int64)
    np.cumsum(loop_total[:-1], out=starts[1:])
    if not np.array_equal(starts, loop_start) or int(starts[-1]) + int(loop_total[-1]) != len(mesh.loops):
        return None
    return loop_start.astype(np.uint32), loop_total


def _split_quads(positions, loop_vertex, loop_start, loop_total):
    """The loop triangles of a mesh of triangles and quads, as uint32 corner
    (loop) indices, three per triangle, and each triangle's polygon, in
    Blender's order: by polygon, a quad's two after one another. A quad
    a b c d is split into a b c and a c d, or into a b d and b c d when the
    first pair folds over (their normals across the diagonal a c point the
    same way), as Blender decides it without the face normal, in the same
    single-precision steps."""
    polygon_count = len(loop_total)
    counts = loop_total - 2
    quads = counts == 2
    quad_count = int(np.count_nonzero(quads))
    if quad_count == polygon_count:
        first = None  # quads only: two triangles each, in order
        start = loop_start
    else:
        first = np.zeros(polygon_count, np.int64)
        np.cumsum(counts[:-1], out=first[1:])
        start = loop_start[quads]
    triangle_count = int(counts.sum(dtype=np.int64))
    polygon_of = np.repeat(np.arange(polygon_count, dtype=np.uint32), 2 if first is None else counts)

    if first is None:
        # The corners of quads only, one after another: no look-up.
        corners = np.arange(4 * quad_count, dtype=np.uint32).reshape(-1, 4)
        corner_vertex = loop_vertex.reshape(-1, 4)
    else:
        corners = start[:, None] + np.arange(4, dtype=np.uint32)
        corner_vertex = np.take(loop_vertex, corners)
    # Each vertex's three coordinates gathered as one 12-byte item.
    xyz = np.ascontiguousarray(positions.reshape(-1, 3)).view(np.dtype((np.void, 12))).reshape(-1)
    quad = np.take(xyz, corner_vertex).view(np.float32).reshape(-1, 4, 3)
    v1 = quad[:, 0]
    d12, d13, d14 = quad[:, 1] - v1, quad[:, 2] - v1, quad[:, 3] - v1
    cross_a, cross_b = _cross(d12, d13), _cross(d14, d13)
    dot = cross_a[:, 0] * cross_b[:, 0]
    dot += cross_a[:, 1] * cross_b[:, 1]
    dot += cross_a[:, 2] * cross_b[:, 2]
    flip = np.flatnonzero(dot > np.float32(0.0))

    pairs = np.empty((quad_count, 2, 3), np.uint32)
    pairs[:, 0] = corners[:, :3]
    pairs[:, 1, 0] = corners[:, 0]
    pairs[:, 1, 1:] = corners[:, 2:]
    pairs[flip, 0, 2] = corners[flip, 3]
    pairs[flip, 1, 0] = corners[flip, 1]
    if first is None:
        return pairs.reshape(-1), polygon_of
    loops = np.empty((triangle_count, 3), np.uint32)
    tris = ~quads
    loops[first[tris]] = loop_start[tris, None] + np.arange(3, dtype=np.uint32)
    at = first[quads]
    loops[at] = pairs[:, 0]
    loops[at + 1] = pairs[:, 1]
    return loops.reshape(-1), polygon_of


def _cross(a, b):
    """Row-wise cross products of two (n, 3) float32 arrays, each component
    computed as Blender's cross_v3_v3v3 does."""
    out = np.empty_like(a)
    out[:, 0] = a[:, 1] * b[:, 2] - a[:, 2] * b[:, 1]
    out[:, 1] = a[:, 2] * b[:, 0] - a[:, 0] * b[:, 2]
    out[:, 2] = a[:, 0] * b[:, 1] - a[:, 1] * b[:, 0]
    return out


def _triangle_polygons(mesh, loops):
    """The polygon of each loop triangle, from the first of its corners (as
    uint32 `loops`): polygons whose corners follow one another, as Blender
    makes them, give it without a call per triangle."""
    polygon_count = len(mesh.polygons)
    loop_total = np.empty(polygon_count, np.uint32)
    mesh.polygons.foreach_get("loop_total", loop_total)
    loop_start = np.empty(polygon_count, np.int32)
    mesh.polygons.foreach_get("loop_start", loop_start)
    starts = np.zeros(polygon_count, np.int64)
    np.cumsum(loop_total[:-1], out=starts[1:])
    consecutive = polygon_count and np.array_equal(starts, loop_start)
    if consecutive and int(starts[-1]) + int(loop_total[-1]) == len(mesh.loops):
        polygon_of_loop = np.repeat(np.arange(polygon_count, dtype=np.uint32), loop_total)
        return polygon_of_loop[loops[0::3]]
    polygon_of = np.empty(len(mesh.loop_triangles), np.uint32)
    mesh.loop_triangles.foreach_get("polygon_index", polygon_of)
    return polygon_of


def _material_indices(mesh):
    """Each polygon's material index. Blender keeps them in the face attribute
    "material_index", absent while every index is 0; read through the
    attribute, a block copy, not through each polygon."""
    polygon_count = len(mesh.polygons)
    attribute = mesh.attributes.get("material_index")
    if attribute is None:
        return np.zeros(polygon_count, np.int32)
    material_index = np.empty(polygon_count, np.int32)
    if attribute.domain == "FACE" and attribute.data_type == "INT" and len(attribute.data) == polygon_count:
        attribute.data.foreach_get("value", material_index)
    else:
        mesh.polygons.foreach_get("material_index", material_index)
    return material_index


def _active_colours(mesh):
    """The colour attribute Blender shows (the active one, else the one it
    renders), or None."""
    attributes = mesh.color_attributes
    if len(attributes) == 0:
        return None
    active = getattr(attributes, "active_color", None)
    if active is not None and active.name in attributes:
        return attributes[active.name]
    index = attributes.render_color_index
    return attributes[index] if 0 <= index < len(attributes) else attributes[0]


def _srgb_colours(attribute):
    """The attribute's colours as the user picks and paints them (sRGB, 0..1),
    as the host's vertex colours hold them; alpha is dropped."""
    count = len(attribute.data)
    rgba = np.empty(count * 4, np.float32)
    if count == 0:
        return rgba.reshape(-1, 4)[:, :3]
    if "color_srgb" in attribute.data[0].bl_rna.properties:
        attribute.data.foreach_get("color_srgb", rgba)
        return rgba.reshape(-1, 4)[:, :3]
    attribute.data.foreach_get("color", rgba)
    linear = rgba.reshape(-1, 4)[:, :3].astype(np.float64)
    srgb = np.where(linear <= 0.0031308, linear * 12.92, 1.055 * np.power(np.maximum(linear, 0.0), 1 / 2.4) - 0.055)
    return srgb.astype(np.float32)


def _camera_values(obj_eval, depsgraph, render, unit_scale):
    """The camera's keyable members in the scene description."""
    cam = obj_eval.data
    values = {"hither": cam.clip_start * unit_scale, "yon": cam.clip_end * unit_scale}
    if cam.type == "PERSP":
        # The host's field of view is the horizontal one; the projection
        # answers it whatever the sensor fit.
        projection = obj_eval.calc_matrix_camera(depsgraph, x=render.resolution_x, y=render.resolution_y,
                                                 scale_x=render.pixel_aspect_x, scale_y=render.pixel_aspect_y)
        values["fovDegrees"] = math.degrees(2.0 * math.atan(1.0 / projection[0][0]))
    else:
        values["fovDegrees"] = math.degrees(cam.angle)
    return values


def _light_values(light, unit_scale):
    """The light's keyable members in the scene description."""
    if light.type == "SUN":
        multiplier = light.energy / SUN_STRENGTH_PER_MULTIPLIER
    else:
        multiplier = light.energy / POINT_WATTS_PER_MULTIPLIER
    values = {"color": _colour(light.color), "multiplier": multiplier}
    if light.type == "SPOT":
        falloff = math.degrees(light.spot_size)
        values["falloffDegrees"] = falloff
        values["hotspotDegrees"] = falloff * (1.0 - light.spot_blend)
    if light.type != "SUN" and getattr(light, "use_custom_distance", False):
        values["attenuationEnd"] = light.cutoff_distance * unit_scale
    return values


def _bone_local(armature_eval, bone):
    """A posed bone relative to its parent bone, or to the armature object."""
    if bone.parent is None:
        return armature_eval.pose.bones[bone.name].matrix.copy()
    pose = armature_eval.pose.bones
    return pose[bone.parent.name].matrix.inverted_safe() @ pose[bone.name].matrix


def _aim_target(obj, warnings):
    """The object a camera's or spot's aiming constraint looks at, or None."""
    if obj.type != "CAMERA" and not (obj.type == "LIGHT" and obj.data.type == "SPOT"):
        return None
    for constraint in obj.constraints:
        if constraint.type in AIM_CONSTRAINTS and constraint.enabled and constraint.target is not None:
            if getattr(constraint, "subtarget", ""):
                warnings.append("Object \"%s\": constraint \"%s\" aims at \"%s\" of \"%s\"; the target node "
                                "stands at the object's origin" % (obj.name, constraint.name, constraint.subtarget,
                                                                   constraint.target.name))
            return constraint.target
    return None


def _modified(obj):
    """True when the object's evaluated geometry is not its mesh's own."""
    return any(m.show_viewport for m in obj.modifiers)


def _shareable_meshes(objects):
    users = {}
    for o in objects:
        if o.type == "MESH" and not _modified(o):
            users[o.data.name] = users.get(o.data.name, 0) + 1
    return set(name for name, count in users.items() if count > 1)


def _exported_objects(scene, view_layer):
    names = set(o.name for o in view_layer.objects)
    return [o for o in scene.objects if o.name in names]


def _sample_animation(context, objects, gatherer):
    """Transform keys per frame of the scene's range, for the nodes (objects,
    bones, targets) whose local transform changes over it; visibility keys for
    the objects whose hide_render does; camera and light values that change."""
    scene = context.scene
    start, end = scene.frame_start, scene.frame_end
    if end <= start:
        return {}, {}
    exported = gatherer.exported
    parents = {o.name: (o.parent if o.parent is not None and o.parent.name in exported else None) for o in objects}
    samplers = {}  # node id -> function of the depsgraph giving the local matrix
    for o in objects:
        parent = parents[o.name]
        samplers[o.name] = (lambda dg, o=o, parent=parent: _local_matrix(
            o.evaluated_get(dg), parent.evaluated_get(dg) if parent is not None else None))
        if o.type == "ARMATURE":
            for bone in o.data.bones:
                samplers[_skin.bone_id(o, bone.name)] = (lambda dg, o=o, bone=bone: _bone_local(o.evaluated_get(dg),
                                                                                                 bone))
    for name, (target_id, target) in gatherer.targets.items():
        samplers[target_id] = (lambda dg, target=target: Matrix.Translation(
            target.evaluated_get(dg).matrix_world.translation))
    valued = [o for o in objects if o.type in ("LIGHT", "CAMERA")]
    samples = {key: [] for key in samplers}
    hidden = {o.name: [] for o in objects}
    values_of = {o.name: [] for o in valued}
    current = scene.frame_current, scene.frame_subframe
    try:
        for frame in range(start, end + 1):
            scene.frame_set(frame)
            depsgraph = context.evaluated_depsgraph_get()
            for key, sampler in samplers.items():
                samples[key].append(sampler(depsgraph))
            for o in objects:
                hidden[o.name].append(o.hide_render)
            for o in valued:
                evaluated = o.evaluated_get(depsgraph)
                values_of[o.name].append(
                    _light_values(evaluated.data, gatherer.unit_scale) if o.type == "LIGHT" else
                    _camera_values(evaluated, depsgraph, scene.render, gatherer.unit_scale))
    finally:
        scene.frame_set(current[0], subframe=current[1])
    keys = {}
    unit = gatherer.unit_scale
    for name, matrices in samples.items():
        first = matrices[0]
        if all(all(abs(a - b) <= 1e-6 for ra, rb in zip(first, m) for a, b in zip(ra, rb)) for m in matrices[1:]):
            continue
        position, rotation, scale = [], [], []
        previous = None
        for frame, m in zip(range(start, end + 1), matrices):
            loc, quat, size = m.decompose()
            if previous is not None and previous.dot(quat) < 0.0:
                quat.negate()  # the same turn, kept on the side of the last key
            previous = quat
            frame -= start  # the scene's first frame is the host's frame 0
            position.append({"frame": frame, "value": [loc.x * unit, loc.y * unit, loc.z * unit]})
            rotation.append({"frame": frame, "value": [quat.x, quat.y, quat.z, quat.w]})
            scale.append({"frame": frame, "value": [size.x, size.y, size.z]})
        keys[name] = {member: _track(track) for member, track in
                      (("position", position), ("rotation", rotation), ("scale", scale))}
    for name, values in values_of.items():
        for member in values[0]:
            track = [{"frame": frame, "value": v[member]} for frame, v in enumerate(values)]
            first = np.atleast_1d(values[0][member])
            if any(np.abs(np.atleast_1d(v[member]) - first).max() > 1e-7 for v in values[1:]):
                gatherer.value_keys.setdefault(name, {})[member] = {"keys": track}
    # A key at every frame: visibility interpolates between keys, hide_render does not.
    visibility = {name: {"keys": [{"frame": frame, "value": 0.0 if h else 1.0} for frame, h in enumerate(values)]}
                  for name, values in hidden.items() if len(set(values)) > 1}
    return keys, visibility


def _track(keys):
    """A track that never changes is written as its value."""
    first = keys[0]["value"]
    if all(all(abs(a - b) <= 1e-7 for a, b in zip(first, k["value"])) for k in keys[1:]):
        return first
    return {"keys": keys}


def _skin_holders(skins):
    """The skinned objects and their ancestors."""
    holders = set()
    for name in skins:
        obj = bpy.data.objects[name]
        while obj is not None:
            holders.add(obj.name)
            obj = obj.parent
    return holders


def gather(context, animation=True, skinning=None):
    """The scene of `context` as a Document. `skinning` None turns the skins
    on when some mesh has one (document.skinning tells)."""
    document = Document()
    scene = context.scene
    objects = _exported_objects(scene, context.view_layer)
    gatherer = _Gatherer(context, None, document)
    gatherer.exported = set(o.name for o in objects)
    for o in objects:
        if o.type == "MESH":
            modifier = _skin.armature_modifier(o, gatherer.exported, document.warnings)
            if modifier is not None:
                gatherer.skins[o.name] = modifier
        target = _aim_target(o, document.warnings)
        if target is not None:
            gatherer.targets[o.name] = ("target:" + o.name, target)
    # An empty named as the target node would be (what the import makes of
    # one) is that node: written once, as the target, not also as a helper of
    # the same name. One with children stays a helper, so they keep a parent.
    parents = set(o.parent.name for o in objects if o.parent is not None)
    folded = set(target.name for name, (_, target) in gatherer.targets.items()
                 if target.type == "EMPTY" and target.name == name + ".Target" and target.name not in parents)
    if folded:
        objects = [o for o in objects if o.name not in folded]
        gatherer.exported -= folded
    # Bones are nodes: the exporter and the .skd tell nodes apart by name alone.
    names = set(gatherer.exported)
    for o in objects:
        if o.type == "ARMATURE":
            for bone in o.data.bones:
                if bone.name in names:
                    document.warnings.append("Bone \"%s\" of armature \"%s\" has the name of another node; the "
                                             "file and its skin cannot tell them apart" % (bone.name, o.name))
                names.add(bone.name)
    gatherer.skinning = document.skinning = bool(gatherer.skins) if skinning is None else bool(skinning)
    gatherer.skin_holders = _skin_holders(gatherer.skins)
    if gatherer.skins and not gatherer.skinning:
        document.warnings.append("Skinning is off: %s exported as posed at the first frame, without bones' weights"
                                 % ", ".join('"%s"' % n for n in sorted(gatherer.skins)))

    fps = scene.render.fps / scene.render.fps_base
    frame_rate = max(1, min(4800, int(round(fps))))
    if abs(frame_rate - fps) > 1e-6:
        document.warnings.append("Frame rate %.4g is exported as %d frames per second" % (fps, frame_rate))
    keys, visibility = _sample_animation(context, objects, gatherer) if animation else ({}, {})
    # The host has no bind pose: meshes, skins and still nodes are taken at the
    # first frame, the file's frame 0, where the keys start.
    current = scene.frame_current, scene.frame_subframe
    if animation and (scene.frame_current, scene.frame_subframe) != (scene.frame_start, 0.0):
        scene.frame_set(scene.frame_start)
    try:
        gatherer.depsgraph = context.evaluated_depsgraph_get()
        gatherer.shareable = _shareable_meshes(objects)
        roots = sorted((o for o in objects if o.parent is None or o.parent.name not in gatherer.exported),
                       key=gatherer.order)
        nodes = [gatherer.node(o, None, keys, visibility) for o in roots]
        nodes += [gatherer.target_node(bpy.data.objects[name], keys) for name in sorted(gatherer.targets)]
    finally:
        if (scene.frame_current, scene.frame_subframe) != current:
            scene.frame_set(current[0], subframe=current[1])

    # The exporter samples from frame 0 over the range's length: the scene's
    # first frame becomes frame 0.
    document.scene = {"version": 1, "frameRate": frame_rate,
                      "animationRange": [0, max(0, scene.frame_end - scene.frame_start)]}
    if scene.world is not None:
        document.scene["backgroundColor"] = _colour(scene.world.color)
        # Blender has no ambient light; an imported file's stays on the world.
        ambient = scene.world.get(AMBIENT_PROPERTY)
        if ambient is not None and len(ambient) == 3:
            document.scene["ambientColor"] = _colour(ambient)
    document.scene["texmaps"] = gatherer.out_texmaps
    document.scene["materials"] = gatherer.out_materials
    if gatherer.out_objects:
        document.scene["objects"] = gatherer.out_objects
    document.scene["nodes"] = nodes
    if gatherer.skinning and gatherer.skins:
        _check_skin_file(nodes, gatherer.skins, document.warnings)
    return document


def _check_skin_file(nodes, skins, warnings):
    """The exporter writes the .skd of every mesh over the one before, so the
    file holds the skin of the last mesh in node order: says whose, when that
    is not the only skinned mesh."""
    meshes = []

    def walk(node):
        record = node.get("object")
        if isinstance(record, str) or (isinstance(record, dict) and record.get("type") == "mesh"):
            meshes.append(node["name"])
        for child in node.get("children", []):
            walk(child)

    for node in nodes:
        walk(node)
    last = meshes[-1] if meshes else None
    if last not in skins:
        warnings.append("The .skd holds the skin of \"%s\", a mesh exported after the skinned ones (%s), whose "
                        "weights are lost" % (last, ", ".join('"%s"' % n for n in sorted(skins))))
    elif len(skins) > 1:
        warnings.append("Objects %s are skinned; the .skd holds one mesh's skin, that of \"%s\", the last "
                        "exported; the others' weights are lost" % (", ".join('"%s"' % n for n in sorted(skins)),
                                                                   last))
