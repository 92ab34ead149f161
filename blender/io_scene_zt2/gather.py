"""Blender's evaluated scene as a scene-description document (docs/scene-format.md).

The document is plain JSON; every array that grows with the geometry goes
into one binary buffer beside it, filled from foreach_get through numpy so
that no Python code runs per vertex or per face. Nothing here writes a file:
gather() returns the document, the buffer's bytes and the extra files (packed
images) for the caller to put in its own folder.
"""

import math
import os

import bpy
import numpy as np

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


class Buffer:
    """The binary side file: arrays appended one after another, little-endian."""

    def __init__(self):
        self.parts = []
        self.size = 0

    def add(self, array, dtype, width):
        data = np.ascontiguousarray(array, dtype=np.dtype(dtype).newbyteorder("<"))
        count = data.size // width
        reference = {"buffer": BUFFER_NAME, "byteOffset": self.size, "count": count}
        raw = data.tobytes()
        self.parts.append(raw)
        self.size += len(raw)
        return reference

    def bytes(self):
        return b"".join(self.parts)


class Document:
    """What gather() hands back."""

    def __init__(self):
        self.scene = {}
        self.buffer = Buffer()
        self.extra_files = {}  # name in the work folder -> bytes (packed images)
        self.warnings = []


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

    def _image_texmap(self, material, image):
        if image.name in self.texmaps:
            return self.texmaps[image.name]
        if image.source == "SEQUENCE" or image.source == "MOVIE":
            self.doc.warnings.append("Material \"%s\": image \"%s\" is a %s, which is not exported yet; "
                                     "the map is left out" % (material.name, image.name, image.source.lower()))
            return None
        if image.packed_file is not None:
            # Written into the work folder under its own file name, so that the
            # copy beside the export carries the name the user knows.
            stem, ext = os.path.splitext(bpy.path.basename(image.filepath) or image.name)
            stem, ext = bpy.path.clean_name(stem), ext or ".png"
            name, number = stem + ext, 1
            while name in self.image_names:
                number += 1
                name = "%s_%d%s" % (stem, number, ext)
            self.image_names.add(name)
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
        texmap = None
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
                texmap = self._image_texmap(material, link.from_node.image)
            elif link is not None:
                self.doc.warnings.append("Material \"%s\": Base Color is fed by a \"%s\" node, not an image "
                                         "texture; its plain colour is used" % (material.name, link.from_node.name))
        else:
            # No node tree: the viewport display settings are what the user sees.
            base = _colour(material.diffuse_color)
            specular = float(material.specular_intensity)
            roughness = float(material.roughness)
            emission = [0.0, 0.0, 0.0]
            alpha = float(material.diffuse_color[3])
        if alpha < 1.0:
            self.doc.warnings.append("Material \"%s\": alpha %.3g is not exported (the material record has no "
                                     "opacity)" % (material.name, alpha))
        # The record has no glossiness: a rough surface gets a dimmer highlight.
        grey = max(0.0, min(1.0, specular)) * (1.0 - max(0.0, min(1.0, roughness)))
        record = {"id": "material:" + material.name, "type": "ztMaterial", "name": material.name,
                  "ambient": emission, "diffuse": base, "specular": [grey, grey, grey],
                  "params": {"plainLayerMode": 1, "layer1Flag": 1 if texmap else 0}}
        if texmap:
            record["texmaps"] = [texmap]
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
        mesh = obj_eval.to_mesh()
        try:
            if mesh is None:
                return None
            mesh.calc_loop_triangles()
            buf = self.doc.buffer
            vertex_count = len(mesh.vertices)
            positions = np.empty(vertex_count * 3, np.float32)
            mesh.vertices.foreach_get("co", positions)
            if self.unit_scale != 1.0:
                positions *= self.unit_scale
            triangle_count = len(mesh.loop_triangles)
            corners = np.empty(triangle_count * 3, np.int32)
            mesh.loop_triangles.foreach_get("vertices", corners)
            polygon_of = np.empty(triangle_count, np.int32)
            mesh.loop_triangles.foreach_get("polygon_index", polygon_of)
            material_index = np.empty(len(mesh.polygons), np.int32)
            mesh.polygons.foreach_get("material_index", material_index)
            groups, _ = mesh.calc_smooth_groups(use_bitflags=True)
            groups = np.asarray(groups, np.uint32)
            out = {"vertices": buf.add(positions, np.float32, 3),
                   "faces": buf.add(corners, np.uint32, 3),
                   "smoothingGroups": buf.add(groups[polygon_of] if len(groups) else groups, np.uint32, 1),
                   "materialIds": buf.add(material_index[polygon_of], np.uint16, 1)}
            uv_layer = next((layer for layer in mesh.uv_layers if layer.active_render), mesh.uv_layers.active)
            if uv_layer is not None:
                loop_count = len(mesh.loops)
                uv = np.empty(loop_count * 2, np.float32)
                uv_layer.data.foreach_get("uv", uv)
                uvw = np.zeros((loop_count, 3), np.float32)
                uvw[:, :2] = uv.reshape(-1, 2)
                loops = np.empty(triangle_count * 3, np.int32)
                mesh.loop_triangles.foreach_get("loops", loops)
                out["textureVertices"] = buf.add(uvw, np.float32, 3)
                out["textureFaces"] = buf.add(loops, np.uint32, 3)
                if len(mesh.uv_layers) > 1:
                    self.doc.warnings.append("Object \"%s\": only UV map \"%s\" is exported (the scene "
                                             "description carries one map channel)" % (obj.name, uv_layer.name))
            return {"type": "mesh", "mesh": out}
        finally:
            obj_eval.to_mesh_clear()

    def camera_object(self, obj, obj_eval):
        cam = obj_eval.data
        render = self.scene.render
        record = {"type": "camera", "className": "Free Camera",
                  "hither": cam.clip_start * self.unit_scale, "yon": cam.clip_end * self.unit_scale}
        if cam.type == "PERSP":
            # The host's field of view is the horizontal one; the projection
            # answers it whatever the sensor fit.
            projection = obj_eval.calc_matrix_camera(self.depsgraph, x=render.resolution_x, y=render.resolution_y,
                                                     scale_x=render.pixel_aspect_x, scale_y=render.pixel_aspect_y)
            record["fovDegrees"] = math.degrees(2.0 * math.atan(1.0 / projection[0][0]))
        else:
            record["fovDegrees"] = math.degrees(cam.angle)
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
        if light.type == "SUN":
            multiplier = light.energy / SUN_STRENGTH_PER_MULTIPLIER
        else:
            multiplier = light.energy / POINT_WATTS_PER_MULTIPLIER
        record = {"type": "light", "lightType": kind, "color": _colour(light.color), "multiplier": multiplier}
        if light.type == "SPOT":
            falloff = math.degrees(light.spot_size)
            record["falloffDegrees"] = falloff
            record["hotspotDegrees"] = falloff * (1.0 - light.spot_blend)
            record["className"] = "Free Spot"
        if getattr(light, "use_custom_distance", False):
            record["attenuationEnd"] = light.cutoff_distance * self.unit_scale
        return record

    def shared_mesh(self, obj, obj_eval):
        """The id of the document's object for a mesh several objects share;
        the exporter writes it once and the other nodes as references to it."""
        name = obj.data.name
        if name not in self.shared:
            record = self.mesh_object(obj, obj_eval)
            record["id"] = "mesh:" + name
            self.out_objects.append(record)
            self.shared[name] = record["id"]
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
        if obj.type != "EMPTY":
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
        children = sorted((c for c in obj.children if c.name in self.exported), key=lambda c: c.name)
        if children:
            node["children"] = [self.node(c, obj, keys, visibility) for c in children]
        return node


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
    """Transform keys per frame of the scene's range, for the nodes whose local
    transform changes over it, and visibility keys for those whose hide_render
    does."""
    scene = context.scene
    start, end = scene.frame_start, scene.frame_end
    if end <= start:
        return {}, {}
    exported = gatherer.exported
    parents = {o.name: (o.parent if o.parent is not None and o.parent.name in exported else None) for o in objects}
    samples = {o.name: [] for o in objects}
    hidden = {o.name: [] for o in objects}
    current = scene.frame_current, scene.frame_subframe
    try:
        for frame in range(start, end + 1):
            scene.frame_set(frame)
            depsgraph = context.evaluated_depsgraph_get()
            for o in objects:
                parent = parents[o.name]
                local = _local_matrix(o.evaluated_get(depsgraph),
                                      parent.evaluated_get(depsgraph) if parent is not None else None)
                samples[o.name].append(local)
                hidden[o.name].append(o.hide_render)
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
    # A key at every frame: visibility interpolates between keys, hide_render does not.
    visibility = {name: {"keys": [{"frame": frame, "value": 0.0 if h else 1.0} for frame, h in enumerate(values)]}
                  for name, values in hidden.items() if len(set(values)) > 1}
    return keys, visibility


