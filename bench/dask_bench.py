"""The local Dask cluster (python3 -m ztexport.batch) against zt2export --batch, in the same run.

    /usr/bin/python3 bench/dask_bench.py BUILD_DIR [SCENES] [ROUNDS] [WORKERS]

Builds a tree of SCENES copies of the example scene (default 1,000) in a
temporary directory, then, ROUNDS times in turn (default 1), exports it with
`zt2export --batch -j WORKERS` and with `python3 -m ztexport.batch --workers
WORKERS` (default 2), each into an empty directory and then again over its
own, up-to-date output. The up-to-date run costs what is not per export: for
the cluster its start and stop. Prints the medians, the cluster's ratio to the
batch, and its overhead per file with the fixed costs taken off:
((cluster first - cluster up to date) - (batch first - batch up to date)) / SCENES.
"""
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time


def timed(command, env):
    start = time.perf_counter()
    subprocess.run(command, env=env, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return time.perf_counter() - start


def main():
    build = os.path.abspath(sys.argv[1])
    scenes = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 1
    workers = sys.argv[4] if len(sys.argv) > 4 else "2"
    source_dir = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "examples")
    zt2export = os.path.join(build, "zt2export")
    env = dict(os.environ, PYTHONPATH=os.path.join(build, "python"))
    work = tempfile.mkdtemp()
    try:
        src = os.path.join(work, "src")
        os.makedirs(os.path.join(src, "textures"))
        for name in os.listdir(os.path.join(source_dir, "textures")):
            shutil.copy(os.path.join(source_dir, "textures", name), os.path.join(src, "textures"))
        with open(os.path.join(source_dir, "example.scene.json"), "rb") as f:
            scene = f.read()
        for k in range(scenes):
            with open(os.path.join(src, "scene%04d.scene.json" % k), "wb") as f:
                f.write(scene)
        times = {key: [] for key in ("batch", "batch again", "dask", "dask again")}
        for _ in range(rounds):
            for key, command in (("batch", [zt2export, "--batch", src, "-o", None, "-j", workers, "--quiet"]),
                                 ("dask", [sys.executable, "-m", "ztexport.batch", src, None, "--workers", workers,
                                           "--exporter", zt2export])):
                out = os.path.join(work, key)
                shutil.rmtree(out, ignore_errors=True)
                command = [out if part is None else part for part in command]
                times[key].append(timed(command, env))
                times[key + " again"].append(timed(command, env))
                shutil.rmtree(out)
        median = {key: statistics.median(values) for key, values in times.items()}
        for key, value in median.items():
            print("%-12s %8.3f s" % (key, value))
        print("dask / batch, first run: %.2fx" % (median["dask"] / median["batch"]))
        per_file = ((median["dask"] - median["dask again"]) - (median["batch"] - median["batch again"])) / scenes
        print("cluster start and stop (up-to-date run, dask - batch): %.2f s" %
              (median["dask again"] - median["batch again"]))
        print("cluster overhead per file: %.2f ms (batch's time per file: %.2f ms; ratio %.2fx)" % (
            per_file * 1000, (median["batch"] - median["batch again"]) / scenes * 1000,
            (median["dask"] - median["dask again"]) / (median["batch"] - median["batch again"])))
    finally:
        shutil.rmtree(work)


if __name__ == "__main__":
    main()
