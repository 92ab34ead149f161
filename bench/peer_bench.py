#!/usr/bin/env python3
"""The whole tools against their peers, as processes, in one run.

    bench/peer_bench.py BUILD_DIR [--pairs N] [--models N] [--work DIR]

Each row runs our command and its peer alternately, N pairs (default 5), and
prints the medians and their ratio, so that a busy machine moves both sides
alike. Time is wall-clock; processor time (user + system, the process and
every process it waited for) is printed beside it. Peak memory is sampled
from /proc every few milliseconds over the whole process tree, summed, so
that zt2export and its model reader count together. Each run starts after
a sync (untimed), so that no run pays for writing what the one before it left.

Rows (goals in brackets):
  grid, scene file + buffers: zt2export vs `assimp export grid.obj x.glb`, on
    mesh_bench's grid [<= 0.12] and on an independent grid with UV seams
    written here as OBJ and turned into a scene file once [<= 0.25];
  the same vs `gltfpack -i grid.obj -o x.glb`, processor time [<= 1.0];
  peak memory over bytes written, both [<= 3];
  model import path: zt2export reading grid.obj and grid.gltf itself against
    assimp's export of the same file, time and summed peak memory [<= 0.6 / 0.8];
  small real models: per model the median time of zt2export and of
    `assimp export -fglb2`, the median over models of the ratio [<= 1.2];
  the C++ reader (bench/read_timing) against numpy.fromfile of the same
    export, both warm in the page cache [<= 2];
  zt2dump --diff of two equal exports against cmp [<= 2], and of two exports
    differing in every position against cat of both [<= 5];
  growth: whole zt2export runs at three sizes of each shape that once grew
    faster than its input (nodes, materials, a glTF chain's depth, a ramp's
    frames, a steady turn's frames in each frame-to-frame mode, an image
    list's entries), the fastest of N runs of each size; the cost of one more
    unit between the two larger sizes over that between the two smaller ones
    [<= 1.3, 1 being linear].

    bench/peer_bench.py BUILD_DIR --only growth   runs the growth rows alone;
    bench/peer_bench.py BUILD_DIR --only small    the small models alone, each model's times too.
"""
import argparse
import json
import os
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

SOURCE = Path(__file__).resolve().parent.parent


def tree_rss_kib(pid):
    """Resident memory of `pid` and all its descendants, in KiB."""
    total, todo = 0, [pid]
    while todo:
        p = todo.pop()
        try:
            with open(f"/proc/{p}/status") as f:
                for line in f:
                    if line.startswith("VmRSS:"):
                        total += int(line.split()[1])
                        break
            for task in os.listdir(f"/proc/{p}/task"):
                with open(f"/proc/{p}/task/{task}/children") as f:
                    todo += [int(c) for c in f.read().split()]
        except (FileNotFoundError, ProcessLookupError, PermissionError):
            pass
    return total


class Run:
    def __init__(self, wall, cpu, peak_kib):
        self.wall, self.cpu, self.peak_kib = wall, cpu, peak_kib


def run(cmd, cwd=None, stdout=subprocess.DEVNULL, ok=(0,)):
    """Runs `cmd`, sampling the tree's memory; its wall and processor time."""
    # Each run starts with nothing of the last one left to write: the peers do
    # not flush their output, and on ext4 a flush of ours waits for the data
    # the filesystem's journal holds with it, a peer's 30 MB among them.
    os.sync()
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    proc = subprocess.Popen(cmd, cwd=cwd, stdout=stdout, stderr=subprocess.PIPE)
    peak = [0]
    done = threading.Event()

    def sample():
        while not done.is_set():
            peak[0] = max(peak[0], tree_rss_kib(proc.pid))
            done.wait(0.003)

    sampler = threading.Thread(target=sample)
    sampler.start()
    _, err = proc.communicate()
    wall = time.perf_counter() - start
    done.set()
    sampler.join()
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if proc.returncode not in ok:
        raise RuntimeError(f"{' '.join(map(str, cmd))} ended with {proc.returncode}: {err.decode(errors='replace')[-400:]}")
    cpu = (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)
    return Run(wall, cpu, peak[0])


