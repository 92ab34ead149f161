"""The pictures of the Blender add-on in docs/.

The export dialog (File > Export > ZT2 Scene), shot in a Blender window:

    PYTHONPATH=build/python:blender xvfb-run -a -s "-screen 0 1280x800x24" \
        blender --factory-startup -noaudio --python tools/blender_screenshot.py -- --dialog docs/blender-export-dialog.png

Blender runs with its windows (not -b) on the virtual display: the script
registers the add-on, opens the export file browser from a timer (as the menu
entry does, so that the operator's options panel shows beside the files), and
a little later saves a screenshot of the window (bpy.ops.screen.screenshot)
and quits. The options shown are the exporter's defaults: the per-user
options folder is one of this run's own.

A skinned, animated scene made in Blender, exported by the add-on, for its
zt2view page:

    PYTHONPATH=build/python:blender blender -b --factory-startup -noaudio --python-exit-code 1 \
        --python tools/blender_screenshot.py -- --walk OUT/walk.zt2
    build/zt2view OUT/walk.zt2 -o OUT/walk.html
    node tools/zt2view/web/page_check.mjs OUT/walk.html --camera Camera --at 0.25 \
        --screenshot docs/blender-skinned-page.png

The scene is a tube skinned to a three-bone leg that walks (frames 1 to 17)
and a camera aimed at the leg by Track To.
"""

import contextlib
import math
import os
import sys

import bpy
import ztexport

import io_scene_zt2

# The folders of this run, removed before it ends.
_folders = contextlib.ExitStack()
# The dialog opens with the saved options, and the export reads them: none,
# so the defaults show and apply.
os.environ["XDG_CONFIG_HOME"] = _folders.enter_context(ztexport.work_directory())


def _finish(code):
    _folders.close()
    sys.stdout.flush()
    # From a timer of Blender's window loop: leave at once.
    os._exit(code)


def _fail(text):
    print("blender_screenshot: " + text)
    _finish(1)


# --- the export dialog ------------------------------------------------------

def dialog(out):
    # The file browser opens on this folder and lists its .zt2 files.
    folder = _folders.enter_context(ztexport.work_directory())
    for name in ("level.zt2", "walk.zt2"):
        ztexport.write_file(os.path.join(folder, name), b"")
    # The browser fills the main window, and at this scale every option shows.
    bpy.context.preferences.view.filebrowser_display_type = "SCREEN"
    bpy.context.preferences.view.ui_scale = 0.8
    io_scene_zt2.register()

    def open_dialog():
        window = bpy.context.window_manager.windows[0]
        with bpy.context.temp_override(window=window, screen=window.screen):
            bpy.ops.export_scene.zt2("INVOKE_DEFAULT", filepath=os.path.join(folder, "scene.zt2"))
        bpy.app.timers.register(hide_path, first_interval=2.0)

    def browser():
        for window in reversed(list(bpy.context.window_manager.windows)):
            for area in window.screen.areas:
                if area.type == "FILE_BROWSER":
                    return window, area
        _fail("no file browser opened (%d windows)" % len(bpy.context.window_manager.windows))

    def hide_path():
        # The bar above the files shows the folder's path, a temporary one of this run.
        _, area = browser()
        area.spaces.active.show_region_ui = False
        area.tag_redraw()
        bpy.app.timers.register(save, first_interval=1.0)

    def save():
        window, area = browser()
        # Only the folder made here, whose path is hidden, may be shown.
        listed = os.path.normpath(os.fsdecode(area.spaces.active.params.directory))
        if listed != os.path.normpath(folder):
            _fail("the file browser shows another folder than the one made for it")
        with bpy.context.temp_override(window=window, screen=window.screen, area=area):
            result = bpy.ops.screen.screenshot(filepath=out, check_existing=False)
        print("blender_screenshot: %s %s" % (result, out))
        _finish(0 if result == {"FINISHED"} and os.path.isfile(out) else 1)

    bpy.app.timers.register(open_dialog, first_interval=1.0)


# --- the walking leg --------------------------------------------------------

def _material(name, colour):
    material = bpy.data.materials.new(name)
    material.use_nodes = True
    material.node_tree.nodes["Principled BSDF"].inputs["Base Color"].default_value = colour + (1.0,)
    return material


