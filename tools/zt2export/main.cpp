// zt2export: the host on this machine. Loads a scene-description file into
// the in-memory host model, loads the exporter module and drives it through
// its entry points exactly as the host would, with prompts suppressed unless
// --dialog asks for the options dialog.
#include <malloc.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "format/code_page.h"
#include "format/output_files.h"
#include "host/inhouse/exceptions.h"
#include "host/import/importers.h"
#include "host/memory/memory_host.h"
#include "options/apply_options.h"
#include "options/option_fields.h"
#include "options/options_dialog.h"
#include "tools/zt2export/batch_command.h"
#include "tools/zt2export/config_dir.h"
#include "tools/zt2export/depfile.h"
#include "tools/zt2export/exporter_module.h"
#include "ui/display_probe.h"
#include "ztx_version.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitExportErrors = 1;
constexpr int kExitFailure = 2;

struct Arguments {
  std::string scene;
  std::string output;
  std::string configDir;
  std::string module;
  std::string writeScene;
  std::uint64_t memoryLimitMiB = 0;  // 0: by the model's size
  std::string depfile;
  std::vector<std::pair<std::string, std::string>> sets;  // field, value
  std::vector<std::string> texturePaths;
  bool dropMissingTextures = false;
  bool saveOptions = false;
  bool check = false;
  bool quiet = false;
  bool verbose = false;
  bool version = false;
  bool listFields = false;
  bool dialog = false;
  bool about = false;
  bool copyTexturesOutside = false;
  bool replaceTextures = false;
  bool noSync = false;
  bool uniqueTextureNames = false;
};

void printUsage(std::FILE* to) {
  std::fprintf(to,
               "Usage: zt2export SCENE [-o OUT.zt2] [--config-dir DIR] [--set FIELD=VALUE ...]\n"
               "                 [--save-options] [--check] [--write-scene OUT.scene.json]\n"
               "                 [--memory-limit MIB] [--copy-textures-outside] [--replace-textures]\n"
               "                 [--texture-path DIR ...] [--missing-textures error|drop]\n"
               "                 [--dialog] [--module PATH] [--quiet] [--verbose] [--depfile OUT.d]\n"
               "                 [--texture-names keep|unique] [--no-sync]\n"
               "       zt2export --batch SRC_DIR -o OUT_DIR [-j N] [--include GLOB ...] [--exclude GLOB ...]\n"
               "                 [--force] [--timeout S] [--config-dir DIR] [--set FIELD=VALUE ...]\n"
               "                 [--module PATH] [--quiet]\n"
               "       zt2export --version | --about [--module PATH]\n"
               "       zt2export --help\n");
}

// Words in lines of at most 90 columns, indented by two.
std::string wrapped(const std::string& words) {
  std::string out, line;
  std::istringstream in(words);
  for (std::string word; in >> word;) {
    if (!line.empty() && line.size() + 1 + word.size() > 88) out += "  " + line + "\n", line.clear();
    line += (line.empty() ? "" : " ") + word;
  }
  return out + "  " + line + "\n";
}

