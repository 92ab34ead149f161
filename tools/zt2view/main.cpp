// zt2view: one self-contained HTML page that shows an exported scene.
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>

#include "format/output_files.h"
#include "gltf/gltf_export.h"
#include "host/inhouse/exit_codes.h"
#include "page.h"
#include "dump/reader_tree.h"
#include "ztx_version.h"

namespace {

using ztexit::kOk, ztexit::kProblems, ztexit::kFailure;

const char* const kUsage =
    "usage: zt2view FILE.zt2 [-o OUT.html]\n"
    "       zt2view --version | --help\n"
    "\n"
    "Writes one HTML page that shows the scene (and the .skd beside it) in a\n"
    "browser: the model with orbit controls, the node tree, the material list\n"
    "and an animation player. The page needs no network. By default OUT is\n"
    "FILE with the extension .html.\n"
    "\n"
    "  -o OUT.html  the page to write\n"
    "  --version    print the version of ZTExport\n"
    "  --help       this text\n"
    "\n"
    "Exit codes: 0 success, 1 corrupt file, 2 bad usage, unreadable file or page\n"
    "not written.\n";

}  // namespace

int main(int argc, char** argv) {
  std::string file, out;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--help" || a == "-h") {
      std::cout << kUsage;
      return kOk;
    }
    if (a == "--version") {
      std::printf("zt2view %s\n", ztexport::kVersion);
      return kOk;
    }
    if (a == "-o" && i + 1 < argc) {
      out = argv[++i];
    } else if (a.size() > 1 && a[0] == '-') {
      std::cerr << "zt2view: unknown option " << a << "\n" << kUsage;
      return kFailure;
    } else if (!file.empty()) {
      std::cerr << "zt2view: more than one file given\n" << kUsage;
      return kFailure;
    } else {
      file = a;
    }
  }
  if (file.empty()) {
    std::cerr << "zt2view: no file given\n" << kUsage;
    return kFailure;
  }
  if (out.empty()) out = std::filesystem::path(file).replace_extension(".html").string();
  const std::string skd = std::filesystem::path(file).replace_extension(".skd").string();
  if (const std::string input = overwrittenInput(out, {file, skd}); !input.empty()) {
    std::cerr << "zt2view: " << out << ": the page would overwrite " << input << ", which it is made from\n";
    return kFailure;
  }
  try {
    std::vector<std::string> warnings;
    const tinygltf::Model model = zt2dump::buildGltf(zt2dump::loadGltfSource(file), warnings);
    for (const std::string& w : warnings) std::cerr << "zt2view: warning: " << file << ": " << w << "\n";
    const std::string page = zt2view::previewPage(std::filesystem::path(file).filename().string(), zt2dump::glbBytes(model));
    zt2dump::writeFileWhole(out, std::vector<std::uint8_t>(page.begin(), page.end()));
    return kOk;
  } catch (const zt2dump::UnwritableFile& e) {
    std::cerr << "zt2view: " << e.what() << "\n";
    return kFailure;
  } catch (const zt2dump::FormatError& e) {
    std::cerr << "zt2view: " << e.what() << "\n";
    return e.unreadable() ? kFailure : kProblems;
  } catch (const std::exception& e) {
    std::cerr << "zt2view: " << e.what() << "\n";
    return kProblems;
  }
}
