// zt2dump: prints, checks and compares the files the exporter writes (scene
// .zt2, per-vertex .skd, ZTExport.cfg).
#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "dump/dump_error.h"
#include "format/output_files.h"
#include "gltf/gltf_export.h"
#include "dump/json_printer.h"
#include "host/inhouse/exit_codes.h"
#include "dump/reader_tree.h"
#include "dump/text_printer.h"
#include "dump/validate.h"
#include "ztexport/diff.h"
#include "ztx_version.h"

namespace {

using ztexit::kOk, ztexit::kProblems, ztexit::kFailure;

const char* const kUsage =
    "usage: zt2dump FILE [--json] [--validate] [--full] [--gltf OUT.glb]\n"
    "       zt2dump --diff OLD NEW [--tolerance T] [--json]\n"
    "       zt2dump --version | --help\n"
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
    "  --diff      compare two files of the same kind by node name and field:\n"
    "              added, removed, changed and moved nodes and chunks\n"
    "  --tolerance T  with --diff, numbers within T relative to their\n"
    "              magnitude (absolute below 1) count as equal; default 0\n"
    "  --version   print the version of ZTExport\n"
    "  --help      this text\n"
    "\n"
    "Exit codes: 0 success, 1 corrupt, truncated or invalid content,\n"
    "2 bad usage, unreadable file or output not written.\n"
    "With --diff: 0 equal, 1 different, 2 bad usage or a file that cannot be\n"
    "read or decoded.\n";

struct Arguments {
  std::string file;
  std::string other;  // --diff: the new file
  bool diff = false;
  double tolerance = 0;
  bool json = false;
  bool validate = false;
  bool full = false;
  bool help = false;
  bool version = false;
  std::string gltf;
};

bool parse(int argc, char** argv, Arguments& args, std::string& error) {
  CLI::App app{"", "zt2dump"};
  // Our own help text, which the manual page and the shell completion are made from.
  app.set_help_flag();
  app.add_flag("-h,--help", args.help);
  app.add_flag("--version", args.version);
  app.add_flag("--json", args.json);
  app.add_flag("--validate", args.validate);
  app.add_flag("--full", args.full);
  app.add_flag("--diff", args.diff);
  // The last of a repeated option wins, as it always has.
  std::string tolerance;
  app.add_option("--tolerance", tolerance)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  app.add_option("--gltf", args.gltf)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  std::vector<std::string> files;
  app.add_option("FILE", files);
  // Words left over are told apart here, so that the messages name what is wrong.
  app.allow_extras();
  // What each option with a value expects, for the message when it is missing.
  const std::pair<const char*, const char*> needs[] = {{"--tolerance", "--tolerance needs a number of 0 or more"},
                                                      {"--gltf", "--gltf needs the output file"}};
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    error = e.what();
    for (const auto& [name, message] : needs)
      if (error.rfind(std::string(name) + ":", 0) == 0) error = message;
    return false;
  }
  for (const std::string& extra : app.remaining())
    if (extra.size() > 1 && extra[0] == '-') {
      error = "unknown option " + extra;
      return false;
    }
  if (app.count("--tolerance") > 0) {
    char* end = nullptr;
    args.tolerance = std::strtod(tolerance.c_str(), &end);
    if (*end != '\0' || end == tolerance.c_str() || !(args.tolerance >= 0) || !std::isfinite(args.tolerance)) {
      error = "--tolerance needs a number of 0 or more";
      return false;
    }
  }
  if (!files.empty()) args.file = files[0];
  if (files.size() > 1) args.other = files[1];
  if (files.size() > (args.diff ? 2u : 1u)) {
    error = args.diff ? "--diff takes two files" : "more than one file given";
    return false;
  }
  if (args.file.empty() && !args.help && !args.version) {
    error = "no file given";
    return false;
  }
  if (args.diff && args.other.empty() && !args.help && !args.version) {
    error = "--diff takes two files";
    return false;
  }
  if (args.diff && (args.validate || args.full || !args.gltf.empty())) {
    error = "--diff goes with --tolerance and --json only";
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
    return kFailure;
  }
  if (args.help) {
    std::cout << kUsage;
    return kOk;
  }
  if (args.version) {
    std::printf("zt2dump %s\n", ztexport::kVersion);
    return kOk;
  }
  if (args.diff) {
    try {
      ztexport::DiffOptions options;
      options.tolerance = args.tolerance;
      const ztexport::Diff diff = ztexport::diffFiles(args.file, args.other, options);
      std::cout << (args.json ? ztexport::diffJson(diff) : ztexport::diffText(diff));
      std::cout.flush();
      return diff.equal() ? kOk : kProblems;
    } catch (const std::exception& e) {
      // Nothing to compare: a file that cannot be read or decoded.
      std::cerr << "zt2dump: " << e.what() << "\n";
      return kFailure;
    }
  }
  try {
    if (!args.gltf.empty()) {
      const std::string skd = std::filesystem::path(args.file).replace_extension(".skd").string();
      if (const std::string input = overwrittenInput(args.gltf, {args.file, skd}); !input.empty()) {
        std::cerr << "zt2dump: " << args.gltf << ": the output would overwrite " << input << ", which it is made from\n";
        return kFailure;
      }
      std::vector<std::string> warnings;
      const tinygltf::Model model = zt2dump::buildGltf(zt2dump::loadGltfSource(args.file), warnings);
      for (const std::string& w : warnings) std::cerr << "zt2dump: warning: " << args.file << ": " << w << "\n";
      zt2dump::writeFileWhole(args.gltf, zt2dump::glbBytes(model));
      return kOk;
    }
    zt2dump::DecodedFile file = zt2dump::loadFile(args.file);
    // Shown as text: names decoded from the host's code page.
    ztexport::decodeTexts(file);
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
    return kOk;
  } catch (const zt2dump::UnwritableFile& e) {
    std::cerr << "zt2dump: " << e.what() << "\n";
    return kFailure;
  } catch (const zt2dump::FormatError& e) {
    std::cerr << "zt2dump: " << e.what() << "\n";
    return e.unreadable() ? kFailure : kProblems;
  } catch (const std::exception& e) {
    // Corrupt content and validation faults alike: one line, then out.
    std::cerr << "zt2dump: " << e.what() << "\n";
    return kProblems;
  }
}
