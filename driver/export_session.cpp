#include "driver/export_session.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <numeric>

#include "driver/config_dir.h"
#include "driver/depfile.h"
#include "driver/exporter_module.h"
#include "format/code_page.h"
#include "format/output_files.h"
#include "importers/importers.h"
#include "host/inhouse/text.h"
#include "host/memory/file_reads.h"
#include "host/memory/memory_host.h"
#include "options/apply_options.h"
#include "options/option_fields.h"
#include "options/options_dialog.h"
#include "plugin/info_log.h"

namespace ztdriver {

namespace fs = std::filesystem;

namespace {

std::string directoryOrCurrent(const fs::path& file) {
  const fs::path dir = file.parent_path();
  return dir.empty() ? std::string(".") : dir.string();
}

std::string skinFileOf(const std::string& output) {
  return fs::path(resolvedTarget(output)).replace_extension(".skd").string();
}

// Refuses the first file the run would write over one it reads. The .skd
// goes beside the file the output finally names.
Result<void> outputOverwritingInput(const ExportRequest& request, const std::string& output) {
  struct Named {
    std::string path;
    std::string what;
  };
  const std::vector<Named> exportOutputs = {{output, "the output"}, {skinFileOf(output), "the output's .skd"}};
  const std::vector<Named> inputs = {{request.scene, "the scene it is exported from"}};
  std::vector<Named> outputs = exportOutputs;
  if (!request.writeScene.empty()) {
    const std::string buffer =
        (fs::path(directoryOrCurrent(request.writeScene)) / hostimport::bufferNameFor(request.writeScene)).string();
    outputs.push_back({request.writeScene, "--write-scene"});
    outputs.push_back({buffer, "--write-scene's buffer"});
    // What --write-scene writes is read back and exported.
    for (const Named& out : exportOutputs)
      for (const Named& in : {Named{request.writeScene, "the scene file of --write-scene"},
                              Named{buffer, "the buffer of --write-scene"}})
        if (sameFile(out.path, in.path))
          return Error{ErrorKind::refused, out.path + ": " + out.what + " would overwrite " + in.what};
  }
  for (const Named& out : outputs)
    for (const Named& in : inputs)
      if (sameFile(out.path, in.path))
        return Error{ErrorKind::refused, out.path + ": " + out.what + " would overwrite " + in.what};
  return {};
}

// Fails when files cannot be made in the folder `file` goes into: "FOLDER: reason".
Result<void> folderWritable(const std::string& file) {
  const std::string folder = directoryOrCurrent(file);
  struct stat info {};
  int error = ::stat(folder.c_str(), &info) != 0 ? errno : !S_ISDIR(info.st_mode) ? ENOTDIR : 0;
  if (error == 0 && ::access(folder.c_str(), W_OK | X_OK) != 0) error = errno;
  if (error != 0) return Error{ErrorKind::io, folder + ": " + std::strerror(error)};
  return {};
}

// The info text's lines as records, each kind taken from its prefix.
void addInfoLines(const std::string& text, std::vector<ExportMessage>& out) {
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    start = end + 1;
    if (line.empty()) continue;
    MessageKind kind = MessageKind::text;
    if (line.starts_with("INFO:")) kind = MessageKind::info;
    if (line.starts_with("WARNING:")) kind = MessageKind::warning;
    if (line.starts_with("ERROR:")) kind = MessageKind::error;
    out.push_back({kind, std::move(line)});
  }
}

// An export cancelled by errors in the scene ends its info text so.
bool cancelledByErrors(const std::vector<std::string>& infoTexts) {
  return !infoTexts.empty() && infoTexts.back().ends_with(std::string(kExportCanceledMessage) + "\r\n");
}

ExportOutcome failedWith(ExportOutcome outcome, FailureKind kind, std::string why) {
  outcome.status = ExportStatus::failed;
  outcome.failureKind = kind;
  outcome.failure = std::move(why);
  return outcome;
}

}  // namespace

