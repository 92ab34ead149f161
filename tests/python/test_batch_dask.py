"""python3 -m ztexport.batch against zt2export --batch: a small tree exported
serially, with -j 2, on a two-worker local Dask cluster, and on a cluster
that loses workers mid-run, gives the same files and the same manifest (but
for its timings and the output directory's name). The cluster keeps the
batch's rules: one batch per output directory, folders it did not make left
alone, texture copies of one name from different images refused, every
per-export option handed on, and a Ctrl-C that reports what was exported.

    test_batch_dask.py SOURCE_DIR ZT2EXPORT   (ztexport importable, e.g. PYTHONPATH=build/python)
"""
import fcntl
import json
import logging
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

SOURCE, ZT2EXPORT = sys.argv[1], sys.argv[2]
SKIPPED = 77

try:
    import dask
    import distributed
except ImportError:
    print("skipped: Dask distributed is not importable (Debian: python3-distributed)")
    sys.exit(SKIPPED)

from ztexport import batch

COPIES = 4  # each a scene and a model: 8 inputs


def files_of(folder):
    """Every file under `folder` but the manifest and the work directories
    that dead workers left (looked at on their own), by relative path, with its bytes."""
    found = {}
    for root, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(root, name)
            relative = os.path.relpath(path, folder)
            if relative != "ztexport-manifest.json" and not relative.startswith(".ztexport-work."):
                with open(path, "rb") as f:
                    found[relative] = f.read()
    return found


def manifest_of(folder):
    """The manifest with what differs between any two runs taken out."""
    with open(os.path.join(folder, "ztexport-manifest.json"), encoding="utf-8") as f:
        manifest = json.load(f)
    assert manifest.pop("output") == folder
    del manifest["seconds"]
    for record in manifest["files"]:
        del record["seconds"]
        # Two inputs of one folder share its texture copies: which of them
        # makes a copy and which finds it there depends on the order they end.
        record["messages"] = [m.replace(folder + "/", "OUT/") for m in record["messages"]
                              if not (m.startswith("INFO: Texture ") and
                                      (" copied to " in m or m.endswith("already exists - file not overwritten.")))]
    return manifest


class DaskBatchTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.mkdtemp()
        cls.source = os.path.join(cls.work, "src")
        for k in range(COPIES):
            shutil.copytree(os.path.join(SOURCE, "examples"), os.path.join(cls.source, "s%d" % k))
        cls.serial = cls.run_zt2export("serial", "-j", "1")
        cls.expected_files = files_of(cls.serial)
        cls.expected_manifest = manifest_of(cls.serial)
        assert len(cls.expected_manifest["files"]) == 2 * COPIES

        # One cluster the tests share, whose workers obey the kill hook.
        cls.hooks = os.path.join(cls.work, "hooks")
        os.mkdir(cls.hooks)
        os.environ[batch.KILL_HOOK] = cls.hooks
        # As ztexport.batch's own cluster: a worker holds only the task it runs.
        dask.config.set({"distributed.scheduler.worker-saturation": 1.0})
        cls.cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                               dashboard_address=None, silence_logs=logging.CRITICAL)
        cls.client = distributed.Client(cls.cluster)

    @classmethod
    def tearDownClass(cls):
        cls.client.close()
        cls.cluster.close()
        shutil.rmtree(cls.work)

    @classmethod
    def run_zt2export(cls, name, *options):
        out = os.path.join(cls.work, name)
        run = subprocess.run([ZT2EXPORT, "--batch", cls.source, "-o", out, *options],
                             capture_output=True, text=True)
        assert run.returncode == 0, run.stderr
        return out

    def run_dask(self, name, *options):
        out = os.path.join(self.work, name)
        run = subprocess.run([sys.executable, "-m", "ztexport.batch", self.source, out, "--exporter", ZT2EXPORT,
                              *options], capture_output=True, text=True)
        return out, run

    def assertSameAsSerial(self, out):
        self.assertEqual(sorted(files_of(out)), sorted(self.expected_files))
        self.assertEqual(files_of(out), self.expected_files)
        self.assertEqual(manifest_of(out), self.expected_manifest)

    def test_jobs_and_local_cluster_give_the_serial_bytes(self):
        self.assertSameAsSerial(self.run_zt2export("parallel", "-j", "2"))
        out, run = self.run_dask("local", "--workers", "2")
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertIn("dashboard at http", run.stderr)
        self.assertSameAsSerial(out)

        # The stamps are the C++ batch's: a second run, on another cluster, exports nothing.
        _, again = self.run_dask("local", "--scheduler", self.cluster.scheduler_address)
        self.assertEqual(again.returncode, 0, again.stderr)
        self.assertEqual(manifest_of(out)["counts"]["up to date"], 2 * COPIES)
        self.assertIn("0 exported, %d up to date" % (2 * COPIES), again.stderr)

    def test_bad_command_lines_exit_2_and_write_nothing(self):
        for options, message in ((["--workers", "-1"], "--workers needs a number of workers of 1 or more"),
                                 (["--set", "rescale"], "--set rescale: expected FIELD=VALUE"),
                                 (["--exporter", os.path.join(self.work, "none")], "cannot run the exporter")):
            out, run = self.run_dask("bad", *options)
            self.assertEqual(run.returncode, 2, run.stderr)
            self.assertIn(message, run.stderr)
            self.assertFalse(os.path.exists(out))
        run = subprocess.run([sys.executable, "-m", "ztexport.batch", os.path.join(self.work, "nowhere"),
                              os.path.join(self.work, "bad")], capture_output=True, text=True)
        self.assertEqual(run.returncode, 2)
        self.assertIn("nowhere: not a directory", run.stderr)
        self.assertFalse(os.path.exists(os.path.join(self.work, "bad")))
        # A NUL would end the name early where the system reads it.
        with self.assertRaisesRegex(ValueError, "output_dir: a path cannot hold a NUL"):
            batch.run({"source_dir": self.work, "output_dir": os.path.join(self.work, "bad\0x")})
        self.assertFalse(os.path.exists(os.path.join(self.work, "bad")))

    def test_a_worker_killed_mid_run_loses_nothing(self):
        self.client.wait_for_workers(2)
        pids = set(self.client.run(os.getpid).values())
        self.assertEqual(len(pids), 2)
        # One worker dies as an export starts, one after an export put its
        # files in place but before its record went back (exported again).
        hooks = {"kill-once": "s2/crate.3ds", "kill-once-after": "s0/example.scene.json"}
        for name, input_name in hooks.items():
            with open(os.path.join(self.hooks, name), "w", encoding="utf-8") as f:
                f.write(input_name + "\n")
        try:
            out, run = self.run_dask("killed", "--scheduler", self.cluster.scheduler_address)
        finally:
            for name in hooks:
                os.remove(os.path.join(self.hooks, name))
        self.assertEqual(run.returncode, 0, run.stderr)
        for name, input_name in hooks.items():
            self.assertTrue(os.path.exists(os.path.join(self.hooks, "killed-%s-%s" % (name, input_name.replace("/", "%")))))
        alive = set()
        for pid in pids:
            try:
                os.kill(pid, 0)
                alive.add(pid)
            except ProcessLookupError:
                pass
        self.assertLess(len(alive), len(pids))  # workers died, their files went elsewhere
        self.assertSameAsSerial(out)
        # A dead worker's work directory holds nothing but the mark that it is
        # a batch's, and the next run removes it.
        work_dirs = [name for name in os.listdir(out) if name.startswith(".ztexport-work")]
        self.assertEqual([files_of(os.path.join(out, name)) for name in work_dirs],
                         [{".ztexport-work-marker": b""}] * len(work_dirs))
        _, again = self.run_dask("killed", "--scheduler", self.cluster.scheduler_address)
        self.assertIn("0 exported, %d up to date" % (2 * COPIES), again.stderr)
        self.assertEqual([name for name in os.listdir(out) if name.startswith(".ztexport-work")], [])

    def test_a_file_that_kills_every_worker_fails_alone(self):
        with open(os.path.join(self.hooks, "kill-always"), "w", encoding="utf-8") as f:
            f.write("s1/example.scene.json\n")
        try:
            out, run = self.run_dask("deadly", "--scheduler", self.cluster.scheduler_address)
        finally:
            os.remove(os.path.join(self.hooks, "kill-always"))
        self.assertEqual(run.returncode, 1, run.stderr)
        self.assertIn("ztexport.batch: s1/example.scene.json: failed", run.stderr)
        manifest = manifest_of(out)
        self.assertEqual(manifest["exitStatus"], 1)
        self.assertEqual(manifest["counts"]["exported"], 2 * COPIES - 1)
        for got, want in zip(manifest["files"], self.expected_manifest["files"]):
            if got["input"] == "s1/example.scene.json":
                self.assertEqual(got["status"], "failed")
                self.assertEqual(got["outputs"], [])
                self.assertEqual(got["messages"], [batch.KILLED_MESSAGE])
            else:
                self.assertEqual(got, want)
        got = files_of(out)
        for name, data in got.items():
            self.assertEqual(data, self.expected_files[name], name)
        for record in manifest["files"]:
            for name in record["outputs"]:
                self.assertIn(name, got)
        missing = set(self.expected_files) - set(got)
        self.assertIn("s1/example.zt2", missing)
        self.assertTrue(all(name.startswith("s1/") for name in missing), missing)

    def tree(self, name, files):
        """A source tree of its own: {relative path: text, or the repository file to copy}."""
        root = os.path.join(self.work, name)
        for relative, content in files.items():
            path = os.path.join(root, relative)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            if isinstance(content, tuple):
                shutil.copyfile(os.path.join(SOURCE, *content), path)
            else:
                with open(path, "w", encoding="utf-8") as f:
                    f.write(content)
        return root

    def run_dask_on(self, source, out, *options, **popen):
        return subprocess.run([sys.executable, "-m", "ztexport.batch", source, out, "--exporter", ZT2EXPORT,
                               *options], capture_output=True, text=True, **popen)

    def test_one_batch_at_a_time_and_folders_not_ours_stay(self):
        out = os.path.join(self.work, "locked")
        os.makedirs(os.path.join(out, ".ztexport-work.99999"))
        with open(os.path.join(out, ".ztexport-work.99999", "notes.txt"), "w", encoding="utf-8") as f:
            f.write("mine")
        with open(os.path.join(out, ".ztexport-batch.lock"), "a") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            run = self.run_dask_on(self.source, out, "--scheduler", self.cluster.scheduler_address)
        self.assertEqual(run.returncode, 2, run.stderr)
        self.assertIn(out + ": another batch is exporting into this directory", run.stderr)
        self.assertFalse(os.path.exists(os.path.join(out, "ztexport-manifest.json")))
        run = self.run_dask_on(self.source, out, "--scheduler", self.cluster.scheduler_address)
        self.assertEqual(run.returncode, 0, run.stderr)
        with open(os.path.join(out, ".ztexport-work.99999", "notes.txt"), encoding="utf-8") as f:
            self.assertEqual(f.read(), "mine")
        self.assertEqual([n for n in os.listdir(out) if n.startswith(".ztexport-work")], [".ztexport-work.99999"])

    def test_texture_copies_of_one_name_and_the_per_export_options(self):
        def obj(image):
            return "mtllib %s\nv 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 0 1\nusemtl wood\nf 1/1 2/2 3/3\n" % image

        def mtl(image):
            return "newmtl wood\nKd 1 1 1\nmap_Kd %s\n" % image

        source = self.tree("clash-src", {"one.obj": obj("one.mtl"), "one.mtl": mtl("t1/wood.png"),
                                         "two.obj": obj("two.mtl"), "two.mtl": mtl("t2/wood.png"),
                                         "t1/wood.png": ("examples", "textures", "cloth.png"),
                                         "t2/wood.png": ("examples", "textures", "skin.png")})
        out = os.path.join(self.work, "clash-out")
        run = self.run_dask_on(source, out, "--scheduler", self.cluster.scheduler_address)
        self.assertEqual(run.returncode, 1, run.stderr)
        self.assertIn("ERROR: wood.png: ", run.stderr)
        manifest = manifest_of(out)
        self.assertEqual([(f["input"], f["status"]) for f in manifest["files"]],
                         [("one.obj", "failed"), ("two.obj", "failed")])
        for record in manifest["files"]:
            messages = json.dumps(record["messages"])
            for named in ("one.obj", "two.obj", "t1/wood.png", "t2/wood.png"):
                self.assertIn(named, messages)
        self.assertFalse([n for n in os.listdir(out) if n.endswith(".stamp")])

        # The options of one export go to every export and into the stamps:
        # the image is found only through --texture-path.
        maps = os.path.join(source, "t1")
        options = ["--texture-path", maps, "--missing-textures", "drop", "--copy-textures-outside",
                   "--memory-limit", "2048"]
        only = self.tree("options-src", {"m.obj": obj("m.mtl"), "m.mtl": mtl("wood.png")})
        out = os.path.join(self.work, "options-out")
        for given, status in ((options, "exported"), (options, "up to date"), (options[:4] + options[5:], "exported")):
            run = self.run_dask_on(only, out, "--scheduler", self.cluster.scheduler_address, *given)
            self.assertEqual(run.returncode, 0, run.stderr)
            manifest = manifest_of(out)
            self.assertEqual(manifest["files"][0]["status"], status, given)
            self.assertEqual(manifest["options"], given)
        # --texture-names goes to every export as given: the wrapper records
        # its arguments and hands the rest on.
        log = os.path.join(self.work, "arguments.log")
        wrapper = os.path.join(self.work, "log-arguments.sh")
        with open(wrapper, "w", encoding="utf-8") as f:
            f.write('#!/bin/sh\necho "$@" >> "%s"\nskip=\nfor a; do shift\n'
                    '  if [ -n "$skip" ]; then skip=; continue; fi\n'
                    '  if [ "$a" = --texture-names ]; then skip=1; continue; fi\n'
                    '  set -- "$@" "$a"\ndone\nexec "%s" "$@"\n' % (log, ZT2EXPORT))
        os.chmod(wrapper, 0o755)
        run = subprocess.run([sys.executable, "-m", "ztexport.batch", only, out, "--exporter", wrapper,
                              "--scheduler", self.cluster.scheduler_address, "--texture-names", "unique", *options],
                             capture_output=True, text=True)
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertEqual(manifest_of(out)["files"][0]["status"], "exported")
        with open(log, encoding="utf-8") as f:
            self.assertIn("--texture-names unique", f.read())

    def interrupted_run(self, name, hooks=None, preload=None):
        """A run on a one-worker cluster of its own that a Ctrl-C on its
        terminal (SIGINT to its process group) ends."""
        env = dict(os.environ)
        env.pop(batch.KILL_HOOK, None)
        if hooks:
            folder = os.path.join(self.work, name + "-hooks")
            os.mkdir(folder)
            for hook, input_name in hooks.items():
                with open(os.path.join(folder, hook), "w", encoding="utf-8") as f:
                    f.write(input_name + "\n")
            env[batch.KILL_HOOK] = folder
        if preload:
            env["DASK_DISTRIBUTED__WORKER__PRELOAD"] = json.dumps([preload])
        out = os.path.join(self.work, name)
        run = self.run_dask_on(self.source, out, "--workers", "1", env=env, start_new_session=True, timeout=90)
        return out, run

    def test_ctrl_c_mid_run_lists_what_was_exported(self):
        out, run = self.interrupted_run("ctrl-c", hooks={"interrupt-after": "s1/crate.3ds"})
        self.assertEqual(run.returncode, 130, run.stderr)
        self.assertNotIn("Traceback", run.stderr)
        with open(os.path.join(out, "ztexport-manifest.json"), encoding="utf-8") as f:
            manifest = json.load(f)
        self.assertTrue(manifest["interrupted"])
        statuses = {record["input"]: record["status"] for record in manifest["files"]}
        # Name order, one worker: the interrupting file and those before it were exported.
        for input_name in ("s0/crate.3ds", "s0/example.scene.json", "s1/crate.3ds"):
            self.assertEqual(statuses[input_name], "exported", input_name)
        # Exactly what the stamps call up to date was exported.
        dry = subprocess.run([ZT2EXPORT, "--batch", self.source, "-o", out, "--dry-run", "--json"],
                             capture_output=True, text=True)
        self.assertEqual(dry.returncode, 0, dry.stderr)
        current = {json.loads(line)["input"] for line in dry.stdout.splitlines()
                   if json.loads(line)["status"] == "up to date"}
        self.assertEqual(current, {i for i, s in statuses.items() if s == "exported"})
        self.assertEqual(set(statuses.values()), {"exported", "interrupted"})
        self.assertIn("%d exported" % len(current), run.stderr)

    def test_ctrl_c_while_the_cluster_starts_is_one_line(self):
        preload = os.path.join(self.work, "interrupt_on_start.py")
        with open(preload, "w", encoding="utf-8") as f:
            f.write("import os\nimport signal\nos.killpg(os.getpgrp(), signal.SIGINT)\n")
        _, run = self.interrupted_run("ctrl-c-start", preload=preload)
        self.assertEqual(run.returncode, 130, run.stderr)
        self.assertNotIn("Traceback", run.stderr)
        # But for what the worker says of the test's own preload module.
        lines = [line for line in run.stderr.strip().splitlines() if "interrupt_on_start" not in line]
        self.assertEqual(len(lines), 1, run.stderr)
        self.assertIn("(interrupted)", run.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
