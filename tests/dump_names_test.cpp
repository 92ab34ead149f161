// Names are bytes in the code page of the host that wrote them (Windows-1252).
// zt2dump shows them decoded from it, as UTF-8, in every output: the text, the
// JSON, the validator's messages, the diff and the glTF file; the five bytes
// the code page leaves undefined come out as the C1 controls, escaped in text.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/scene_export.h"

namespace {

std::string replaced(std::string bytes, const std::string& from, const std::string& to, bool lastOnly = false) {
  if (lastOnly) return bytes.replace(bytes.rfind(from), from.size(), to);
  for (std::size_t at = bytes.find(from); at != std::string::npos; at = bytes.find(from, at + to.size()))
    bytes.replace(at, from.size(), to);
  return bytes;
}

class DumpNames : public ztx_test::ExportedExample {
 protected:
  static void SetUpTestSuite() {
    ExportedExample::SetUpTestSuite();
    const std::string bytes = ztx_test::readText(scene_);
    // One node renamed as a host in a Western code page writes it, one with bytes the code page leaves undefined.
    const std::string renamed = replaced(replaced(bytes, "Character", "C\xe9" "aracter"), "Marker", "M\x81rk\x9d" "r");
    ztx_test::writeText(dir_->file("renamed.zt2"), renamed);
    // The mesh's material, not the list's: a name the validator reports.
    ztx_test::writeText(dir_->file("unlisted.zt2"),
                        replaced(renamed, std::string("\x04\0\0\0Skin", 8), std::string("\x04\0\0\0Sk\xefn", 8), true));
  }
};

const std::string kCharacter = "C\xc3\xa9" "aracter";  // "Céaracter" in UTF-8

TEST_F(DumpNames, EveryOutputDecodesTheCodePage) {
  const std::string renamed = dir_->file("renamed.zt2");
  struct Row {
    std::vector<std::string> args;
    int exitCode;
    std::vector<std::string> expected;  // in standard output, or in standard error when the exit code is not 0
  };
  const Row rows[] = {
      {{renamed}, 0, {"name: \"" + kCharacter + "\"", "name: \"M\\x81rk\\x9dr\""}},
      {{dir_->file("unlisted.zt2"), "--validate"}, 1, {"(mesh \"" + kCharacter + "\"): material \"Sk\xc3\xafn\" is not in"}},
      {{"--diff", dir_->file("example.zt2"), renamed}, 1,
       {"added MeshChunk \"" + kCharacter + "\"", "removed MeshChunk \"Character\""}},
  };
  for (const Row& row : rows) {
    const ztx_test::RunResult r = ztx_test::runDump(row.args);
    EXPECT_EQ(r.exitCode, row.exitCode) << row.args[0] << " " << row.args.back() << "\n" << r.err;
    for (const std::string& text : row.expected)
      EXPECT_NE((row.exitCode == 2 || (row.exitCode == 1 && row.args[0] != "--diff") ? r.err : r.out).find(text),
                std::string::npos)
          << "expected " << text << " in\n" << r.out << r.err;
  }
  // JSON: the names as text, undefined bytes as their C1 controls; no U+FFFD anywhere.
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{renamed, "--json"}, {"--diff", dir_->file("example.zt2"), renamed, "--json"}}) {
    const ztx_test::RunResult r = ztx_test::runDump(args);
    const nlohmann::json j = nlohmann::json::parse(r.out);
    const std::string text = j.dump();
    EXPECT_NE(text.find(kCharacter), std::string::npos) << text;
    EXPECT_NE(text.find("M\xc2\x81rk\xc2\x9dr"), std::string::npos) << text;
    EXPECT_EQ(r.out.find("\xef\xbf\xbd"), std::string::npos) << r.out;
  }
  // glTF's names are UTF-8.
  const ztx_test::RunResult gltf = ztx_test::runDump({renamed, "--gltf", dir_->file("renamed.glb")});
  EXPECT_EQ(gltf.exitCode, 0) << gltf.err;
  const std::string glb = ztx_test::readText(dir_->file("renamed.glb"));
  EXPECT_NE(glb.find(kCharacter), std::string::npos);
  EXPECT_EQ(glb.find("\xef\xbf\xbd"), std::string::npos);
}

}  // namespace
