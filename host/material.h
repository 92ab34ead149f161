// Materials and texture maps as the exporter reads them. The studio's own
// material and texture classes expose their parameters by name through
// GetParam*, standing in for the plug-ins' parameter blocks.
#pragma once

#include <string>

#include "host/max_types.h"

class Texmap;

// The studio's own material and texture plug-in classes.
inline constexpr Class_ID ZTMATERIAL_CLASS_ID{0x62af033c, 0x48255d2d};
inline constexpr Class_ID ZTTEXTURE_CLASS_ID{0x419c2263, 0x450a2d14};

class MtlBase {
 public:
  virtual ~MtlBase() = default;
  virtual const std::string& GetName() const = 0;
  virtual Class_ID ClassID() const = 0;
  // Integer, float and string parameters of the studio's plug-in classes;
  // false when the parameter does not exist.
  virtual bool GetParamInt(const std::string& /*name*/, int& /*value*/) const { return false; }
  virtual bool GetParamFloat(const std::string& /*name*/, float& /*value*/) const { return false; }
  virtual bool GetParamString(const std::string& /*name*/, std::string& /*value*/) const { return false; }
};

class Mtl : public MtlBase {
 public:
  virtual int NumSubMtls() const = 0;
  // The material in slot i, or none for an empty slot.
  virtual Mtl* GetSubMtl(int i) const = 0;
  virtual Color GetAmbient() const = 0;
  virtual Color GetDiffuse() const = 0;
  virtual Color GetSpecular() const = 0;
  virtual int NumSubTexmaps() const = 0;
  virtual Texmap* GetSubTexmap(int slot) const = 0;
};

// The image a map shows is a parameter of its plug-in class (the studio's
// texture reads it as "mapFileName"); the bitmap manager loads it.
class Texmap : public MtlBase {};
