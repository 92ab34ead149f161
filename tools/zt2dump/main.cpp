// zt2dump: prints and checks the files the exporter writes (scene .zt2,
// per-vertex .skd, ZTExport.cfg).
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>

#include "dump_error.h"
#include "format/file_replace.h"
#include "file_decoder.h"
#include "gltf_export.h"
#include "json_printer.h"
#include "text_printer.h"
#include "validate.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitBadContent = 1;
constexpr int kExitUsage = 2;

const char* const kUsage =
    "usage: zt2dump FILE [--json] [--validate] [--full] [--gltf OUT.glb]\n"
    "\n"
    "Prints a scene file (.zt2), a per-vertex file (.skd) or the options file\n"
    "(ZTExport.cfg); the kind is told from the content.\n"
    "\n"
    "  --json      one JSON document instead of text (arrays in full)\n"
    "  --validate  check the file (and a .zt2/.skd pair of the same base name)\n"
    "              and print OK with a summary, or name the first fault\n"
    "              (takes the place of the dump: --json is then ignored)\n"
    "  --full      print long arrays in full in the text output\n"
    "  --gltf OUT  write the scene (with the .skd beside it) as binary glTF\n"
    "              to OUT instead of printing it\n"
    "  --help      this text\n"
    "\n"
    "Exit codes: 0 success, 1 corrupt, truncated or invalid content,\n"
    "2 bad usage, unreadable file or output not written.\n";

struct Arguments {
  std::string file;
  bool json = false;
  bool validate = false;
  bool full = false;
  bool help = false;
  std::string gltf;
};

bool parse(int argc, char** argv, Arguments& args, std::string& error) {
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--json") args.json = true;
    else if (a == "--validate") args.validate = true;
    else if (a == "--full") args.full = true;
    else if (a == "--help" || a == "-h") args.help = true;
    else if (a == "--gltf") {
      if (i + 1 >= argc) {
        error = "--gltf needs the output file";
        return false;
      }
      args.gltf = argv[++i];
    }
    else if (a.size() > 1 && a[0] == '-') {
      error = "unknown option " + a;
      return false;
    } else if (!args.file.empty()) {
      error = "more than one file given";
      return false;
    } else {
      args.file = a;
    }
  }
  if (args.file.empty() && !args.help) {
    error = "no file given";
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Arguments args;
  std::string error;
  if (!parse(argc, argv, args, error)) {
    std::cerr << "zt2dump: " << error << "\n" << kUsage;
    return kExitUsage;
  }
  if (args.help) {
    std::cout << kUsage;
    return kExitOk;
  }
  try {
    if (!args.gltf.empty()) {
      const std::string skd = std::filesystem::path(args.file).replace_extension(".skd").string();
      if (const std::string input = overwrittenInput(args.gltf, {args.file, skd}); !input.empty()) {
        std::cerr << "zt2dump: " << args.gltf << ": the output would overwrite " << input << ", which it is made from\n";
        return kExitUsage;
      }
      std::vector<std::string> warnings;
      const tinygltf::Model model = zt2dump::buildGltf(zt2dump::loadGltfSource(args.file), warnings);
      for (const std::string& w : warnings) std::cerr << "zt2dump: warning: " << args.file << ": " << w << "\n";
      zt2dump::writeFileWhole(args.gltf, zt2dump::glbBytes(model));
      return kExitOk;
    }
    const zt2dump::DecodedFile file = zt2dump::loadFile(args.file);
    if (args.validate) {
      const std::string summary = zt2dump::validateFile(file);
      std::cout << "OK\n" << summary << "\n";
    } else if (args.json) {
      zt2dump::printJson(std::cout, file);
    } else {
      zt2dump::TextOptions options;
      options.full = args.full;
      zt2dump::printText(std::cout, file, options);
    }
    std::cout.flush();
    return kExitOk;
  } catch (const zt2dump::UnwritableFile& e) {
    std::cerr << "zt2dump: " << e.what() << "\n";
    return kExitUsage;
  } catch (const zt2dump::UnreadableFile& e) {
    std::cerr << "zt2dump: " << e.what() << "\n";
    return kExitUsage;
  } catch (const std::exception& e) {
    // Corrupt content and validation faults alike: one line, then out.
    std::cerr << "zt2dump: " << e.what() << "\n";
    return kExitBadContent;
  }
}
