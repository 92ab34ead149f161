"""The Python package read through as a user would: the example exported in
this process and by zt2export (the same bytes), read back as numpy views that
outlive their file object, compared, and the faults a script meets.

    test_ztexport.py SOURCE_DIR ZT2EXPORT   (ztexport importable, e.g. PYTHONPATH=build/python)
"""
import errno
import os
import random
import shutil
import subprocess
import sys
import tempfile
import unittest
import warnings

import numpy as np

import ztexport

SOURCE, ZT2EXPORT = sys.argv[1], sys.argv[2]


class ZtexportTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.mkdtemp()
        # The system's temporary folder of this process, to see that a run leaves nothing in it.
        cls.temp = os.path.join(cls.work, "tmp")
        os.mkdir(cls.temp)
        os.environ["TMPDIR"] = cls.temp
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
            subprocess.run([ZT2EXPORT, self.scene, "-o", theirs, "--config-dir", self.config, *sets],
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

    def test_dry_run_writes_nothing_and_reports_every_message(self):
        out = self.path("checked.zt2")
        result = ztexport.export(self.scene, out, options={"copyTextures": 1}, config_dir=self.config, dry_run=True)
        self.assertEqual((result.status, result.files), (0, []))
        self.assertFalse(os.path.exists(out))
        bare = ztexport.export(self.scene, out, options={"exportMaterials": False}, config_dir=self.config,
                               dry_run=True)
        self.assertIn("exportMaterials is off", " ".join(m.text for m in bare.messages if m.kind == "note"))
        # The old name still works for a release, with a warning; both at once is a mistake.
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            old = ztexport.export(self.scene, out, config_dir=self.config, check=True)
        self.assertEqual((old.status, old.files), (0, []))
        self.assertEqual([w.category for w in caught], [DeprecationWarning])
        self.assertIn("dry_run", str(caught[0].message))
        with self.assertRaisesRegex(TypeError, "check.*dry_run"):
            ztexport.export(self.scene, out, config_dir=self.config, check=True, dry_run=True)
        self.assertFalse(os.path.exists(out))
        # A model's own images go to a folder of the run, gone afterwards.
        before = set(os.listdir(self.temp))
        crate = ztexport.export(os.path.join(SOURCE, "examples", "crate.3ds"), self.path("crate.zt2"),
                                config_dir=self.config, dry_run=True)
        self.assertEqual((crate.status, crate.files), (0, []))
        self.assertEqual(set(os.listdir(self.temp)), before)

    def test_texture_copies_are_listed_once(self):
        copies = self.path("copies.zt2")
        result = ztexport.export(self.scene, copies, options={"copyTextures": 1, "texturePath": "maps"},
                                 config_dir=self.config)
        maps = os.path.join(self.work, "maps")
        self.assertEqual(result.status, 0, result.messages)
        self.assertEqual(sorted(result.files),
                         sorted([copies, self.path("copies.skd")] +
                                [os.path.join(maps, f) for f in ("cloth.png", "skin.png", "wave1.png", "wave2.png",
                                                                 "wave3.png")]))
        self.assertIn("info", {m.kind for m in result.messages})

    def test_stubs_name_what_is_there(self):
        import ast
        with open(os.path.join(os.path.dirname(ztexport.__file__), "__init__.pyi"), encoding="utf-8") as f:
            stubs = {c.name: c for c in ast.parse(f.read()).body if isinstance(c, ast.ClassDef)}
        for name, stub in stubs.items():
            # An exception's fields are set on each instance.
            if name.startswith("_") or name == "Message" or issubclass(getattr(ztexport, name), BaseException):
                continue
            members = [n for c in [stub] + [stubs[b.id] for b in stub.bases if b.id in stubs] for n in c.body]
            for member in members:
                field = getattr(member, "name", None) or getattr(getattr(member, "target", None), "id", None)
                if field and not field.startswith("__"):
                    self.assertTrue(hasattr(getattr(ztexport, name), field), f"{name}.{field}")
        # Every public name has its stub, with a docstring, and its docstring at run time.
        with open(os.path.join(os.path.dirname(ztexport.__file__), "__init__.pyi"), encoding="utf-8") as f:
            stubbed = {node.name: node for node in ast.parse(f.read()).body
                       if isinstance(node, (ast.ClassDef, ast.FunctionDef))}
        for name in ztexport.__all__:
            self.assertIn(name, stubbed)
            self.assertTrue(ast.get_docstring(stubbed[name]), name)
            self.assertTrue(getattr(ztexport, name).__doc__, name)

    def test_all_lists_every_public_name(self):
        import types
        public = {name for name, value in vars(ztexport).items()
                  if not name.startswith("_") and not isinstance(value, types.ModuleType)}
        self.assertEqual(sorted(ztexport.__all__), sorted(public))

    def test_faces_index_the_whole_mesh(self):
        scene = ztexport.read(self.first)
        grouped = 0
        for mesh in scene.meshes:
            faces, triangles = mesh.faces, mesh.triangles
            self.assertEqual((faces.dtype, faces.shape), (np.uint32, triangles.shape))
            for group in mesh.groups():
                rows = slice(group.first_triangle, group.first_triangle + group.triangle_count)
                self.assertTrue(np.array_equal(faces[rows], triangles[rows].astype(np.uint32) + group.first_vertex))
                if len(faces[rows]):
                    self.assertGreaterEqual(faces[rows].min(), group.first_vertex)
                    self.assertLess(faces[rows].max(), group.first_vertex + group.vertex_count)
            grouped += len(mesh.groups()) > 1 and mesh.groups()[1].first_vertex > 0
            self.assertLess(faces.max(initial=0), max(len(mesh.positions), 1))
        self.assertGreater(grouped, 0, "no mesh of the example has a second group")

    def test_color_with_its_former_spelling_deprecated(self):
        scene = ztexport.read(self.first)
        light = scene.lights[0]
        animation = scene.light_animations[0] if scene.light_animations else None
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            self.assertEqual(light.colour, light.color)
            if animation is not None:
                self.assertTrue(np.array_equal(animation.colour_keys.values, animation.color_keys.values))
        self.assertEqual({w.category for w in caught}, {DeprecationWarning})
        self.assertIn("color", str(caught[0].message))
        self.assertEqual(len(light.color), 4)

    def test_option_fields_describe_the_record(self):
        fields = {f.name: f for f in ztexport.option_fields()}
        self.assertEqual(list(fields), ztexport.option_names())
        # name: (kind, default, min, max, choices, label)
        expected = {
            "exportGeometry": ("bool", True, None, None, (), "Geometry"),
            "rescaleFactor": ("float", 1.0, 0.0, 100.0, (), None),
            "sampleRate": ("int", fields["sampleRate"].default, 1, 500, (), "Sample rate"),
            "startFrame": ("int", 0, None, None, (), "Start frame"),
            "frameToFrameInterpolation": ("enum", fields["frameToFrameInterpolation"].default, None, None,
                                          ("none", "normalized", "orthonormalized"),
                                          "Frame to frame rot. interpolation"),
            "texturePath": ("string", ".", None, None, (), "Path"),
            "positionDelta": ("float", fields["positionDelta"].default, 0.0, 100.0, (), "min. delta pos."),
            "copyTextures": ("bool", fields["copyTextures"].default, None, None, (),
                             "Copy textures to export path"),
        }
        for name, row in expected.items():
            field = fields[name]
            self.assertEqual((field.kind, field.default, field.min, field.max, field.choices, field.label), row, name)
        self.assertEqual((fields["sampleRate"].scene_default, fields["endFrame"].limits_from_scene),
                         ("scene frame rate", True))
        self.assertIn(fields["frameToFrameInterpolation"].default, fields["frameToFrameInterpolation"].choices)
        kinds = {"bool": bool, "int": int, "float": float, "enum": str, "string": str}
        for field in fields.values():
            self.assertIs(type(field.default), kinds[field.kind], field.name)
        # The limits are those export() holds a value to.
        with self.assertRaisesRegex(ValueError, "rescaleFactor must be between 0 and 100"):
            ztexport.export(self.scene, self.path("never.zt2"), config_dir=self.config,
                            options={"rescaleFactor": fields["rescaleFactor"].max + 1})

    def test_front_end_helpers_write_through_the_package(self):
        self.assertTrue(os.access(ztexport.default_exporter(), os.X_OK))
        with ztexport.work_directory(self.work) as folder:
            self.assertTrue(os.path.isdir(folder))
            for name, data in (("a.json", "{\"\u00e9\": 1}"), ("b.bin", b"\0\1")):
                ztexport.write_file(os.path.join(folder, name), data)
                with open(os.path.join(folder, name), "rb") as f:
                    self.assertEqual(f.read(), data.encode() if isinstance(data, str) else data)
        self.assertFalse(os.path.exists(folder))
        with self.assertRaisesRegex(OSError, "nowhere"):
            ztexport.write_file(self.path("nowhere/a.json"), "x")

    def test_a_python_without_numpy_is_told_what_to_install(self):
        run = subprocess.run([sys.executable, "-c", "import sys; sys.modules['numpy'] = None; import ztexport"],
                             capture_output=True, text=True)
        self.assertNotEqual(run.returncode, 0)
        self.assertIn("ImportError: ztexport needs numpy", run.stderr)
        self.assertIn("-m pip install numpy", run.stderr)

    def test_faults(self):
        with self.assertRaisesRegex(ValueError, "sampleRate must be between 1 and 500"):
            ztexport.export(self.scene, self.path("never.zt2"), options={"sampleRate": 0}, config_dir=self.config)
        with self.assertRaisesRegex(ValueError, "noSuchField"):
            ztexport.export(self.scene, self.path("never.zt2"), options={"noSuchField": 1}, config_dir=self.config)
        self.assertFalse(os.path.exists(self.path("never.zt2")))
        with self.assertRaises(ztexport.ExportError):
            ztexport.export(self.path("missing.scene.json"), self.path("never.zt2"), config_dir=self.config)
        # Saved options that are not a file are not quietly taken for none.
        folder_config = self.path("folder-config")
        os.makedirs(os.path.join(folder_config, "ZTExport.cfg"))
        with self.assertRaisesRegex(ztexport.ExportError, "ZTExport.cfg: not read: it is a folder"):
            ztexport.export(self.scene, self.path("never.zt2"), config_dir=folder_config)
        self.assertFalse(os.path.exists(self.path("never.zt2")))
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
        self.assertEqual(caught.exception.kind, "wrong_kind")
        with self.assertRaises(ztexport.FormatError) as caught:
            ztexport.diff(self.first, self.path("missing.zt2"))
        self.assertEqual((caught.exception.kind, caught.exception.offset), ("unreadable", 0))

    def test_a_missing_file_is_a_file_not_found_error(self):
        missing = self.path("missing.zt2")
        for read in (ztexport.read, ztexport.read_scene, lambda p: ztexport.diff(self.first, p)):
            with self.assertRaises(FileNotFoundError) as caught:
                read(missing)
            error = caught.exception
            self.assertIsInstance(error, ztexport.FormatError)
            self.assertIsInstance(error, OSError)
            self.assertEqual((error.errno, error.filename, error.path, error.kind, error.offset),
                             (errno.ENOENT, missing, missing, "unreadable", 0))
            self.assertIn(missing, str(error))
        with self.assertRaises(ztexport.FormatError) as caught:
            ztexport.read(self.work)
        self.assertIsInstance(caught.exception, OSError)
        self.assertNotIsInstance(caught.exception, FileNotFoundError)
        self.assertEqual(caught.exception.kind, "unreadable")
        # The other kinds are faults of the bytes, not of the system: ValueErrors.
        damaged = self.path("short.zt2")
        with open(self.first, "rb") as f, open(damaged, "wb") as g:
            g.write(f.read()[:300])
        for read, kind, cls in ((lambda: ztexport.read(damaged), "corrupt", ztexport.CorruptFileError),
                                (lambda: ztexport.read_options(self.first), "wrong_kind", ztexport.WrongKindError)):
            with self.assertRaises(cls) as caught:
                read()
            self.assertIsInstance(caught.exception, ztexport.FormatError)
            self.assertIsInstance(caught.exception, ValueError)
            self.assertNotIsInstance(caught.exception, OSError)
            self.assertEqual(caught.exception.kind, kind)
        self.assertEqual(ztexport.FormatError.__bases__, (Exception,))
        # The former spelling still compares equal for a release, with a warning.
        with warnings.catch_warnings(record=True) as caught_warnings:
            warnings.simplefilter("always")
            self.assertTrue(caught.exception.kind == "wrongKind")
            self.assertFalse(caught.exception.kind != "wrongKind")
        self.assertEqual([w.category for w in caught_warnings], [DeprecationWarning] * 2)

    def test_a_nul_in_a_path_is_refused_naming_the_argument(self):
        victim = self.path("victim.json")
        nul = victim + "\x00.zt2"
        out = self.path("never.zt2")
        calls = [
            ("path", lambda: ztexport.read(nul)),
            ("path", lambda: ztexport.read(os.fsencode(nul))),
            ("path", lambda: ztexport.read_scene(nul)),
            ("path", lambda: ztexport.read_skin(nul)),
            ("path", lambda: ztexport.read_options(nul)),
            ("a", lambda: ztexport.diff(nul, self.first)),
            ("b", lambda: ztexport.diff(self.first, nul)),
            ("scene", lambda: ztexport.export(self.scene + "\x00.zt2", out, config_dir=self.config)),
            ("out", lambda: ztexport.export(self.scene, nul, config_dir=self.config)),
            ("out", lambda: ztexport.export(self.scene, os.fsencode(nul), config_dir=self.config)),
            ("config_dir", lambda: ztexport.export(self.scene, out, config_dir=self.config + "\x00x")),
            ("module", lambda: ztexport.export(self.scene, out, config_dir=self.config, module="ZTExport.dle\x00x")),
            ("texture_paths", lambda: ztexport.export(self.scene, out, config_dir=self.config,
                                                      texture_paths=[self.work, self.work + "\x00x"])),
        ]
        for argument, call in calls:
            with self.assertRaisesRegex(ValueError, "^%s: .*NUL" % argument):
                call()
        self.assertEqual([f for f in os.listdir(self.work) if f.startswith(("victim", "never"))], [])

    def test_names_are_read_in_the_hosts_code_page(self):
        with open(self.first, "rb") as f:
            data = f.read()
        # "Character" with each of its bytes replaced: a name a host in a Western code page writes,
        # then the five bytes the code page leaves undefined and four others.
        cases = [(b"C\xe9aracter", "C\u00e9aracter"),
                 (b"\x81\x8d\x8f\x90\x9d\x80\xe9\xff\xa0", "\x81\x8d\x8f\x90\x9d\u20ac\u00e9\u00ff\xa0")]
        for raw, text in cases:
            renamed = self.path("renamed.zt2")
            with open(renamed, "wb") as f:
                f.write(data.replace(b"Character", raw))
            check = subprocess.run([os.path.join(os.path.dirname(ZT2EXPORT), "zt2dump"), "--validate", renamed],
                                   capture_output=True)
            self.assertEqual(check.returncode, 0, check.stderr)
            scene = ztexport.read(renamed)
            mesh = next(m for m in scene.meshes if m.name_bytes == raw)
            self.assertEqual((mesh.name, mesh.node.name, mesh.node.name_bytes), (text, text, raw))
            self.assertEqual(scene.find_node(text).name_bytes, raw)
            self.assertEqual(scene.find_node(raw).name, text)
            animation = next(a for a in scene.transform_animations if a.name_bytes == raw)
            self.assertEqual(animation.name, text)
            self.assertIn(repr(text), repr(mesh))
        skin = ztexport.read(self.path("first.skd"))
        self.assertEqual(skin.node_names_bytes, [n.encode() for n in skin.node_names])
        materials = ztexport.read(self.first).materials
        self.assertEqual(materials.materials[0].name_bytes, materials.materials[0].name.encode())
        layer = next(t for m in materials.materials for t in m.layers if t is not None)
        self.assertEqual(layer.file_names_bytes, [n.encode() for n in layer.file_names])

    def test_every_failure_to_read_is_a_format_error(self):
        # Mutated copies of the three kinds of file: each read either succeeds, with every
        # name readable, or raises FormatError; nothing else.
        sources = []
        for name in ("first.zt2", "first.skd"):
            with open(self.path(name), "rb") as f:
                sources.append((name, f.read()))
        generator = random.Random(20261125)
        mutated = self.path("mutated.zt2")
        outcomes = {"read": 0, "FormatError": 0}
        for n in range(3000):
            name, data = sources[n % len(sources)]
            data = bytearray(data)
            for _ in range(generator.choice((1, 1, 2, 4))):
                at = generator.randrange(8, len(data))
                if generator.random() < 0.7:
                    data[at] = generator.choice((0x80, 0xc3, 0xe9, 0xff, 0x00, generator.randrange(256)))
                else:
                    del data[at:at + generator.randrange(1, 16)]
            with open(mutated if name.endswith(".zt2") else mutated[:-4] + ".skd", "wb") as f:
                f.write(data)
            try:
                result = ztexport.read(mutated if name.endswith(".zt2") else mutated[:-4] + ".skd")
                if isinstance(result, ztexport.Scene):
                    for node in result.nodes():
                        node.name, node.parent, node.user_properties
                    for mesh in result.meshes:
                        mesh.material_names, mesh.reference_name
                        for group in mesh.groups():
                            group.material
                    if result.materials is not None:
                        for material in result.materials.materials:
                            for layer in material.layers:
                                if layer is not None:
                                    layer.name, layer.file_names
                    for animation in result.transform_animations:
                        animation.name, animation.parent_name
                    for animation in result.light_animations:
                        animation.name
                    for helper in result.helpers:
                        helper.class_name
                    repr(result)
                else:
                    result.node_names, result.bone_names
                outcomes["read"] += 1
            except ztexport.FormatError as error:
                str(error), error.chunk
                outcomes["FormatError"] += 1
        self.assertGreater(outcomes["read"], 100)
        self.assertGreater(outcomes["FormatError"], 100)

    def test_to_gltf_writes_what_zt2dump_writes(self):
        ours, theirs = self.path("ours.glb"), self.path("theirs.glb")
        warnings = ztexport.to_gltf(self.first, ours)
        subprocess.run([os.path.join(os.path.dirname(ZT2EXPORT), "zt2dump"), self.first, "--gltf", theirs],
                       check=True, capture_output=True)
        with open(ours, "rb") as a, open(theirs, "rb") as b:
            self.assertEqual(a.read(), b.read())
        self.assertIsInstance(warnings, list)
        # Faults: a file that is no scene file, an output that is its input, a folder that is not there.
        with self.assertRaises(ztexport.FormatError):
            ztexport.to_gltf(self.scene, self.path("x.glb"))
        with self.assertRaises(ValueError):
            ztexport.to_gltf(self.first, self.first)
        with self.assertRaises(OSError):
            ztexport.to_gltf(self.first, self.path("no/such/folder/x.glb"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
