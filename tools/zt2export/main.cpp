// zt2export: the host on this machine. Loads a scene-description file into
// the in-memory host model, loads the exporter module and drives it through
// its entry points exactly as the host would, with prompts suppressed unless
// --dialog asks for the options dialog.
#include <malloc.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "importers/importers.h"
#include "host/inhouse/exit_codes.h"
#include "host/inhouse/text.h"
#include "host/memory/memory_host.h"
#include "options/option_fields.h"
#include "tools/zt2export/batch_command.h"
#include "driver/export_session.h"
#include "driver/exporter_module.h"
#include "ui/display_probe.h"
#include "ztx_version.h"

namespace {

using ztexit::kOk, ztexit::kFailure;

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
  bool keyErrorBound = false;
};

void printUsage(std::FILE* to) {
  std::fprintf(to,
               "Usage: zt2export SCENE [-o OUT.zt2] [--config-dir DIR] [--set FIELD=VALUE ...]\n"
               "                 [--save-options] [--check] [--write-scene OUT.scene.json]\n"
               "                 [--memory-limit MIB] [--copy-textures-outside] [--replace-textures]\n"
               "                 [--texture-path DIR ...] [--missing-textures error|drop]\n"
               "                 [--dialog] [--module PATH] [--quiet] [--verbose] [--depfile OUT.d]\n"
               "                 [--texture-names keep|unique] [--no-sync] [--key-error-bound]\n"
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
      "  --key-error-bound      animation keys that rebuild every sample within the tolerances\n"
      "                         (positionDelta, rotationDelta and the fixed ones), often more\n"
      "                         keys; by default the exporter's rule, which compares each\n"
      "                         sample with its neighbours only (docs/animation.md)\n"
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
  std::exit(kFailure);
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
  app.add_flag("--key-error-bound", a.keyErrorBound);
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
    std::exit(kOk);
  }
  if (a.listFields) {
    for (const std::string& name : optionFieldNames()) std::printf("%s\n", name.c_str());
    std::exit(kOk);
  }
  const std::vector<std::string> extras = app.remaining();
  for (const std::string& assignment : assignments) {
    std::optional<std::pair<std::string, std::string>> split = ztext::splitAssignment(assignment);
    if (!split) {
      // "--set sampleRate 15" leaves the value as a word of its own.
      for (int i = 1; assignment.find('=') == std::string::npos && i + 2 < argc; ++i)
        if (std::string(argv[i]) == "--set" && argv[i + 1] == assignment && argv[i + 2][0] != '-')
          usageError("--set " + assignment + " " + argv[i + 2] + ": the field and its value are one word joined by " +
                     "'=': --set " + assignment + "=" + argv[i + 2]);
      usageError("--set " + assignment + ": expected FIELD=VALUE, as in --set sampleRate=15");
    }
    a.sets.push_back(std::move(*split));
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
  if (!a.output.empty())
    if (const Result<void> named = ztdriver::checkOutputName(a.output, "-o "); !named) usageError(named.error().message);
  if (a.scene.empty() && !a.version && !a.about) usageError("no scene given");
  if (a.check && a.saveOptions) usageError("--check writes nothing, so it cannot go with --save-options");
  return a;
}

// Prints the exporter's progress on one terminal line.
class ProgressLine : public ztdriver::ExportObserver {
 public:
  explicit ProgressLine(bool enabled) : enabled_(enabled) {}
  void progress(const hostmodel::ProgressCall& call) override {
    if (!enabled_) return;
    if (call.kind == hostmodel::ProgressCall::Update) {
      std::fprintf(stderr, "\r\033[K%3d%%  %s", call.percent, call.title.c_str());
      shown_ = true;
    } else if (call.kind == hostmodel::ProgressCall::End) {
      clear();
    }
    std::fflush(stderr);
  }
  // Trace lines share standard error with the progress line: each clears it first.
  void trace(const std::string& line) override {
    clear();
    std::fputs(line.c_str(), stderr);
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

  const Arguments args = parseArguments(argc, argv);
  // A model's reader loads the import library while this process loads the
  // exporter module and prepares the export.
  if (!args.version && !args.about && !args.scene.empty()) hostimport::startReader(args.scene);

  if (args.dialog || args.about) {
    if (const std::string why = displayUnavailableReason(); !why.empty()) {
      std::fprintf(stderr, "zt2export: %s needs a display (%s)\n", args.about ? "--about" : "--dialog", why.c_str());
      return kFailure;
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
      return kOk;
    }
    if (args.about) {
      module->createExporter()->ShowAbout(nullptr);
      return kOk;
    }
  } catch (const ModuleError& e) {
    std::fprintf(stderr, "zt2export: %s\n", e.what());
    return kFailure;
  }

  ztdriver::ExportRequest request;
  request.scene = args.scene;
  request.output = args.output;
  request.configDir = args.configDir;
  request.writeScene = args.writeScene;
  request.depfile = args.depfile;
  request.sets = args.sets;
  request.texturePaths = args.texturePaths;
  request.memoryLimitMiB = args.memoryLimitMiB;
  request.dropMissingTextures = args.dropMissingTextures;
  request.copyTexturesOutside = args.copyTexturesOutside;
  request.replaceTextures = args.replaceTextures;
  request.uniqueTextureNames = args.uniqueTextureNames;
  request.noSync = args.noSync;
  request.saveOptions = args.saveOptions;
  request.dryRun = args.check;
  request.dialog = args.dialog;
  request.trace = args.verbose;
  request.keyErrorBound = args.keyErrorBound;
  request.dryRunPrefix = "zt2export-";
  ProgressLine progress(!args.quiet && ::isatty(2));
  const ztdriver::ExportOutcome outcome = ztdriver::runExport(request, *module, progress);
  progress.clear();

  using ztdriver::MessageKind;
  auto print = [&](MessageKind kind, std::FILE* to, const char* prefix) {
    for (const ztdriver::ExportMessage& m : outcome.messages)
      if (m.kind == kind) std::fprintf(to, "%s%s\n", prefix, m.text.c_str());
  };
  // --quiet keeps the errors alone: of the info text, its ERROR lines without the heading.
  const auto isError = [](const std::string& line) { return line.starts_with("ERROR"); };
  print(MessageKind::fileNotSaved, stderr, "");
  if (!args.quiet) {
    print(MessageKind::note, stderr, "zt2export: note: ");
    print(MessageKind::sceneWarning, stderr, "");
  }
  print(MessageKind::imageProblem, stderr, "zt2export: ");
  print(MessageKind::messageBox, stderr, "");
  for (const std::string& text : outcome.infoTexts) {
    std::string shown;
    if (args.quiet) {
      std::istringstream lines(text);
      for (std::string line; std::getline(lines, line);)
        if (isError(line)) shown += line.substr(0, line.find_last_not_of('\r') + 1) + "\n";
    } else {
      shown = "Export Info\n";
      for (char c : text)
        if (c != '\r') shown += c;
    }
    std::fputs(shown.c_str(), stdout);
  }
  if (args.check && !args.quiet && outcome.infoTexts.empty() && outcome.failure.empty())
    std::puts("Export Info\nno messages");
  for (const ztdriver::ExportMessage& m : outcome.messages)
    if (m.kind == MessageKind::textureNote && (!args.quiet || isError(m.text)))
      std::fprintf(stderr, "zt2export: %s\n", m.text.c_str());
  // Each line of the reason alone: several option edits can be wrong at once.
  for (std::size_t start = 0; start < outcome.failure.size();) {
    const std::size_t end = std::min(outcome.failure.find('\n', start), outcome.failure.size());
    std::fprintf(stderr, "zt2export: %s\n", outcome.failure.substr(start, end - start).c_str());
    start = end + 1;
  }
  const int code = outcome.status == ztdriver::ExportStatus::ok            ? kOk
                   : outcome.status == ztdriver::ExportStatus::sceneErrors ? ztexit::kProblems
                                                                           : kFailure;
  // Every file is written and closed by now. Tearing down a scene of millions
  // of elements only hands memory back that the system reclaims anyway, so
  // leave at once.
  std::fflush(stdout);
  std::fflush(stderr);
  std::_Exit(code);
}
