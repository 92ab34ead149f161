#include "plugin/dispatch.h"

bool dispatchNode(SceneExporter&, INode*) { return true; }
