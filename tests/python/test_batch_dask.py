"""python3 -m ztexport.batch against zt2export --batch: a small tree exported
serially, with -j 2, on a two-worker local Dask cluster, and on a cluster
that loses workers mid-run, gives the same files and the same manifest (but
for its timings and the output directory's name).

    test_batch_dask.py SOURCE_DIR ZT2EXPORT   (ztexport importable, e.g. PYTHONPATH=build/python)
"""
import json
import logging
import os
import shutil
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
    """Every file under `folder` but the manifest, by relative path, with its bytes."""
    found = {}
    for root, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(root, name)
            relative = os.path.relpath(path, folder)
            if relative != "ztexport-manifest.json":
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
        run = subprocess.run([ZT2EXPORT, "--batch", cls.source, "-o", out, "--quiet", *options],
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
        # A dead worker's work directory holds no file, and the next run removes it.
        work_dirs = [name for name in os.listdir(out) if name.startswith(".ztexport-work")]
        self.assertEqual([files_of(os.path.join(out, name)) for name in work_dirs], [{}] * len(work_dirs))
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

if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
