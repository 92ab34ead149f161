#include "tools/zt2export/batch_command.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "batch/batch.h"
#include "host/inhouse/exit_codes.h"
#include "host/inhouse/text.h"
#include "options/option_fields.h"

namespace ztbatch {

namespace {

void printBatchUsage(std::FILE* to) {
  std::fprintf(to,
               "Usage: zt2export --batch SRC_DIR -o OUT_DIR [-j N] [--include GLOB ...] [--exclude GLOB ...]\n"
               "                 [--force] [--timeout S] [--config-dir DIR] [--set FIELD=VALUE ...]\n"
               "                 [--texture-path DIR ...] [--missing-textures error|drop]\n"
               "                 [--copy-textures-outside] [--memory-limit MIB] [--texture-names keep|unique]\n"
               "                 [--module PATH] [--exporter PATH] [--wait] [--dry-run] [--json] [--quiet]\n");
}

void printBatchHelp() {
  printBatchUsage(stdout);
  std::printf(
      "\n"
      "Exports every scene-description file and every model under SRC_DIR into the same relative\n"
      "place under OUT_DIR, each in a process of its own, and writes OUT_DIR/ztexport-manifest.json.\n"
      "An output whose stamp (OUT.zt2.stamp) matches the content of every file it was made from,\n"
      "the content of every file it wrote, the options and the exporter's version is left as it is.\n"
      "Models of one folder that share a name (car.3ds, car.obj) are exported to car.3ds.zt2 and\n"
      "car.obj.zt2. An .xml file is a model only when the model reader takes it for one (Collada,\n"
      "Irrlicht, Ogre, XGL). OUT_DIR may lie inside SRC_DIR when it holds no file to export.\n"
      "\n"
      "Options:\n"
      "  -o, --output OUT_DIR   where the outputs go (created when missing); one batch at a time\n"
      "                         exports into it\n"
      "  -j, --jobs N           exports at once; default: the number of processors\n"
      "  --include GLOB         export the files the pattern takes; may be repeated; default:\n"
      "                         *.json and *.EXT for every model format zt2export --help lists.\n"
      "                         A pattern with a '/' is matched against the path under SRC_DIR,\n"
      "                         one without against the file name; case is not minded\n"
      "  --exclude GLOB         leave out the files the pattern takes; may be repeated\n"
      "  --force                export every file, up to date or not\n"
      "  --timeout S            seconds one file may take before its export is stopped (600)\n"
      "  --config-dir DIR, --set FIELD=VALUE, --texture-path DIR, --missing-textures error|drop,\n"
      "  --copy-textures-outside, --memory-limit MIB, --texture-names keep|unique, --module PATH\n"
      "                         as for one export, for every file; kept in the stamps, so that\n"
      "                         changing one exports every file again\n"
      "  --exporter PATH        the zt2export program each file is exported with (default: this one)\n"
      "  --wait                 when another batch is exporting into OUT_DIR, wait for it to end\n"
      "                         (without it the run is refused, exit status 2)\n"
      "  --dry-run              list on standard output what would be exported and why; export and\n"
      "                         write nothing\n"
      "  --json                 one JSON object per finished file on standard output: input,\n"
      "                         status, outputs, seconds, messages\n"
      "  --quiet                no progress line\n"
      "\n"
      "Exit status: 0 every file exported or up to date; 1 any cancelled because of errors in\n"
      "the scene, failed or timed out (a texture copy that two files need with different images\n"
      "fails both); 2 the command line is wrong or the run cannot start (another batch holds\n"
      "OUT_DIR, OUT_DIR inside SRC_DIR holds sources); 128 + the signal when interrupted\n"
      "(Ctrl-C: 130).\n");
}

[[noreturn]] void usageError(const std::string& message) {
  std::fprintf(stderr, "zt2export: %s\n", message.c_str());
  printBatchUsage(stderr);
  std::exit(ztexit::kFailure);
}

}  // namespace

bool isBatchCommand(int argc, char** argv) {
  for (int i = 1; i < argc; ++i)
    if (std::strcmp(argv[i], "--batch") == 0 || std::strncmp(argv[i], "--batch=", 8) == 0) return true;
  return false;
}

int batchCommand(int argc, char** argv) {
  for (int i = 1; i < argc; ++i)
    if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) {
      printBatchHelp();
      return ztexit::kOk;
    }
  BatchRequest request;
  CLI::App app{"", "zt2export"};
  app.set_help_flag();
  bool quiet = false;
  bool dryRunOnly = false;
  int jobs = 0;
  app.add_option("--batch", request.sourceDir);
  auto single = [&](const char* names, std::string& target) {
    app.add_option(names, target)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  };
  single("-o,--output", request.outputDir);
  single("--config-dir", request.configDir);
  single("--module", request.module);
  single("--exporter", request.exporter);
  single("--missing-textures", request.missingTextures);
  single("--texture-names", request.textureNames);
  single("--memory-limit", request.memoryLimitMiB);
  app.add_option("--texture-path", request.texturePaths)->allow_extra_args(false);
  app.add_flag("--copy-textures-outside", request.copyTexturesOutside);
  app.add_flag("--wait", request.wait);
  app.add_flag("--dry-run", dryRunOnly);
  app.add_flag("--json", request.json);
  app.add_option("-j,--jobs", jobs)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  app.add_option("--timeout", request.timeoutSeconds)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  app.add_option("--include", request.include)->allow_extra_args(false);
  app.add_option("--exclude", request.exclude)->allow_extra_args(false);
  app.add_option("--set", request.sets)->allow_extra_args(false);
  app.add_flag("--force", request.force);
  app.add_flag("--quiet", quiet);
  app.allow_extras();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    usageError(e.what());
  }
  for (const std::string& extra : app.remaining()) {
    if (!extra.empty() && extra[0] == '-') usageError("--batch: unknown option " + extra);
    usageError("--batch: unexpected argument " + extra);
  }
  if (request.sourceDir.empty()) usageError("--batch needs a source directory");
  if (request.outputDir.empty()) usageError("--batch needs an output directory (-o OUT_DIR)");
  if (jobs < 0) usageError("-j needs a number of exports of 1 or more");
  if (!(request.timeoutSeconds > 0)) usageError("--timeout needs a number of seconds above 0");
  request.jobs = static_cast<unsigned>(jobs);
  if (!request.missingTextures.empty() && request.missingTextures != "error" && request.missingTextures != "drop")
    usageError("--missing-textures " + request.missingTextures + ": expected error or drop");
  if (!request.textureNames.empty() && request.textureNames != "keep" && request.textureNames != "unique")
    usageError("--texture-names " + request.textureNames + ": expected keep or unique");
  if (!request.memoryLimitMiB.empty()) {
    const std::string& value = request.memoryLimitMiB;
    const bool digits = value.size() <= 8 && value.find_first_not_of("0123456789") == std::string::npos;
    if (!digits || std::stoul(value) < 1 || std::stoul(value) > (1ul << 24))
      usageError("--memory-limit " + value + ": expected a whole number of MiB from 1 to 16777216");
  }
  for (const std::string& dir : request.texturePaths)
    if (dir.empty()) usageError("--texture-path needs a directory");
  // Fields and the form of values are checked once here; limits that hang on
  // a scene's frame range are checked by each export.
  const FrameLimits anyScene{0, 1 << 30};
  for (const std::string& assignment : request.sets) {
    const auto split = ztext::splitAssignment(assignment);
    if (!split) usageError("--set " + assignment + ": expected FIELD=VALUE");
    if (const Result<OptionEdit> edit = parseOptionEdit(split->first, split->second, anyScene); !edit)
      usageError(edit.error().message);
  }
  request.progress = !quiet && !request.json && ::isatty(2);

  try {
    if (dryRunOnly) {
      const BatchResult result = dryRun(request);
      std::size_t toExport = 0, upToDate = 0, failing = 0;
      for (const FileResult& file : result.files) {
        if (file.status == Status::Exported) {
          ++toExport;
          if (request.json)
            std::printf("%s\n", nlohmann::ordered_json({{"input", file.input},
                                                        {"status", "would export"},
                                                        {"output", file.output},
                                                        {"reason", file.reason}})
                                    .dump()
                                    .c_str());
          else
            std::printf("%s: would export (%s)\n", file.input.c_str(), file.reason.c_str());
        } else if (file.status == Status::UpToDate) {
          ++upToDate;
          if (request.json) std::fputs(jsonLine(file).c_str(), stdout);
        } else {
          ++failing;
          if (request.json)
            std::fputs(jsonLine(file).c_str(), stdout);
          else
            for (const std::string& message : file.messages) std::printf("%s: %s\n", file.input.c_str(), message.c_str());
        }
      }
      for (const SkippedFolder& folder : result.skipped)
        std::fprintf(stderr, "zt2export: %s skipped: %s\n", folder.path.c_str(), folder.reason.c_str());
      std::fprintf(stderr, "zt2export: dry run: %zu would be exported, %zu up to date, %zu would fail; nothing written\n",
                   toExport, upToDate, failing);
      return failing > 0 ? ztexit::kProblems : ztexit::kOk;
    }
    const BatchResult result = runBatch(request);
    std::size_t exported = 0, upToDate = 0, other = 0;
    for (const FileResult& file : result.files)
      (file.status == Status::Exported ? exported : file.status == Status::UpToDate ? upToDate : other) += 1;
    std::string skipped;
    for (const SkippedFolder& folder : result.skipped) skipped += ", " + folder.path + " skipped (" + folder.reason + ")";
    std::fprintf(stderr, "zt2export: %zu exported, %zu up to date, %zu not exported%s%s; see %s/ztexport-manifest.json\n",
                 exported, upToDate, other, skipped.c_str(), result.interrupted ? " (interrupted)" : "",
                 request.outputDir.c_str());
    return result.exitStatus;
  } catch (const BatchError& e) {
    std::fprintf(stderr, "zt2export: %s\n", e.what());
    return ztexit::kFailure;
  }
}

}  // namespace ztbatch
