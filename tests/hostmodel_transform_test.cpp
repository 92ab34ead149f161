// Node transforms, keyed values, visibility and time ranges of the host model.
#include <gtest/gtest.h>

#include <cmath>

#include "host/inode.h"
#include "host/memory/memory_host.h"
#include "host/memory/rotation_math.h"

namespace {

using hostmodel::loadSceneFromString;

constexpr float kTolerance = 1e-5f;

void expectPoint(const Point3& actual, const Point3& expected) {
  EXPECT_NEAR(actual.x, expected.x, kTolerance);
  EXPECT_NEAR(actual.y, expected.y, kTolerance);
  EXPECT_NEAR(actual.z, expected.z, kTolerance);
}

void expectMatrix(const Matrix3& actual, const Matrix3& expected) {
  for (int r = 0; r < 4; ++r) expectPoint(actual.GetRow(r), expected.GetRow(r));
}

std::unique_ptr<hostmodel::MemoryHost> load(const std::string& json) {
  return loadSceneFromString(json, "", "scene.json");
}

TEST(HostModelTransform, ChildUnderRotatedParentIsRotatedThenMoved) {
  // Parent turned 90 degrees about Z and moved to (10, 0, 0): the child's
  // local (1, 2, 3) lands at (10 - 2, 1, 3) in the world.
  for (const char* rotation : {R"({"eulerDegrees": [0, 0, 90]})", "[0, 0, 0.70710678, 0.70710678]"}) {
    auto host = load(std::string(R"({"nodes": [{"name": "Parent", "transform": {"position": [10, 0, 0], "rotation": )") +
                     rotation + R"(}, "children": [{"name": "Child", "transform": {"position": [1, 2, 3]}}]}]})");
    INode* child = host->findNode("Child");
    ASSERT_NE(child, nullptr);
    expectPoint(child->GetNodeTM(0).GetTrans(), {8, 1, 3});
    // The child's X axis follows the parent's turn onto world Y.
    expectPoint(child->GetNodeTM(0).GetRow(0), {0, 1, 0});
    EXPECT_EQ(child->GetParentNode(), host->findNode("Parent"));
  }
}

TEST(HostModelTransform, LocalScaleAppliesBeforeRotation) {
  auto host = load(R"({"nodes": [{"name": "N", "transform": {
      "position": [0, 0, 1], "rotation": {"eulerDegrees": [0, 0, 90]}, "scale": [2, 3, 4]}}]})");
  const Matrix3 tm = host->findNode("N")->GetNodeTM(0);
  // Scaled X axis (2, 0, 0) turned onto Y; scaled Y axis (0, 3, 0) onto -X.
  expectPoint(tm.GetRow(0), {0, 2, 0});
  expectPoint(tm.GetRow(1), {-3, 0, 0});
  expectPoint(tm.GetRow(2), {0, 0, 4});
  expectPoint(tm.GetRow(3), {0, 0, 1});
}

