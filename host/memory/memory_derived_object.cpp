#include "host/memory/memory_derived_object.h"

namespace hostmodel {

MemoryModifier::MemoryModifier(Class_ID classId, std::string className,
                               std::unique_ptr<MemoryPhysiqueExport> physique)
    : classId_(classId), className_(std::move(className)), physique_(std::move(physique)) {}

MemoryModifier::~MemoryModifier() = default;

void* MemoryModifier::GetInterface(unsigned long id) {
  if (id == I_PHYINTERFACE && physique_) return static_cast<IPhysiqueExport*>(physique_.get());
  return nullptr;
}

MemoryDerivedObject::MemoryDerivedObject(Object* base, std::vector<std::unique_ptr<MemoryModifier>> modifiers)
    : base_(base), modifiers_(std::move(modifiers)) {}

MemoryDerivedObject::~MemoryDerivedObject() = default;

Modifier* MemoryDerivedObject::GetModifier(int i) const {
  if (i < 0 || i >= static_cast<int>(modifiers_.size())) return nullptr;
  return modifiers_[i].get();
}

}  // namespace hostmodel
