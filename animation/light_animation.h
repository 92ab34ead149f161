// Light parameters over the animation range: colour, intensity and, by kind,
// attenuation range and cone angles, sampled and reduced as node transforms
// are and converted as the static light chunks are.
#pragma once

#include "animation/animation_chunks.h"

class SceneExporter;
class INode;

// Writes the light animation chunk of a light node; nothing for cameras,
// geometry, shapes and helpers; logs objects of any other kind.
void exportLightAnimation(SceneExporter& exporter, INode* node);

// Fills `record`, whose kind is set, for `node`. The span takes in the keys
// of the light's parameters; a node whose keys all lie outside the given
// range is held at the nearest end of its own range, as transforms are.
void sampleLightAnimation(SceneExporter& exporter, LightAnimation& record, INode* node);