TEST(HostModelTransform, MatrixTransformIsTakenAsGiven) {
  auto host = load(R"({"nodes": [{"name": "N", "transform": {"matrix": [[0, 1, 0], [-1, 0, 0], [0, 0, 1], [4, 5, 6]]}}]})");
  expectMatrix(host->findNode("N")->GetNodeTM(123),
               Matrix3({0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {4, 5, 6}));
}

TEST(HostModelTransform, RootIsIdentityUnlessTheSceneGivesOne) {
  auto plain = load(R"({"nodes": [{"name": "A"}]})");
  EXPECT_TRUE(plain->GetRootNode()->IsRootNode());
  expectMatrix(plain->GetRootNode()->GetNodeTM(0), Matrix3());

  auto moved = load(R"({"rootTransform": {"position": [0, 0, 7]}, "nodes": [{"name": "A", "transform": {"position": [1, 0, 0]}}]})");
  expectPoint(moved->GetRootNode()->GetNodeTM(0).GetTrans(), {0, 0, 7});
  // Children sit in the root's frame like in any other parent's.
  expectPoint(moved->findNode("A")->GetNodeTM(0).GetTrans(), {1, 0, 7});
}

TEST(HostModelTransform, ObjectTransformAddsTheOffsetToTheNodeTransform) {
  auto host = load(R"({"nodes": [{"name": "N",
      "transform": {"position": [5, 0, 0], "rotation": {"eulerDegrees": [0, 0, 90]}},
      "objectOffset": {"position": [1, 0, 0], "rotation": {"eulerDegrees": [90, 0, 0]}, "scale": [2, 2, 2]}}]})");
  INode* node = host->findNode("N");
  const Matrix3 nodeTM = node->GetNodeTM(0);
  const Matrix3 objectTM = node->GetObjectTM(0);
  // The offset (1, 0, 0) in the node's turned frame is world (0, 1, 0).
  expectPoint(nodeTM.GetTrans(), {5, 0, 0});
  expectPoint(objectTM.GetTrans(), {5, 1, 0});
  expectMatrix(objectTM, ObjectOffsetMatrix(node->GetObjOffsetPos(), node->GetObjOffsetRot(),
                                            node->GetObjOffsetScale()) * nodeTM);
  expectPoint(node->GetObjOffsetScale().s, {2, 2, 2});
}

TEST(HostModelTransform, PositionKeysInterpolateLinearlyAndHoldOutside) {
  // 30 frames a second: frame 10 is tick 1600.
  auto host = load(R"({"nodes": [{"name": "N", "transform": {"position": {"keys": [
      {"frame": 10, "value": [0, 0, 0]}, {"frame": 20, "value": [10, 0, 0]}, {"tick": 4800, "value": [10, 20, 0]}]}}}]})");
  INode* node = host->findNode("N");
  expectPoint(node->GetNodeTM(0).GetTrans(), {0, 0, 0});
  expectPoint(node->GetNodeTM(1600).GetTrans(), {0, 0, 0});
  expectPoint(node->GetNodeTM(2400).GetTrans(), {5, 0, 0});
  expectPoint(node->GetNodeTM(3200).GetTrans(), {10, 0, 0});
  expectPoint(node->GetNodeTM(4000).GetTrans(), {10, 10, 0});
  expectPoint(node->GetNodeTM(100000).GetTrans(), {10, 20, 0});
}

TEST(HostModelTransform, RotationKeysSlerp) {
  auto host = load(R"({"nodes": [{"name": "N", "transform": {"rotation": {"keys": [
      {"frame": 0, "value": {"eulerDegrees": [0, 0, 0]}}, {"frame": 10, "value": {"eulerDegrees": [0, 0, 90]}}]}}}]})");
  const Matrix3 half = host->findNode("N")->GetNodeTM(800);
  const float c = std::cos(0.78539816f), s = std::sin(0.78539816f);
  expectPoint(half.GetRow(0), {c, s, 0});
  expectPoint(half.GetRow(1), {-s, c, 0});
}

TEST(HostModelTransform, SlerpTakesTheShorterWay) {
  const Quat a = hostmodel::quatFromEulerDegrees({0, 0, 10});
  Quat b = hostmodel::quatFromEulerDegrees({0, 0, 30});
  b = {-b.x, -b.y, -b.z, -b.w};  // the same rotation written the other way round
  const Quat mid = hostmodel::slerp(a, b, 0.5f);
  const Matrix3 expected = RotateZMatrix(20.0f * 3.14159265f / 180.0f);
  expectMatrix(QuatToMatrix(mid), expected);
}

TEST(HostModelTransform, EulerAnglesApplyXThenYThenZ) {
  const Point3 degrees{30, 45, 60};
  const float k = 3.14159265f / 180.0f;
  const Matrix3 expected = RotateXMatrix(30 * k) * RotateYMatrix(45 * k) * RotateZMatrix(60 * k);
  expectMatrix(QuatToMatrix(hostmodel::quatFromEulerDegrees(degrees)), expected);
}

