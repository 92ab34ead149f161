// Skin weights read in the pre-pass: per skinned node one list of influences
// per skin vertex, and one bone index space shared by the whole export.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

class INode;

struct SkinWeight {
  int bone = 0;        // index into SkinBoneNames
  float weight = 0.0f;
};

// The influences of one skin vertex, in the skin modifier's order.
using SkinVertexWeights = std::vector<SkinWeight>;

// Node (by identity) -> one SkinVertexWeights per skin vertex.
using SkinWeightTable = std::unordered_map<const INode*, std::vector<SkinVertexWeights>>;
// Bone node (by identity) -> dense bone index.
using SkinBoneIndexTable = std::unordered_map<const INode*, int>;
// Element k is the name of bone k.
using SkinBoneNames = std::vector<std::string>;
