// The base data every scene object carries, and its chunk. Each object chunk
// (mesh, camera, light, helper) nests an ObjectChunk as its first content.
#pragma once

#include <string>

#include "format/memory_file.h"
#include "host/inhouse/matrix.h"

class ObjectRecord {
 public:
  std::string& name() { return name_; }
  const std::string& name() const { return name_; }
  std::string& parentName() { return parentName_; }
  const std::string& parentName() const { return parentName_; }
  M_Matrix4x3Template<float>& transform() { return transform_; }
  const M_Matrix4x3Template<float>& transform() const { return transform_; }
  std::string& userProperties() { return userProperties_; }
  const std::string& userProperties() const { return userProperties_; }
  bool hasParent() const { return hasParent_; }
  void setHasParent(bool v) { hasParent_ = v; }

 private:
  std::string name_;
  M_Matrix4x3Template<float> transform_;
  std::string parentName_;
  bool hasParent_ = false;
  std::string userProperties_;
};

// Chunk order: name, parent name, transform, has-parent flag, user properties.
T_MemoryFile& operator<<(T_MemoryFile& file, const ObjectRecord& record);
