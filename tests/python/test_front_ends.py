"""zt2export, the Python export and the batch are three doors to one export:
on the same inputs they must tell the same messages, write the same files and
end with the same status.

    test_front_ends.py SOURCE_DIR ZT2EXPORT   (ztexport importable, e.g. PYTHONPATH=build/python)
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import ztexport

SOURCE, ZT2EXPORT = sys.argv[1], sys.argv[2]


class FrontEndsAgree(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.mkdtemp()
        shutil.copytree(os.path.join(SOURCE, "examples"), os.path.join(cls.work, "examples"))
        with open(os.path.join(cls.work, "examples", "example.scene.json")) as f:
            cls.example = json.load(f)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.work)

    def cases(self):
        """name, scene (a dict written to a file, or a path), option fields"""
        # A texture naming an image nowhere to be found: the exporter's error, status 1.
        broken = json.loads(json.dumps(self.example))
        broken["texmaps"][0]["params"]["mapFileName"] = "textures/nowhere.png"
        return [
            ("example", self.example, {}),
            ("example, every message", self.example, {"dumpInfo": 1}),
            ("example, no skinning", self.example, {"exportSkinning": False, "dumpInfo": 1}),
            ("missing image", broken, {"dumpInfo": 1}),
            ("a model", os.path.join(self.work, "examples", "crate.3ds"), {"dumpInfo": 1}),
        ]

    @staticmethod
    def own(messages, case, door):
        """Messages with the door's own folder named alike."""
        return [m.replace(os.path.join(case, door), "CASE") for m in messages]

    def run_three(self, name, scene, options):
        case = os.path.join(self.work, name.replace(" ", "_").replace(",", ""))
        results = {}
        for door in ("zt2export", "python", "batch"):
            src = os.path.join(case, door, "src")
            out = os.path.join(case, door, "out")
            os.makedirs(src)
            os.makedirs(out)
            shutil.copytree(os.path.join(self.work, "examples", "textures"), os.path.join(src, "textures"))
            if isinstance(scene, dict):
                path = os.path.join(src, "scene.scene.json")
                with open(path, "w") as f:
                    json.dump(scene, f)
            else:
                path = os.path.join(src, os.path.basename(scene))
                shutil.copy(scene, path)
            stem = os.path.basename(path).split(".")[0]
            target = os.path.join(out, stem + ".zt2")
            config = os.path.join(case, door, "config")
            sets = [a for k, v in options.items() for a in ("--set", "%s=%s" % (k, str(v).lower() if isinstance(v, bool) else v))]
            if door == "zt2export":
                depfile = os.path.join(case, door, "deps.d")
                run = subprocess.run([ZT2EXPORT, path, "-o", target, "--config-dir", config,
                                      "--depfile", depfile, *sets], capture_output=True, text=True)
                messages = [line for line in run.stdout.splitlines() if line and line != "Export Info"]
                for line in run.stderr.splitlines():
                    for prefix in ("zt2export: note: ", "zt2export: "):
                        if line.startswith(prefix):
                            line = line[len(prefix):]
                            break
                    messages.append(line)
                files = []
                if run.returncode == 0:
                    with open(depfile) as f:
                        files = f.read().split(": ", 1)[0].split()
                results[door] = (run.returncode, self.own(messages, case, door), files)
            elif door == "python":
                result = ztexport.export(path, target, options=options, config_dir=config)
                results[door] = (result.status, self.own([m.text for m in result.messages], case, door),
                                 list(result.files))
            else:
                run = subprocess.run([ZT2EXPORT, "--batch", src, "-o", out, "--config-dir", config, "--json",
                                      *sets], capture_output=True, text=True)
                lines = [json.loads(line) for line in run.stdout.splitlines() if line.startswith("{")]
                self.assertEqual(len(lines), 1, (name, run.stdout, run.stderr))
                record = lines[0]
                status = 0 if record["status"] == "exported" else run.returncode
                results[door] = (status, self.own(record["messages"], case, door), record["outputs"])
        return results

    def test_same_messages_files_and_status(self):
        for name, scene, options in self.cases():
            with self.subTest(case=name):
                results = self.run_three(name, scene, options)
                status, messages, files = results["zt2export"]
                case = os.path.join(self.work, name.replace(" ", "_").replace(",", ""))
                rel = lambda door, fs: sorted(os.path.relpath(f, os.path.join(case, door)) for f in fs)
                for door in ("python", "batch"):
                    other_status, other_messages, other_files = results[door]
                    self.assertEqual(other_status, status, "%s: %s" % (door, other_messages))
                    self.assertEqual(other_messages, messages, door)
                    if door == "python":
                        self.assertEqual(rel(door, other_files), rel("zt2export", files))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
