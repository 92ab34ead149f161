"""A spot light whose energy, colour and cone are keyed, and a camera and the
spot aimed by constraints at a moving empty: the file's light animation after
conversion, the targets and the view direction at every frame; imported into
an empty scene (targets as keyed empties the two are aimed at, the light's
keys on its data) and exported again to the same file."""

import math

import bpy
import numpy as np

import zt2_test_support as t

scene = t.new_scene()
scene.frame_start, scene.frame_end = 1, 13
scene.frame_set(1)

focus = bpy.data.objects.new("Focus", None)
scene.collection.objects.link(focus)
focus.location = (0.0, 0.0, 0.0)
focus.keyframe_insert("location", frame=1)
focus.location = (3.0, 1.0, 2.0)
focus.keyframe_insert("location", frame=13)

camera = bpy.data.objects.new("Camera", bpy.data.cameras.new("CameraData"))
scene.collection.objects.link(camera)
camera.location = (0.0, -8.0, 3.0)
# A zoom: the file's camera has no keys, and holds the first frame's view.
camera.data.sensor_width = 36.0
for frame, lens in ((1, 35.0), (13, 60.0)):
    camera.data.lens = lens
    camera.data.keyframe_insert("lens", frame=frame)
track = camera.constraints.new("TRACK_TO")
track.target = focus
track.track_axis, track.up_axis = "TRACK_NEGATIVE_Z", "UP_Y"

spot_data = bpy.data.lights.new("SpotData", "SPOT")
spot = bpy.data.objects.new("Spot", spot_data)
scene.collection.objects.link(spot)
spot.location = (4.0, -4.0, 5.0)
spot.constraints.new("DAMPED_TRACK").target = focus
spot.constraints[0].track_axis = "TRACK_NEGATIVE_Z"
# Linear keys: the exporter's reduction keeps the corners, so the file's keys
# rebuild every frame.
for frame, energy, colour, size in ((1, 500.0, (1.0, 0.5, 0.25), 40.0), (7, 1500.0, (0.2, 0.6, 1.0), 70.0),
                                    (13, 800.0, (1.0, 1.0, 1.0), 55.0)):
    spot_data.energy, spot_data.color, spot_data.spot_size = energy, colour, math.radians(size)
    spot_data.keyframe_insert("energy", frame=frame)
    spot_data.keyframe_insert("color", frame=frame)
    spot_data.keyframe_insert("spot_size", frame=frame)
for curve in spot_data.animation_data.action.fcurves:
    for point in curve.keyframe_points:
        point.interpolation = "LINEAR"

scene.frame_set(1)
path = t.export("aim_keys")
exported = t.read(path)
samples = scene.frame_end - scene.frame_start

t.check([c.node.name for c in exported.cameras] == ["Camera"], "cameras %r" % [c.name for c in exported.cameras])
horizontal = 2.0 * math.atan(36.0 / 2.0 / 35.0)
t.check(math.isclose(exported.cameras[0].fov, horizontal, rel_tol=1e-5), "camera fov %g, %g expected" %
        (exported.cameras[0].fov, horizontal))
document = t.io_scene_zt2.gather.gather(bpy.context)
zoom = next(n for n in document.scene["nodes"] if n["name"] == "Camera")["object"]["fovDegrees"]
t.check(len(zoom["keys"]) == samples + 1 and math.isclose(zoom["keys"][-1]["value"], math.degrees(
    2.0 * math.atan(18.0 / 60.0)), rel_tol=1e-5), "the zoom's keys %r" % zoom)
animations = {a.name: a for a in exported.transform_animations}
t.check("Camera.Target" in animations and "Spot.Target" in animations,
        "no target keys: %r" % sorted(animations))


def keyed(frames, values, sample):
    """A track at a sample, linear between its keys."""
    frames = np.asarray(frames, np.float64)
    values = np.asarray(values, np.float64)
    at = np.searchsorted(frames, sample, side="right") - 1
    if at + 1 >= len(frames):
        return values[at]
    f = (sample - frames[at]) / (frames[at + 1] - frames[at])
    return values[at] * (1.0 - f) + values[at + 1] * f


def world(name, sample):
    animation = animations[name]
    m = t.matrix(keyed(animation.keys.samples, animation.keys.values, sample))
    return m @ world(animation.parent_name, sample) if animation.parent_name else m


