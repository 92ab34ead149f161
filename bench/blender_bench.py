"""The Blender add-on's whole export against zt2export on the same scene, in one run.

    PYTHONPATH=build/python:blender blender -b --factory-startup -noaudio --python-exit-code 1 \
        --python bench/blender_bench.py -- [--pairs 5] [--triangles 1000000] [--exporter PATH]

Builds a grid of about --triangles triangles in Blender (one UV map, one
material) and writes the scene description the add-on gathers for it once
into a temporary folder. Then it alternates, --pairs times:
  (a) the add-on's export, bpy.ops.export_scene.zt2(filepath=...), timed in
      this process: gathering the scene, writing the document into its work
      folder and running the exporter module on it;
  (b) zt2export as a process on the written document, with the same options.
It prints the medians of both, their ratio (a)/(b) in this run (a busy
machine moves both sides alike), the parts of (a) (gathering, writing the
document, the exporter module) and whether the two files are the same
bytes, as they should be.

Both sides export without animation and skinning, from the default options
(a configuration folder of this run's own). --exporter defaults to the
zt2export the package was built with.
"""

import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time

import bpy
import ztexport

import io_scene_zt2
from io_scene_zt2 import gather as _gather


def arguments():
    argv = sys.argv[sys.argv.index("--") + 1:] if "--" in sys.argv else []
    parser = argparse.ArgumentParser(prog="blender_bench.py", description=__doc__.splitlines()[0])
    parser.add_argument("--pairs", type=int, default=5)
    parser.add_argument("--triangles", type=int, default=1000000)
    parser.add_argument("--exporter", default=ztexport.default_exporter())
    return parser.parse_args(argv)


def build_grid(triangles):
    """A square grid of about `triangles` triangles, with the primitive's UV map and one material."""
    bpy.ops.wm.read_factory_settings(use_empty=True)
    side = max(1, round((triangles / 2) ** 0.5))
    bpy.ops.mesh.primitive_grid_add(x_subdivisions=side, y_subdivisions=side, size=10.0)
    grid = bpy.context.active_object
    material = bpy.data.materials.new("Grid")
    material.use_nodes = True
    grid.data.materials.append(material)
    return len(grid.data.polygons) * 2


def main():
    args = arguments()
    work = tempfile.TemporaryDirectory(prefix="zt2-blender-bench-")
    config = os.path.join(work.name, "config")
    os.makedirs(config)
    # The default options on both sides, not the user's saved ones.
    os.environ["XDG_CONFIG_HOME"] = os.path.join(work.name, "xdg")
    io_scene_zt2.register()
    triangles = build_grid(args.triangles)

    # The operator's parts, timed through the module attributes it calls.
    parts = {"gather": [], "write": [], "export": []}
    plain_gather = _gather.gather

    def timed(part, function):
        def call(*a, **k):
            start = time.perf_counter()
            try:
                return function(*a, **k)
            finally:
                parts[part].append(time.perf_counter() - start)
        return call

    _gather.gather = timed("gather", plain_gather)
    io_scene_zt2.write_document = timed("write", io_scene_zt2.write_document)
    ztexport.export = timed("export", ztexport.export)

    document_folder = os.path.join(work.name, "document")
    os.makedirs(document_folder)
    document = io_scene_zt2.write_document(plain_gather(bpy.context, animation=False), document_folder)
    addon_out = os.path.join(work.name, "addon.zt2")
    process_out = os.path.join(work.name, "zt2export.zt2")
    command = [args.exporter, document, "-o", process_out, "--quiet", "--config-dir", config,
               "--set", "exportAnimation=0", "--set", "exportSkinning=0"]
    print("blender_bench: %d triangles, %d pairs; zt2export %s" % (triangles, args.pairs, args.exporter), flush=True)

    addon_wall, addon_cpu, process_wall, process_cpu = [], [], [], []
    for _ in range(args.pairs):
        start, cpu = time.perf_counter(), time.process_time()
        result = bpy.ops.export_scene.zt2(filepath=addon_out, exportAnimation=False, saveOptions=False)
        addon_wall.append(time.perf_counter() - start)
        addon_cpu.append(time.process_time() - cpu)
        if result != {"FINISHED"}:
            sys.exit("blender_bench: the export operator answered %s" % result)

        before = os.times()
        start = time.perf_counter()
        run = subprocess.run(command, capture_output=True, text=True)
        process_wall.append(time.perf_counter() - start)
        after = os.times()
        process_cpu.append(after.children_user - before.children_user + after.children_system -
                           before.children_system)
        if run.returncode != 0:
            sys.exit("blender_bench: zt2export ended with %d: %s%s" % (run.returncode, run.stdout, run.stderr))

    with open(addon_out, "rb") as a, open(process_out, "rb") as b:
        same = a.read() == b.read()
    med = statistics.median
    shares = ", ".join("%s %.0f ms (%.0f%%)" % (part, med(times) * 1e3,
                                                100.0 * med(t / w for t, w in zip(times, addon_wall)))
                       for part, times in parts.items())
    print("blender_bench: add-on export %.0f ms (%.0f ms cpu; %s), zt2export %.0f ms (%.0f ms cpu): "
          "time %.2f, cpu %.2f; files %s" %
          (med(addon_wall) * 1e3, med(addon_cpu) * 1e3, shares, med(process_wall) * 1e3, med(process_cpu) * 1e3,
           med(addon_wall) / med(process_wall), med(addon_cpu) / med(process_cpu), "equal" if same else "DIFFER"),
          flush=True)
    work.cleanup()
    if not same:
        sys.exit("blender_bench: the add-on's file and zt2export's differ")


main()
