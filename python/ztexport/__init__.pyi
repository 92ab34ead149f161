"""Types of the ztexport package, for editors and type checkers.

Read, export and compare ZTExport's files: read() gives a Scene, a SkinData
or an Options; export() runs the exporter module in this process; diff()
compares two files by node and field. Arrays are read-only numpy views of
the reader's storage that outlive the object they came from.
"""
import os
from contextlib import AbstractContextManager
from typing import Iterable, Literal, NamedTuple, Optional, Union

import numpy as np
import numpy.typing as npt

__version__: str
__all__: list[str]

_Path = Union[str, bytes, os.PathLike[str], os.PathLike[bytes]]  # no NUL: ValueError
_Value = Union[bool, int, float, str]
_F32 = npt.NDArray[np.float32]

class FormatError(Exception):
    """A file that cannot be read or is not one of ours: every failure to read.

    Each kind has its class, also the built-in error that fits it:
    UnreadableFileError (OSError), CorruptFileError and WrongKindError
    (ValueError)."""
    path: str
    """The file as it was named."""
    offset: int
    """Byte offset of the fault from the start of the file (0: unreadable)."""
    chunk: str
    """Where in the chunk tree, 'MeshChunk "Box01" > MeshVertexChunk > positions'; '' outside any chunk."""
    kind: str
    """'unreadable', 'corrupt' or 'wrong_kind'."""

class UnreadableFileError(FormatError, OSError):
    """A file that cannot be read at all (kind 'unreadable'); errno and filename set where the system gave a reason."""

class MissingFileError(UnreadableFileError, FileNotFoundError):
    """A file that is not there."""

class CorruptFileError(FormatError, ValueError):
    """Bytes that do not follow the format (kind 'corrupt'): truncated, a bad tag, a count past the chunk."""

class WrongKindError(FormatError, ValueError):
    """A good file of another kind than the one asked for (kind 'wrong_kind')."""

class ExportError(RuntimeError):
    """An export that could not start: the exporter module, the scene or the output's folder."""

class Keys:
    """The keys of one track; samples and values are read-only views of the same records."""
    samples: npt.NDArray[np.uint32]
    """(n,) sample numbers."""
    values: _F32
    """(n, 4, 3) transforms, (n, 4) colors or (n,) floats."""
    def __len__(self) -> int: ...

class Node:
    """A scene object's base data. Names are decoded from the host's code page
    (Windows-1252, every byte a character); each has its bytes as they stand in
    the file beside it (_bytes)."""
    name: str
    name_bytes: bytes
    parent: Optional[str]
    """The parent's name; None at the root."""
    parent_bytes: Optional[bytes]
    transform: _F32
    """(4, 3) relative to the parent: rows 0..2 the axes, row 3 the translation."""
    user_properties: str
    user_properties_bytes: bytes
    offset: int
    """File offset of the object's top-level chunk."""
    order: int
    """Position among the file's top-level chunks."""

class _Object:
    """A scene object: its Node, and the node's name, parent and transform repeated."""
    node: Node
    name: str
    name_bytes: bytes
    parent: Optional[str]
    parent_bytes: Optional[bytes]
    transform: _F32

class MapChannel:
    """Texture coordinates or vertex colors of one of the host's channels."""
    channel: int
    coordinates: _F32
    """(n, 3) float32: u, -v, 0 per vertex."""
    group_counts: npt.NDArray[np.uint32]

class MeshGroup:
    """One material group of a mesh, with its starts worked out from the counts."""
    material: str
    """The material's name; '' when the mesh has no material names."""
    material_bytes: bytes
    first_vertex: int
    """The group's first vertex in the mesh's positions and normals."""
    vertex_count: int
    first_triangle: int
    """The group's first row of triangles and faces."""
    triangle_count: int

class Mesh(_Object):
    """A mesh. Its vertices are stored group after group: group g's vertices
    are positions[first_vertex:first_vertex + vertex_count] of groups()[g]."""
    positions: _F32
    """(n, 3) float32."""
    normals: _F32
    """(n, 3) float32, unit length or zero."""
    triangles: npt.NDArray[np.uint16]
    """(m, 3) uint16 as in the file: local to the triangle's group (index + the group's first_vertex)."""
    faces: npt.NDArray[np.uint32]
    """(m, 3) uint32 indices into positions and normals: triangles plus their group's first_vertex (a copy)."""
    group_vertex_counts: npt.NDArray[np.uint32]
    group_triangle_counts: npt.NDArray[np.uint32]
    material_names: list[str]
    """One per group."""
    material_names_bytes: list[bytes]
    map_channels: list[MapChannel]
    reference_name: Optional[str]
    """The node whose mesh this one shares, when written."""
    reference_name_bytes: Optional[bytes]
    def groups(self) -> list[MeshGroup]:
        """The material groups, in the order of their vertices and triangles."""