light_keys = {a.name: a for a in exported.light_animations}
t.check("Spot" in light_keys, "no light animation for Spot: %r" % sorted(light_keys))
spot_keys = light_keys["Spot"]
t.check(len(spot_keys.intensity_keys) > 2 and len(spot_keys.color_keys) > 2, "Spot's keys were not sampled")
light_error = colour_error = aim_error = 0.0
for sample in range(samples):
    scene.frame_set(scene.frame_start + sample)
    multiplier = keyed(spot_keys.intensity_keys.samples, spot_keys.intensity_keys.values, sample)
    colour = keyed(spot_keys.color_keys.samples, spot_keys.color_keys.values, sample)[:3] / 255.0
    falloff = keyed(spot_keys.falloff_keys.samples, spot_keys.falloff_keys.values, sample)
    light_error = max(light_error, abs(multiplier - spot_data.energy / 1000.0), abs(falloff - spot_data.spot_size))
    colour_error = max(colour_error, np.abs(colour - np.array(spot_data.color)).max())
    target = t.to_file_axes(np.array(focus.matrix_world.translation))
    for name in ("Camera", "Spot"):
        m = world(name, sample)
        aim_error = max(aim_error, np.linalg.norm(world(name + ".Target", sample)[3, :3] - target))
        # Both look down their node's -z in Blender, the file's +z row.
        view = m[2, :3] / np.linalg.norm(m[2, :3])
        wanted = (target - m[3, :3]) / np.linalg.norm(target - m[3, :3])
        aim_error = max(aim_error, np.linalg.norm(view - wanted))
scene.frame_set(1)
# The exporter keeps light keys within 0.01 of every sample (multiplier,
# radians, and 2.55 of 255 for colours).
t.check(light_error <= 0.011 and colour_error <= 0.011, "light keys off by %.3g (colour %.3g)" %
        (light_error, colour_error))
print("blender aim_keys: %d samples; light multiplier and cone off by %.3g, colour by %.3g; target and view off by %.3g" %
      (samples, light_error, colour_error, aim_error))
t.check(aim_error < 1e-4, "the aim is off by %.3g" % aim_error)

# Imported into an empty scene: the targets come back as empties with their
# keys, the camera and the spot aimed at them, the light's keys on its data;
# exported again, the file keeps both targets.
original = {}
for frame in range(scene.frame_start, scene.frame_end + 1):
    scene.frame_set(frame)
    original[frame] = (np.array(camera.matrix_world), np.array(spot.matrix_world), spot_data.energy,
                       np.array(spot_data.color), spot_data.spot_size, np.array(focus.matrix_world.translation))
t.new_scene()
t.check(bpy.ops.import_scene.zt2(filepath=path) == {"FINISHED"}, "the import of aim_keys")
scene = bpy.context.scene
objects = bpy.data.objects
for name in ("Camera", "Spot"):
    target = objects.get(name + ".Target")
    t.check(target is not None and target.type == "EMPTY", "no empty %s.Target: %r" % (name, list(objects.keys())))
    kinds = [(c.type, c.target.name if c.target else None) for c in objects[name].constraints]
    t.check(len(kinds) == 1 and kinds[0][1] == name + ".Target" and kinds[0][0] in ("TRACK_TO", "DAMPED_TRACK"),
            "%s's constraints %r" % (name, kinds))
# The camera's view keeps the world's up: Track To; the Damped Track spot is rolled.
t.check(objects["Camera"].constraints[0].type == "TRACK_TO", "the camera is not aimed by Track To")
t.check(objects["Spot"].constraints[0].type == "DAMPED_TRACK", "the rolled spot is not aimed by Damped Track")
light = objects["Spot"].data
t.check(light.animation_data is not None and sorted(set(c.data_path for c in light.animation_data.action.fcurves))
        == ["color", "energy", "spot_size"], "the light's keyed values %r" % (
            light.animation_data and [c.data_path for c in light.animation_data.action.fcurves]))
import_error = light_import_error = 0.0
# The file holds the samples of frames 1 to 12 (see above).
for frame in range(scene.frame_start, scene.frame_start + samples):
    scene.frame_set(frame)
    camera_world, spot_world, energy, colour, size, aim = original[frame]
    import_error = max(import_error, np.abs(np.array(objects["Camera"].matrix_world) - camera_world).max(),
                       np.abs(np.array(objects["Spot"].matrix_world) - spot_world).max(),
                       np.linalg.norm(np.array(objects["Camera.Target"].matrix_world.translation) - aim),
                       np.linalg.norm(np.array(objects["Spot.Target"].matrix_world.translation) - aim))
    light_import_error = max(light_import_error, abs(light.energy - energy) / 1000.0, abs(light.spot_size - size),
                             np.abs(np.array(light.color) - colour).max())
scene.frame_set(scene.frame_start)
t.check(import_error < 1e-4, "the imported views and targets are off by %.3g" % import_error)
t.check(light_import_error <= 0.011, "the imported light is off by %.3g" % light_import_error)
again = t.export("aim_keys-again")
# At tolerance 0 the transforms and keys differ by the rounding of Blender's
# matrices (2.4e-7).
difference = t.ztexport.diff(path, again, tolerance=1e-5)
t.check(difference.equal, "the imported scene exports to another file:\n%s" % difference.text)
t.check(sorted(a.name for a in t.read(again).transform_animations if a.name.endswith(".Target")) ==
        ["Camera.Target", "Spot.Target"], "the second export's targets")
print("blender aim_keys import: views and targets off by %.3g, light by %.3g; exported again equal within 1e-5" %
      (import_error, light_import_error))
