#include <numbers>

#include "host/memory/scene_loader_parts.h"

namespace hostmodel {
namespace {

constexpr float kDegreesToRadians = static_cast<float>(std::numbers::pi / 180.0);

Class_ID classIdOr(const JsonCursor& c, Class_ID fallback) {
  const auto m = c.find("classId");
  return m ? m->asClassId() : fallback;
}

int readLightType(const JsonCursor& c) {
  const std::string word = c.asString();
  if (word == "omni") return OMNI_LIGHT;
  if (word == "spot") return SPOT_LIGHT;
  if (word == "directional") return DIRECT_LIGHT;
  if (word == "ambient") return AMBIENT_LIGHT;
  c.fail("unknown light type \"" + word + "\" (expected omni, spot, directional or ambient)");
}

const char* defaultLightClassName(int type) {
  switch (type) {
    case SPOT_LIGHT: return "Target Spot";
    case DIRECT_LIGHT: return "Directional";
    case AMBIENT_LIGHT: return "Ambient";
    default: return "Omni";
  }
}

std::unique_ptr<Object> readCamera(const JsonCursor& c, const LoadContext& ctx) {
  CameraParameters p;
  if (const auto m = c.find("fovDegrees")) p.fov = readFloatTrack(*m, ctx, kDegreesToRadians);
  if (const auto m = c.find("hither")) p.hither = readFloatTrack(*m, ctx);
  if (const auto m = c.find("yon")) p.yon = readFloatTrack(*m, ctx);
  return std::make_unique<MemoryCameraObject>(classIdOr(c, Class_ID(0x1001, 0)), c.stringOr("className", "Target Camera"),
                                              std::move(p));
}

std::unique_ptr<Object> readLight(const JsonCursor& c, const LoadContext& ctx) {
  LightParameters p;
  p.type = readLightType(c["lightType"]);
  if (const auto m = c.find("color")) p.color = readColorTrack(*m, ctx);
  if (const auto m = c.find("multiplier")) p.multiplier = readFloatTrack(*m, ctx);
  if (const auto m = c.find("hotspotDegrees")) p.hotspot = readFloatTrack(*m, ctx);
  if (const auto m = c.find("falloffDegrees")) p.falloff = readFloatTrack(*m, ctx);
  if (const auto m = c.find("attenuationStart")) p.attenuationStart = readFloatTrack(*m, ctx);
  if (const auto m = c.find("attenuationEnd")) p.attenuationEnd = readFloatTrack(*m, ctx);
  const std::string className = c.stringOr("className", defaultLightClassName(p.type));
  return std::make_unique<MemoryLightObject>(classIdOr(c, Class_ID(0, 0)), className, std::move(p));
}

}  // namespace

std::unique_ptr<Object> readObject(const JsonCursor& c, LoadContext& ctx, bool declared) {
  if (!c.isObject()) c.fail("expected an object definition (or, in a node, an object id)");
  const std::string type = c["type"].asString();
  // Members every kind allows; "id" only where the object is declared.
  auto allow = [&](std::initializer_list<const char*> own) {
    std::vector<const char*> names{"type", "className"};
    if (declared) names.push_back("id");
    names.insert(names.end(), own.begin(), own.end());
    for (const auto& [key, value] : c.json().items()) {
      bool known = false;
      for (const char* n : names) known = known || key == n;
      if (known) continue;
      std::string list;
      for (const char* n : names) list += (list.empty() ? "" : ", ") + std::string(n);
      c.fail("unknown member \"" + key + "\" for an object of type \"" + type + "\" (expected one of: " + list + ")");
    }
  };

  if (type == "mesh") {
    allow({"mesh"});
    return std::make_unique<MemoryTriObject>(readMesh(c["mesh"], ctx), c.stringOr("className", "Editable Mesh"));
  }
  if (type == "geometry") {
    allow({"classId", "mesh"});
    std::unique_ptr<MemoryTriObject> converted;
    if (const auto m = c.find("mesh")) converted = std::make_unique<MemoryTriObject>(readMesh(*m, ctx));
    return std::make_unique<MemoryGeomObject>(classIdOr(c, Class_ID(0, 0)), c.stringOr("className", "Geometry"),
                                              std::move(converted));
  }
  if (type == "shape") {
    allow({"classId"});
    return std::make_unique<MemoryPlainObject>(
        ObjectIdentity{SHAPE_CLASS_ID, classIdOr(c, Class_ID(0, 0)), c.stringOr("className", "Line")});
  }
  if (type == "camera") {
    allow({"classId", "fovDegrees", "hither", "yon"});
    return readCamera(c, ctx);
  }
  if (type == "light") {
    allow({"classId", "lightType", "color", "multiplier", "hotspotDegrees", "falloffDegrees", "attenuationStart",
           "attenuationEnd"});
    return readLight(c, ctx);
  }
  if (type == "helper") {
    allow({"classId"});
    return std::make_unique<MemoryPlainObject>(
        ObjectIdentity{HELPER_CLASS_ID, classIdOr(c, Class_ID(0, 0)), c.stringOr("className", "Dummy")});
  }
  if (type == "target") {
    // Targets are geometry-class objects in the host, told apart by class id.
    allow({});
    return std::make_unique<MemoryPlainObject>(
        ObjectIdentity{GEOMOBJECT_CLASS_ID, TARGET_CLASS_ID, c.stringOr("className", "Target")});
  }
  if (type == "other") {
    allow({"classId", "superClassId"});
    const SClass_ID superClass = c["superClassId"].asClassIdPart();
    return std::make_unique<MemoryPlainObject>(
        ObjectIdentity{superClass, classIdOr(c, Class_ID(0, 0)), c.stringOr("className", "Unknown")});
  }
  c["type"].fail("unknown object type \"" + type +
                 "\" (expected mesh, geometry, shape, camera, light, helper, target or other)");
}

}  // namespace hostmodel
