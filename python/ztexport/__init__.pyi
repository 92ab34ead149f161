# Types of the ztexport package, for editors and type checkers.
import os
from typing import Iterable, NamedTuple, Optional, Sequence, Union

import numpy as np
import numpy.typing as npt

__version__: str

_Path = Union[str, bytes, os.PathLike[str], os.PathLike[bytes]]  # no NUL: ValueError
_Value = Union[bool, int, float, str]
_F32 = npt.NDArray[np.float32]

class FormatError(Exception):
    # Every failure to read. One of kind "unreadable" is an UnreadableFileError.
    path: str
    offset: int
    chunk: str
    kind: str  # "unreadable", "corrupt" or "wrongKind"

class UnreadableFileError(FormatError, OSError): ...  # errno and filename set where the system gave a reason
class MissingFileError(UnreadableFileError, FileNotFoundError): ...

class ExportError(RuntimeError): ...

class Keys:
    # (n,) uint32 sample numbers and the values: (n, 4, 3) transforms, (n, 4)
    # colours or (n,) floats; read-only views of the same records.
    samples: npt.NDArray[np.uint32]
    values: _F32
    def __len__(self) -> int: ...

# Names are decoded from the host's code page (Windows-1252, every byte a
# character); each has its bytes as they stand in the file beside it (_bytes).
class Node:
    name: str
    name_bytes: bytes
    parent: Optional[str]
    parent_bytes: Optional[bytes]
    transform: _F32  # (4, 3): rows 0..2 the axes, row 3 the translation
    user_properties: str
    user_properties_bytes: bytes
    offset: int
    order: int

class _Object:
    node: Node
    name: str
    name_bytes: bytes
    parent: Optional[str]
    parent_bytes: Optional[bytes]
    transform: _F32

class MapChannel:
    channel: int
    coordinates: _F32  # (n, 3): u, -v, 0
    group_counts: npt.NDArray[np.uint32]

class MeshGroup:
    material: str
    material_bytes: bytes
    first_vertex: int
    vertex_count: int
    first_triangle: int
    triangle_count: int

class Mesh(_Object):
    positions: _F32  # (n, 3) float32
    normals: _F32  # (n, 3) float32, unit length or zero
    triangles: npt.NDArray[np.uint16]  # (m, 3), local to the triangle's group
    group_vertex_counts: npt.NDArray[np.uint32]
    group_triangle_counts: npt.NDArray[np.uint32]
    material_names: list[str]
    material_names_bytes: list[bytes]
    map_channels: list[MapChannel]
    reference_name: Optional[str]
    reference_name_bytes: Optional[bytes]
    def groups(self) -> list[MeshGroup]: ...

class Camera(_Object):
    fov: float
    near: float
    far: float

class Light(_Object):
    type: str  # "omni", "directional" or "spot"
    colour: tuple[float, float, float, float]
    intensity: float
    attenuation_start: float
    attenuation_end: float
    hotspot: float
    falloff: float

class Helper(_Object):
    class_name: str
    class_name_bytes: bytes

class Environment:
    ambient: tuple[int, int, int, int]
    background: tuple[int, int, int, int]

class Texture:
    name: str
    name_bytes: bytes
    value: int
    mode: int
    file_names: list[str]
    file_names_bytes: list[bytes]

class Material:
    name: str
    name_bytes: bytes
    ambient: tuple[float, float, float, float]
    diffuse: tuple[float, float, float, float]
    specular: tuple[float, float, float, float]
    layers: list[Optional[Texture]]  # layer 1 to 5

class MaterialList:
    texture_path: str
    texture_path_bytes: bytes
    materials: list[Material]

class TransformAnimation:
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
    name: str
    name_bytes: bytes
    type: str
    sample_rate: int
    num_samples: int
    colour_keys: Keys
    intensity_keys: Keys
    attenuation_start_keys: Keys
    attenuation_end_keys: Keys
    hotspot_keys: Keys
    falloff_keys: Keys
    order: int

class SkippedChunk:
    id: int
    version: int
    offset: int
    name: str

class Scene:
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
    def nodes(self) -> list[Node]: ...
    def find_node(self, name: Union[str, bytes]) -> Optional[Node]: ...

class SkinData:
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
    path: str
    version: int
    newer_version: bool
    def as_dict(self) -> dict[str, Union[int, float, list[str]]]: ...
    def __getitem__(self, name: str) -> Union[int, float, list[str]]: ...
    def __contains__(self, name: str) -> bool: ...
    def __len__(self) -> int: ...

class Difference:
    kind: str  # "added", "removed", "changed" or "moved"
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
    old_path: str
    new_path: str
    equal: bool
    differences: list[Difference]
    text: str
    def to_json(self) -> str: ...
    def __len__(self) -> int: ...

class Message(NamedTuple):
    kind: str  # "info", "warning", "error", "text", "messageBox" or "note"
    text: str

class ExportResult:
    status: int
    messages: list[Message]
    files: list[str]
    output: str
    @property
    def ok(self) -> bool: ...

def read(path: _Path) -> Union[Scene, SkinData, Options]: ...
def read_scene(path: _Path) -> Scene: ...
def read_skin(path: _Path) -> SkinData: ...
def read_options(path: _Path) -> Options: ...
def diff(a: _Path, b: _Path, tolerance: float = 0.0) -> Diff: ...
def export(scene: _Path, out: _Path, options: Optional[dict[str, _Value]] = None,
           config_dir: Optional[_Path] = None, dry_run: bool = False, *,
           check: bool = False,  # deprecated: dry_run's former name
           module: Optional[_Path] = None, texture_paths: Iterable[_Path] = (),
           copy_textures_outside: bool = False) -> ExportResult: ...
def option_names() -> list[str]: ...
