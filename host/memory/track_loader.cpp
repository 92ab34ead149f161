#include <limits>
#include <cmath>

#include "host/memory/scene_loader_parts.h"

namespace hostmodel {
namespace {

TimeValue readKeyTime(const JsonCursor& key, const LoadContext& ctx) {
  const auto frame = key.find("frame");
  const auto tick = key.find("tick");
  if (frame && tick) key.fail("a key has either \"frame\" or \"tick\", not both");
  if (tick) return tick->asInt();
  if (!frame) key.fail("missing required member \"frame\" (or \"tick\")");
  const double ticks = std::round(frame->asNumber() * ctx.ticksPerFrame);
  if (ticks < std::numeric_limits<int>::min() + 1.0 || ticks > std::numeric_limits<int>::max() - 1.0)
    frame->fail("frame lies outside the range of host time");
  return static_cast<TimeValue>(ticks);
}

// A constant value, or {"keys": [{"frame"|"tick": t, "value": v}, ...]}.
template <typename T, typename ReadValue>
AnimatedValue<T> readTrack(const JsonCursor& c, const LoadContext& ctx, ReadValue readValue) {
  if (!(c.isObject() && c.has("keys"))) return AnimatedValue<T>(readValue(c));
  c.expectMembers({"keys"});
  const auto keyList = c["keys"];
  if (keyList.size() == 0) keyList.fail("expected at least one key");
  std::vector<Key<T>> keys;
  for (const JsonCursor& key : keyList.elements()) {
    key.expectMembers({"frame", "tick", "value"});
    Key<T> k{readKeyTime(key, ctx), readValue(key["value"])};
    if (!keys.empty() && k.time <= keys.back().time)
      key.fail("keys must be in increasing time order: tick " + std::to_string(k.time) + " follows tick " +
               std::to_string(keys.back().time));
    keys.push_back(std::move(k));
  }
  AnimatedValue<T> track;
  track.setKeys(std::move(keys));
  return track;
}

}  // namespace

AnimatedValue<float> readFloatTrack(const JsonCursor& c, const LoadContext& ctx, float factor) {
  return readTrack<float>(c, ctx, [factor](const JsonCursor& v) { return v.asFloat() * factor; });
}

AnimatedValue<Point3> readPointTrack(const JsonCursor& c, const LoadContext& ctx) {
  return readTrack<Point3>(c, ctx, [](const JsonCursor& v) { return v.asPoint3(); });
}

AnimatedValue<Color> readColorTrack(const JsonCursor& c, const LoadContext& ctx) {
  return readTrack<Color>(c, ctx, [](const JsonCursor& v) { return v.asColor(); });
}

AnimatedValue<Quat> readRotationTrack(const JsonCursor& c, const LoadContext& ctx) {
  return readTrack<Quat>(c, ctx, [](const JsonCursor& v) { return readRotation(v); });
}

Quat readRotation(const JsonCursor& c) {
  if (c.isObject()) {
    c.expectMembers({"eulerDegrees"});
    return quatFromEulerDegrees(c["eulerDegrees"].asPoint3());
  }
  if (!c.isArray() || c.json().size() != 4)
    c.fail("expected a rotation: a quaternion [x, y, z, w] or {\"eulerDegrees\": [x, y, z]}");
  Quat q;
  const auto parts = c.elements();
  q.x = parts[0].asFloat();
  q.y = parts[1].asFloat();
  q.z = parts[2].asFloat();
  q.w = parts[3].asFloat();
  if (q.x == 0.0f && q.y == 0.0f && q.z == 0.0f && q.w == 0.0f) c.fail("a rotation quaternion cannot be all zero");
  return normalized(q);
}

NodeTransform readTransform(const JsonCursor& c, const LoadContext& ctx) {
  c.expectMembers({"position", "rotation", "scale", "matrix"});
  NodeTransform t;
  if (const auto matrix = c.find("matrix")) {
    if (c.has("position") || c.has("rotation") || c.has("scale"))
      matrix->fail("a matrix excludes \"position\", \"rotation\" and \"scale\"");
    if (!matrix->isArray() || matrix->json().size() != 4) matrix->fail("expected 4 rows of 3 numbers");
    const auto rows = matrix->elements();
    t.useMatrix = true;
    t.matrix = Matrix3(rows[0].asPoint3(), rows[1].asPoint3(), rows[2].asPoint3(), rows[3].asPoint3());
    return t;
  }
  if (const auto p = c.find("position")) t.position = readPointTrack(*p, ctx);
  if (const auto r = c.find("rotation")) t.rotation = readRotationTrack(*r, ctx);
  if (const auto s = c.find("scale")) t.scale = readPointTrack(*s, ctx);
  return t;
}

ObjectOffset readObjectOffset(const JsonCursor& c) {
  c.expectMembers({"position", "rotation", "scale", "scaleAxis"});
  ObjectOffset o;
  if (const auto p = c.find("position")) o.position = p->asPoint3();
  if (const auto r = c.find("rotation")) o.rotation = readRotation(*r);
  if (const auto s = c.find("scale")) o.scale.s = s->asPoint3();
  if (const auto a = c.find("scaleAxis")) o.scale.q = readRotation(*a);
  return o;
}

}  // namespace hostmodel