void printHelp() {
  printUsage(stdout);
  std::printf(
      "\n"
      "Exports the scene described by SCENE (a scene-description file, see docs/scene-format.md,\n"
      "or a model: 3DS, or any of the formats listed below) to a ZT2.0 scene file, with the\n"
      "per-vertex skin file (.skd) beside it when skinning is on.\n"
      "\n"
      "Options:\n"
      "  -o, --output OUT.zt2   the file to write (its name ends in .zt2); default: the scene's\n"
      "                         name with .zt2, in the current directory\n"
      "  --config-dir DIR       where ZTExport.cfg and ZTExportAdditional.cfg are read (and\n"
      "                         ZTExport.cfg written); default: $XDG_CONFIG_HOME/ztexport or\n"
      "                         ~/.config/ztexport, created when missing\n"
      "  --set FIELD=VALUE      change one field of the options record after it was loaded from\n"
      "                         ZTExport.cfg and before it is applied; may be repeated. Values\n"
      "                         outside the limits the options dialog gives are refused.\n"
      "  --copy-textures-outside  allow a texture path that leads out of the output's\n"
      "                         directory (\"../maps\"); without it such a path stops the export\n"
      "  --replace-textures     replace a texture copy found beside the output whose bytes differ\n"
      "                         from its image's; by default it is left as it is (\"already\n"
      "                         exists - file not overwritten\")\n"
      "  --save-options         write ZTExport.cfg at the end, as closing the options dialog\n"
      "                         with OK would (with the --set changes)\n"
      "  --check                run the whole export but write nothing (no scene file, no .skd,\n"
      "                         no texture copy, no ZTExport.cfg) and print every message\n"
      "                         (\"no messages\" when there is none)\n"
      "  --dialog               show the options dialog before the export, as the host does\n"
      "                         unless prompts are suppressed; Cancel ends the run with nothing\n"
      "                         written, OK saves ZTExport.cfg. The \"Export Info\" window shows\n"
      "                         the messages as well. Needs a display.\n"
      "  --about                show the exporter's about box (needs a display)\n"
      "  --module PATH          the exporter module to load; default: ZTExport.dle beside\n"
      "                         this program, else in ../lib/ztexport (an installed copy)\n"
      "  --version              print the version of ZTExport and the exporter module's\n"
      "                         identity\n"
      "  --write-scene OUT.scene.json  write the imported model as a scene-description file,\n"
      "                         its arrays in OUT.bin beside it, then export that file\n"
      "  --memory-limit MIB     the memory a model's reader may take, in MiB; default: 1024\n"
      "                         plus 64 times the model's size (at most the machine's memory)\n"
      "  --texture-path DIR     a folder searched for texture images after the model's (or\n"
      "                         scene's) own folders; may be repeated (docs/import.md)\n"
      "  --missing-textures error|drop  what a model's map whose image is nowhere to be\n"
      "                         found does: the export fails (error, the default) or the map is\n"
      "                         left out with a warning (drop)\n"
      "  --depfile OUT.d        after a successful export, write a make rule naming the files\n"
      "                         written and every file read (scene, buffers, model, images,\n"
      "                         image lists, ZTExport.cfg, ZTExportAdditional.cfg)\n"
      "  --texture-names keep|unique  the names of texture copies: the image's own (keep, the\n"
      "                         default), or the image's name with a short hash of its bytes\n"
      "                         (\"wood.1a2b3c4d.png\", unique), which the scene file then names,\n"
      "                         so that images of one name from different folders never take\n"
      "                         each other's place\n"
      "  --no-sync              put the files in place without first flushing each to the disk;\n"
      "                         for a caller that flushes the whole output at once (--batch does)\n"
      "  --batch SRC_DIR        export every scene and model under SRC_DIR into -o OUT_DIR;\n"
      "                         zt2export --batch --help tells more\n"
      "  --quiet                print errors only: no progress display, no notes or warnings,\n"
      "                         and of the \"Export Info\" text its ERROR lines alone\n"
      "  --verbose              print the exporter's developer trace on standard error\n"
      "  -h, --help             this text\n"
      "\n"
      "Output: the \"Export Info\" text on standard output when the exporter shows it (on errors,\n"
      "or when dumpInfo is set and there is something to tell); message boxes, warnings of the\n"
      "import and what the host knows of images it could not open on standard error.\n"
      "\n"
      "Exit status: 0 the run ended normally (file written, or nothing to write); 1 the export\n"
      "was cancelled because of errors in the scene; 2 the file could not be saved (or its\n"
      "folder is missing or not writable), the scene could not be read, the module could not\n"
      "be loaded, a window was asked for without a display, or the command line is wrong.\n"
      "\n"
      "Model formats (by content, then extension):\n%s"
      "\n"
      "Fields of the options record (--set):\n%s",
      wrapped("3ds " + hostimport::formatsHelp()).c_str(), optionFieldsHelp().c_str());
}

[[noreturn]] void usageError(const std::string& message) {
  std::fprintf(stderr, "zt2export: %s\n", message.c_str());
  printUsage(stderr);
  std::exit(kExitFailure);
}

