#include "materials/zt_plugin_params.h"


namespace {

void readInt(const MtlBase& m, const char* name, int& value) { m.GetParamInt(name, value); }

// The plug-ins keep their switches as bytes: any value but 0 is set.
void readByte(const MtlBase& m, const std::string& name, bool& value) {
  int v = 0;
  if (m.GetParamInt(name, v)) value = v != 0;
}

}  // namespace

ZTMaterialParams readZTMaterialParams(const MtlBase& m) {
  ZTMaterialParams p;
  for (std::size_t i = 0; i < p.flags.size(); ++i) readByte(m, "flag" + std::to_string(i + 1), p.flags[i]);
  m.GetParamFloat("value1", p.value1);
  m.GetParamFloat("value2", p.value2);
  readInt(m, "diffuseMode", p.diffuseMode);
  readInt(m, "mode2", p.mode2);
  readInt(m, "plainLayerMode", p.plainLayerMode);
  readInt(m, "option1", p.option1);
  for (std::size_t i = 0; i < p.layerFlags.size(); ++i)
    readByte(m, "layer" + std::to_string(i + 1) + "Flag", p.layerFlags[i]);
  readInt(m, "layer2Mode", p.layer2Mode);
  readByte(m, "layer2ExtraFlag", p.layer2ExtraFlag);
  readInt(m, "maskMode", p.maskMode);
  readInt(m, "intValue", p.intValue);
  return p;
}

ZTTextureParams readZTTextureParams(const MtlBase& t) {
  ZTTextureParams p;
  t.GetParamString("mapFileName", p.mapFileName);
  readInt(t, "mode", p.mode);
  readInt(t, "valueFlag", p.valueFlag);
  readInt(t, "value", p.value);
  readByte(t, "sequenceSwitch1", p.sequenceSwitch1);
  readByte(t, "sequenceSwitch2", p.sequenceSwitch2);
  readInt(t, "sequenceValue1", p.sequenceValue1);
  readInt(t, "sequenceValue2", p.sequenceValue2);
  readInt(t, "sequenceMode", p.sequenceMode);
  return p;
}