class Camera(_Object):
    """A camera: field of view in radians and the clipping planes."""
    fov: float
    near: float
    far: float

class Light(_Object):
    """A light."""
    type: str
    """'omni', 'directional' or 'spot'."""
    color: tuple[float, float, float, float]
    """Red, green, blue, alpha on a 0..255 scale."""
    @property
    def colour(self) -> tuple[float, float, float, float]:
        """Deprecated: color."""
    intensity: float
    attenuation_start: float
    attenuation_end: float
    hotspot: float
    falloff: float

class Helper(_Object):
    """A helper object, with the host's class name."""
    class_name: str
    class_name_bytes: bytes

class Environment:
    """The scene's ambient and background colors, 0..255 each."""
    ambient: tuple[int, int, int, int]
    background: tuple[int, int, int, int]

class Texture:
    """A material's texture layer."""
    name: str
    name_bytes: bytes
    value: int
    mode: int
    file_names: list[str]
    file_names_bytes: list[bytes]

class Material:
    """A material: colors (red, green, blue, alpha) and five texture layers."""
    name: str
    name_bytes: bytes
    ambient: tuple[float, float, float, float]
    diffuse: tuple[float, float, float, float]
    specular: tuple[float, float, float, float]
    layers: list[Optional[Texture]]
    """Layers 1 to 5; None where a layer is empty."""

class MaterialList:
    """The scene's materials and the texture path they were written with."""
    texture_path: str
    texture_path_bytes: bytes
    materials: list[Material]

class TransformAnimation:
    """A node's animation: transforms (n, 4, 3) in keys, and visibility_keys."""
    name: str
    name_bytes: bytes
    sample_rate: int
    loop: bool
    parent_name: str
    parent_name_bytes: bytes
    num_samples: int
    loop_to_frame: int
    keys: Keys
    visibility_keys: Keys
    order: int

class LightAnimation:
    """A light's animation, one Keys per animated value."""
    name: str
    name_bytes: bytes
    type: str
    sample_rate: int
    num_samples: int
    color_keys: Keys
    @property
    def colour_keys(self) -> Keys:
        """Deprecated: color_keys."""
    intensity_keys: Keys
    attenuation_start_keys: Keys
    attenuation_end_keys: Keys
    hotspot_keys: Keys
    falloff_keys: Keys
    order: int

class SkippedChunk:
    """A chunk the reader does not know, skipped whole."""
    id: int
    version: int
    offset: int
    name: str

class Scene:
    """A decoded .zt2 file."""
    path: str
    size: int
    meshes: list[Mesh]
    cameras: list[Camera]
    lights: list[Light]
    helpers: list[Helper]
    environment: Optional[Environment]
    materials: Optional[MaterialList]
    transform_animations: list[TransformAnimation]
    light_animations: list[LightAnimation]
    skipped: list[SkippedChunk]
    def nodes(self) -> list[Node]:
        """Every object's node, in file order."""
    def find_node(self, name: Union[str, bytes]) -> Optional[Node]:
        """The node named `name` (its text, or its bytes in the file), or None."""

class SkinData:
    """A decoded .skd file: vertex v has influence_count[v] influences from
    influence_start[v] on in influence_bone and influence_weight."""
    path: str
    node_names: list[str]
    node_names_bytes: list[bytes]
    bone_names: list[str]
    bone_names_bytes: list[bytes]
    influence_start: npt.NDArray[np.int32]
    influence_count: npt.NDArray[np.int32]
    influence_bone: npt.NDArray[np.int32]
    influence_weight: npt.NDArray[np.float32]
    group_vertex_count: npt.NDArray[np.uint32]
    group_vertex_start: npt.NDArray[np.uint32]

