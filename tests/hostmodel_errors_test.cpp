// Bad scene files: every error names the file and the place in the document.
#include <gtest/gtest.h>

#include "host/memory/memory_host.h"
#include "support/test_support.h"

namespace {

using hostmodel::loadSceneFromString;
using hostmodel::SceneLoadError;

std::string errorOf(const std::string& json) {
  try {
    loadSceneFromString(json, "", "scene.json");
  } catch (const SceneLoadError& e) {
    return e.what();
  }
  return "(no error)";
}

TEST(HostModelErrors, WrongTypeDeepInTheTreeNamesThePath) {
  EXPECT_EQ(errorOf(R"({"nodes": [{"name": "a"}, {"name": "b"}, {"name": "c", "children": [
                {"name": "d", "transform": {"position": [1, 2]}}]}]})"),
            "scene.json: nodes[2].children[0].transform.position: expected an array of 3 numbers");
}

TEST(HostModelErrors, UnknownMembersAreRejected) {
  EXPECT_EQ(errorOf(R"({"nodes": [{"name": "a", "transform": {"positon": [1, 2, 3]}}]})"),
            "scene.json: nodes[0].transform: unknown member \"positon\" (expected one of: position, rotation, "
            "scale, matrix)");
  EXPECT_EQ(errorOf(R"({"frameRat": 25})").rfind("scene.json: unknown member \"frameRat\"", 0), 0u);
  EXPECT_EQ(errorOf(R"({"objects": [{"id": "c", "type": "camera", "fov": 45}]})"),
            "scene.json: objects[0]: unknown member \"fov\" for an object of type \"camera\" (expected one of: type, "
            "className, id, classId, fovDegrees, hither, yon)");
}

TEST(HostModelErrors, MissingRequiredMembers) {
  EXPECT_EQ(errorOf(R"({"nodes": [{"object": {"type": "helper"}}]})"),
            "scene.json: nodes[0]: missing required member \"name\"");
  EXPECT_EQ(errorOf(R"({"objects": [{"id": "l", "type": "light"}]})"),
            "scene.json: objects[0]: missing required member \"lightType\"");
  EXPECT_EQ(errorOf(R"({"objects": [{"type": "helper"}]})"), "scene.json: objects[0]: missing required member \"id\"");
}

TEST(HostModelErrors, WrongTypes) {
  EXPECT_EQ(errorOf(R"({"nodes": [{"name": 5}]})"), "scene.json: nodes[0].name: expected a string, found a number");
  EXPECT_EQ(errorOf(R"({"nodes": [{"name": "a", "hidden": "yes"}]})"),
            "scene.json: nodes[0].hidden: expected true or false, found a string");
  EXPECT_EQ(errorOf(R"({"nodes": {"name": "a"}})"), "scene.json: nodes: expected an array, found an object");
  EXPECT_EQ(errorOf(R"({"frameRate": 29.97})"), "scene.json: frameRate: expected an integer from 1 to 4800");
  EXPECT_EQ(errorOf(R"({"frameRate": 0})"),
            "scene.json: frameRate: expected an integer from 1 to 4800, found 0");
  EXPECT_EQ(errorOf("[]"), "scene.json: expected an object, found an array");
  EXPECT_EQ(errorOf(R"({"nodes": [{"name": "a", "transform": {"rotation": [0, 0, 0, 0]}}]})"),
            "scene.json: nodes[0].transform.rotation: a rotation quaternion cannot be all zero");
}

TEST(HostModelErrors, DanglingIds) {
  EXPECT_EQ(errorOf(R"({"nodes": [{"name": "a", "object": "box"}]})"),
            "scene.json: nodes[0].object: no object with id \"box\"");
  EXPECT_EQ(errorOf(R"({"nodes": [{"name": "a", "material": "red"}]})"),
            "scene.json: nodes[0].material: no material with id \"red\"");
  EXPECT_EQ(errorOf(R"({"materials": [{"id": "m", "type": "multi", "subMaterials": [null, "gone"]}]})"),
            "scene.json: materials[0].subMaterials[1]: no material with id \"gone\"");
  EXPECT_EQ(errorOf(R"({"materials": [{"id": "m", "type": "ztMaterial", "texmaps": ["gone"]}]})"),
            "scene.json: materials[0].texmaps[0]: no texture map with id \"gone\"");
  EXPECT_EQ(errorOf(R"({"objects": [{"id": "a", "type": "helper"}, {"id": "a", "type": "helper"}]})"),
            "scene.json: objects[1].id: an object with id \"a\" is declared already");
}