std::string defaultOutput(const std::string& scene) {
  if (!hostimport::isSceneDescription(scene)) return fs::path(scene).stem().string() + ".zt2";
  std::string stem = fs::path(scene).filename().string();
  for (const std::string suffix : {".json", ".scene"})
    if (stem.size() > suffix.size() && stem.ends_with(suffix)) stem.resize(stem.size() - suffix.size());
  return stem + ".zt2";
}

Result<void> checkOutputName(const std::string& output, const std::string& naming) {
  // The exporter writes ZT2 bytes whatever the name says; a model's extension
  // on them would fool every program that opens the file.
  if (ztext::lowerExtension(output) == ".zt2") return {};
  return Error{ErrorKind::badRequest, naming + output +
                                          ": the output is a ZT2 scene file and its name must end in .zt2 (as in " +
                                          naming + fs::path(output).replace_extension(".zt2").string() + ")"};
}

ExportOutcome runExport(const ExportRequest& request, const ExporterModule& module, ExportObserver& observer) {
  static std::mutex oneAtATime;
  const std::lock_guard<std::mutex> guard(oneAtATime);
  const long long startedAt = zt2export::nowNanoseconds();
  const std::size_t writtenBefore = hostmodel::filesWritten().size();
  const std::size_t readBefore = hostmodel::filesRead().size();

  ExportOutcome outcome;
  outcome.output = request.output.empty() ? defaultOutput(request.scene) : request.output;
  const std::string& output = outcome.output;
  if (const Result<void> named = checkOutputName(output); !named)
    return failedWith(std::move(outcome), FailureKind::badRequest, named.error().message);
  if (const Result<void> apart = outputOverwritingInput(request, output); !apart)
    return failedWith(std::move(outcome), FailureKind::setup, apart.error().message);
  const std::string configDir = request.configDir.empty() ? zt2export::defaultConfigDir() : request.configDir;
  if (!request.depfile.empty()) {
    // What is known before the export; the files it reads are checked again after it.
    RunInputs taken;
    taken.add(request.scene, "the scene it is exported from");
    taken.add(output, "the output");
    taken.add(skinFileOf(output), "the output's .skd");
    taken.add(request.writeScene, "--write-scene");
    if (!configDir.empty()) {
      taken.add(configDir + "/" + kOptionsFileName, kOptionsFileName);
      taken.add(configDir + "/" + kAdditionalConfigFileName, kAdditionalConfigFileName);
    }
    if (const Result<void> apart = taken.clash(request.depfile, "--depfile"); !apart)
      return failedWith(std::move(outcome), FailureKind::setup, apart.error().message);
  }

  // A run that cannot save must say so before anything is written: an
  // import writes a model's own textures beside the output, the exporter
  // makes its texture folder.
  for (const std::string& target : {output, request.writeScene})
    if (!target.empty())
      if (const Result<void> writable = folderWritable(target); !writable)
        return failedWith(std::move(outcome), FailureKind::setup,
                          "cannot write " + target + ": " + writable.error().message);

  // Textures held inside a model go beside what is written: beside the scene
  // file of --write-scene, which they belong to, or beside the exported file,
  // staged there until the export succeeds. A dry run keeps them in a
  // folder of its own that goes with it.
  setFlushBeforeCommit(!request.noSync);
  FileStaging embeddedTextures;
  WorkDirectory dryRunTextures;
  std::string textureDir;
  if (!request.writeScene.empty()) {
    textureDir = directoryOrCurrent(request.writeScene);
  } else if (!hostimport::isSceneDescription(request.scene)) {
    Result<std::string> made = std::string();
    if (request.dryRun) {
      if (const Result<void> created = dryRunTextures.create({}, request.dryRunPrefix); created) {
        made = dryRunTextures.path();
        // What a dry run killed on its way left behind.
        removeAbandonedWorkDirectories(fs::path(dryRunTextures.path()).parent_path().string(), request.dryRunPrefix);
      } else {
        made = created.error();
      }
    } else {
      made = embeddedTextures.newFilesDirectory(directoryOrCurrent(resolvedTarget(output)));
    }
    if (!made)
      return failedWith(std::move(outcome), FailureKind::setup,
                        output + ": cannot write beside the output: " + made.error().message);
    textureDir = std::move(made).value();
  }

  std::unique_ptr<hostmodel::MemoryHost> host;
  try {
    hostimport::OpenOptions open;
    open.writeScene = request.writeScene;
    open.textureDir = textureDir;
    open.texturePaths = request.texturePaths;
    open.dropMissingTextures = request.dropMissingTextures;
    open.limits.memoryMiB = request.memoryLimitMiB;
    host = hostimport::openScene(request.scene, open);
  } catch (const std::bad_alloc&) {
    return failedWith(std::move(outcome), FailureKind::setup,
                      request.scene + ": out of memory while loading the scene");
  } catch (const std::exception& e) {
    return failedWith(std::move(outcome), FailureKind::setup, e.what());
  }

  if (configDir.empty())
    return failedWith(std::move(outcome), FailureKind::setup,
                      "no configuration directory: neither XDG_CONFIG_HOME nor HOME is set and the user has no home "
                      "directory; give " + request.configDirOption);
  if (!request.dryRun)
    if (const Result<void> made = makeDirectories(configDir); !made)
      return failedWith(std::move(outcome), FailureKind::setup,
                        "cannot create the configuration directory " + configDir + ": " + made.error().message);
  if (const Result<void> readable = zt2export::checkOptionsFile(configDir); !readable)
    return failedWith(std::move(outcome), FailureKind::setup, readable.error().message);
  host->setConfigDir(configDir);

  // Every option edit is checked once, against the scene's frame range,
  // before anything runs, so a typo never leaves a half-done export behind;
  // the checked edits are what the record receives.
  const int ticksPerFrame = host->GetTicksPerFrame();
  const Interval range = host->GetAnimRange();
  const FrameLimits frames{0, ticksPerFrame > 0 ? (range.End() - range.Start()) / ticksPerFrame : 0};
  std::vector<OptionEdit> edits;
  std::string badEdits;
  for (const auto& [field, value] : request.sets) {
    Result<OptionEdit> edit = parseOptionEdit(field, value, frames);
    if (edit)
      edits.push_back(std::move(edit).value());
    else
      badEdits += (badEdits.empty() ? "" : "\n") + edit.error().message;
  }
  if (!badEdits.empty()) return failedWith(std::move(outcome), FailureKind::badRequest, std::move(badEdits));

  host->setProgressObserver([&observer](const hostmodel::ProgressCall& call) { observer.progress(call); });
  if (request.trace) host->setVerboseSink([&observer](const std::string& line) { observer.trace(line); });
  host->setOptionsEditor([&](OptionsDialog& record) {
    for (const OptionEdit& edit : edits) applyOptionEdit(record, edit);
    // By the exporter's rules a mesh's faces are written in the groups of
    // their materials; without materials there are none, which surprises.
    if (!record.exportMaterials && record.exportGeometry)
      outcome.messages.push_back({MessageKind::note, "exportMaterials is off, so meshes carry no geometry (faces are "
                                                     "written in the groups of their materials)"});
    // Samples that miss frames of the model's own clips blend across them: a
    // walk of 60 frames a second sampled at 30 loses every other pose.
    if (const int source = host->sourceFrameRate(); source > 0 && record.sampleRate % source != 0) {
      const int shared = std::gcd(source, record.sampleRate);
      const int missed = (source - shared) / shared, of = source / shared;
      const char* format =
          "WARNING: %s: the model's animation has %d frames a second and the export samples %d: %d source "
          "frame%s in %d fall%s between samples; --set sampleRate=%d keeps them all";
      auto print = [&](char* to, std::size_t size) {
        return std::snprintf(to, size, format, request.scene.c_str(), source, record.sampleRate, missed,
                             missed == 1 ? "" : "s", of, missed == 1 ? "s" : "", source);
      };
      // Sized to the scene's name, which can be long.
      std::string text(static_cast<std::size_t>(std::max(print(nullptr, 0), 0)), '\0');
      print(text.data(), text.size() + 1);
      outcome.messages.push_back({MessageKind::sceneWarning, std::move(text)});
    }
    if (request.saveOptions) record.saveOnClose = true;
    if (request.dryRun) record.saveOnClose = false;
    if (request.dryRun || request.everyMessage) record.dumpInfo = 1;
  });
  host->setWritesSuppressed(request.dryRun);
  host->setTextureCopiesOutsideAllowed(request.copyTexturesOutside);
  host->setChangedTextureCopiesReplaced(request.replaceTextures);
  host->setTextureCopiesNamedByContent(request.uniqueTextureNames);
  host->setFlushesDeferred(request.noSync);
  host->setKeyErrorBound(request.keyErrorBound);

  int result = 0;
  try {
    const std::unique_ptr<SceneExport> exporter = module.createExporter();
    result = exporter->DoExport(output.c_str(), nullptr, host.get(), request.dialog ? FALSE : TRUE);
  } catch (const ModuleError& e) {
    return failedWith(std::move(outcome), FailureKind::saving, e.what());
  } catch (const std::bad_alloc&) {
    return failedWith(std::move(outcome), FailureKind::saving, output + ": export failed: out of memory");
  } catch (const std::exception& e) {
    return failedWith(std::move(outcome), FailureKind::saving, std::string("export failed: ") + e.what());
  }

  // Told while the exporter ran, so before everything else.
  outcome.messages.insert(outcome.messages.begin(), host->filesNotSaved().size(), ExportMessage{});
  std::transform(host->filesNotSaved().begin(), host->filesNotSaved().end(), outcome.messages.begin(),
                 [](const std::string& text) { return ExportMessage{MessageKind::fileNotSaved, text}; });
  // The exporter's message names the image it asked for; the file behind it
  // (an image list's entry) and the reason are the host's to tell. Names in
  // the exporter's words are in the host's code page.
  for (const std::string& text : host->imageProblems()) outcome.messages.push_back({MessageKind::imageProblem, text});
  for (const std::string& text : host->messageBoxes())
    outcome.messages.push_back({MessageKind::messageBox, displayText(text)});
  for (const std::string& text : host->exportInfoTexts()) {
    outcome.infoTexts.push_back(displayText(text));
    addInfoLines(outcome.infoTexts.back(), outcome.messages);
  }
  for (const std::string& note : host->textureNotes()) outcome.messages.push_back({MessageKind::textureNote, note});

  // The exporter's message boxes all end a run that failed: the file could
  // not be saved, or a window it was asked for could not be shown.
  if (result == 0 || !host->messageBoxes().empty()) {
    outcome.status = ExportStatus::failed;
    outcome.failureKind = FailureKind::saving;
  } else {
    outcome.status = cancelledByErrors(host->exportInfoTexts()) ? ExportStatus::sceneErrors : ExportStatus::ok;
  }
  if (outcome.status == ExportStatus::ok) {
    if (const Result<void> committed = embeddedTextures.commit(); !committed)
      outcome = failedWith(std::move(outcome), FailureKind::saving,
                           "cannot save a texture held in the model: " + committed.error().message);
  }
  if (outcome.status == ExportStatus::ok && !request.dryRun) {
    zt2export::ExportFiles files =
        zt2export::exportFiles(output, configDir, startedAt, writtenBefore, readBefore);
    if (!request.depfile.empty()) {
      Result<void> written = zt2export::depfileClash(request.depfile, files);
      if (written) written = zt2export::writeDepfile(request.depfile, files);
      if (!written)
        outcome = failedWith(std::move(outcome), FailureKind::saving,
                             request.depfile + ": cannot write the dependency file: " + written.error().message);
    }
    outcome.filesWritten = std::move(files.targets);
    outcome.filesRead = std::move(files.prerequisites);
  }
  embeddedTextures.discard();
  dryRunTextures.remove();
  return outcome;
}

}  // namespace ztdriver
