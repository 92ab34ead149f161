// Materials and texture maps of the host model. Any of them may carry named
// integer, float and string parameters; the studio's own plug-in classes are
// read through them.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/material.h"

namespace hostmodel {

struct ParamValue {
  enum class Kind { Int, Float, String };
  Kind kind = Kind::Int;
  int i = 0;
  float f = 0.0f;
  std::string s;
};

// Integer parameters also answer as floats; floats never answer as integers,
// so that a fractional value cannot be truncated unnoticed.
class ParamTable {
 public:
  void set(const std::string& name, ParamValue value) { params_[name] = std::move(value); }
  bool getInt(const std::string& name, int& value) const;
  bool getFloat(const std::string& name, float& value) const;
  bool getString(const std::string& name, std::string& value) const;

 private:
  std::map<std::string, ParamValue> params_;
};

class MemoryTexmap : public Texmap {
 public:
  MemoryTexmap(std::string name, Class_ID classId) : name_(std::move(name)), classId_(classId) {}

  ParamTable& params() { return params_; }

  const std::string& GetName() const override { return name_; }
  Class_ID ClassID() const override { return classId_; }
  bool GetParamInt(const std::string& name, int& value) const override { return params_.getInt(name, value); }
  bool GetParamFloat(const std::string& name, float& value) const override { return params_.getFloat(name, value); }
  bool GetParamString(const std::string& name, std::string& value) const override {
    return params_.getString(name, value);
  }

 private:
  std::string name_;
  Class_ID classId_;
  ParamTable params_;
};

struct MaterialColors {
  Color ambient{0.5f, 0.5f, 0.5f};
  Color diffuse{0.5f, 0.5f, 0.5f};
  Color specular{0.9f, 0.9f, 0.9f};
};

class MemoryMtl : public Mtl {
 public:
  MemoryMtl(std::string name, Class_ID classId) : name_(std::move(name)), classId_(classId) {}

  void setColors(const MaterialColors& colors) { colors_ = colors; }
  // Slots may be none (empty slots).
  void setSubMaterials(std::vector<Mtl*> slots) { subMtls_ = std::move(slots); }
  void setSubTexmaps(std::vector<Texmap*> slots) { subTexmaps_ = std::move(slots); }
  ParamTable& params() { return params_; }

  const std::string& GetName() const override { return name_; }
  Class_ID ClassID() const override { return classId_; }
  bool GetParamInt(const std::string& name, int& value) const override { return params_.getInt(name, value); }
  bool GetParamFloat(const std::string& name, float& value) const override { return params_.getFloat(name, value); }
  bool GetParamString(const std::string& name, std::string& value) const override {
    return params_.getString(name, value);
  }

  int NumSubMtls() const override { return static_cast<int>(subMtls_.size()); }
  Mtl* GetSubMtl(int i) const override;
  Color GetAmbient() const override { return colors_.ambient; }
  Color GetDiffuse() const override { return colors_.diffuse; }
  Color GetSpecular() const override { return colors_.specular; }
  int NumSubTexmaps() const override { return static_cast<int>(subTexmaps_.size()); }
  Texmap* GetSubTexmap(int slot) const override;

 private:
  std::string name_;
  Class_ID classId_;
  MaterialColors colors_;
  std::vector<Mtl*> subMtls_;
  std::vector<Texmap*> subTexmaps_;
  ParamTable params_;
};

}  // namespace hostmodel
