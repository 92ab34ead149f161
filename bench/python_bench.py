"""The Python package against the C++ reader, in the same run.

    /usr/bin/python3 bench/python_bench.py BUILD_DIR [ROUNDS]

Writes the whole-run benchmark's grid (mesh_bench --write-scene), exports it
with zt2export as that benchmark does, then reads the export ROUNDS times in turn with the C++ reader
(read_timing, a process of its own, best of three reads) and with
ztexport.read (best of three reads, touching every array of every mesh),
and reports the ratio of the fastest of each. Then times `import ztexport`
in fresh interpreters (the fastest of ten, with the interpreter's own start
taken off, measured the same way with nothing imported).
"""
import os
import subprocess
import sys
import tempfile
import time


def fastest_python_read(path, reads):
    import ztexport
    best = float("inf")
    for _ in range(reads):
        start = time.perf_counter()
        scene = ztexport.read(path)
        for mesh in scene.meshes:
            mesh.positions, mesh.normals, mesh.triangles
            for channel in mesh.map_channels:
                channel.coordinates
        best = min(best, time.perf_counter() - start)
        del scene
    return best


def fastest_start(code, env, runs=10):
    best = float("inf")
    for _ in range(runs):
        start = time.perf_counter()
        subprocess.run([sys.executable, "-c", code], env=env, check=True)
        best = min(best, time.perf_counter() - start)
    return best


def main():
    build = os.path.abspath(sys.argv[1])
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    sys.path.insert(0, os.path.join(build, "python"))
    env = dict(os.environ, PYTHONPATH=os.path.join(build, "python"))
    with tempfile.TemporaryDirectory() as work:
        scene = os.path.join(work, "grid.json")
        grid = os.path.join(work, "grid.zt2")
        subprocess.run([os.path.join(build, "bench", "mesh_bench"), "--write-scene=" + scene], check=True,
                       stdout=subprocess.DEVNULL)
        subprocess.run([os.path.join(build, "zt2export"), scene, "-o", grid, "--config-dir",
                        os.path.join(work, "config"), "--quiet", "--set", "exportSkinning=0", "--set",
                        "exportAnimation=0"], check=True, stdout=subprocess.DEVNULL)
        cpp, python = float("inf"), float("inf")
        for _ in range(rounds):
            out = subprocess.run([os.path.join(build, "bench", "read_timing"), grid, "3"], check=True,
                                 capture_output=True, text=True).stdout
            cpp = min(cpp, float(out.split()[1]))
            python = min(python, fastest_python_read(grid, 3))
        size = os.path.getsize(grid)
    print(f"grid export: {size / 1e6:.1f} MB")
    print(f"C++ reader:      {cpp * 1e3:8.2f} ms")
    print(f"ztexport.read:   {python * 1e3:8.2f} ms")
    print(f"ratio Python / C++: {python / cpp:.3f}")
    bare = fastest_start("pass", env)
    loaded = fastest_start("import ztexport", env)
    print(f"import ztexport: {(loaded - bare) * 1e3:.1f} ms (interpreter start {bare * 1e3:.1f} ms taken off)")


if __name__ == "__main__":
    main()
