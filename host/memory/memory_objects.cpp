#include "host/memory/memory_objects.h"

namespace hostmodel {

MemoryTriObject::MemoryTriObject(Mesh mesh, std::string className)
    : mesh_(std::move(mesh)), className_(std::move(className)) {}

ConvertedObject MemoryTriObject::ConvertToType(TimeValue, Class_ID cls) {
  if (cls != TRIOBJ_CLASS_ID) return {};
  // A mesh still in its buffer files converts to a new object the caller
  // owns, as other geometry does: the copy costs nothing (it reads the same
  // files), and the caller may let each array go once it has read it, where
  // the host's own would stay in memory for as long as the scene.
  if (mesh_.hasDeferredArrays()) return ConvertedObject::owned(std::make_unique<MemoryTriObject>(mesh_, className_));
  return ConvertedObject::borrowed(this);
}

MemoryGeomObject::MemoryGeomObject(Class_ID classId, std::string className,
                                   std::unique_ptr<MemoryTriObject> converted)
    : classId_(classId), className_(std::move(className)), converted_(std::move(converted)) {}

bool MemoryGeomObject::CanConvertToType(Class_ID cls) const { return converted_ && cls == TRIOBJ_CLASS_ID; }

ConvertedObject MemoryGeomObject::ConvertToType(TimeValue, Class_ID cls) {
  if (!CanConvertToType(cls)) return {};
  // As the host does for other geometry: a new triangle-mesh object that the caller owns.
  return ConvertedObject::owned(std::make_unique<MemoryTriObject>(converted_->GetMesh()));
}

namespace {

void narrowIfAnimated(bool animated, TimeValue t, Interval& valid) {
  if (animated) valid = {t, t};
}

}  // namespace

MemoryCameraObject::MemoryCameraObject(Class_ID classId, std::string className, CameraParameters parameters)
    : classId_(classId), className_(std::move(className)), parameters_(std::move(parameters)) {}

void MemoryCameraObject::EvalCameraState(TimeValue t, Interval& valid, CameraState& cs) {
  cs.fov = parameters_.fov.at(t);
  cs.hither = parameters_.hither.at(t);
  cs.yon = parameters_.yon.at(t);
  narrowIfAnimated(parameterKeyRange() != NEVER, t, valid);
}

Interval MemoryCameraObject::parameterKeyRange() const {
  return unionRange(parameters_.fov.keyRange(),
                    unionRange(parameters_.hither.keyRange(), parameters_.yon.keyRange()));
}

MemoryLightObject::MemoryLightObject(Class_ID classId, std::string className, LightParameters parameters)
    : classId_(classId), className_(std::move(className)), parameters_(std::move(parameters)) {}

void MemoryLightObject::EvalLightState(TimeValue t, Interval& valid, LightState& ls) {
  ls.type = parameters_.type;
  ls.color = parameters_.color.at(t);
  ls.intens = parameters_.multiplier.at(t);
  ls.hotsize = parameters_.hotspot.at(t);
  ls.fallsize = parameters_.falloff.at(t);
  ls.attenStart = parameters_.attenuationStart.at(t);
  ls.attenEnd = parameters_.attenuationEnd.at(t);
  narrowIfAnimated(parameterKeyRange() != NEVER, t, valid);
}

Interval MemoryLightObject::parameterKeyRange() const {
  Interval r = parameters_.color.keyRange();
  r = unionRange(r, parameters_.multiplier.keyRange());
  r = unionRange(r, parameters_.hotspot.keyRange());
  r = unionRange(r, parameters_.falloff.keyRange());
  r = unionRange(r, parameters_.attenuationStart.keyRange());
  return unionRange(r, parameters_.attenuationEnd.keyRange());
}

}  // namespace hostmodel
