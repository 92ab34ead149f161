"""Read, export and compare ZTExport's files from Python.

    import ztexport
    scene = ztexport.read("ex.zt2")                  # .zt2, .skd or ZTExport.cfg, by content
    scene.meshes[0].positions                        # numpy float32 (n, 3), no copy
    scene.meshes[0].faces                            # numpy uint32 (m, 3), indices into positions
    result = ztexport.export("example.scene.json", "ex2.zt2", options={"rescale": 1})
    print(ztexport.diff("ex.zt2", "ex2.zt2").text)

Arrays are read-only numpy views onto the reader's storage; each keeps that
storage alive, so an array may outlive the object it came from.
docs/python.md has more examples.
"""

import collections as _collections
import contextlib as _contextlib
import importlib.util as _importlib_util
import os as _os
import sys as _sys
import warnings as _warnings

# Every array the package hands out is a numpy array, and the extension only
# imports numpy on the first one: without this check an interpreter with no
# numpy would import the package and fail later, far from the cause.
if _importlib_util.find_spec("numpy") is None:
    raise ImportError("ztexport needs numpy, which this Python (%s) does not have: install it with "
                      "'%s -m pip install numpy' (Debian's own python3: apt-get install python3-numpy)"
                      % (_sys.executable, _sys.executable or "python3"), name="numpy")

from . import _ztexport
from ._ztexport import (Camera, CorruptFileError, Diff, Difference, Environment, ExportError, FormatError, Helper,
                        Keys, Light, LightAnimation, MapChannel, Material, MaterialList, Mesh, MeshGroup,
                        MissingFileError, Node, Options, Scene, SkinData, SkippedChunk, Texture, TransformAnimation,
                        UnreadableFileError, WrongKindError)

__version__ = _ztexport.__version__

__all__ = ["read", "read_scene", "read_skin", "read_options", "export", "diff", "to_gltf", "option_names", "option_fields",
           "config_dir", "default_exporter", "write_file", "work_directory",
           "ExportResult", "Message", "OptionField",
           "FormatError", "UnreadableFileError", "MissingFileError", "CorruptFileError", "WrongKindError",
           "ExportError",
           "Scene", "SkinData", "Options", "Diff", "Difference",
           "Node", "Mesh", "MeshGroup", "MapChannel", "Camera", "Light", "Helper", "Environment",
           "Material", "MaterialList", "Texture", "TransformAnimation", "LightAnimation", "Keys", "SkippedChunk"]


class _Spelling(str):
    """A kind in its snake_case spelling that still equals its former camelCase
    one, with a DeprecationWarning, so that a comparison written against the
    old spelling keeps working for a release."""

    _former = {"wrongKind": "wrong_kind", "messageBox": "message_box"}
    __slots__ = ()

    def __eq__(self, other):
        if isinstance(other, str) and self._former.get(other) == str(self):
            _warnings.warn("the kind %r is now spelt %r; the old spelling goes in the next release"
                           % (other, str(self)), DeprecationWarning, stacklevel=2)
            return True
        return str.__eq__(self, other)

    def __ne__(self, other):
        result = self.__eq__(other)
        return result if result is NotImplemented else not result

    __hash__ = str.__hash__

    def __reduce__(self):
        return (str, (str(self),))


def _spelling(kind):
    kind = _Spelling._former.get(kind, kind)
    return _Spelling(kind) if kind in _Spelling._former.values() else kind


def _kind_property():
    # Set on each instance by the extension; kept as the spelling above.
    def get(self):
        return self.__dict__.get("_kind", "")

    def set(self, value):
        self.__dict__["_kind"] = _spelling(value)
    return property(get, set, doc="'unreadable', 'corrupt' or 'wrong_kind'")


FormatError.kind = _kind_property()


def _deprecated_alias(cls, old, new):
    def get(self):
        _warnings.warn("%s.%s is now %s.%s; %s goes in the next release" % (cls.__name__, old, cls.__name__, new, old),
                       DeprecationWarning, stacklevel=2)
        return getattr(self, new)
    setattr(cls, old, property(get, doc="Deprecated: %s." % new))