class Options:
    """A decoded ZTExport.cfg: options["sampleRate"], "name" in options, as_dict()."""
    path: str
    version: int
    newer_version: bool
    """Written by a newer exporter: fields past those known are not read."""
    def as_dict(self) -> dict[str, Union[int, float, list[str]]]:
        """Every field by name."""
    def __getitem__(self, name: str) -> Union[int, float, list[str]]: ...
    def __contains__(self, name: str) -> bool: ...
    def __len__(self) -> int: ...

class Difference:
    """One difference of a Diff, values as JSON text."""
    kind: str
    """'added', 'removed', 'changed' or 'moved'."""
    path: str
    old_value: str
    new_value: str
    array: bool
    old_length: int
    new_length: int
    differing: int
    largest_difference: float
    first_indices: list[int]
    old_position: int
    new_position: int

class Diff:
    """The difference between two files, keyed by node name and field path."""
    old_path: str
    new_path: str
    equal: bool
    differences: list[Difference]
    text: str
    """zt2dump --diff's lines."""
    def to_json(self) -> str:
        """zt2dump --diff --json's document."""
    def __len__(self) -> int: ...

class Message(NamedTuple):
    """One message of an export."""
    kind: str
    """'info', 'warning', 'error', 'text', 'message_box' or 'note'."""
    text: str

class ExportResult:
    """What an export did."""
    status: int
    """0 the run ended normally, 1 cancelled because of errors in the scene, 2 the file could not be saved."""
    messages: list[Message]
    files: list[str]
    """The files written, each once ([] for a dry run or a failed run)."""
    output: str
    @property
    def ok(self) -> bool:
        """True when the status is 0."""

class OptionField(NamedTuple):
    """One field of the exporter's options record, as a front end builds its control."""
    name: str
    kind: str
    """'bool', 'int', 'float', 'enum' or 'string'."""
    default: Union[bool, int, float, str]
    min: Optional[Union[int, float]]
    max: Optional[Union[int, float]]
    choices: tuple[str, ...]
    label: Optional[str]
    """The text the exporter's dialog shows for the field, or None."""
    scene_default: Optional[str]
    """What sets the default on each export instead, or None."""
    limits_from_scene: bool
    step: Optional[float]

def read(path: _Path) -> Union[Scene, SkinData, Options]:
    """Read a file we write, its kind told from its content; FormatError when it cannot be read."""
def read_scene(path: _Path) -> Scene:
    """Read a .zt2 scene file; FormatError for any other file."""
def read_skin(path: _Path) -> SkinData:
    """Read a .skd per-vertex skin file; FormatError for any other file."""
def read_options(path: _Path) -> Options:
    """Read an options file (ZTExport.cfg, any version); FormatError otherwise."""
def to_gltf(path: _Path, out: _Path) -> list[str]:
    """Write the scene file (with its .skd) as binary glTF 2.0; the warnings, one line each."""
def diff(a: _Path, b: _Path, tolerance: float = 0.0) -> Diff:
    """The semantic difference between two files of the same kind."""
def export(scene: _Path, out: _Path, options: Optional[dict[str, _Value]] = None,
           config_dir: Optional[_Path] = None, dry_run: bool = False, *,
           check: bool = False,  # deprecated: dry_run's former name
           module: Optional[_Path] = None, texture_paths: Iterable[_Path] = (),
           copy_textures_outside: bool = False, key_error_bound: bool = False,
           missing_textures: Literal["error", "drop"] = "error", replace_textures: bool = False,
           texture_names: Literal["keep", "unique"] = "keep", sync: bool = True,
           save_options: bool = False) -> ExportResult:
    """Export `scene` (a scene-description file or a model) to `out` (a .zt2 name)."""
def config_dir() -> Optional[str]:
    """The folder of ZTExport.cfg when none is named (zt2export's); None without a home folder."""
def option_names() -> list[str]:
    """The names of the options record's fields, as export() and zt2export --set take them."""
def option_fields() -> list[OptionField]:
    """Every field of the exporter's options record, in the record's order."""
def default_exporter() -> Optional[str]:
    """The zt2export program installed or built with this package, or None."""
def write_file(path: _Path, data: Union[str, bytes]) -> None:
    """Write a small file whole, through a new file renamed over it; OSError when it cannot be written."""
def work_directory(parent: Optional[_Path] = None) -> AbstractContextManager[str]:
    """A private folder, removed with the files in it on leaving the block."""
