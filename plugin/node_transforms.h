// Node operations every converter and the animation pass share: the
// hidden-object filter, the exported parent, and the node's transform in the
// file's axis convention.
#pragma once

#include "format/object_record.h"
#include "host/inhouse/matrix.h"
#include "host/max_types.h"

class SceneExporter;
class INode;

// False exactly when hidden objects are removed and the node's own hidden flag is set.
bool isNodeExported(const SceneExporter& exporter, INode* node);
// The nearest ancestor that may stand as the node's exported parent; the scene root at the latest.
INode* findExportParent(const SceneExporter& exporter, INode* node);
// The node's pivot (or object) transform turned into the file's up axis.
Matrix3 nodeWorldTransform(const SceneExporter& exporter, INode* node, TimeValue t);
// The transform written into every ObjectChunk: relative to the exported
// parent when hierarchies are kept, in the file's axes, translation rescaled.
M_Matrix4x3Template<float> exportTransform(const SceneExporter& exporter, INode* node, TimeValue t);
void fillObjectRecord(const SceneExporter& exporter, ObjectRecord& record, INode* node, TimeValue t);