# color as numpy-based packages and glTF spell it.
_deprecated_alias(Light, "colour", "color")
_deprecated_alias(LightAnimation, "colour_keys", "color_keys")

for _type in (FormatError, UnreadableFileError, MissingFileError, CorruptFileError, WrongKindError, ExportError):
    _type.__module__ = "ztexport"
FormatError.__doc__ = """A file that cannot be read or is not one of ours: every failure to read.

    path    the file as it was named
    offset  byte offset of the fault from the start of the file (0: unreadable)
    chunk   where in the chunk tree, 'MeshChunk "Box01" > MeshVertexChunk > positions'
            ('' outside any chunk)
    kind    'unreadable', 'corrupt' or 'wrong_kind'

Each kind has its class, which is also the built-in error that fits it:
UnreadableFileError (an OSError; MissingFileError, a FileNotFoundError),
CorruptFileError and WrongKindError (ValueErrors).
"""
UnreadableFileError.__doc__ = """A file that cannot be read at all (kind 'unreadable'): a FormatError
and an OSError, with errno and filename set where the system gave a reason.
A missing file is a MissingFileError, also a FileNotFoundError."""
MissingFileError.__doc__ = """A file that is not there: an UnreadableFileError and a FileNotFoundError."""
CorruptFileError.__doc__ = """A file whose bytes do not follow the format (kind 'corrupt'): truncated,
a bad tag, a count past the chunk. A FormatError and a ValueError."""
WrongKindError.__doc__ = """A good file of another kind than the one asked for (kind 'wrong_kind'):
read_options on a scene file. A FormatError and a ValueError."""
ExportError.__doc__ = """An export that could not start: the exporter module, the scene or the
output's folder; the message is zt2export's for the same fault."""


def _path(path, argument):
    """`path` (str, bytes or os.PathLike) as the bytes the system takes; a NUL,
    which the system would read as the end of the name, is refused."""
    path = _os.fsencode(path)
    if b"\0" in path:
        raise ValueError("%s: a path cannot hold a NUL character: %r" % (argument, _os.fsdecode(path)))
    return path


def read(path):
    """Read a file we write, its kind told from its content.

    Returns a Scene for a .zt2 scene file, a SkinData for a .skd file, an
    Options for a ZTExport.cfg. Raises FormatError (with .path, .offset and
    .chunk) when the file cannot be read or its bytes do not follow the format,
    and nothing else: a file that cannot be read at all is also an OSError
    (FileNotFoundError when it is missing). Names are decoded from the host's
    code page (Windows-1252); their bytes are the fields ending in _bytes.
    """
    return _ztexport.read(_path(path, "path"))


def read_scene(path):
    """Read a .zt2 scene file into a Scene; FormatError for any other file."""
    return _ztexport.read_scene(_path(path, "path"))


def read_skin(path):
    """Read a .skd per-vertex skin file into a SkinData; FormatError for any other file."""
    return _ztexport.read_skin(_path(path, "path"))


def read_options(path):
    """Read an options file (ZTExport.cfg, any version) into an Options; FormatError otherwise."""
    return _ztexport.read_options(_path(path, "path"))


def to_gltf(path, out):
    """Write the scene file `path` (with the .skd beside it) as binary glTF 2.0 to
    `out`, as zt2dump --gltf does (docs/gltf.md gives the mapping). Returns the
    warnings, one line per thing left out (a texture not found...). Raises
    FormatError when `path` cannot be read or is no scene file, OSError when
    `out` cannot be written, ValueError when `out` would overwrite its input.
    """
    return _ztexport.to_gltf(_path(path, "path"), _path(out, "out"))


