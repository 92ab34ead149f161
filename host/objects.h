// Scene objects as the host hands them out: the evaluated object of a node and
// the object kinds the exporter distinguishes by super class. Host objects are
// owned by the host; the exporter refers to them by identity (pointers).
#pragma once

#include <memory>
#include <string>

#include "host/max_types.h"

class Mesh;
class INode;

// Interface id of the skinning modifier's export interface.
inline constexpr unsigned long I_PHYINTERFACE = 0x100100;

class Animatable {
 public:
  virtual ~Animatable() = default;
  virtual SClass_ID SuperClassID() const = 0;
  virtual Class_ID ClassID() const = 0;
  // The class name as the host shows it ("Dummy", "Point", ...).
  virtual void GetClassName(std::string& s) const = 0;
  // An extension interface by id, or none.
  virtual void* GetInterface(unsigned long /*id*/) { return nullptr; }
};

class Object;

// What a conversion hands back. The host's rule is that the caller deletes a
// result that is not the object itself; here that ownership travels with the
// result, so the new object goes when the result does.
class ConvertedObject {
 public:
  ConvertedObject() = default;
  // The object itself (or one the host keeps): nothing to delete.
  static ConvertedObject borrowed(Object* object) {
    ConvertedObject c;
    c.object_ = object;
    return c;
  }
  // A new object made for the caller.
  static ConvertedObject owned(std::unique_ptr<Object> object) {
    ConvertedObject c;
    c.object_ = object.get();
    c.owned_ = std::move(object);
    return c;
  }
  Object* get() const { return object_; }
  bool ownsObject() const { return owned_ != nullptr; }

 private:
  Object* object_ = nullptr;
  std::unique_ptr<Object> owned_;
};

class Object : public Animatable {
 public:
  virtual bool CanConvertToType(Class_ID /*cls*/) const { return false; }
  // The object converted to class `cls` at tick t; empty when it cannot be.
  virtual ConvertedObject ConvertToType(TimeValue /*t*/, Class_ID /*cls*/) { return {}; }
};

// Result of evaluating a node's pipeline: the object at the end of it, or none.
struct ObjectState {
  Object* obj = nullptr;
};

// A triangle-mesh object (class (9, 0)).
class TriObject : public Object {
 public:
  virtual Mesh& GetMesh() = 0;
};

struct CameraState {
  float fov = 0.0f;     // radians
  float hither = 0.0f;  // near clip distance, scene units
  float yon = 0.0f;     // far clip distance, scene units
};

class CameraObject : public Object {
 public:
  virtual void EvalCameraState(TimeValue t, Interval& valid, CameraState& cs) = 0;
};

enum LightType { OMNI_LIGHT = 0, SPOT_LIGHT = 1, DIRECT_LIGHT = 2, AMBIENT_LIGHT = 3 };

struct LightState {
  int type = OMNI_LIGHT;
  Color color;
  float intens = 0.0f;      // multiplier
  float hotsize = 0.0f;     // degrees
  float fallsize = 0.0f;    // degrees
  float attenStart = 0.0f;  // far attenuation start, scene units
  float attenEnd = 0.0f;    // far attenuation end, scene units
};

class LightObject : public Object {
 public:
  virtual void EvalLightState(TimeValue t, Interval& valid, LightState& ls) = 0;
};

class Modifier : public Animatable {};

// An object with modifiers applied (super class 2).
class IDerivedObject : public Object {
 public:
  virtual int NumModifiers() const = 0;
  virtual Modifier* GetModifier(int i) const = 0;
};
