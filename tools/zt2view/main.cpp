// zt2view: one self-contained HTML page that shows an exported scene.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

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
    "FILE with the extension .html. Another scene dropped on the page, or\n"
    "opened with its Open button (a .zt2 with its .skd and images, or a .glb),\n"
    "replaces the one shown: the page converts it with the same code.\n"
    "\n"
    "  -o OUT.html  the page to write\n"
    "  --version    print the version of ZTExport\n"
    "  --help       this text\n"
    "\n"
    "Exit codes: 0 success, 1 corrupt file, 2 bad usage, unreadable file or page\n"
    "not written.\n";

// Prints the message and the usage on standard error and answers the status of a wrong command line.
int usageError(const std::string& message) {
  std::cerr << "zt2view: " << message << "\n" << kUsage;
  return kFailure;
}

}  // namespace

int main(int argc, char** argv) {
  std::string out;
  std::vector<std::string> files;
  bool help = false, version = false;
  CLI::App app{"", "zt2view"};
  // Our own help text, which the manual page and the shell completion are made from.
  app.set_help_flag();
  app.add_flag("-h,--help", help);
  app.add_flag("--version", version);
  // The last of a repeated option wins, as it always has.
  app.add_option("-o", out)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  app.add_option("FILE", files);
  // Words left over are told apart here, so that the messages name what is wrong.
  app.allow_extras();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const std::string what = e.what();
    return usageError(what.rfind("-o:", 0) == 0 ? "-o needs the page to write" : what);
  }
  if (help) {
    std::cout << kUsage;
    return kOk;
  }
  if (version) {
    std::printf("zt2view %s\n", ztexport::kVersion);
    return kOk;
  }
  for (const std::string& extra : app.remaining())
    if (extra.size() > 1 && extra[0] == '-') return usageError("unknown option " + extra);
  if (files.size() > 1) return usageError("more than one file given");
  if (files.empty()) return usageError("no file given");
  const std::string& file = files[0];
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
