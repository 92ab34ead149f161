#include "prepass/node_prepass.h"

#include "host/inode.h"

void prepassNode(SceneExporter& exporter, INode* node, int& nodeCount) {
  ++nodeCount;
  for (int i = 0; i < node->NumberOfChildren(); ++i) prepassNode(exporter, node->GetChildNode(i), nodeCount);
}
