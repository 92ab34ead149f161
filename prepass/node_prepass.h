// The walk over every node before anything is written: counts nodes, collects
// materials, reports default materials and duplicate names, reads skin weights.
#pragma once

class SceneExporter;
class INode;

void prepassNode(SceneExporter& exporter, INode* node, int& nodeCount);
