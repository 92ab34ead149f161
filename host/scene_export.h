// The host's plug-in interfaces that the exporter module implements: the
// class descriptor through which the host creates an exporter, and the
// scene-export interface through which it drives one. Both sides of the
// module boundary compile this header; virtual slots keep the host's order.
#pragma once

#include "host/max_types.h"

class Interface;
class ExpInterface;  // the host's export interface; the exporter does not use it

using BOOL = int;
using DWORD = unsigned long;
using HWND = void*;
inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;

inline constexpr SClass_ID SCENE_EXPORT_CLASS_ID = 0xA20;
// The host's export option for writing the selected nodes only.
inline constexpr DWORD SCENE_EXPORT_SELECTED = 1;

class SceneExport {
 public:
  virtual ~SceneExport() = default;
  virtual int ExtCount() = 0;
  virtual const char* Ext(int n) = 0;
  virtual const char* LongDesc() = 0;
  virtual const char* ShortDesc() = 0;
  virtual const char* AuthorName() = 0;
  virtual const char* CopyrightMessage() = 0;
  virtual const char* OtherMessage1() = 0;
  virtual const char* OtherMessage2() = 0;
  virtual unsigned int Version() = 0;  // the version number times 100
  virtual void ShowAbout(HWND hWnd) = 0;
  virtual int DoExport(const char* name, ExpInterface* ei, Interface* i, BOOL suppressPrompts = FALSE,
                       DWORD options = 0) = 0;
  virtual BOOL SupportsOptions(int ext, DWORD options) = 0;
};

class ClassDesc {
 public:
  virtual ~ClassDesc() = default;
  virtual int IsPublic() = 0;
  // A new object of the class, owned by the caller; for SCENE_EXPORT_CLASS_ID
  // it is a SceneExport.
  virtual void* Create(BOOL loading = FALSE) = 0;
  virtual const char* ClassName() = 0;
  virtual SClass_ID SuperClassID() = 0;
  virtual Class_ID ClassID() = 0;
  virtual const char* Category() = 0;
};

// The module's entry points, exported by their plain names. A host loads
// them by name; the typedefs are what it casts them to.
using LibDescriptionFn = const char* (*)();
using LibNumberClassesFn = int (*)();
using LibClassDescFn = ClassDesc* (*)(int i);
using LibVersionFn = unsigned long (*)();