def pairs(n, ours, peer):
    """Alternates the two commands n times; their runs, in order."""
    a, b = [], []
    for _ in range(n):
        a.append(ours())
        b.append(peer())
    return a, b


def med(runs, what):
    return statistics.median(getattr(r, what) for r in runs)


def row(title, goal, a, b, names=("zt2export", "peer")):
    wall = med(a, "wall") / med(b, "wall")
    cpu = med(a, "cpu") / med(b, "cpu") if med(b, "cpu") > 0 else float("nan")
    mem = med(a, "peak_kib") / med(b, "peak_kib") if med(b, "peak_kib") > 0 else float("nan")
    print(f"{title}: {names[0]} {med(a, 'wall') * 1e3:.0f} ms ({med(a, 'cpu') * 1e3:.0f} ms cpu, "
          f"{med(a, 'peak_kib') / 1024:.0f} MiB), {names[1]} {med(b, 'wall') * 1e3:.0f} ms "
          f"({med(b, 'cpu') * 1e3:.0f} ms cpu, {med(b, 'peak_kib') / 1024:.0f} MiB): "
          f"time {wall:.3f}, cpu {cpu:.3f}, memory {mem:.3f}{'  (goal ' + goal + ')' if goal else ''}", flush=True)
    return wall, cpu, mem


def write_seamed_grid(path, n):
    """An n x n quad grid with a UV seam every 16 columns, as plain OBJ."""
    with open(path, "w") as f:
        f.write("# a grid with UV seams\n")
        for j in range(n + 1):
            for i in range(n + 1):
                f.write(f"v {i / n:.6f} {j / n:.6f} {0.01 * ((i * 7 + j * 3) % 5):.6f}\n")
        # Texture coordinates: each strip of 16 columns has its own, so the
        # columns on a strip's border carry two.
        strips = (n + 15) // 16
        for s in range(strips):
            for j in range(n + 1):
                for k in range(17):
                    f.write(f"vt {(k / 16):.6f} {j / n:.6f}\n")
        f.write("vn 0 0 1\n")
        for j in range(n):
            for i in range(n):
                s, k = i // 16, i % 16
                v = lambda a, b: b * (n + 1) + a + 1
                t = lambda b, kk: s * (n + 1) * 17 + b * 17 + kk + 1
                a, b2, c, d = v(i, j), v(i + 1, j), v(i + 1, j + 1), v(i, j + 1)
                ta, tb, tc, td = t(j, k), t(j, k + 1), t(j + 1, k + 1), t(j + 1, k)
                f.write(f"f {a}/{ta}/1 {b2}/{tb}/1 {c}/{tc}/1\nf {a}/{ta}/1 {c}/{tc}/1 {d}/{td}/1\n")


def claimed_extensions(zt2export):
    text = subprocess.run([zt2export, "--help"], capture_output=True, text=True).stdout
    lines = text.split("Model formats")[1].split("\n\n")[0].splitlines()[1:]
    return {e for line in lines for e in line.split()}


# --- growth: scenes of one shape at three sizes ---

