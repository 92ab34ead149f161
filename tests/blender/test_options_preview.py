"""The saved options: an export saves ZTExport.cfg into zt2export's folder,
byte for byte as zt2export --save-options does for the same choices; the
next export and the dialog start from it, the dialog showing the scene's
sample rate and end frame; "Export and preview" writes the page beside the
file."""

import os
import subprocess

import bpy
import numpy as np

import io_scene_zt2
import zt2_test_support as t
from io_scene_zt2 import options as options_module

scene = t.new_scene()
bpy.ops.mesh.primitive_cube_add(size=2.0, location=(1.0, 0.0, 0.0))
cube = bpy.context.active_object
cube.name = "Cube"

folder = os.path.join(os.environ["XDG_CONFIG_HOME"], "ztexport")
saved_path = os.path.join(folder, "ZTExport.cfg")
chosen = {"rescale": True, "rescaleFactor": 2.5, "texturePath": "maps", "positionDelta": 0.25,
          "frameToFrameInterpolation": "normalized", "loop": False}
first = t.export("options_first", preview=True, **chosen)
t.check(os.path.isfile(saved_path), "no ZTExport.cfg in %s" % folder)
dump = subprocess.run([os.environ["ZT2DUMP"], "--validate", saved_path], capture_output=True, text=True)
t.check(dump.returncode == 0, "ZTExport.cfg does not validate: %s%s" % (dump.stdout, dump.stderr))
saved = t.read(saved_path).as_dict()
t.check(saved["rescale"] == 1 and abs(saved["rescaleFactor"] - 2.5) < 1e-6 and saved["texturePathHistory"][0] == "maps"
        and saved["frameToFrameInterpolation"] == 1 and saved["loop"] == 0 and saved["exportSkinning"] == 0,
        "saved %r" % saved)

# zt2export saves the same bytes for the same choices and scene.
reference_folder = first[:-len(".zt2")] + "-config"
os.makedirs(reference_folder)
document_folder = first[:-len(".zt2")] + "-document"
os.makedirs(document_folder)
scene_path = io_scene_zt2.write_document(io_scene_zt2.gather.gather(bpy.context), document_folder)
command = [os.environ["ZT2EXPORT"], scene_path, "-o", first[:-len(".zt2")] + "-zt2export.zt2", "--quiet",
           "--config-dir", reference_folder, "--save-options", "--set", "exportSkinning=0"]
for name, value in chosen.items():
    command += ["--set", "%s=%s" % (name, int(value) if isinstance(value, bool) else value)]
run = subprocess.run(command, capture_output=True, text=True)
t.check(run.returncode == 0, "zt2export failed: %s%s" % (run.stdout, run.stderr))
with open(saved_path, "rb") as a, open(os.path.join(reference_folder, "ZTExport.cfg"), "rb") as b:
    t.check(a.read() == b.read(), "ZTExport.cfg differs from zt2export --save-options'")

# The next export, choosing nothing, keeps the saved options: the same file.
second = t.export("options_second")
difference = t.ztexport.diff(first, second)
t.check(difference.equal, "the second export differs: %s" % difference.text[:400])
scaled = next(m for m in t.read(second).meshes if m.name == "Cube")
size = np.ptp(np.asarray(scaled.positions), axis=0).max()
t.check(abs(size - 5.0) < 1e-4, "the saved rescale was not applied: size %g" % size)


class DialogStandIn:
    """What load_saved touches of the operator: properties nobody set."""

    class properties:
        @staticmethod
        def is_property_set(name):
            return False


dialog = DialogStandIn()
options_module.load_saved(dialog, options_module.saved_options())
t.check(dialog.rescale is True and abs(dialog.rescaleFactor - 2.5) < 1e-6 and dialog.texturePath == "maps" and
        dialog.frameToFrameInterpolation == "normalized" and not hasattr(dialog, "sampleRate") and
        not hasattr(dialog, "exportSkinning"), "the dialog opens with %r" % vars(dialog))

# The dialog shows the sample rate and the end frame the export takes from
# the scene; left so, they are not handed to the export as chosen.
scene.render.fps, scene.frame_start, scene.frame_end = 24, 1, 40
options_module.show_scene_values(dialog, scene)
t.check((dialog.sampleRate, dialog.endFrame) == (24, 39), "the dialog shows sample rate %r, end frame %r" %
        (dialog.sampleRate, dialog.endFrame))


class ChosenStandIn:
    """An operator whose user set the sample rate, the end frame and rescale."""
    sampleRate, endFrame, rescale = 24, 39, True

    class properties:
        @staticmethod
        def is_property_set(name):
            return name in ("sampleRate", "endFrame", "rescale")


chosen_now = options_module.chosen_options(ChosenStandIn, scene)
ChosenStandIn.sampleRate = 25
t.check(chosen_now == {"rescale": True} and options_module.chosen_options(ChosenStandIn, scene) ==
        {"rescale": True, "sampleRate": 25}, "chosen %r" % chosen_now)

page = first[:-len(".zt2")] + ".html"
t.check(os.path.isfile(page) and os.path.getsize(page) > 10000, "no preview page %s" % page)
with open(page, "rb") as f:
    t.check(b"<html" in f.read(4096).lower(), "the preview is no HTML page")
print("blender options_preview: ZTExport.cfg equal to zt2export's (%d bytes), the second export equal, page %d bytes" %
      (os.path.getsize(saved_path), os.path.getsize(page)))
