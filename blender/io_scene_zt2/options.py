"""The operator's properties, one per field of the exporter's options record.

Everything about a field (kind, default, limits, choices, the dialog's
label) comes from ztexport.option_fields(), the exporter's own table; no
table is typed here.
"""

import os

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


def chosen_options(operator, scene=None):
    """The fields the user set, as ztexport.export takes them; the others keep
    the value of the saved options (or the scene's, for the sample rate and the
    frames), except exportSkinning (HOST_DEFAULTS). A field that holds the
    value the exporter takes from `scene` anyway (what the dialog shows) is
    left to it."""
    from_scene = scene_values(scene) if scene is not None else {}
    options = {}
    for name in ztexport.option_names():
        if operator.properties.is_property_set(name):
            value = getattr(operator, name)
            if name in from_scene and from_scene[name] == value:
                continue
            options[name] = value
    return options


def scene_values(scene):
    """{field: value} of the fields whose default the exporter takes from the
    scene description, as the add-on writes it for `scene`: the sample rate
    is the frame rate, the end frame the range's length. A value outside the
    field's limits is left out (the dialog could not show it)."""
    fps = scene.render.fps / scene.render.fps_base
    values = {"sampleRate": max(1, int(round(fps))), "endFrame": max(0, scene.frame_end - scene.frame_start)}
    fields = {field.name: field for field in ztexport.option_fields()}
    return {name: value for name, value in values.items() if name in fields and
            (fields[name].min is None or fields[name].min <= value <= fields[name].max)}


def show_scene_values(operator, scene):
    """The dialog shows the sample rate and the end frame the export will
    take from the scene where the user has not set them."""
    for name, value in scene_values(scene).items():
        if not operator.properties.is_property_set(name):
            setattr(operator, name, value)


# --- the saved options (ZTExport.cfg) ------------------------------------

OPTIONS_FILE = "ZTExport.cfg"


def saved_options(folder=None):
    """The saved record as {field: value} (an empty dict without one); raises
    ztexport.FormatError for a file that does not read."""
    folder = folder or ztexport.config_dir()
    path = os.path.join(folder, OPTIONS_FILE) if folder else None
    if not path or not os.path.isfile(path):
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
