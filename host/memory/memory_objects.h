// The object kinds of the host model: triangle meshes, other geometry (which
// may or may not convert to a triangle mesh), cameras, lights, and objects
// that only have an identity (shapes, helpers, targets, unknown kinds).
// The host owns them; nodes refer to them, and instanced nodes share one.
#pragma once

#include <memory>
#include <string>

#include "host/memory/animated_value.h"
#include "host/mesh.h"
#include "host/objects.h"

namespace hostmodel {

// What an object is as the exporter distinguishes it.
struct ObjectIdentity {
  SClass_ID superClass = 0;
  Class_ID classId;
  std::string className;
};

// Objects whose own parameters may be keyed; the node adds their key range to
// GetTimeRange when asked for sub-animations.
class KeyedParameters {
 public:
  virtual ~KeyedParameters() = default;
  virtual Interval parameterKeyRange() const = 0;
};

class MemoryTriObject : public TriObject {
 public:
  explicit MemoryTriObject(Mesh mesh, std::string className = "Editable Mesh");

  SClass_ID SuperClassID() const override { return GEOMOBJECT_CLASS_ID; }
  Class_ID ClassID() const override { return TRIOBJ_CLASS_ID; }
  void GetClassName(std::string& s) const override { s = className_; }
  bool CanConvertToType(Class_ID cls) const override { return cls == TRIOBJ_CLASS_ID; }
  ConvertedObject ConvertToType(TimeValue t, Class_ID cls) override;
  Mesh& GetMesh() override { return mesh_; }

 private:
  Mesh mesh_;
  std::string className_;
};

// Geometry of another class (a primitive, a patch, a particle system...).
// With a mesh it converts to a new triangle-mesh object that the caller owns;
// without one it cannot convert.
class MemoryGeomObject : public Object {
 public:
  MemoryGeomObject(Class_ID classId, std::string className, std::unique_ptr<MemoryTriObject> converted);

  SClass_ID SuperClassID() const override { return GEOMOBJECT_CLASS_ID; }
  Class_ID ClassID() const override { return classId_; }
  void GetClassName(std::string& s) const override { s = className_; }
  bool CanConvertToType(Class_ID cls) const override;
  ConvertedObject ConvertToType(TimeValue t, Class_ID cls) override;

 private:
  Class_ID classId_;
  std::string className_;
  std::unique_ptr<MemoryTriObject> converted_;
};

// An object known only by its identity: shapes, helpers, target objects and
// objects of super classes the exporter does not handle.
class MemoryPlainObject : public Object {
 public:
  explicit MemoryPlainObject(ObjectIdentity identity) : identity_(std::move(identity)) {}

  SClass_ID SuperClassID() const override { return identity_.superClass; }
  Class_ID ClassID() const override { return identity_.classId; }
  void GetClassName(std::string& s) const override { s = identity_.className; }

 private:
  ObjectIdentity identity_;
};

struct CameraParameters {
  AnimatedValue<float> fov{0.785398163f};  // radians
  AnimatedValue<float> hither{1.0f};       // scene units
  AnimatedValue<float> yon{1000.0f};       // scene units
};

class MemoryCameraObject : public CameraObject, public KeyedParameters {
 public:
  MemoryCameraObject(Class_ID classId, std::string className, CameraParameters parameters);

  SClass_ID SuperClassID() const override { return CAMERA_CLASS_ID; }
  Class_ID ClassID() const override { return classId_; }
  void GetClassName(std::string& s) const override { s = className_; }
  // Narrows `valid` to the tick t itself when a parameter is keyed.
  void EvalCameraState(TimeValue t, Interval& valid, CameraState& cs) override;
  Interval parameterKeyRange() const override;

 private:
  Class_ID classId_;
  std::string className_;
  CameraParameters parameters_;
};

struct LightParameters {
  int type = OMNI_LIGHT;
  AnimatedValue<Color> color{Color{1.0f, 1.0f, 1.0f}};
  AnimatedValue<float> multiplier{1.0f};
  AnimatedValue<float> hotspot{43.0f};           // degrees
  AnimatedValue<float> falloff{45.0f};           // degrees
  AnimatedValue<float> attenuationStart{80.0f};  // scene units
  AnimatedValue<float> attenuationEnd{200.0f};   // scene units
};

class MemoryLightObject : public LightObject, public KeyedParameters {
 public:
  MemoryLightObject(Class_ID classId, std::string className, LightParameters parameters);

  SClass_ID SuperClassID() const override { return LIGHT_CLASS_ID; }
  Class_ID ClassID() const override { return classId_; }
  void GetClassName(std::string& s) const override { s = className_; }
  // Narrows `valid` to the tick t itself when a parameter is keyed.
  void EvalLightState(TimeValue t, Interval& valid, LightState& ls) override;
  Interval parameterKeyRange() const override;

 private:
  Class_ID classId_;
  std::string className_;
  LightParameters parameters_;
};

}  // namespace hostmodel