class ArmaturesHeld:
    """Turns the Armature modifiers off while the scene is gathered: meshes are
    exported in their rest shape, skinning being the exporter's own business."""

    def __init__(self, objects):
        self.modifiers = [m for o in objects if o.type == "MESH" for m in o.modifiers
                          if m.type == "ARMATURE" and m.show_viewport]

    def __enter__(self):
        for m in self.modifiers:
            m.show_viewport = False
        return self

    def __exit__(self, *exc):
        for m in self.modifiers:
            m.show_viewport = True
        return False


def _track(keys):
    """A track that never changes is written as its value."""
    first = keys[0]["value"]
    if all(all(abs(a - b) <= 1e-7 for a, b in zip(first, k["value"])) for k in keys[1:]):
        return first
    return {"keys": keys}


def gather(context, animation=True):
    """The scene of `context` as a Document."""
    document = Document()
    scene = context.scene
    objects = _exported_objects(scene, context.view_layer)
    gatherer = _Gatherer(context, None, document)
    gatherer.exported = set(o.name for o in objects)

    fps = scene.render.fps / scene.render.fps_base
    frame_rate = max(1, min(4800, int(round(fps))))
    if abs(frame_rate - fps) > 1e-6:
        document.warnings.append("Frame rate %.4g is exported as %d frames per second" % (fps, frame_rate))
    with ArmaturesHeld(objects):
        keys, visibility = _sample_animation(context, objects, gatherer) if animation else ({}, {})
        gatherer.depsgraph = context.evaluated_depsgraph_get()
        gatherer.shareable = _shareable_meshes(objects)
        roots = sorted((o for o in objects if o.parent is None or o.parent.name not in gatherer.exported),
                       key=lambda o: o.name)
        nodes = [gatherer.node(o, None, keys, visibility) for o in roots]

    # The exporter samples from frame 0 over the range's length: the scene's
    # first frame becomes frame 0.
    document.scene = {"version": 1, "frameRate": frame_rate,
                      "animationRange": [0, max(0, scene.frame_end - scene.frame_start)]}
    if scene.world is not None:
        document.scene["backgroundColor"] = _colour(scene.world.color)
    document.scene["texmaps"] = gatherer.out_texmaps
    document.scene["materials"] = gatherer.out_materials
    if gatherer.out_objects:
        document.scene["objects"] = gatherer.out_objects
    document.scene["nodes"] = nodes
    return document
