// The animation pass: after the objects, every exported node gets its
// TransformAnimationChunk (animated or not; a still node gets one key), and a
// light its light animation chunk right after it, in the order of the object
// pass's walk.
#pragma once

class SceneExporter;
class INode;

// Walks the children of the scene root; stops before the next one on a user
// cancel or a reported error. The root itself is not sampled.
void exportSceneAnimation(SceneExporter& exporter);
// One node and its subtree. A node that is not exported writes nothing, but
// its children are still visited.
void exportNodeAnimation(SceneExporter& exporter, INode* node);