def diff(a, b, tolerance=0.0):
    """The semantic difference between two files of the same kind (zt2dump --diff).

    Keyed by node name and field path, not by byte offset. Numbers a and b are
    equal when |a - b| <= tolerance * max(1, |a|, |b|). Returns a Diff:
    .equal, .differences (kind 'added', 'removed', 'changed' or 'moved',
    path, old_value, new_value, and for arrays differing, largest_difference,
    first_indices), .text (zt2dump's lines) and .to_json(). Raises FormatError
    when either file cannot be read.
    """
    return _ztexport.diff(_path(a, "a"), _path(b, "b"), float(tolerance))


Message = _collections.namedtuple("Message", "kind text")
Message.__doc__ = """One message of an export.

    kind  'info', 'warning' or 'error' (a line of the Export Info text, by its
          prefix; 'error' also for a file that could not be saved, as
          "FILE: cannot save: REASON"), 'text' (any other line of it), 'message_box' (a message box
          of the exporter: the file could not be saved), 'image_problem' (the
          file behind an image the exporter asked for and why it could not be
          read), 'note' (what the host knows of an image it could not open, or
          a remark on the options)
    text  the message as zt2export prints it
"""


class ExportResult:
    """What an export did.

    status    zt2export's exit status: 0 the run ended normally, 1 the export
              was cancelled because of errors in the scene, 2 the file could
              not be saved
    messages  every message, in order, as Message(kind, text)
    files     the files written, each once: the scene file, the .skd, textures
              copied or taken out of a model ([] for a dry run or a failed run)
    output    the scene file named
    """

    __slots__ = ("status", "messages", "files", "output")

    def __init__(self, status, messages, files, output):
        self.status = status
        self.messages = [Message(_spelling(kind), text) for kind, text in messages]
        self.files = files
        self.output = output

    @property
    def ok(self):
        """True when the status is 0."""
        return self.status == 0

    def __repr__(self):
        return "ExportResult(status=%d, messages=%d, files=%r)" % (self.status, len(self.messages), self.files)


_UNSET = object()


def export(scene, out, options=None, config_dir=None, dry_run=_UNSET, *, check=_UNSET, module=None,
           texture_paths=(), copy_textures_outside=False, key_error_bound=False, missing_textures="error",
           replace_textures=False, texture_names="keep", sync=True, save_options=False):
    """Export `scene` (a scene-description file or a model) to `out` (a .zt2 name).

    Runs the exporter module in this process through its entry points, as
    zt2export does. `options` changes fields of the options record after it
    was loaded from `config_dir`/ZTExport.cfg, with the names and limits of
    zt2export --set (option_names() lists them): {"rescale": 1,
    "rescaleFactor": 2.5}; True and False stand for 1 and 0. A bad name or
    value raises ValueError naming the field, before anything runs.
    `config_dir` defaults to zt2export's (config_dir() names it);
    save_options=True writes the options used back to its ZTExport.cfg at the
    end, as the export dialog's OK does (zt2export --save-options); otherwise
    ZTExport.cfg is never written. dry_run=True runs the
    whole export but writes nothing (zt2export --check); `check` is its former
    name, deprecated. `module` is the
    exporter module to load; by default ZTExport.dle beside this package,
    else where an install or the build tree puts it. key_error_bound=True
    keeps animation keys that rebuild every sample within the tolerances
    (zt2export --key-error-bound). missing_textures="drop" leaves out a
    model's map whose image is nowhere to be found, with a warning;
    replace_textures=True replaces a texture copy whose bytes differ from its
    image's; texture_names="unique" names copies by their bytes
    ("wood.1a2b3c4d.png"); sync=False puts the files in place without
    flushing each to the disk (zt2export --missing-textures, --replace-textures,
    --texture-names, --no-sync).

    Returns an ExportResult (status, messages, files). Raises ExportError
    when the export cannot start (module, scene, output folder), ValueError
    naming the argument for a path with a NUL character in it.
    """
    if check is not _UNSET:
        if dry_run is not _UNSET:
            raise TypeError("export() takes check or dry_run, not both: check is the former name of dry_run")
        _warnings.warn("export(check=...) is now export(dry_run=...); check goes in the next release",
                       DeprecationWarning, stacklevel=2)
        dry_run = check
    if save_options and dry_run is not _UNSET and dry_run:
        raise ValueError("save_options: a dry run writes nothing, so it cannot save the options")
    if missing_textures not in ("error", "drop"):
        raise ValueError("missing_textures: expected 'error' or 'drop', not %r" % (missing_textures,))
    if texture_names not in ("keep", "unique"):
        raise ValueError("texture_names: expected 'keep' or 'unique', not %r" % (texture_names,))
    fields = dict(options or {})
    result = _ztexport.export_scene(_path(scene, "scene"), _path(out, "out"), fields,
                                    _path(config_dir, "config_dir") if config_dir is not None else b"",
                                    bool(dry_run) if dry_run is not _UNSET else False,
                                    _path(module, "module") if module is not None else b"",
                                    [_path(p, "texture_paths") for p in texture_paths], bool(copy_textures_outside),
                                    key_error_bound=bool(key_error_bound),
                                    drop_missing_textures=missing_textures == "drop",
                                    replace_textures=bool(replace_textures),
                                    unique_texture_names=texture_names == "unique", sync=bool(sync),
                                    save_options=bool(save_options))
    return ExportResult(*result)


