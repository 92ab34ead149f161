// Skin weights read through the skinning modifier's export interface during
// the node pre-pass: per node one SkinVertexWeights per skin vertex, and one
// bone index space for the whole export in skeleton pre-order.
#pragma once

class SceneExporter;
class INode;
class Modifier;

// Reads the node's skin into exporter.skinWeightTable (replacing an earlier
// entry), entering its bones into the bone tables. Every problem is logged as
// an ERROR and marks the export failed; the node still gets an entry (empty
// when the skin could not be read at all).
void readSkinWeights(SceneExporter& exporter, INode* node);

// The skinning modifier on the node's topmost derived object, or none.
Modifier* findPhysiqueModifier(INode* node);

// The bone index of `bone`. The first bone met of a skeleton enters the
// whole skeleton (from its topmost ancestor below the root when `climb` is
// set) in depth-first pre-order; helper nodes take their parent's index.
int skinBoneIndex(SceneExporter& exporter, INode* bone, bool climb);