def walk(out):
    bpy.ops.wm.read_factory_settings(use_empty=True)
    io_scene_zt2.register()
    scene = bpy.context.scene
    scene.frame_start, scene.frame_end = 1, 17
    scene.frame_set(1)

    rig_data = bpy.data.armatures.new("RigData")
    rig = bpy.data.objects.new("Rig", rig_data)
    scene.collection.objects.link(rig)
    rig.location = (0.5, 0.0, 0.0)
    bpy.context.view_layer.objects.active = rig
    bpy.ops.object.mode_set(mode="EDIT")
    bones = {}
    for name, head, tail, parent in (("Hip", (0, 0, 3), (0, 0, 2), None), ("Thigh", (0, 0, 2), (0, 0.1, 1), "Hip"),
                                     ("Shin", (0, 0.1, 1), (0, 0, 0), "Thigh")):
        bone = rig_data.edit_bones.new(name)
        bone.head, bone.tail = head, tail
        if parent:
            bone.parent = bones[parent]
        bones[name] = bone
    bpy.ops.object.mode_set(mode="OBJECT")

    # A closed tube of 16 sides and 25 rings from z 0 to 3, smooth.
    sides, rings = 16, 25
    points = [(0.3 * math.cos(2.0 * math.pi * s / sides), 0.3 * math.sin(2.0 * math.pi * s / sides),
               3.0 * r / (rings - 1)) for r in range(rings) for s in range(sides)]
    faces = [(r * sides + s, r * sides + (s + 1) % sides, (r + 1) * sides + (s + 1) % sides, (r + 1) * sides + s)
             for r in range(rings - 1) for s in range(sides)]
    faces += [tuple(reversed(range(sides))), tuple((rings - 1) * sides + s for s in range(sides))]
    mesh = bpy.data.meshes.new("LegMesh")
    mesh.from_pydata(points, [], faces)
    mesh.polygons.foreach_set("use_smooth", [True] * len(mesh.polygons))
    mesh.materials.append(_material("Skin", (0.8, 0.45, 0.3)))
    leg = bpy.data.objects.new("Leg", mesh)
    scene.collection.objects.link(leg)
    leg.parent = rig
    leg.matrix_parent_inverse = rig.matrix_world.inverted()
    middles = {"Hip": 2.5, "Thigh": 1.5, "Shin": 0.5}
    groups = {name: leg.vertex_groups.new(name=name) for name in middles}
    for index, (_, _, z) in enumerate(points):
        for name, middle in middles.items():
            weight = max(0.0, 1.0 - abs(z - middle) / 1.1)
            if weight > 0.0:
                groups[name].add([index], weight, "REPLACE")
    leg.modifiers.new("Armature", "ARMATURE").object = rig

    keys = {"Hip": [(1, 0.0), (9, 0.2), (17, 0.0)], "Thigh": [(1, 0.0), (5, 0.6), (13, -0.5), (17, 0.0)],
            "Shin": [(1, 0.0), (7, 0.9), (11, 0.2), (17, 0.0)]}
    for name, track in keys.items():
        pose_bone = rig.pose.bones[name]
        pose_bone.rotation_mode = "XYZ"
        for frame, angle in track:
            pose_bone.rotation_euler = (angle, 0.0, 0.1 * angle)
            pose_bone.keyframe_insert("rotation_euler", frame=frame)
    rig.keyframe_insert("location", frame=1)
    rig.location = (0.5, 2.0, 0.0)
    rig.keyframe_insert("location", frame=17)

    focus = bpy.data.objects.new("Focus", None)
    scene.collection.objects.link(focus)
    focus.location = (0.5, 1.0, 1.5)
    camera = bpy.data.objects.new("Camera", bpy.data.cameras.new("Camera"))
    scene.collection.objects.link(camera)
    camera.location = (4.5, -3.0, 2.5)
    aim = camera.constraints.new("TRACK_TO")
    aim.target, aim.track_axis, aim.up_axis = focus, "TRACK_NEGATIVE_Z", "UP_Y"
    scene.frame_set(1)
    result = bpy.ops.export_scene.zt2(filepath=out, saveOptions=False)
    if result != {"FINISHED"}:
        _fail("the export answered %s" % result)
    print("blender_screenshot: %s" % out)
    _folders.close()


argv = sys.argv[sys.argv.index("--") + 1:] if "--" in sys.argv else []
if len(argv) != 2 or argv[0] not in ("--dialog", "--walk"):
    _fail("give --dialog PICTURE.png or --walk SCENE.zt2 after --")
if argv[0] == "--dialog":
    dialog(os.path.abspath(argv[1]))
else:
    walk(os.path.abspath(argv[1]))
