#include "host/memory/memory_materials.h"

namespace hostmodel {

bool ParamTable::getInt(const std::string& name, int& value) const {
  const auto it = params_.find(name);
  if (it == params_.end() || it->second.kind != ParamValue::Kind::Int) return false;
  value = it->second.i;
  return true;
}

bool ParamTable::getFloat(const std::string& name, float& value) const {
  const auto it = params_.find(name);
  if (it == params_.end()) return false;
  if (it->second.kind == ParamValue::Kind::Float) {
    value = it->second.f;
    return true;
  }
  if (it->second.kind == ParamValue::Kind::Int) {
    value = static_cast<float>(it->second.i);
    return true;
  }
  return false;
}

bool ParamTable::getString(const std::string& name, std::string& value) const {
  const auto it = params_.find(name);
  if (it == params_.end() || it->second.kind != ParamValue::Kind::String) return false;
  value = it->second.s;
  return true;
}

Mtl* MemoryMtl::GetSubMtl(int i) const {
  if (i < 0 || i >= static_cast<int>(subMtls_.size())) return nullptr;
  return subMtls_[i];
}

Texmap* MemoryMtl::GetSubTexmap(int slot) const {
  if (slot < 0 || slot >= static_cast<int>(subTexmaps_.size())) return nullptr;
  return subTexmaps_[slot];
}

}  // namespace hostmodel
