// The object pass: a depth-first walk that hands each node's evaluated object
// to the converter of its class.
#pragma once

class SceneExporter;
class INode;

// Walks `node` and its subtree. False when the walk stopped for a user cancel
// or a reported error.
bool dispatchNode(SceneExporter& exporter, INode* node);
