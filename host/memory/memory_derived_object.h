// A node's modifier stack: the derived object that GetObjectRef hands out
// when modifiers are applied, and the modifiers in it. The model does not
// apply modifiers to geometry; evaluating the node yields the base object.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/memory/memory_objects.h"
#include "host/memory/memory_physique.h"
#include "host/objects.h"

namespace hostmodel {

class MemoryModifier : public Modifier {
 public:
  // `physique` answers GetInterface(I_PHYINTERFACE); empty when the modifier
  // has no such interface.
  MemoryModifier(Class_ID classId, std::string className, std::unique_ptr<MemoryPhysiqueExport> physique);
  ~MemoryModifier() override;

  SClass_ID SuperClassID() const override { return kModifierSuperClass; }
  Class_ID ClassID() const override { return classId_; }
  void GetClassName(std::string& s) const override { s = className_; }
  void* GetInterface(unsigned long id) override;

  MemoryPhysiqueExport* physique() const { return physique_.get(); }

 private:
  // The host's super class of object-space modifiers.
  static constexpr SClass_ID kModifierSuperClass = 0x810;
  Class_ID classId_;
  std::string className_;
  std::unique_ptr<MemoryPhysiqueExport> physique_;
};

class MemoryDerivedObject : public IDerivedObject {
 public:
  // `base` may be none: a node without an object can still carry modifiers.
  MemoryDerivedObject(Object* base, std::vector<std::unique_ptr<MemoryModifier>> modifiers);
  ~MemoryDerivedObject() override;

  SClass_ID SuperClassID() const override { return GEN_DERIVOB_CLASS_ID; }
  Class_ID ClassID() const override { return Class_ID(1, 0); }
  void GetClassName(std::string& s) const override { s = "Derived Object"; }
  bool CanConvertToType(Class_ID cls) const override { return base_ && base_->CanConvertToType(cls); }
  ConvertedObject ConvertToType(TimeValue t, Class_ID cls) override {
    return base_ ? base_->ConvertToType(t, cls) : ConvertedObject();
  }

  int NumModifiers() const override { return static_cast<int>(modifiers_.size()); }
  Modifier* GetModifier(int i) const override;

  Object* baseObject() const { return base_; }
  MemoryModifier* modifier(int i) const { return static_cast<MemoryModifier*>(GetModifier(i)); }

 private:
  Object* base_;
  std::vector<std::unique_ptr<MemoryModifier>> modifiers_;
};

}  // namespace hostmodel
