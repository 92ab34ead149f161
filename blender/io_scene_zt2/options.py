"""The operator's properties, one per field of the exporter's options record.

Everything about a field (kind, default, limits, choices, the dialog's
label) comes from ztexport.option_fields(), the exporter's own table; no
table is typed here.
"""

import os
import struct

import bpy
import ztexport

# Fields whose default differs in this host. Skinning, when the user leaves it,
# is on exactly when a mesh of the scene has a skin (export_scene decides).
HOST_DEFAULTS = {"exportSkinning": False}


def _label(field):
    if field.label:
        return field.label
    words = "".join(" " + c.lower() if c.isupper() else c for c in field.name)
    return words[:1].upper() + words[1:]


def _description(field, default):
    if field.scene_default:
        default = "the %s" % field.scene_default
    if field.limits_from_scene:
        return "%s (within the scene's frame range; default %s)" % (field.name, default)
    if field.min is not None:
        return "%s (%s to %s; default %s)" % (field.name, field.min, field.max, default)
    if field.choices:
        return "%s (%s; default %s)" % (field.name, ", ".join(field.choices), default)
    return "%s (default %r)" % (field.name, default)


def _property(field):
    label = _label(field)
    default = HOST_DEFAULTS.get(field.name, field.default)
    description = _description(field, default)
    limits = {} if field.min is None else {"min": field.min, "max": field.max}
    if field.kind == "bool":
        return bpy.props.BoolProperty(name=label, description=description, default=bool(default))
    if field.kind == "float":
        return bpy.props.FloatProperty(name=label, description=description, default=default, precision=4, **limits)
    if field.kind == "int":
        # Frames and the sample rate set from the scene start at the lowest the field takes.
        return bpy.props.IntProperty(name=label, description=description,
                                     default=max(default, field.min) if field.min is not None else default, **limits)
    if field.kind == "enum":
        items = [(word, word.capitalize(), "%s = %s" % (field.name, word)) for word in field.choices]
        return bpy.props.EnumProperty(name=label, description=description, items=items, default=default)
    return bpy.props.StringProperty(name=label, description=description, default=default)


def option_properties():
    """{field name: Blender property}, in the record's order."""
    return {field.name: _property(field) for field in ztexport.option_fields()}


def chosen_options(operator):
    """The fields the user set, as ztexport.export takes them; the others keep
    the value of the saved options (or the scene's, for the sample rate and the
    frames), except exportSkinning (HOST_DEFAULTS)."""
    options = {}
    for name in ztexport.option_names():
        if operator.properties.is_property_set(name):
            options[name] = getattr(operator, name)
    return options


# --- the saved options (ZTExport.cfg) ------------------------------------

OPTIONS_FILE = "ZTExport.cfg"
# The file's values in order (docs/zt2-format.md, "Options file"), version 10.
_RECORD = ["version", "exportGeometry", "exportAnimation", "exportCameras", "exportEnvironment", "exportHelpers",
           "exportLights", "exportMaterials", "dumpInfo", "copyTextures", "retiredFlag", "loop", "loopInterpolation",
           "removeFloatingVertices", "removeHiddenObjects", "rescale", "sampleRate", "sceneFrameRate",
           "rotationDelta", "rescaleFactor", "texturePathHistory", "retainHierarchies", "positionDelta",
           "frameToFrameInterpolation", "pivotAsMeshCenter", "maintainMatrixScaling", "saveReferencesOnce",
           "decreaseEndFrameByOne", "useGlobalAnimationRange", "exportSkinning"]
_FLOATS = {"rotationDelta", "rescaleFactor", "positionDelta"}
_VERSION = 10


def config_folder():
    """zt2export's per-user folder, where ztexport.export reads ZTExport.cfg and
    ZTExportAdditional.cfg when given no other (README, --config-dir)."""
    base = os.environ.get("XDG_CONFIG_HOME") or os.path.join(os.path.expanduser("~"), ".config")
    return os.path.join(base, "ztexport")


def saved_options(folder=None):
    """The saved record as {field: value} (an empty dict without one); raises
    ztexport.FormatError for a file that does not read."""
    path = os.path.join(folder or config_folder(), OPTIONS_FILE)
    if not os.path.isfile(path):
        return {}
    return ztexport.read_options(path).as_dict()


def load_saved(operator, saved):
    """Sets the properties the user has not set to the saved values, as the
    options dialog opens with them. The sample rate and the frames stay the
    scene's, and skinning the host's choice."""
    for field in ztexport.option_fields():
        name = field.name
        if operator.properties.is_property_set(name) or field.scene_default or field.limits_from_scene:
            continue
        if name in HOST_DEFAULTS:
            continue
        if name == "texturePath":
            history = saved.get("texturePathHistory") or []
            if history:
                setattr(operator, name, history[0])
            continue
        if name not in saved:
            continue
        value = saved[name]
        if field.kind == "enum":
            if 0 <= value < len(field.choices):
                setattr(operator, name, field.choices[value])
        elif field.kind == "bool":
            setattr(operator, name, bool(value))
        else:
            setattr(operator, name, value)


def options_bytes(values, saved, scene_frame_rate):
    """ZTExport.cfg holding `values` ({field: value}, as the export used them)
    over the saved record, as the exporter writes it when its dialog closes
    with OK."""
    fields = {f.name: f for f in ztexport.option_fields()}
    record = {f.name: f.default for f in fields.values()}
    record.update({k: v for k, v in saved.items() if k in fields})
    record.update(values)
    previous = saved.get("texturePathHistory") or []
    # The path last used heads the history; left untouched, it stays.
    path = values.get("texturePath", previous[0] if previous else record["texturePath"])
    history = [path or "."]
    history += [p for p in previous if p not in history]
    record.update({"version": _VERSION, "retiredFlag": 1, "sceneFrameRate": scene_frame_rate,
                   "texturePathHistory": history})
    out = [b"ZTMF", struct.pack("<I", 1)]
    for name in _RECORD:
        value = record[name]
        if name == "texturePathHistory":
            out.append(struct.pack("<bi", 3, len(value)))
            for path in value:
                data = path.encode("cp1252", "replace")
                out.append(struct.pack("<bI", 6, len(data)) + data)
        elif name in _FLOATS:
            out.append(struct.pack("<bf", 5, float(value)))
        else:
            if name in fields and fields[name].kind == "enum":
                value = fields[name].choices.index(value) if isinstance(value, str) else value
            out.append(struct.pack("<bi", 3, int(value)))
    return b"".join(out)


def save_options(values, scene_frame_rate, folder=None):
    """Writes ZTExport.cfg into zt2export's folder (which the export made when
    it was missing); returns its path."""
    folder = folder or config_folder()
    try:
        saved = saved_options(folder)
    except ztexport.FormatError:
        saved = {}  # a file that does not read is replaced, as the dialog's OK does
    path = os.path.join(folder, OPTIONS_FILE)
    ztexport.write_file(path, options_bytes(values, saved, scene_frame_rate))
    return path