TEST(HostModelTransform, FrameKeysFollowTheScenesFrameRate) {
  auto host = load(R"({"frameRate": 25, "nodes": [{"name": "N", "transform": {"position": {"keys": [
      {"frame": 0, "value": [0, 0, 0]}, {"frame": 25, "value": [1, 0, 0]}]}}}]})");
  EXPECT_EQ(host->findNode("N")->GetTimeRange(TIMERANGE_ALL), Interval(0, 4800));
  // Changing the frame rate later does not move keys: they are ticks.
  host->SetFrameRate(60);
  EXPECT_EQ(host->findNode("N")->GetTimeRange(TIMERANGE_ALL), Interval(0, 4800));
}

TEST(HostModelTransform, TimeRangeOfOwnKeysOrNever) {
  auto host = load(R"({"nodes": [
      {"name": "Still", "transform": {"position": [1, 2, 3]},
       "children": [{"name": "Moving", "transform": {"scale": {"keys": [
           {"frame": 5, "value": [1, 1, 1]}, {"frame": 20, "value": [2, 2, 2]}]}},
           "children": [{"name": "Fading", "visibility": {"keys": [{"frame": 40, "value": 1}, {"frame": 50, "value": 0}]}}]}]},
      {"name": "Lamp", "object": {"type": "light", "lightType": "omni",
       "multiplier": {"keys": [{"frame": 0, "value": 1}, {"frame": 60, "value": 2}]}}}]})");
  EXPECT_EQ(host->findNode("Still")->GetTimeRange(TIMERANGE_ALL), NEVER);
  EXPECT_EQ(host->findNode("Moving")->GetTimeRange(TIMERANGE_ALL), Interval(800, 3200));
  EXPECT_EQ(host->findNode("Fading")->GetTimeRange(TIMERANGE_ALL), Interval(6400, 8000));
  const unsigned int withChildren = TIMERANGE_CHILDNODES | TIMERANGE_CHILDANIMS;
  EXPECT_EQ(withChildren, 12u);
  EXPECT_EQ(host->findNode("Still")->GetTimeRange(withChildren), Interval(800, 8000));
  // A light's keyed parameters count as sub-animations only.
  EXPECT_EQ(host->findNode("Lamp")->GetTimeRange(TIMERANGE_ALL), NEVER);
  EXPECT_EQ(host->findNode("Lamp")->GetTimeRange(withChildren), Interval(0, 9600));
  EXPECT_EQ(host->GetRootNode()->GetTimeRange(withChildren), Interval(0, 9600));
}

TEST(HostModelTransform, VisibilityInheritsAsAProduct) {
  auto host = load(R"({"nodes": [{"name": "P", "visibility": 0.5, "children": [
      {"name": "Inherits", "visibility": 0.5},
      {"name": "Own", "visibility": 0.5, "inheritVisibility": false},
      {"name": "Keyed", "visibility": {"keys": [{"frame": 0, "value": 0}, {"frame": 10, "value": 1}]}}]}]})");
  INode* inherits = host->findNode("Inherits");
  EXPECT_TRUE(inherits->GetInheritVisibility());
  EXPECT_FLOAT_EQ(inherits->GetLocalVisibility(0), 0.5f);
  EXPECT_FLOAT_EQ(inherits->GetVisibility(0), 0.25f);
  INode* own = host->findNode("Own");
  EXPECT_FALSE(own->GetInheritVisibility());
  EXPECT_FLOAT_EQ(own->GetVisibility(0), 0.5f);
  INode* keyed = host->findNode("Keyed");
  EXPECT_FLOAT_EQ(keyed->GetLocalVisibility(800), 0.5f);
  EXPECT_FLOAT_EQ(keyed->GetVisibility(800), 0.25f);
  EXPECT_FLOAT_EQ(host->findNode("P")->GetVisibility(0), 0.5f);
}

}  // namespace