def config_dir():
    """The folder of ZTExport.cfg and ZTExportAdditional.cfg when none is named, as zt2export has it
    ($XDG_CONFIG_HOME/ztexport, else ~/.config/ztexport); None when there is no home folder."""
    return _ztexport.config_dir() or None


def option_names():
    """The names of the options record's fields, as export() and zt2export --set take them."""
    return _ztexport.option_names()


OptionField = _collections.namedtuple("OptionField", "name kind default min max choices label scene_default "
                                                     "limits_from_scene step")
OptionField.__doc__ = """One field of the exporter's options record, as a front end builds its control.

    name     the field's name, as export(options=...) and zt2export --set take it
    kind     'bool', 'int', 'float', 'enum' or 'string'
    default  a new record's value: bool, int, float, or str (an enum's word)
    min, max the limits export() holds the value to, or None (the frames:
             see limits_from_scene; bools, enums and strings have none)
    choices  an enum's words, value 0 first; () for the other kinds
    label    the text the exporter's dialog shows for the field, or None
    scene_default      what sets the default on each export instead
                       ('scene frame rate'), or None
    limits_from_scene  True for the frames, held to the scene's frame range
    step     a spinner's step in the dialog, or None
"""


def option_fields():
    """Every field of the exporter's options record, in the record's order, as OptionField."""
    return [OptionField(**field) for field in _ztexport.option_fields()]


def default_exporter():
    """The zt2export program installed or built with this package, or None when there is none."""
    return _ztexport._batch.default_exporter() or None


def write_file(path, data):
    """Write `data` (str, as UTF-8, or bytes or any other bytes-like object,
    such as a bytearray, memoryview or contiguous numpy array, as its bytes)
    to `path` as the exporter writes its small files: into a new file beside
    it, then renamed over it, so that a reader never sees half of it. Raises
    OSError naming the file when it cannot be written."""
    target = _path(path, "path")
    if isinstance(data, str):
        data = data.encode("utf-8")
    else:
        try:
            with memoryview(data) as view:
                in_place = view.c_contiguous
        except TypeError:
            in_place = False
        if not in_place:
            data = bytes(data)
    try:
        _ztexport._batch.write_small_file(target, data)
    except _ztexport._batch.BatchError as error:
        raise OSError(str(error)) from None


@_contextlib.contextmanager
def work_directory(parent=None):
    """A folder private to the caller, created in `parent` (default: the system's
    temporary folder) and removed with everything in it on leaving the block:

        with ztexport.work_directory() as folder:
            ztexport.write_file(os.path.join(folder, "scene.json"), text)

    It holds files, not folders. Raises OSError when it cannot be created."""
    try:
        work = _ztexport._batch.WorkDirectory(_path(parent, "parent") if parent is not None else b"")
    except _ztexport._batch.BatchError as error:
        raise OSError(str(error)) from None
    try:
        yield work.path
    finally:
        work.remove()