Arguments parseArguments(int argc, char** argv) {
  Arguments a;
  CLI::App app{"", "zt2export"};
  // Our own help text, which also lists the model formats and the option fields.
  app.set_help_flag();
  bool help = false;
  app.add_flag("-h,--help", help);
  app.add_option("SCENE", a.scene);
  // What each option with a value expects, for the message when it is missing.
  const std::vector<std::pair<std::string, std::string>> needs = {
      {"--output", "a file name"},  {"--config-dir", "a directory"},  {"--set", "FIELD=VALUE"},
      {"--module", "a file name"},  {"--write-scene", "a file name"},  {"--memory-limit", "a size in MiB"},
      {"--texture-path", "a directory"},
      {"--missing-textures", "error or drop"},
      {"--depfile", "a file name"},
      {"--texture-names", "keep or unique"},
  };
  // The last of a repeated option wins, as it always has.
  auto single = [&](const char* names, std::string& target) {
    app.add_option(names, target)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  };
  single("-o,--output", a.output);
  single("--config-dir", a.configDir);
  single("--module", a.module);
  single("--write-scene", a.writeScene);
  app.add_option("--memory-limit", a.memoryLimitMiB)
      ->check(CLI::Validator(
          [](const std::string& value) {
            const bool digits = !value.empty() && value.size() <= 8 &&
                                value.find_first_not_of("0123456789") == std::string::npos;
            return digits && std::stoul(value) >= 1 && std::stoul(value) <= (1ul << 24)
                       ? std::string()
                       : "expected a whole number of MiB from 1 to 16777216, not \"" + value + "\"";
          },
          "MIB"))
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  single("--depfile", a.depfile);
  std::vector<std::string> assignments;
  app.add_option("--set", assignments)->allow_extra_args(false);
  app.add_option("--texture-path", a.texturePaths)->allow_extra_args(false);
  std::string missingTextures = "error";
  single("--missing-textures", missingTextures);
  std::string textureNames = "keep";
  single("--texture-names", textureNames);
  app.add_flag("--version", a.version);
  // The option fields one per line, for the shell completion made at build time.
  app.add_flag("--list-fields", a.listFields);
  app.add_flag("--dialog", a.dialog);
  app.add_flag("--about", a.about);
  app.add_flag("--save-options", a.saveOptions);
  app.add_flag("--copy-textures-outside", a.copyTexturesOutside);
  app.add_flag("--replace-textures", a.replaceTextures);
  app.add_flag("--no-sync", a.noSync);
  app.add_flag("--check", a.check);
  app.add_flag("--quiet", a.quiet);
  app.add_flag("--verbose", a.verbose);
  // Words left over are told apart here, so that the messages name what is wrong.
  app.allow_extras();

  try {
    app.parse(argc, argv);
  } catch (const CLI::ArgumentMismatch& e) {
    const std::string what = e.what();
    for (const auto& [name, expected] : needs)
      if (what.rfind(name + ":", 0) == 0) usageError(name + " needs " + expected);
    usageError(what);
  } catch (const CLI::ParseError& e) {
    usageError(e.what());
  }
  if (help) {
    printHelp();
    std::exit(kExitOk);
  }
  if (a.listFields) {
    for (const std::string& name : optionFieldNames()) std::printf("%s\n", name.c_str());
    std::exit(kExitOk);
  }
  const std::vector<std::string> extras = app.remaining();
  for (const std::string& assignment : assignments) {
    const std::size_t eq = assignment.find('=');
    if (eq == std::string::npos || eq == 0) {
      // "--set sampleRate 15" leaves the value as a word of its own.
      for (int i = 1; eq == std::string::npos && i + 2 < argc; ++i)
        if (std::string(argv[i]) == "--set" && argv[i + 1] == assignment && argv[i + 2][0] != '-')
          usageError("--set " + assignment + " " + argv[i + 2] + ": the field and its value are one word joined by " +
                     "'=': --set " + assignment + "=" + argv[i + 2]);
      usageError("--set " + assignment + ": expected FIELD=VALUE, as in --set sampleRate=15");
    }
    a.sets.emplace_back(assignment.substr(0, eq), assignment.substr(eq + 1));
  }
  for (const std::string& extra : extras) {
    if (!extra.empty() && extra[0] == '-') usageError("unknown option " + extra);
    usageError("more than one scene given (" + a.scene + ", " + extra + ")");
  }
  if (missingTextures != "error" && missingTextures != "drop")
    usageError("--missing-textures " + missingTextures + ": expected error or drop");
  a.dropMissingTextures = missingTextures == "drop";
  if (textureNames != "keep" && textureNames != "unique")
    usageError("--texture-names " + textureNames + ": expected keep or unique");
  a.uniqueTextureNames = textureNames == "unique";
  // The exporter writes ZT2 bytes whatever the name says; a model's extension
  // on them would fool every program that opens the file.
  if (!a.output.empty()) {
    std::string ext = std::filesystem::path(a.output).extension().string();
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (ext != ".zt2")
      usageError("-o " + a.output + ": the output is a ZT2 scene file and its name must end in .zt2 (as in -o " +
                 std::filesystem::path(a.output).replace_extension(".zt2").string() + ")");
  }
  if (a.scene.empty() && !a.version && !a.about) usageError("no scene given");
  if (a.check && a.saveOptions) usageError("--check writes nothing, so it cannot go with --save-options");
  return a;
}