TEST(HostModelErrors, UnknownEnumWords) {
  EXPECT_EQ(errorOf(R"({"objects": [{"id": "l", "type": "light", "lightType": "bulb"}]})"),
            "scene.json: objects[0].lightType: unknown light type \"bulb\" (expected omni, spot, directional or "
            "ambient)");
  EXPECT_EQ(errorOf(R"({"objects": [{"id": "x", "type": "nurbs"}]})"),
            "scene.json: objects[0].type: unknown object type \"nurbs\" (expected mesh, geometry, shape, camera, "
            "light, helper, target or other)");
  EXPECT_EQ(errorOf(R"({"materials": [{"id": "m", "type": "shiny"}]})"),
            "scene.json: materials[0].type: unknown material type \"shiny\" (expected standard, multi, ztMaterial "
            "or other)");
  EXPECT_EQ(errorOf(R"({"objects": [{"id": "x", "type": "other", "superClassId": "0xZZ"}]})"),
            "scene.json: objects[0].superClassId: expected a number or a hexadecimal string such as \"0x1020\", "
            "found \"0xZZ\"");
}

TEST(HostModelErrors, KeysMustBeOrderedAndTimed) {
  EXPECT_EQ(errorOf(R"({"nodes": [{"name": "a", "visibility": {"keys": [{"frame": 10, "value": 1}, {"frame": 5, "value": 0}]}}]})"),
            "scene.json: nodes[0].visibility.keys[1]: keys must be in increasing time order: tick 800 follows tick "
            "1600");
  EXPECT_EQ(errorOf(R"({"nodes": [{"name": "a", "visibility": {"keys": [{"value": 1}]}}]})"),
            "scene.json: nodes[0].visibility.keys[0]: missing required member \"frame\" (or \"tick\")");
  EXPECT_EQ(errorOf(R"({"nodes": [{"name": "a", "visibility": {"keys": [{"frame": 1, "tick": 160, "value": 1}]}}]})"),
            "scene.json: nodes[0].visibility.keys[0]: a key has either \"frame\" or \"tick\", not both");
  EXPECT_EQ(errorOf(R"({"nodes": [{"name": "a", "visibility": {"keys": []}}]})"),
            "scene.json: nodes[0].visibility.keys: expected at least one key");
  EXPECT_EQ(errorOf(R"({"animationRange": [30, 0]})"),
            "scene.json: animationRange: the end frame lies before the start frame");
}

TEST(HostModelErrors, MatrixExcludesTheParts) {
  EXPECT_EQ(errorOf(R"({"nodes": [{"name": "a", "transform": {"position": [0, 0, 0], "matrix": [[1, 0, 0], [0, 1, 0], [0, 0, 1], [0, 0, 0]]}}]})"),
            "scene.json: nodes[0].transform.matrix: a matrix excludes \"position\", \"rotation\" and \"scale\"");
}

TEST(HostModelErrors, MalformedJsonGivesLineAndColumn) {
  const std::string message = errorOf("{\n  \"nodes\": [\n    {\"name\": \"a\",}\n  ]\n}");
  EXPECT_EQ(message.rfind("scene.json: malformed JSON at line 3, column ", 0), 0u) << message;
  EXPECT_EQ(errorOf("").rfind("scene.json: malformed JSON at line 1, column 1", 0), 0u) << errorOf("");
}

TEST(HostModelErrors, MembersGivenTwiceAreRejected) {
  EXPECT_EQ(errorOf(R"({"nodes": [{"name": "a"}, {"name": "b", "children": [1, [2], {"name": "c",
                "transform": {"position": [1, 2, 3], "position": [4, 5, 6]}}]}]})"),
            "scene.json: nodes[1].children[2].transform.position: member given twice");
  EXPECT_EQ(errorOf(R"({"frameRate": 30, "frameRate": 25})"), "scene.json: frameRate: member given twice");
}

TEST(HostModelErrors, MissingFileNamesThePath) {
  ztx_test::TempDir dir;
  const std::string path = dir.file("absent.json");
  try {
    hostmodel::loadScene(path);
    FAIL() << "no error";
  } catch (const SceneLoadError& e) {
    EXPECT_EQ(std::string(e.what()), path + ": cannot open the scene file");
  }
}

TEST(HostModelErrors, FileErrorsUseThePathGiven) {
  ztx_test::TempDir dir;
  ztx_test::writeText(dir.file("bad.json"), R"({"version": 2})");
  try {
    hostmodel::loadScene(dir.file("bad.json"));
    FAIL() << "no error";
  } catch (const SceneLoadError& e) {
    EXPECT_EQ(std::string(e.what()), dir.file("bad.json") + ": version: unsupported version; this host reads version 1");
  }
}

}  // namespace
