// zt2export: the host on this machine. Loads a scene-description file into
// the in-memory host model, loads the exporter module and drives it through
// its entry points exactly as the host would, with prompts suppressed unless
// --dialog asks for the options dialog.
#include <malloc.h>
#include <pwd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "host/inhouse/exceptions.h"
#include "host/import/importers.h"
#include "host/memory/memory_host.h"
#include "options/option_fields.h"
#include "options/options_dialog.h"
#include "tools/zt2export/exporter_module.h"
#include "ui/display_probe.h"

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
  std::vector<std::pair<std::string, std::string>> sets;  // field, value
  bool saveOptions = false;
  bool check = false;
  bool quiet = false;
  bool verbose = false;
  bool version = false;
  bool dialog = false;
  bool about = false;
};

void printUsage(std::FILE* to) {
  std::fprintf(to,
               "Usage: zt2export SCENE [-o OUT.zt2] [--config-dir DIR] [--set FIELD=VALUE ...]\n"
               "                 [--save-options] [--check] [--write-scene OUT.scene.json]\n"
               "                 [--dialog] [--module PATH] [--quiet] [--verbose]\n"
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
      "  -o, --output OUT.zt2   the file to write; default: the scene's name with .zt2, in the\n"
      "                         current directory\n"
      "  --config-dir DIR       where ZTExport.cfg and ZTExportAdditional.cfg are read (and\n"
      "                         ZTExport.cfg written); default: $XDG_CONFIG_HOME/ztexport or\n"
      "                         ~/.config/ztexport, created when missing\n"
      "  --set FIELD=VALUE      change one field of the options record after it was loaded from\n"
      "                         ZTExport.cfg and before it is applied; may be repeated. Values\n"
      "                         outside the limits the options dialog gives are refused.\n"
      "  --save-options         write ZTExport.cfg at the end, as closing the options dialog\n"
      "                         with OK would (with the --set changes)\n"
      "  --check                run the whole export but write nothing (no scene file, no .skd,\n"
      "                         no texture copy, no ZTExport.cfg) and print every message\n"
      "  --dialog               show the options dialog before the export, as the host does\n"
      "                         unless prompts are suppressed; Cancel ends the run with nothing\n"
      "                         written, OK saves ZTExport.cfg. The \"Export Info\" window shows\n"
      "                         the messages as well. Needs a display.\n"
      "  --about                show the exporter's about box (needs a display)\n"
      "  --module PATH          the exporter module to load; default: ZTExport.dle beside\n"
      "                         this program\n"
      "  --version              print the module's description and the exporter's version\n"
      "  --write-scene OUT.scene.json  write the imported model as a scene-description file,\n"
      "                         its arrays in OUT.bin beside it, then export that file\n"
      "  --quiet                no progress display\n"
      "  --verbose              print the exporter's developer trace on standard error\n"
      "  -h, --help             this text\n"
      "\n"
      "Output: the \"Export Info\" text on standard output when the exporter shows it (on errors,\n"
      "or when dumpInfo is set and there is something to tell); message boxes on standard error.\n"
      "\n"
      "Exit status: 0 the run ended normally (file written, or nothing to write); 1 the export\n"
      "was cancelled because of errors in the scene; 2 the file could not be saved, the scene\n"
      "could not be read, the module could not be loaded, a window was asked for without a\n"
      "display, or the command line is wrong.\n"
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
      {"--module", "a file name"},  {"--write-scene", "a file name"},
  };
  // The last of a repeated option wins, as it always has.
  auto single = [&](const char* names, std::string& target) {
    app.add_option(names, target)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  };
  single("-o,--output", a.output);
  single("--config-dir", a.configDir);
  single("--module", a.module);
  single("--write-scene", a.writeScene);
  std::vector<std::string> assignments;
  app.add_option("--set", assignments)->allow_extra_args(false);
  app.add_flag("--version", a.version);
  app.add_flag("--dialog", a.dialog);
  app.add_flag("--about", a.about);
  app.add_flag("--save-options", a.saveOptions);
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
  for (const std::string& extra : app.remaining()) {
    if (!extra.empty() && extra[0] == '-') usageError("unknown option " + extra);
    usageError("more than one scene given (" + a.scene + ", " + extra + ")");
  }
  for (const std::string& assignment : assignments) {
    const std::size_t eq = assignment.find('=');
    if (eq == std::string::npos || eq == 0) usageError("--set " + assignment + ": expected FIELD=VALUE");
    a.sets.emplace_back(assignment.substr(0, eq), assignment.substr(eq + 1));
  }
  if (a.scene.empty() && !a.version && !a.about) usageError("no scene given");
  if (a.check && a.saveOptions) usageError("--check writes nothing, so it cannot go with --save-options");
  return a;
}