std::string directoryOrCurrent(const std::filesystem::path& file) {
  const std::filesystem::path dir = file.parent_path();
  return dir.empty() ? std::string(".") : dir.string();
}

// The first file the run would write over one it reads, as a message; empty
// when there is none. The .skd goes beside the file the output finally names.
std::string outputOverwritingInput(const Arguments& args, const std::string& output) {
  namespace fs = std::filesystem;
  struct Named {
    std::string path;
    std::string what;
  };
  const std::string skd = fs::path(resolvedTarget(output)).replace_extension(".skd").string();
  std::vector<Named> exportOutputs = {{output, "the output"}, {skd, "the output's .skd"}};
  std::vector<Named> inputs = {{args.scene, "the scene it is exported from"}};
  std::vector<Named> outputs = exportOutputs;
  if (!args.writeScene.empty()) {
    const std::string buffer = (fs::path(directoryOrCurrent(args.writeScene)) / hostimport::bufferNameFor(args.writeScene)).string();
    outputs.push_back({args.writeScene, "--write-scene"});
    outputs.push_back({buffer, "--write-scene's buffer"});
    // What --write-scene writes is read back and exported.
    for (const Named& out : exportOutputs)
      for (const Named& in : {Named{args.writeScene, "the scene file of --write-scene"},
                              Named{buffer, "the buffer of --write-scene"}})
        if (sameFile(out.path, in.path)) return out.path + ": " + out.what + " would overwrite " + in.what;
  }
  for (const Named& out : outputs)
    for (const Named& in : inputs)
      if (sameFile(out.path, in.path)) return out.path + ": " + out.what + " would overwrite " + in.what;
  return {};
}

std::string defaultOutput(const std::string& scene) {
  if (!hostimport::isSceneDescription(scene)) return std::filesystem::path(scene).stem().string() + ".zt2";
  std::string stem = std::filesystem::path(scene).filename().string();
  for (const char* suffix : {".json", ".scene"})
    if (stem.size() > std::string(suffix).size() && stem.ends_with(suffix)) stem.resize(stem.size() - std::string(suffix).size());
  return stem + ".zt2";
}

// Whether files can be made in the folder `file` goes into; `why` gets the
// system's reason when not.
bool folderWritable(const std::string& file, std::string& why) {
  const std::filesystem::path parent = std::filesystem::path(file).parent_path();
  const std::string folder = parent.empty() ? "." : parent.string();
  struct stat info {};
  int error = ::stat(folder.c_str(), &info) != 0 ? errno : !S_ISDIR(info.st_mode) ? ENOTDIR : 0;
  if (error == 0 && ::access(folder.c_str(), W_OK | X_OK) != 0) error = errno;
  if (error == 0) return true;
  why = folder + ": " + std::strerror(error);
  return false;
}

// The exporter reports an export cancelled by errors in its last message,
// which it always shows.
bool exportFailed(const std::vector<std::string>& infoTexts) {
  const std::string last = "Export process canceled due to error(s) encountered.\r\n";
  return !infoTexts.empty() && infoTexts.back().ends_with(last);
}