def node_scene(count):
    nodes = [{"name": f"N{i}", "object": {"type": "helper"}, "transform": {"position": [i % 100, i // 100, 0]}}
             for i in range(count)]
    return {"animationRange": [0, 10], "nodes": nodes}


def material_scene(count):
    # One mesh of `count` triangles, each in a sub-material of its own.
    vertices = [c for t in range(count) for c in (t, 0, 0, t + 1, 0, 0, t, 1, 0)]
    faces = list(range(3 * count))
    subs = [{"type": "ztMaterial", "name": f"M{i}", "diffuse": [(i % 7) / 7, (i % 5) / 5, (i % 3) / 3]}
            for i in range(count)]
    mesh = {"vertices": vertices, "faces": faces, "materialIds": list(range(count))}
    return {"animationRange": [0, 0],
            "nodes": [{"name": "Tiles", "object": {"type": "mesh", "mesh": mesh},
                       "material": {"type": "multi", "name": "Tiles", "subMaterials": subs}}]}


def ramp_scene(frames):
    keys = [{"frame": 0, "value": [0, 0, 0]}, {"frame": frames, "value": [frames / 100, 0, 0]}]
    return {"animationRange": [0, frames],
            "nodes": [{"name": "Ramp", "object": {"type": "helper"}, "transform": {"position": {"keys": keys}}}]}


def turn_scene(frames):
    keys = [{"frame": 0, "value": {"eulerDegrees": [0, 0, 0]}}, {"frame": frames, "value": {"eulerDegrees": [0, 0, 90]}}]
    return {"animationRange": [0, frames],
            "nodes": [{"name": "Turn", "object": {"type": "helper"}, "transform": {"rotation": {"keys": keys}}}]}


def image_list_scene(entries, folder):
    (folder / "tile.png").write_bytes(bytes.fromhex(
        "89504e470d0a1a0a0000000d4948445200000001000000010802000000907753de0000000c4944415408d763f8cfc000"
        "0003010100c9fe92ef0000000049454e44ae426082"))
    (folder / f"tiles-{entries}.ifl").write_text("tile.png\n" * entries)
    texture = {"id": "t", "type": "ztTexture", "params": {"mapFileName": f"tiles-{entries}.ifl", "sequenceMode": 1}}
    material = {"id": "m", "type": "ztMaterial", "texmaps": ["t"], "params": {"layer1Flag": 1}}
    mesh = {"vertices": [0, 0, 0, 1, 0, 0, 0, 1, 0], "faces": [0, 1, 2], "textureVertices": [0, 0, 0, 1, 0, 0, 0, 1, 0],
            "textureFaces": [0, 1, 2]}
    return {"animationRange": [0, 0], "texmaps": [texture], "materials": [material],
            "nodes": [{"name": "Board", "object": {"type": "mesh", "mesh": mesh}, "material": "m"}]}


def chain_gltf(depth, chains=6):
    # `chains` chains of `depth` nodes, each node a step along x from its parent, a camera at each end. Six
    # chains make a level cost six times a run's fixed cost of starting and saving; a single chain's runs were
    # so short that one slow run of a size moved the ratio by half.
    nodes = []
    for c in range(chains):
        first = len(nodes)
        nodes += [{"name": f"C{c}_{i}", "translation": [1, 0, 0], "children": [first + i + 1]} for i in range(depth)]
        nodes[-1] = {"name": f"C{c}_{depth - 1}", "translation": [1, 0, 0], "camera": 0}
    roots = [c * depth for c in range(chains)]
    return {"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": roots}], "nodes": nodes,
            "cameras": [{"type": "perspective", "perspective": {"yfov": 0.8, "znear": 0.1}}]}


def growth(zt2export, work, n):
    """Prints, per shape, the three sizes' median times and the ratio of the
    marginal cost per unit between the larger sizes to that between the smaller."""
    folder = work / "growth"
    folder.mkdir(exist_ok=True)
    (work / "growth-out").mkdir(exist_ok=True)
    base = ["--set", "exportSkinning=0", "--quiet", "--config-dir", str(work / "cfg")]
    written = str(work / "growth-out" / "chain.scene.json")
    shapes = [
        ("nodes", (2500, 10000, 40000), lambda k: node_scene(k), ".scene.json", []),
        ("materials", (4000, 16000, 64000), lambda k: material_scene(k), ".scene.json", []),
        ("glTF chain depth", (200, 600, 1000), lambda k: chain_gltf(k), ".gltf", []),
        # The same chain written as a scene file too: indented a level a space, a deep chain's file once grew
        # with the square of its depth.
        ("glTF chain depth, --write-scene", (200, 600, 1000), lambda k: chain_gltf(k), ".gltf",
         ["--write-scene", written]),
        ("ramp frames", (40000, 160000, 400000), lambda k: ramp_scene(k), ".scene.json", []),
        ("image list entries", (10000, 40000, 100000), lambda k: image_list_scene(k, folder), ".scene.json", []),
    ] + [(f"turn frames, {mode}", (40000, 80000, 160000), lambda k: turn_scene(k), ".scene.json",
          ["--set", f"frameToFrameInterpolation={mode}"]) for mode in ("none", "normalized", "orthonormalized")]
    for title, sizes, make, suffix, extra in shapes:
        paths = []
        for k in sizes:
            path = folder / f"{title.split()[0]}-{k}{suffix}"
            path.write_text(json.dumps(make(k)))
            paths.append(path)
        times = [[] for _ in sizes]
        # The chain is bounded at 1,000 levels, so a level costs little beside the run's fixed cost: its sizes
        # are spaced evenly, so that neither step is the shorter and the noisier, the file holds six chains
        # (chain_gltf), and three times the runs keep their fastest steady.
        for _ in range(3 * n if title.startswith("glTF chain") else n):  # sizes alternated, so that a busy machine slows each alike
            for i, path in enumerate(paths):
                times[i].append(run([zt2export, str(path), "-o", str(work / "growth-out" / "out.zt2")] + base + extra).cpu)
        t = [min(x) for x in times]  # the fastest run: what the work costs without interference
        small = (t[1] - t[0]) / (sizes[1] - sizes[0])
        large = (t[2] - t[1]) / (sizes[2] - sizes[1])
        ratio = large / small if small > 0 else float("nan")
        print(f"growth, {title}: {', '.join(f'{k:,} in {x * 1e3:.0f} ms' for k, x in zip(sizes, t))} (processor "
              f"time); per unit {small * 1e6:.2f} then {large * 1e6:.2f} us: {ratio:.2f}  (goal <= 1.3)", flush=True)


def small_models(build, work, n, count, each=False):
    """Times the first `count` models of the import library's own models that both programs export; `each`
    prints every model's medians too. Then the floor: a program whose child only loads the readers' module
    (bench/reader_floor.cpp), against the median of the peer's whole exports of the models the library reads."""
    zt2export = str(build / "zt2export")
    out = lambda name: str(work / name)
    corpus = Path(os.environ.get("ZTX_ASSIMP_MODELS", "/usr/share/assimp/models"))
    if corpus.is_dir():
        claimed = claimed_extensions(zt2export)
        models = sorted(p for p in corpus.rglob("*") if p.is_file() and p.suffix[1:].lower() in claimed)
        ratios, ours_ms, peer_ms, read_by_library = [], [], [], []
        for model in models:
            if len(ratios) >= count:
                break
            try:
                run([zt2export, str(model), "-o", out("small.zt2"), "--config-dir", out("cfg"), "--quiet"])
                run(["assimp", "export", str(model), out("small.glb"), "-fglb2"])
            except RuntimeError:
                continue  # only models both export
            a, b = pairs(n, lambda: run([zt2export, str(model), "-o", out("small.zt2"), "--config-dir", out("cfg"),
                                         "--quiet"]),
                         lambda: run(["assimp", "export", str(model), out("small.glb"), "-fglb2"]))
            ours_ms.append(med(a, "wall") * 1e3)
            peer_ms.append(med(b, "wall") * 1e3)
            ratios.append(med(a, "wall") / med(b, "wall"))
            if model.suffix.lower() != ".3ds":  # 3DS files are read by lib3ds, without the module
                read_by_library.append(peer_ms[-1])
            if each:
                print(f"  {model.relative_to(corpus)}: zt2export {ours_ms[-1]:.1f} ms, assimp {peer_ms[-1]:.1f} ms, "
                      f"{ratios[-1]:.2f}", flush=True)
        if ratios:
            print(f"small models ({len(ratios)} of the corpus both export): median zt2export "
                  f"{statistics.median(ours_ms):.0f} ms, assimp {statistics.median(peer_ms):.0f} ms, median ratio "
                  f"{statistics.median(ratios):.3f}  (goal <= 1.2)", flush=True)
        floor = build / "bench" / "reader_floor"
        if read_by_library and floor.exists():
            a = [run([str(floor), str(build / "ZTExportModels.so")]) for _ in range(4 * n)]
            peer = statistics.median(read_by_library)
            print(f"  floor: a child that only loads the readers' module {med(a, 'wall') * 1e3:.1f} ms, assimp's "
                  f"median over the {len(read_by_library)} models the library reads {peer:.1f} ms: "
                  f"{med(a, 'wall') * 1e3 / peer:.3f}", flush=True)



def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("build")
    ap.add_argument("--pairs", type=int, default=5)
    ap.add_argument("--models", type=int, default=40, help="small models of the corpus to time")
    ap.add_argument("--work", help="folder for the grids and outputs (default: a temporary one)")
    ap.add_argument("--only", choices=["growth", "small"], help="run only these rows (small: each model's figures too)")
    args = ap.parse_args()
    build = Path(args.build).resolve()
    zt2export, zt2dump = str(build / "zt2export"), str(build / "zt2dump")
    for tool in ("assimp", "gltfpack", "cmp", "cat"):
        if not shutil.which(tool):
            sys.exit(f"peer_bench: {tool} not found (tools/setup.sh --tests installs the peers)")
    work = Path(args.work or tempfile.mkdtemp(prefix="ztx-peer-bench-"))
    work.mkdir(parents=True, exist_ok=True)
    n = args.pairs
    off = ["--set", "exportSkinning=0", "--set", "exportAnimation=0", "--quiet", "--config-dir", str(work / "cfg")]
    print(f"peer_bench: {n} pairs per row, in {work}", flush=True)
    if args.only == "growth":
        growth(zt2export, work, n)
        return
    if args.only == "small":
        small_models(build, work, n, args.models, each=True)
        return

    # The grids: mesh_bench's (scene file and OBJ), and an independent one.
    mesh_bench = str(build / "bench" / "mesh_bench")
    subprocess.run([mesh_bench, f"--write-scene={work / 'grid.json'}"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run([mesh_bench, f"--write-obj={work / 'grid.obj'}"], check=True, stdout=subprocess.DEVNULL)
    write_seamed_grid(work / "seams.obj", 708)  # 1,002,528 triangles
    subprocess.run([zt2export, str(work / "seams.obj"), "--write-scene", str(work / "seams.scene.json"), "-o",
                    str(work / "seams-once.zt2")] + off, check=True)
    # In a folder of its own: its buffer would be grid.bin too.
    (work / "gltf").mkdir(exist_ok=True)
    subprocess.run(["assimp", "export", str(work / "grid.obj"), str(work / "gltf" / "grid.gltf")], check=True,
                   stdout=subprocess.DEVNULL)

    out = lambda name: str(work / name)
    a, b = pairs(n, lambda: run([zt2export, out("grid.json"), "-o", out("g.zt2")] + off),
                 lambda: run(["assimp", "export", out("grid.obj"), out("g-assimp.glb")]))
    row("grid, scene file + buffers vs assimp", "<= 0.12", a, b, ("zt2export", "assimp"))
    a, b = pairs(n, lambda: run([zt2export, out("seams.scene.json"), "-o", out("s.zt2")] + off),
                 lambda: run(["assimp", "export", out("seams.obj"), out("s-assimp.glb")]))
    row("independent grid with UV seams, scene file + buffers vs assimp", "<= 0.25", a, b, ("zt2export", "assimp"))
    a, b = pairs(n, lambda: run([zt2export, out("grid.json"), "-o", out("g.zt2")] + off),
                 lambda: run(["gltfpack", "-i", out("grid.obj"), "-o", out("g-pack.glb")]))
    row("grid, scene file + buffers vs gltfpack", "cpu <= 1.0", a, b, ("zt2export", "gltfpack"))
    written = os.path.getsize(out("g.zt2"))
    packed = os.path.getsize(out("g-pack.glb"))
    print(f"peak memory / bytes written: zt2export {med(a, 'peak_kib') * 1024 / written:.2f} "
          f"({med(a, 'peak_kib') / 1024:.0f} MiB for {written / 2**20:.1f} MiB), gltfpack "
          f"{med(b, 'peak_kib') * 1024 / packed:.2f} ({med(b, 'peak_kib') / 1024:.0f} MiB for {packed / 2**20:.1f} MiB)"
          f"  (goal <= 3)", flush=True)

    for model in ("grid.obj", "gltf/grid.gltf"):
        a, b = pairs(n, lambda: run([zt2export, out(model), "-o", out("m.zt2")] + off),
                     lambda: run(["assimp", "export", out(model), out("m-assimp.glb")]))
        row(f"import path, {model} vs assimp", "time <= 0.6, memory <= 0.8", a, b, ("zt2export", "assimp"))

    small_models(build, work, n, args.models)

    # The reader against numpy.fromfile, each timed inside its own process
    # (the median of five reads), so that neither program's start counts.
    read_timing = str(build / "bench" / "read_timing")
    numpy_read = ("import numpy, statistics, sys, time\n"
                  "t = []\n"
                  "for _ in range(5):\n"
                  "    s = time.perf_counter(); numpy.fromfile(sys.argv[1], dtype=numpy.uint8)\n"
                  "    t.append(time.perf_counter() - s)\n"
                  "print('median', statistics.median(t))\n")
    median_of = lambda text: float(next(l.split()[1] for l in text.splitlines() if l.startswith("median")))
    ours, theirs = [], []
    for _ in range(n):
        ours.append(median_of(subprocess.run([read_timing, out("g.zt2"), "5"], capture_output=True, text=True,
                                             check=True).stdout))
        theirs.append(median_of(subprocess.run([sys.executable, "-c", numpy_read, out("g.zt2")], capture_output=True,
                                               text=True, check=True).stdout))
    print(f"reader of a {written / 2**20:.0f} MiB export, in process: read_timing {statistics.median(ours) * 1e3:.1f} ms, "
          f"numpy.fromfile {statistics.median(theirs) * 1e3:.1f} ms: ratio "
          f"{statistics.median(ours) / statistics.median(theirs):.3f}  (goal <= 2)", flush=True)

    shutil.copyfile(out("g.zt2"), out("g-copy.zt2"))
    a, b = pairs(n, lambda: run([zt2dump, "--diff", out("g.zt2"), out("g-copy.zt2")]),
                 lambda: run(["cmp", out("g.zt2"), out("g-copy.zt2")]))
    row("zt2dump --diff of equal exports vs cmp", "<= 2", a, b, ("zt2dump", "cmp"))
    subprocess.run([zt2export, out("grid.json"), "-o", out("moved.zt2"), "--set", "rescale=1", "--set",
                    "rescaleFactor=2"] + off, check=True)
    a, b = pairs(n, lambda: run([zt2dump, "--diff", out("g.zt2"), out("moved.zt2")], ok=(1,)),
                 lambda: run(["cat", out("g.zt2"), out("moved.zt2")]))
    row("zt2dump --diff of exports differing everywhere vs cat of both", "<= 5", a, b, ("zt2dump", "cat"))
    growth(zt2export, work, n)
    if not args.work:
        shutil.rmtree(work)


if __name__ == "__main__":
    main()
