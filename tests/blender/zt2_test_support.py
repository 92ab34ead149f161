"""Shared steps of the Blender add-on tests, run inside `blender -b --python`.

ZT2DUMP and ZT2EXPORT name the zt2dump and zt2export programs; PYTHONPATH holds the build's python folder
and the add-on's folder.
"""

import os
import subprocess
import sys
import tempfile

import bpy
import numpy as np
import ztexport

import io_scene_zt2

_work = tempfile.TemporaryDirectory(prefix="zt2-blender-test-")
# No saved options of the user: every export starts from the record's defaults.
os.environ["XDG_CONFIG_HOME"] = os.path.join(_work.name, "config")
os.makedirs(os.environ["XDG_CONFIG_HOME"])


def fail(message):
    print("FAIL: " + message)
    sys.stdout.flush()
    sys.exit(1)


def check(condition, message):
    if not condition:
        fail(message)


def new_scene():
    bpy.ops.wm.read_factory_settings(use_empty=True)
    if not hasattr(bpy.types, "EXPORT_SCENE_OT_zt2"):
        io_scene_zt2.register()
    return bpy.context.scene


def export(name, **options):
    """Runs the operator; returns the path of the valid .zt2 it wrote."""
    path = os.path.join(_work.name, name + ".zt2")
    result = bpy.ops.export_scene.zt2(filepath=path, **options)
    check(result == {"FINISHED"}, "%s: the export operator answered %s" % (name, result))
    dump = subprocess.run([os.environ["ZT2DUMP"], "--validate", path], capture_output=True, text=True)
    check(dump.returncode == 0, "%s: zt2dump --validate failed (%d):\n%s%s" %
          (name, dump.returncode, dump.stdout, dump.stderr))
    return path


def same_bytes_as_zt2export(path, sets):
    """Gathers the scene again, writes the document beside `path` and exports it
    with zt2export and the same option edits: true when the bytes equal `path`'s."""
    folder = path[:-len(".zt2")] + "-document"
    os.makedirs(folder)
    scene_path = io_scene_zt2.write_document(io_scene_zt2.gather.gather(bpy.context), folder)
    again = path[:-len(".zt2")] + "-zt2export.zt2"
    command = [os.environ["ZT2EXPORT"], scene_path, "-o", again, "--quiet"]
    for name, value in sets.items():
        command += ["--set", "%s=%s" % (name, value)]
    run = subprocess.run(command, capture_output=True, text=True)
    check(run.returncode == 0, "zt2export failed (%d): %s%s" % (run.returncode, run.stdout, run.stderr))
    with open(path, "rb") as a, open(again, "rb") as b:
        return a.read() == b.read()


def matrix(rows):
    m = np.identity(4)
    m[:, :3] = np.asarray(rows, np.float64)
    return m


def world_matrix(scene, node):
    """A node's transform in the file, its parents' applied (row vectors)."""
    m = matrix(node.transform)
    parent = node.parent
    while parent:
        up = scene.find_node(parent)
        check(up is not None, "node %r names a parent %r that is not in the file" % (node.name, parent))
        m = m @ matrix(up.transform)
        parent = up.parent
    return m


def exported_world_positions(scene, mesh):
    points = np.hstack([np.asarray(mesh.positions, np.float64), np.ones((len(mesh.positions), 1))])
    return (points @ world_matrix(scene, mesh.node))[:, :3]


def blender_world_positions(obj):
    """Blender's evaluated world positions in the file's units (the scene's unit
    scale applied) and axes (the host's Z up turned to Y up: (x, y, z) is (x, z, y))."""
    depsgraph = bpy.context.evaluated_depsgraph_get()
    evaluated = obj.evaluated_get(depsgraph)
    mesh = evaluated.to_mesh()
    co = np.empty(len(mesh.vertices) * 3, np.float32)
    mesh.vertices.foreach_get("co", co)
    evaluated.to_mesh_clear()
    world = np.array(evaluated.matrix_world, np.float64)
    points = np.hstack([co.reshape(-1, 3).astype(np.float64), np.ones((len(co) // 3, 1))])
    return to_file_axes((points @ world.T)[:, :3] * bpy.context.scene.unit_settings.scale_length)


def to_file_axes(points):
    return np.asarray(points, np.float64)[..., [0, 2, 1]]


def position_deviation(scene, obj):
    """The largest distance from an exported vertex to the nearest of Blender's
    evaluated world vertices and back: the file's vertices are split along seams
    and sharp edges, so they are matched as sets."""
    mesh = next((m for m in scene.meshes if m.name == obj.name), None)
    check(mesh is not None, "mesh %r is not in the file" % obj.name)
    return set_deviation(exported_world_positions(scene, mesh), blender_world_positions(obj))


def set_deviation(a, b):
    """The largest distance from a point of either set to the nearest of the other."""
    distances = np.linalg.norm(a[:, None, :] - b[None, :, :], axis=2)
    return max(distances.min(axis=1).max(), distances.min(axis=0).max())


def report(scene_name, deviation, tolerance=1e-4):
    print("blender %s: largest position deviation %.3g" % (scene_name, deviation))
    check(deviation <= tolerance, "%s: position deviation %.3g exceeds %.3g" % (scene_name, deviation, tolerance))


def read(path):
    return ztexport.read(path)
