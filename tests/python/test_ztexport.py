"""The Python package read through as a user would: the example exported in
this process and by zt2export (the same bytes), read back as numpy views that
outlive their file object, compared, and the faults a script meets.

    test_ztexport.py SOURCE_DIR ZT2EXPORT   (ztexport importable, e.g. PYTHONPATH=build/python)
"""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import numpy as np

import ztexport

SOURCE, ZT2EXPORT = sys.argv[1], sys.argv[2]


class ZtexportTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.mkdtemp()
        cls.scene = os.path.join(cls.work, "examples", "example.scene.json")
        shutil.copytree(os.path.join(SOURCE, "examples"), os.path.join(cls.work, "examples"))
        cls.config = os.path.join(cls.work, "config")
        cls.first = cls.path("first.zt2")
        result = ztexport.export(cls.scene, cls.first, config_dir=cls.config)
        assert result.status == 0, result.messages

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.work)

    @classmethod
    def path(cls, name):
        return os.path.join(cls.work, name)

    def test_export_writes_what_zt2export_writes(self):
        for options in ({}, {"rescale": True, "rescaleFactor": 2.5, "sampleRate": 15}):
            ours, theirs = self.path("ours.zt2"), self.path("theirs.zt2")
            result = ztexport.export(self.scene, ours, options=options, config_dir=self.config)
            sets = [a for name, value in options.items() for a in ("--set", f"{name}={int(value) if value is True else value}")]
            subprocess.run([ZT2EXPORT, self.scene, "-o", theirs, "--config-dir", self.config, "--quiet", *sets],
                           check=True, stdout=subprocess.DEVNULL)
            self.assertEqual(result.status, 0)
            self.assertEqual(result.files[:2], [ours, self.path("ours.skd")])
            for ext in (".zt2", ".skd"):
                with open(ours[:-4] + ext, "rb") as a, open(theirs[:-4] + ext, "rb") as b:
                    self.assertEqual(a.read(), b.read(), ext)
            # The options file is read, never written.
            self.assertFalse(os.path.exists(os.path.join(self.config, "ZTExport.cfg")))

    def test_arrays_are_views_that_outlive_their_scene(self):
        scene = ztexport.read(self.first)
        self.assertIsInstance(scene, ztexport.Scene)
        mesh = next(m for m in scene.meshes if m.name == "Character")
        positions, triangles = mesh.positions, mesh.triangles
        self.assertEqual((positions.shape, positions.dtype), ((24, 3), np.float32))
        self.assertEqual((triangles.shape, triangles.dtype), ((12, 3), np.uint16))
        for array in (positions, triangles, mesh.normals):
            self.assertIsNotNone(array.base)
            self.assertFalse(array.flags.owndata)
            self.assertFalse(array.flags.writeable)
        # Two views of one mesh share the reader's storage.
        self.assertTrue(np.shares_memory(positions, mesh.positions))
        self.assertEqual(scene.find_node("Lamp").parent, "Props")
        self.assertIsNone(scene.find_node("Nobody"))
        expected = positions.copy()
        keys = next(a for a in scene.transform_animations if a.name == "Character").keys
        del scene, mesh
        self.assertTrue(np.array_equal(positions, expected))
        self.assertEqual(keys.values.shape, (29, 4, 3))
        self.assertEqual(list(keys.samples[:3]), [0, 1, 2])
        skin = ztexport.read(self.path("first.skd"))
        self.assertIsInstance(skin, ztexport.SkinData)
        self.assertEqual(skin.influence_weight.dtype, np.float32)
        self.assertEqual(len(skin.influence_start), 24)

    def test_diff_names_the_changed_fields(self):
        self.assertTrue(ztexport.diff(self.first, self.first).equal)
        changed = self.path("changed.zt2")
        self.assertEqual(ztexport.export(self.scene, changed, options={"rescale": 1, "rescaleFactor": 2},
                                         config_dir=self.config).status, 0)
        difference = ztexport.diff(self.first, changed)
        self.assertFalse(difference.equal)
        lamp = [d for d in difference.differences if d.path == 'OmniLightChunk "Lamp" > attenuationStart']
        self.assertEqual([(d.kind, d.old_value, d.new_value) for d in lamp], [("changed", "10", "20")])
        self.assertIn('changed OmniLightChunk "Lamp" > attenuationStart: 10 -> 20', difference.text)

    def test_check_writes_nothing_and_reports_every_message(self):
        out = self.path("checked.zt2")
        result = ztexport.export(self.scene, out, options={"copyTextures": 1}, config_dir=self.config, check=True)
        self.assertEqual((result.status, result.files), (0, []))
        self.assertFalse(os.path.exists(out))
        bare = ztexport.export(self.scene, out, options={"exportMaterials": False}, config_dir=self.config, check=True)
        self.assertIn("exportMaterials is off", " ".join(m.text for m in bare.messages if m.kind == "note"))
        copies = self.path("copies.zt2")
        result = ztexport.export(self.scene, copies, options={"copyTextures": 1, "texturePath": "maps"},
                                 config_dir=self.config)
        self.assertIn(os.path.join(self.work, "maps", "skin.png"), result.files)
        self.assertIn("info", {m.kind for m in result.messages})

    def test_stubs_name_what_is_there(self):
        import ast
        with open(os.path.join(os.path.dirname(ztexport.__file__), "__init__.pyi"), encoding="utf-8") as f:
            stubs = {c.name: c for c in ast.parse(f.read()).body if isinstance(c, ast.ClassDef)}
        for name, stub in stubs.items():
            if name.startswith("_") or name in ("FormatError", "Message"):
                continue
            members = [n for c in [stub] + [stubs[b.id] for b in stub.bases if b.id in stubs] for n in c.body]
            for member in members:
                field = getattr(member, "name", None) or getattr(getattr(member, "target", None), "id", None)
                if field and not field.startswith("__"):
                    self.assertTrue(hasattr(getattr(ztexport, name), field), f"{name}.{field}")
        for function in ("read", "read_scene", "read_skin", "read_options", "diff", "export", "option_names"):
            self.assertTrue(getattr(ztexport, function).__doc__)

    def test_faults(self):
        with self.assertRaisesRegex(ValueError, "sampleRate must be between 1 and 500"):
            ztexport.export(self.scene, self.path("never.zt2"), options={"sampleRate": 0}, config_dir=self.config)
        with self.assertRaisesRegex(ValueError, "noSuchField"):
            ztexport.export(self.scene, self.path("never.zt2"), options={"noSuchField": 1}, config_dir=self.config)
        self.assertFalse(os.path.exists(self.path("never.zt2")))
        with self.assertRaises(ztexport.ExportError):
            ztexport.export(self.path("missing.scene.json"), self.path("never.zt2"), config_dir=self.config)
        with open(self.first, "rb") as f:
            data = f.read()
        damaged = self.path("damaged.zt2")
        with open(damaged, "wb") as f:
            f.write(data[:300])
        with self.assertRaises(ztexport.FormatError) as caught:
            ztexport.read(damaged)
        error = caught.exception
        self.assertEqual((error.path, error.offset, error.chunk, error.kind), (damaged, 37, "", "corrupt"))
        # The vertex count just before Character's first position, raised past what the chunk holds.
        first = next(m for m in ztexport.read(self.first).meshes if m.name == "Character").positions[0].tobytes()
        count = data.index(first) - 4
        self.assertEqual(int.from_bytes(data[count:count + 4], "little"), 24)
        with open(damaged, "wb") as f:
            f.write(data[:count] + (100000).to_bytes(4, "little") + data[count + 4:])
        with self.assertRaises(ztexport.FormatError) as caught:
            ztexport.read(damaged)
        self.assertEqual((caught.exception.offset, caught.exception.chunk),
                         (count + 4, 'MeshChunk "Character" > MeshVertexChunk > positions'))
        with self.assertRaises(ztexport.FormatError) as caught:
            ztexport.read_options(self.first)
        self.assertEqual(caught.exception.kind, "wrongKind")
        with self.assertRaises(ztexport.FormatError) as caught:
            ztexport.diff(self.first, self.path("missing.zt2"))
        self.assertEqual((caught.exception.kind, caught.exception.offset), ("unreadable", 0))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
