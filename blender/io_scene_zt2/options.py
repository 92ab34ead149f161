"""The operator's properties, one per field of the exporter's options record.

The names come from ztexport.option_names(). The package gives no kinds,
limits or defaults, so they are read from the exporter's own listing of the
record (`zt2export --help`, "Fields of the options record"), which the
command line checks its --set values against; no table is typed here. A
field the listing does not describe becomes a text property, handed over as
typed.
"""

import re
import subprocess

import bpy
import ztexport

# Fields whose default differs in this host. Blender scenes hold no Physique
# modifier, and with skinning on the exporter refuses every node without one,
# so skinning is off unless the user asks for it (armatures are not exported yet).
HOST_DEFAULTS = {"exportSkinning": 0}

_INTERPOLATION = re.compile(r"(\d+)/(\w+)")
_RANGE = re.compile(r"^(-?[0-9.]+) to (-?[0-9.]+)$")


def _exporter():
    try:
        from ztexport._ztexport import _batch
        return _batch.default_exporter()
    except (ImportError, AttributeError):
        return ""


def _listing():
    """{name: (kind, accepted values, default)} from the exporter's help text."""
    exporter = _exporter()
    if not exporter:
        return {}
    try:
        text = subprocess.run([exporter, "--help"], capture_output=True, text=True, timeout=20).stdout
    except (OSError, subprocess.SubprocessError):
        return {}
    rows = {}
    names = set(ztexport.option_names())
    inside = False
    for line in text.splitlines():
        if line.startswith("Fields of the options record"):
            inside = True
            continue
        if not inside or not line.startswith("  "):
            continue
        cells = re.split(r"\s{2,}", line.strip())
        if len(cells) == 4 and cells[0] in names:
            rows[cells[0]] = tuple(cells[1:])
    return rows


def _label(name):
    words = re.sub(r"([a-z0-9])([A-Z])", r"\1 \2", name)
    return words[:1].upper() + words[1:].lower()


def _property(name, row):
    label = _label(name)
    if row is None:
        return bpy.props.StringProperty(name=label, description="%s, as zt2export --set takes it" % name)
    kind, accepted, default = row
    if name in HOST_DEFAULTS:
        default = str(HOST_DEFAULTS[name])
    description = "%s (%s; default %s)" % (name, accepted, default)
    if kind == "flag":
        return bpy.props.BoolProperty(name=label, description=description, default=default in ("1", "true"))
    if kind == "float":
        limits = _RANGE.match(accepted)
        lo, hi = (float(limits.group(1)), float(limits.group(2))) if limits else (-1e30, 1e30)
        return bpy.props.FloatProperty(name=label, description=description, default=float(default),
                                       min=lo, max=hi, precision=4)
    if kind == "int":
        limits = _RANGE.match(accepted)
        try:
            value = int(default)
        except ValueError:
            value = 0  # taken from the scene on every export (the frame rate, the range)
        if limits:
            return bpy.props.IntProperty(name=label, description=description, default=max(value, int(limits.group(1))),
                                         min=int(limits.group(1)), max=int(limits.group(2)))
        return bpy.props.IntProperty(name=label, description=description, default=value)
    if kind == "method":
        items = [(word, word.capitalize(), "%s = %s" % (name, word)) for _, word in _INTERPOLATION.findall(accepted)]
        if items:
            chosen = next((word for number, word in _INTERPOLATION.findall(accepted) if default in (number, word)),
                          items[0][0])
            return bpy.props.EnumProperty(name=label, description=description, items=items, default=chosen)
    return bpy.props.StringProperty(name=label, description=description, default=default)


def option_properties():
    """{field name: Blender property}, in the record's order."""
    rows = _listing()
    return {name: _property(name, rows.get(name)) for name in ztexport.option_names()}


def chosen_options(operator):
    """The fields the user set, as ztexport.export takes them, and this host's
    own defaults; the others keep the value of the saved options (or the
    scene's, for the sample rate and the frames)."""
    options = {}
    for name in ztexport.option_names():
        if not operator.properties.is_property_set(name):
            if name in HOST_DEFAULTS:
                options[name] = HOST_DEFAULTS[name]
            continue
        value = getattr(operator, name)
        if isinstance(value, bool):
            value = int(value)
        options[name] = value
    return options
