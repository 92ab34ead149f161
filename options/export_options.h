// The settings in effect during one export. Every pass reads its flags here.
// They are derived from the options dialog record by applyDialogOptions and
// then adjusted by the additional configuration script.
#pragma once

#include <string>

enum class FrameInterpolation : int { None = 0, Normalized = 1, Orthonormalized = 2 };

struct ExportOptions {
  bool exportGeometry = true;
  bool exportSkinning = true;
  bool exportAnimation = true;
  bool exportCameras = true;
  bool exportLights = true;
  bool exportMaterials = true;
  bool exportHelpers = true;
  bool exportEnvironment = true;
  bool removeFloatingVertices = true;
  bool removeHiddenObjects = true;
  float rescaleFactor = 1.0f;
  std::string texturePath = ".";
  bool copyTextures = true;
  bool dumpInfo = true;
  bool retainHierarchies = true;
  bool pivotAsMeshCenter = true;
  bool saveReferencesOnce = true;
  int sampleRate = 30;  // frames per second
  float positionDelta = 0.0f;
  float rotationDelta = 0.0f;
  int frameToFrameInterpolation = 0;  // a FrameInterpolation value
  bool maintainMatrixScaling = false;
  bool loop = false;
  bool loopInterpolation = false;
  bool useGlobalAnimationRange = true;
  int startFrame = 0;   // scene frames
  int endFrame = 0;     // scene frames
  int loopToFrame = 0;  // scene frames
};
