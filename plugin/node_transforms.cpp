#include "plugin/node_transforms.h"

#include <string>

#include "host/inode.h"
#include "plugin/scene_exporter.h"

namespace {

constexpr float kHalfPi = 1.5707964f;

Matrix3 toMatrix3(const M_Matrix4x3Template<float>& m) {
  return Matrix3({m[0][0], m[0][1], m[0][2]}, {m[1][0], m[1][1], m[1][2]}, {m[2][0], m[2][1], m[2][2]},
                 {m[3][0], m[3][1], m[3][2]});
}

}  // namespace

bool isNodeExported(const SceneExporter& exporter, INode* node) {
  return !(exporter.options.removeHiddenObjects && node->IsNodeHidden(false));
}

INode* findExportParent(const SceneExporter& exporter, INode* node) {
  INode* p = node->GetParentNode();
  while (p && !p->IsRootNode()) {
    // A group head is a dummy that only organises its members: the members
    // hang on the group's own parent instead. Asking both head queries skips
    // the head whether the user left its group open or closed; members keep
    // their hierarchy inside the group.
    if (!p->IsGroupHead() && !p->IsOpenGroupHead() && isNodeExported(exporter, p)) return p;
    p = p->GetParentNode();
  }
  return p;
}

Matrix3 nodeWorldTransform(const SceneExporter& exporter, INode* node, TimeValue t) {
  Matrix3 m = exporter.options.pivotAsMeshCenter ? node->GetNodeTM(t) : node->GetObjectTM(t);
  if (node->IsRootNode())
    m = m * RotateXMatrix(exporter.options.retainHierarchies ? kHalfPi : -kHalfPi);
  else if (!exporter.options.retainHierarchies)
    m = m * RotateXMatrix(-kHalfPi);
  return m;
}

M_Matrix4x3Template<float> exportTransform(const SceneExporter& exporter, INode* node, TimeValue t) {
  Matrix3 l = nodeWorldTransform(exporter, node, t);
  if (exporter.options.retainHierarchies)
    l = l * Inverse(nodeWorldTransform(exporter, findExportParent(exporter, node), t));
  const Matrix3 a = toMatrix3(exporter.axisConversion);
  const Matrix3 m = a * l * a;
  M_Matrix4x3Template<float> out;
  for (int r = 0; r < 4; ++r) {
    const Point3 row = m.GetRow(r);
    const float scale = r == 3 ? exporter.options.rescaleFactor : 1.0f;
    out[r] = {row.x * scale, row.y * scale, row.z * scale};
  }
  return out;
}

void fillObjectRecord(const SceneExporter& exporter, ObjectRecord& record, INode* node, TimeValue t) {
  record.name() = node->GetName();
  INode* p = findExportParent(exporter, node);
  if (p && !p->IsRootNode()) {
    record.parentName() = p->GetName();
    record.setHasParent(exporter.options.retainHierarchies);
  } else {
    record.parentName().clear();
    record.setHasParent(false);
  }
  record.transform() = exportTransform(exporter, node, t);
  node->GetUserPropBuffer(record.userProperties());
}
