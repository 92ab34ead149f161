// The parameters of the studio's own material and texture plug-ins, read
// through the host's parameter access under the names the plug-ins declare.
// A parameter the object does not carry reads as the value given here, which
// is the default of the record field it feeds.
#pragma once

#include <array>
#include <string>

#include "host/material.h"

struct ZTMaterialParams {
  std::array<bool, 7> flags{};  // the seven general flags, in declaration order
  float value1 = 0.0f;
  float value2 = 0.0f;
  int diffuseMode = 0;
  int mode2 = 0;
  int plainLayerMode = 1;
  int option1 = 0;
  std::array<bool, 5> layerFlags{};  // layer 1 (diffuse) .. layer 5 (mask)
  int layer2Mode = 0;
  bool layer2ExtraFlag = false;
  int maskMode = 0;
  int intValue = 240;
};

struct ZTTextureParams {
  std::string mapFileName;  // as entered in the plug-in; may be empty
  int mode = 0;
  int valueFlag = 0;
  int value = 0;
  bool sequenceSwitch1 = false;
  bool sequenceSwitch2 = false;
  int sequenceValue1 = 0;
  int sequenceValue2 = 0;
  int sequenceMode = 2;
};

ZTMaterialParams readZTMaterialParams(const MtlBase& material);
ZTTextureParams readZTTextureParams(const MtlBase& texture);
