// A node's transform and visibility over the animation range, sampled once
// per frame at the export's sample rate and reduced to keys.
#pragma once

#include "animation/animation_chunks.h"

class SceneExporter;
class INode;

// Fills `record` for `node`. A node whose keys lie wholly outside the given
// range is sampled at the nearest end of its own range, with a warning.
void sampleTransformAnimation(SceneExporter& exporter, TransformAnimation& record, INode* node);