// Empty when there is no home to put it in: a configuration that quietly
// lands in whatever directory the run started from is never found again.
std::string defaultConfigDir() {
  namespace fs = std::filesystem;
  fs::path base;
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg)
    base = xdg;
  else if (const char* home = std::getenv("HOME"); home && *home)
    base = fs::path(home) / ".config";
  else if (const passwd* user = ::getpwuid(::getuid()); user && user->pw_dir && *user->pw_dir)
    base = fs::path(user->pw_dir) / ".config";
  else
    return {};
  return (base / "ztexport").string();
}

// The output must not be the scene being read: the export would overwrite its own input.
bool sameFile(const std::string& a, const std::string& b) {
  std::error_code ec;
  return std::filesystem::equivalent(a, b, ec) && !ec;
}

std::string defaultOutput(const std::string& scene) {
  if (!hostimport::isSceneDescription(scene)) return std::filesystem::path(scene).stem().string() + ".zt2";
  std::string stem = std::filesystem::path(scene).filename().string();
  for (const char* suffix : {".json", ".scene"})
    if (stem.size() > std::string(suffix).size() && stem.ends_with(suffix)) stem.resize(stem.size() - std::string(suffix).size());
  return stem + ".zt2";
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
      std::printf("%s\n%s %u.%02u\n", module->description().c_str(), exporter->ShortDesc(), version / 100,
                  version % 100);
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
  std::unique_ptr<hostmodel::MemoryHost> host;
  try {
    // Textures held inside a model go beside what is written.
    const std::string written = args.writeScene.empty() ? output : args.writeScene;
    host = hostimport::openScene(args.scene, args.writeScene, std::filesystem::path(written).parent_path().string());
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "zt2export: %s: out of memory while loading the scene\n", args.scene.c_str());
    return kExitFailure;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "zt2export: %s\n", e.what());
    return kExitFailure;
  }

  if (sameFile(output, args.scene)) {
    std::fprintf(stderr, "zt2export: %s: the output would overwrite the scene it is exported from\n", output.c_str());
    return kExitFailure;
  }

  const std::string configDir = args.configDir.empty() ? defaultConfigDir() : args.configDir;
  if (configDir.empty()) {
    std::fprintf(stderr, "zt2export: no configuration directory: neither XDG_CONFIG_HOME nor HOME is set and the "
                         "user has no home directory; give --config-dir\n");
    return kExitFailure;
  }
  if (!args.check) {
    std::error_code ec;
    std::filesystem::create_directories(configDir, ec);
    if (!std::filesystem::is_directory(configDir)) {
      std::fprintf(stderr, "zt2export: cannot create the configuration directory %s\n", configDir.c_str());
      return kExitFailure;
    }
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
    if (args.saveOptions) record.saveOnClose = true;
    if (args.check) {
      record.saveOnClose = false;
      record.dumpInfo = 1;  // every message is shown, not only those of a failed export
    }
  });
  host->setWritesSuppressed(args.check);

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
  for (const std::string& text : host->messageBoxes()) std::fprintf(stderr, "%s\n", text.c_str());
  for (const std::string& text : host->exportInfoTexts()) {
    std::string shown = "Export Info\n";
    for (char c : text)
      if (c != '\r') shown += c;
    std::fputs(shown.c_str(), stdout);
  }

  // The exporter's message boxes all end a run that failed: the file could
  // not be saved, or a window it was asked for could not be shown.
  const bool failed = result == 0 || !host->messageBoxes().empty();
  const int code = failed ? kExitFailure : exportFailed(host->exportInfoTexts()) ? kExitExportErrors : kExitOk;
  // Every file is written and closed by now. Tearing down a scene of millions
  // of elements only hands memory back that the system reclaims anyway, so
  // leave at once.
  std::fflush(stdout);
  std::fflush(stderr);
  std::_Exit(code);
}
