"""A camera, a spot light, a point light and a sun, each with the values the
conversion must carry over, and a plane for the positions."""

import math

import bpy
import numpy as np

import zt2_test_support as t

scene = t.new_scene()
scene.render.resolution_x, scene.render.resolution_y = 1600, 900

camera_data = bpy.data.cameras.new("CameraData")
camera_data.lens = 35.0
camera_data.sensor_width = 36.0
camera_data.clip_start, camera_data.clip_end = 0.25, 250.0
camera = bpy.data.objects.new("Camera", camera_data)
scene.collection.objects.link(camera)
camera.location = (0.0, -8.0, 3.0)
camera.rotation_euler = (math.radians(75.0), 0.0, 0.0)

cases = {
    # name: (Blender type, colour, energy, expected type, expected multiplier)
    "Spot": ("SPOT", (1.0, 0.5, 0.25), 500.0, "spot", 0.5),
    "Point": ("POINT", (0.2, 0.4, 0.6), 2000.0, "omni", 2.0),
    "Sun": ("SUN", (1.0, 1.0, 0.9), 3.0, "directional", 3.0),
}
for name, (kind, colour, energy, _, _) in cases.items():
    data = bpy.data.lights.new(name + "Data", kind)
    data.color = colour
    data.energy = energy
    if kind == "SPOT":
        data.spot_size = math.radians(60.0)
        data.spot_blend = 0.25
    obj = bpy.data.objects.new(name, data)
    scene.collection.objects.link(obj)
    obj.location = (1.0, 2.0, 4.0)

bpy.ops.mesh.primitive_plane_add(size=4.0, location=(0.0, 0.0, -1.0))
plane = bpy.context.active_object
plane.name = "Plane"

path = t.export("camera_light")
exported = t.read(path)

t.check(len(exported.cameras) == 1, "one camera expected, found %d" % len(exported.cameras))
cam = exported.cameras[0]
horizontal = 2.0 * math.atan(36.0 / 2.0 / 35.0)  # sensor fit: width, landscape output
t.check(math.isclose(cam.fov, horizontal, rel_tol=1e-5), "camera fov %.6f, %.6f expected" % (cam.fov, horizontal))
t.check(math.isclose(cam.near, 0.25, rel_tol=1e-6) and math.isclose(cam.far, 250.0, rel_tol=1e-6),
        "camera clip range %g..%g" % (cam.near, cam.far))
cam_world = t.world_matrix(exported, cam.node)
t.check(np.allclose(cam_world[3, :3], t.to_file_axes(camera.matrix_world.translation), atol=1e-5),
        "camera position %r" % cam_world[3, :3])
view = cam_world[2, :3] / np.linalg.norm(cam_world[2, :3])
expected_view = t.to_file_axes(-np.array(camera.matrix_world.col[2][:3]))
t.check(np.allclose(view, expected_view, atol=1e-5), "camera looks along %r, %r expected" %
        (view, expected_view))

lights = {light.name: light for light in exported.lights}
t.check(sorted(lights) == sorted(cases), "lights %r" % sorted(lights))
for name, (_, colour, _, kind, multiplier) in cases.items():
    light = lights[name]
    t.check(light.type == kind, "%s: type %s, %s expected" % (name, light.type, kind))
    t.check(np.allclose(np.array(light.color[:3]) / 255.0, colour, atol=1e-5), "%s: colour %r" %
            (name, light.color))
    t.check(math.isclose(light.intensity, multiplier, rel_tol=1e-5), "%s: multiplier %g, %g expected" %
            (name, light.intensity, multiplier))
spot = lights["Spot"]
# The file holds cone angles in radians: size 60 degrees, blend 0.25.
t.check(math.isclose(spot.falloff, math.radians(60.0), rel_tol=1e-5) and
        math.isclose(spot.hotspot, math.radians(45.0), rel_tol=1e-5),
        "spot hotspot %g, falloff %g (radians)" % (spot.hotspot, spot.falloff))

t.report("camera_light", t.position_deviation(exported, plane))
