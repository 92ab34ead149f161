"""Read, export and compare ZTExport's files from Python.

    import ztexport
    scene = ztexport.read("ex.zt2")                  # .zt2, .skd or ZTExport.cfg, by content
    scene.meshes[0].positions                        # numpy float32 (n, 3), no copy
    result = ztexport.export("example.scene.json", "ex2.zt2", options={"rescale": 1})
    print(ztexport.diff("ex.zt2", "ex2.zt2").text)

Arrays are read-only numpy views onto the reader's storage; each keeps that
storage alive, so an array may outlive the object it came from. numpy is
imported on the first array handed out, not by ``import ztexport``.
docs/python.md has more examples.
"""

import collections as _collections
import os as _os
import warnings as _warnings

from . import _ztexport
from ._ztexport import (Camera, Diff, Difference, Environment, ExportError, FormatError, Helper, Keys, Light,
                        LightAnimation, MapChannel, Material, MaterialList, Mesh, MeshGroup, MissingFileError, Node,
                        Options, Scene, SkinData, SkippedChunk, Texture, TransformAnimation, UnreadableFileError)
from ._ztexport import __version__

__all__ = ["read", "read_scene", "read_skin", "read_options", "export", "diff", "option_names",
           "ExportResult", "Message", "FormatError", "UnreadableFileError", "MissingFileError", "ExportError",
           "Scene", "SkinData", "Options",
           "Diff", "Difference", "Mesh", "Node", "Keys"]

for _type in (FormatError, UnreadableFileError, MissingFileError, ExportError):
    _type.__module__ = "ztexport"
FormatError.__doc__ = """A file that cannot be read or is not one of ours: every failure to read.

    path    the file as it was named
    offset  byte offset of the fault from the start of the file (0: unreadable)
    chunk   where in the chunk tree, 'MeshChunk "Box01" > MeshVertexChunk > positions'
            ('' outside any chunk)
    kind    'unreadable', 'corrupt' or 'wrongKind'

One of kind 'unreadable' is an UnreadableFileError, also an OSError.
"""
UnreadableFileError.__doc__ = """A file that cannot be read at all (kind 'unreadable'): a FormatError
and an OSError, with errno and filename set where the system gave a reason.
A missing file is a MissingFileError, also a FileNotFoundError."""
MissingFileError.__doc__ = """A file that is not there: an UnreadableFileError and a FileNotFoundError."""
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
          prefix), 'text' (any other line of it), 'messageBox' (a message box
          of the exporter: the file could not be saved), 'note' (what the host
          knows of an image it could not open)
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
        self.messages = [Message(*m) for m in messages]
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
           texture_paths=(), copy_textures_outside=False):
    """Export `scene` (a scene-description file or a model) to `out` (a .zt2 name).

    Runs the exporter module in this process through its entry points, as
    zt2export does. `options` changes fields of the options record after it
    was loaded from `config_dir`/ZTExport.cfg, with the names and limits of
    zt2export --set (option_names() lists them): {"rescale": 1,
    "rescaleFactor": 2.5}; True and False stand for 1 and 0. A bad name or
    value raises ValueError naming the field, before anything runs.
    `config_dir` defaults to zt2export's ($XDG_CONFIG_HOME/ztexport or
    ~/.config/ztexport); ZTExport.cfg is never written. dry_run=True runs the
    whole export but writes nothing (zt2export --check); `check` is its former
    name, deprecated. `module` is the
    exporter module to load; by default ZTExport.dle beside this package,
    else where an install or the build tree puts it.

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
    fields = dict(options or {})
    result = _ztexport.export_scene(_path(scene, "scene"), _path(out, "out"), fields,
                                    _path(config_dir, "config_dir") if config_dir is not None else b"",
                                    bool(dry_run) if dry_run is not _UNSET else False,
                                    _path(module, "module") if module is not None else b"",
                                    [_path(p, "texture_paths") for p in texture_paths], bool(copy_textures_outside))
    return ExportResult(*result)


def option_names():
    """The names of the options record's fields, as export() and zt2export --set take them."""
    return _ztexport.option_names()
