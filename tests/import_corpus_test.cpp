// Every model of Debian's assimp-testmodels in a format we claim goes through
// zt2export and, when a file comes out, zt2dump --validate. A run ends with
// exit 0 (exported) or 1 (problems reported in the info log), or with 2 for
// exactly the models listed in tests/data/import-refused.txt, which the import
// library refuses; never a crash, never a hang. zt2export bounds its model
// reader's time and memory by the model's size, so no clock of the test's own
// judges a run: a machine under load is slower, never wrong.
// Every scene file that comes out is turned into binary glTF by zt2dump --gltf,
// and the directory's .glb files go through the Khronos validator in one node
// process (node's start and the validator's load cost more than a small model).
// One test per corpus directory, so that CTest spreads them over the cores.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "host/inhouse/sanitized.h"
#include "host/inhouse/text.h"
#include "importers/importers.h"
#include "support/test_support.h"

namespace {

namespace fs = std::filesystem;

const fs::path& corpus() {
  static const fs::path dir(ZTX_ASSIMP_MODELS);
  return dir;
}

std::set<std::string> claimedExtensions() {
  std::set<std::string> out = {"3ds"};
  std::istringstream list(hostimport::formatsHelp());
  for (std::string ext; list >> ext;) out.insert(ext);
  return out;
}

// The corpus directories, each one test; one placeholder when the corpus is
// not installed, so that the skip shows.
std::vector<std::string> directories() {
  std::vector<std::string> out;
  std::error_code ec;
  for (fs::directory_iterator it(corpus(), ec), end; !ec && it != end; it.increment(ec))
    if (it->is_directory()) out.push_back(it->path().filename().string());
  std::sort(out.begin(), out.end());
  if (out.empty()) out.push_back("absent");
  return out;
}

// Relative path -> the reason the import library gave.
std::map<std::string, std::string> refusedList() {
  std::map<std::string, std::string> out;
  for (const std::string& line : ztx_test::listedLines("tests/data/import-refused.txt")) {
    const std::size_t tab = line.find('\t');
    out[line.substr(0, tab)] = tab == std::string::npos ? "" : line.substr(tab + 1);
  }
  return out;
}

#if defined(ZTX_SANITIZED)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

struct Validation {
  int files = 0, withErrors = 0, warnings = 0;
};

// The validator (tools/zt2view/web/validate.mjs) over the files, its
// per-file lines counted; without node it is not run and files stays 0. Nor
// in a sanitized build: the validator is no code of ours, and the build
// without sanitizers runs it over the same files.
Validation validateGltf(const std::vector<std::string>& files) {
  Validation v;
  const auto r = files.empty() || kSanitized ? std::nullopt : ztx_test::runGltfValidator(files);
  if (!r) return v;
  EXPECT_EQ(r->exitCode, 0) << r->out << r->err;
  static const std::regex line(R"(^.*\.glb: (\d+) errors, (\d+) warnings)");
  std::istringstream out(r->out);
  for (std::string l; std::getline(out, l);) {
    std::smatch m;
    if (!std::regex_search(l, m, line)) continue;
    ++v.files;
    v.withErrors += std::stoi(m[1]) > 0;
    v.warnings += std::stoi(m[2]);
  }
  EXPECT_EQ(v.files, static_cast<int>(files.size())) << r->out << r->err;
  return v;
}

class Corpus : public testing::TestWithParam<std::string> {};

TEST_P(Corpus, EveryModelExportsOrIsReportedNeverCrashes) {
  if (!fs::is_directory(corpus()))
    GTEST_SKIP() << corpus() << " not found: install Debian's assimp-testmodels or set ZTX_ASSIMP_MODELS";
  static const std::set<std::string> claimed = claimedExtensions();
  static const std::map<std::string, std::string> refused = refusedList();
  std::vector<fs::path> models;
  for (const auto& entry : fs::recursive_directory_iterator(corpus() / GetParam())) {
    const std::string ext = ztext::lowerExtension(entry.path().string());
    if (entry.is_regular_file() && ext.size() > 1 && claimed.count(ext.substr(1))) models.push_back(entry.path());
  }
  std::sort(models.begin(), models.end());

  int exported = 0, reported = 0, refusedCount = 0, missingTextures = 0, exportedWithoutThem = 0;
  ztx_test::TempDir gltfDir;
  std::vector<std::string> glbs;
  for (const fs::path& model : models) {
    const std::string relative = model.lexically_relative(corpus()).generic_string();
    SCOPED_TRACE(relative);
    ztx_test::TempDir dir;
    const ztx_test::RunResult r =
        ztx_test::run(ZTX_ZT2EXPORT, {model.string(), "-o", dir.file("out.zt2"), "--config-dir", dir.file("config")});
    const bool listed = refused.count(relative) != 0;
    if (r.exitCode == 2 && listed) {
      ++refusedCount;
      EXPECT_NE(r.err.find(model.string()), std::string::npos) << "the message names the model: " << r.err;
      continue;
    }
    EXPECT_FALSE(listed) << "listed as refused in tests/data/import-refused.txt but ended with " << r.exitCode;
    ASSERT_TRUE(r.exitCode == 0 || r.exitCode == 1) << "exit " << r.exitCode << "\n" << r.out << r.err;
    if (r.exitCode == 1) {
      ++reported;
      EXPECT_NE(r.out.find("ERROR: "), std::string::npos) << "exit 1 comes with the info log: " << r.out;
      // Models whose images are not in the corpus go on without those maps
      // when asked to.
      if (r.out.find("ERROR: Couldn't open texture") != std::string::npos) {
        ++missingTextures;
        ztx_test::TempDir again;
        const ztx_test::RunResult d = ztx_test::run(
            ZTX_ZT2EXPORT, {model.string(), "-o", again.file("out.zt2"), "--config-dir", again.file("config"),
                            "--missing-textures", "drop"});
        EXPECT_TRUE(d.exitCode == 0 || d.exitCode == 1) << d.out << d.err;
        exportedWithoutThem += d.exitCode == 0;
        if (d.exitCode == 0) {
          const ztx_test::RunResult v = ztx_test::runDump({"--validate", again.file("out.zt2")});
          EXPECT_EQ(v.exitCode, 0) << v.out << v.err;
        }
      }
    } else {
      ++exported;
    }
    // The other build validates every file; the fuzzers run the validator
    // under the sanitizers on inputs far stranger than these.
    for (const char* written : {"out.zt2", "out.skd"}) {
      if (kSanitized || !fs::exists(dir.file(written))) continue;
      const ztx_test::RunResult v = ztx_test::runDump({"--validate", dir.file(written)});
      EXPECT_EQ(v.exitCode, 0) << written << ": " << v.out << v.err;
    }
    if (!fs::exists(dir.file("out.zt2"))) continue;
    // One name per model in the directory's folder: its path, flattened.
    std::string glb = relative;
    std::replace(glb.begin(), glb.end(), '/', '_');
    glb = gltfDir.file(glb + ".glb");
    const ztx_test::RunResult g = ztx_test::runDump({dir.file("out.zt2"), "--gltf", glb});
    EXPECT_EQ(g.exitCode, 0) << g.out << g.err;
    if (g.exitCode == 0) glbs.push_back(glb);
  }
  const Validation valid = validateGltf(glbs);
  // The tally CI shows for each format directory.
  std::printf("corpus %s: %zu models, %d exported, %d with errors reported (%d for textures that cannot be opened, "
              "%d of which export with --missing-textures drop), %d refused by the import library; "
              "%zu as glTF, %d validated, %d with validator errors, %d validator warnings\n",
              GetParam().c_str(), models.size(), exported, reported, missingTextures, exportedWithoutThem, refusedCount,
              glbs.size(), valid.files, valid.withErrors, valid.warnings);
}

INSTANTIATE_TEST_SUITE_P(Assimp, Corpus, testing::ValuesIn(directories()),
                         [](const auto& info) { return ztx_test::testName(info.param); });

}  // namespace
