// The converter for geometric nodes: one MeshChunk into the scene file and,
// while skinning is exported, the node's per-vertex skin data as a .skd file.
#pragma once

class SceneExporter;
class INode;

// Writes at most one MeshChunk for `node` into exporter.sceneFile (a
// reference chunk when its object was written before and references are
// saved once). Scene problems go to the exporter's info log.
void exportMesh(SceneExporter& exporter, INode* node);