// Prints the exporter's progress on one terminal line.
class ProgressLine {
 public:
  explicit ProgressLine(bool enabled) : enabled_(enabled) {}
  void show(const hostmodel::ProgressCall& call) {
    if (!enabled_) return;
    if (call.kind == hostmodel::ProgressCall::Update) {
      std::fprintf(stderr, "\r\033[K%3d%%  %s", call.percent, call.title.c_str());
      shown_ = true;
    } else if (call.kind == hostmodel::ProgressCall::End) {
      clear();
    }
    std::fflush(stderr);
  }
  // Takes the line off the terminal, so that other output starts on a clean line.
  void clear() {
    if (!shown_) return;
    std::fprintf(stderr, "\r\033[K");
    shown_ = false;
  }

 private:
  bool enabled_;
  bool shown_ = false;
};

}  // namespace

int main(int argc, char** argv) {
  // Mesh export allocates and frees many large arrays. Keeping freed memory
  // in the heap, rather than handing each array back to the system, lets the
  // next array reuse pages that are already mapped instead of faulting in
  // fresh zeroed ones.
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);

  // A whole tree: each file runs through this same program in a process of its own.
  if (ztbatch::isBatchCommand(argc, argv)) return ztbatch::batchCommand(argc, argv);

  const long long startedAt = zt2export::nowNanoseconds();
  const Arguments args = parseArguments(argc, argv);

  if (args.dialog || args.about) {
    if (const std::string why = displayUnavailableReason(); !why.empty()) {
      std::fprintf(stderr, "zt2export: %s needs a display (%s)\n", args.about ? "--about" : "--dialog", why.c_str());
      return kExitFailure;
    }
  }
  std::unique_ptr<ExporterModule> module;
  try {
    module = std::make_unique<ExporterModule>(args.module.empty() ? defaultModulePath() : args.module);
    if (args.version) {
      const auto exporter = module->createExporter();
      const unsigned int version = exporter->Version();
      // The module keeps its own identity: its short description and version,
      // and the build date its description ends with ("[Mar 31 2003]").
      const std::string description = module->description();
      const std::size_t dateAt = description.rfind(" [");
      const std::string date = dateAt != std::string::npos && description.ends_with("]") ? description.substr(dateAt) : "";
      std::printf("zt2export %s (exporter module: %s %u.%02u%s)\n", ztexport::kVersion, exporter->ShortDesc(),
                  version / 100, version % 100, date.c_str());
      return kExitOk;
    }
    if (args.about) {
      module->createExporter()->ShowAbout(nullptr);
      return kExitOk;
    }
  } catch (const ModuleError& e) {
    std::fprintf(stderr, "zt2export: %s\n", e.what());
    return kExitFailure;
  }

  const std::string output = args.output.empty() ? defaultOutput(args.scene) : args.output;
  if (const std::string clash = outputOverwritingInput(args, output); !clash.empty()) {
    std::fprintf(stderr, "zt2export: %s\n", clash.c_str());
    return kExitFailure;
  }
  const std::string configDir = args.configDir.empty() ? zt2export::defaultConfigDir() : args.configDir;
  if (!args.depfile.empty()) {
    // What is known before the export; the files it reads are checked again after it.
    RunInputs taken;
    taken.add(args.scene, "the scene it is exported from");
    taken.add(output, "the output");
    taken.add(std::filesystem::path(resolvedTarget(output)).replace_extension(".skd").string(), "the output's .skd");
    taken.add(args.writeScene, "--write-scene");
    if (!configDir.empty()) {
      taken.add(configDir + "/" + kOptionsFileName, kOptionsFileName);
      taken.add(configDir + "/" + kAdditionalConfigFileName, kAdditionalConfigFileName);
    }
    if (const std::string clash = taken.clash(args.depfile, "--depfile"); !clash.empty()) {
      std::fprintf(stderr, "zt2export: %s\n", clash.c_str());
      return kExitFailure;
    }
  }

  // A run that cannot save must say so before anything is written: an
  // import writes a model's own textures beside the output, the exporter
  // makes its texture folder.
  for (const std::string& target : {output, args.writeScene}) {
    std::string why;
    if (!target.empty() && !folderWritable(target, why)) {
      std::fprintf(stderr, "zt2export: cannot write %s: %s\n", target.c_str(), why.c_str());
      return kExitFailure;
    }
  }

  // Textures held inside a model go beside what is written: beside the scene
  // file of --write-scene, which they belong to, or beside the exported file,
  // staged there until the export succeeds. A dry run keeps them in a
  // directory of its own that goes with it.
  setFlushBeforeCommit(!args.noSync);
  FileStaging embeddedTextures;
  std::string textureDir;
  WorkDirectory dryRunTextures;
  if (!args.writeScene.empty()) {
    textureDir = directoryOrCurrent(args.writeScene);
  } else if (!hostimport::isSceneDescription(args.scene)) {
    std::string error;
    if (args.check) {
      error = dryRunTextures.create({}, "zt2export-");
      textureDir = dryRunTextures.path();
    } else {
      textureDir = embeddedTextures.newFilesDirectory(directoryOrCurrent(resolvedTarget(output)), error);
    }
    if (textureDir.empty()) {
      std::fprintf(stderr, "zt2export: %s: cannot write beside the output: %s\n", output.c_str(), error.c_str());
      return kExitFailure;
    }
  }

  std::unique_ptr<hostmodel::MemoryHost> host;
  try {
    hostimport::OpenOptions open;
    open.writeScene = args.writeScene;
    open.textureDir = textureDir;
    open.texturePaths = args.texturePaths;
    open.dropMissingTextures = args.dropMissingTextures;
    open.limits.memoryMiB = args.memoryLimitMiB;
    host = hostimport::openScene(args.scene, open);
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "zt2export: %s: out of memory while loading the scene\n", args.scene.c_str());
    return kExitFailure;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "zt2export: %s\n", e.what());
    return kExitFailure;
  }

  if (configDir.empty()) {
    std::fprintf(stderr, "zt2export: no configuration directory: neither XDG_CONFIG_HOME nor HOME is set and the "
                         "user has no home directory; give --config-dir\n");
    return kExitFailure;
  }
  if (!args.check) {
    if (const std::string why = makeDirectories(configDir); !why.empty()) {
      std::fprintf(stderr, "zt2export: cannot create the configuration directory %s: %s\n", configDir.c_str(),
                   why.c_str());
      return kExitFailure;
    }
  }
  if (const std::string why = zt2export::optionsFileProblem(configDir); !why.empty()) {
    std::fprintf(stderr, "zt2export: %s\n", why.c_str());
    return kExitFailure;
  }
  host->setConfigDir(configDir);

  // Every --set is checked once, against the scene's frame range, before
  // anything runs, so a typo never leaves a half-done export behind; the
  // checked edits are what the record receives.
  const int ticksPerFrame = host->GetTicksPerFrame();
  const Interval range = host->GetAnimRange();
  const FrameLimits frames{0, ticksPerFrame > 0 ? (range.End() - range.Start()) / ticksPerFrame : 0};
  std::vector<OptionEdit> edits;
  {
    bool bad = false;
    for (const auto& [field, value] : args.sets) {
      std::string error;
      OptionEdit edit;
      if (parseOptionEdit(field, value, frames, edit, error)) {
        edits.push_back(std::move(edit));
      } else {
        std::fprintf(stderr, "zt2export: %s\n", error.c_str());
        bad = true;
      }
    }
    if (bad) return kExitFailure;
  }

  ProgressLine progress(!args.quiet && ::isatty(2));
  host->setProgressObserver([&progress](const hostmodel::ProgressCall& call) { progress.show(call); });
  // Trace lines share standard error with the progress line: each clears it first.
  if (args.verbose)
    host->setVerboseSink([&progress](const std::string& line) {
      progress.clear();
      std::fputs(line.c_str(), stderr);
    });

  host->setOptionsEditor([&](OptionsDialog& record) {
    for (const OptionEdit& edit : edits) applyOptionEdit(record, edit);
    // By the exporter's rules a mesh's faces are written in the groups of
    // their materials; without materials there are none, which surprises.
    if (!record.exportMaterials && record.exportGeometry && !args.quiet) {
      progress.clear();
      std::fprintf(stderr, "zt2export: note: exportMaterials is off, so meshes carry no geometry (faces are written "
                           "in the groups of their materials)\n");
    }
    if (args.saveOptions) record.saveOnClose = true;
    if (args.check) {
      record.saveOnClose = false;
      record.dumpInfo = 1;  // every message is shown, not only those of a failed export
    }
  });
  host->setWritesSuppressed(args.check);
  host->setTextureCopiesOutsideAllowed(args.copyTexturesOutside);
  host->setChangedTextureCopiesReplaced(args.replaceTextures);
  host->setTextureCopiesNamedByContent(args.uniqueTextureNames);
  host->setFlushesDeferred(args.noSync);

  int result = 0;
  try {
    const std::unique_ptr<SceneExport> exporter = module->createExporter();
    result = exporter->DoExport(output.c_str(), nullptr, host.get(), args.dialog ? FALSE : TRUE);
  } catch (const ModuleError& e) {
    std::fprintf(stderr, "zt2export: %s\n", e.what());
    return kExitFailure;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "zt2export: %s: export failed: out of memory\n", output.c_str());
    return kExitFailure;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "zt2export: export failed: %s\n", e.what());
    return kExitFailure;
  }

  // The exporter's message names the image it asked for; the file behind it
  // (an image list's entry) and the reason are the host's to tell.
  for (const std::string& text : host->imageProblems()) std::fprintf(stderr, "zt2export: %s\n", text.c_str());
  // Names in the exporter's words are in the host's code page; shown as text.
  for (const std::string& text : host->messageBoxes()) std::fprintf(stderr, "%s\n", displayText(text).c_str());
  // --quiet keeps the errors: of the info text, its ERROR lines without the heading.
  const auto isError = [](const std::string& line) { return line.starts_with("ERROR"); };
  for (const std::string& text : host->exportInfoTexts()) {
    std::string shown;
    if (args.quiet) {
      std::istringstream lines(displayText(text));
      for (std::string line; std::getline(lines, line);)
        if (isError(line)) shown += line.substr(0, line.find_last_not_of('\r') + 1) + "\n";
    } else {
      shown = "Export Info\n";
      for (char c : displayText(text))
        if (c != '\r') shown += c;
    }
    std::fputs(shown.c_str(), stdout);
  }
  if (args.check && !args.quiet && host->exportInfoTexts().empty()) std::puts("Export Info\nno messages");
  // What the host knows of images the exporter could not open, or found
  // under another name: the exporter's own message names the image only.
  for (const std::string& note : host->textureNotes())
    if (!args.quiet || isError(note)) std::fprintf(stderr, "zt2export: %s\n", note.c_str());

  // The exporter's message boxes all end a run that failed: the file could
  // not be saved, or a window it was asked for could not be shown.
  const bool failed = result == 0 || !host->messageBoxes().empty();
  int code = failed ? kExitFailure : exportFailed(host->exportInfoTexts()) ? kExitExportErrors : kExitOk;
  if (code == kExitOk) {
    if (const std::string failure = embeddedTextures.commit(); !failure.empty()) {
      std::fprintf(stderr, "zt2export: cannot save a texture held in the model: %s\n", failure.c_str());
      code = kExitFailure;
    }
  }
  if (code == kExitOk && !args.check && !args.depfile.empty()) {
    const zt2export::ExportFiles files = zt2export::exportFiles(output, configDir, startedAt);
    std::string why = zt2export::depfileClash(args.depfile, files);
    if (why.empty()) why = zt2export::writeDepfile(args.depfile, files);
    if (!why.empty()) {
      std::fprintf(stderr, "zt2export: %s: cannot write the dependency file: %s\n", args.depfile.c_str(), why.c_str());
      code = kExitFailure;
    }
  }
  // _Exit runs no destructor: what was not committed goes here.
  embeddedTextures.discard();
  dryRunTextures.remove();
  // Every file is written and closed by now. Tearing down a scene of millions
  // of elements only hands memory back that the system reclaims anyway, so
  // leave at once.
  std::fflush(stdout);
  std::fflush(stderr);
  std::_Exit(code);
}
