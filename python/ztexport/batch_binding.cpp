// _ztexport._batch: the batch library's per-file steps for a scheduler
// written in Python (ztexport.batch). Requests and records cross as plain
// dicts so that they pickle to a cluster's workers; the stamps, the manifest
// and the exit status stay the C++ batch's own.
#include <dlfcn.h>
#include <unistd.h>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "batch/batch.h"
#include "batch/batch_internal.h"

namespace py = pybind11;
namespace fs = std::filesystem;
using namespace ztbatch;

namespace {

template <typename T>
T field(const py::dict& d, const char* name, T fallback) {
  if (!d.contains(name) || d[name].is_none()) return fallback;
  return d[name].cast<T>();
}

ztbatch::BatchRequest requestOf(const py::dict& d) {
  BatchRequest r;
  r.sourceDir = field<std::string>(d, "source_dir", "");
  r.outputDir = field<std::string>(d, "output_dir", "");
  r.include = field<std::vector<std::string>>(d, "include", {});
  r.exclude = field<std::vector<std::string>>(d, "exclude", {});
  r.force = field<bool>(d, "force", false);
  r.timeoutSeconds = field<double>(d, "timeout", 600);
  r.configDir = field<std::string>(d, "config_dir", "");
  r.sets = field<std::vector<std::string>>(d, "sets", {});
  r.module = field<std::string>(d, "module", "");
  r.exporter = field<std::string>(d, "exporter", "");
  r.texturePaths = field<std::vector<std::string>>(d, "texture_paths", {});
  r.missingTextures = field<std::string>(d, "missing_textures", "");
  r.copyTexturesOutside = field<bool>(d, "copy_textures_outside", false);
  r.memoryLimitMiB = field<std::string>(d, "memory_limit", "");
  r.textureNames = field<std::string>(d, "texture_names", "");
  r.wait = field<bool>(d, "wait", false);
  if (r.sourceDir.empty() || r.outputDir.empty()) throw BatchError("a request needs source_dir and output_dir");
  // Unset, the C++ batch would run the calling program: the interpreter.
  if (r.exporter.empty()) throw BatchError("a request needs the zt2export program (exporter)");
  return r;
}

Status statusOf(const std::string& name) {
  for (Status s : {Status::Exported, Status::UpToDate, Status::Cancelled, Status::Failed, Status::TimedOut,
                   Status::Interrupted})
    if (name == statusName(s)) return s;
  throw py::value_error("unknown status: " + name);
}

py::dict recordOf(const FileResult& f) {
  py::dict d;
  d["input"] = f.input;
  d["output"] = f.output;
  d["outputs"] = f.outputs;
  d["status"] = std::string(statusName(f.status));
  d["messages"] = f.messages;
  d["seconds"] = f.seconds;
  d["bytes"] = f.bytes;
  py::list shared;
  for (const SharedOutput& o : f.shared) {
    py::dict entry;
    entry["path"] = o.path;
    entry["sha256"] = o.sha256;
    entry["source"] = o.source;
    shared.append(entry);
  }
  d["shared"] = shared;
  if (!f.reason.empty()) d["reason"] = f.reason;
  return d;
}

FileResult fileOf(const py::dict& d) {
  FileResult f;
  f.input = field<std::string>(d, "input", "");
  f.output = field<std::string>(d, "output", "");
  f.outputs = field<std::vector<std::string>>(d, "outputs", {});
  f.status = statusOf(field<std::string>(d, "status", "failed"));
  f.messages = field<std::vector<std::string>>(d, "messages", {});
  f.seconds = field<double>(d, "seconds", 0);
  f.bytes = field<std::uint64_t>(d, "bytes", 0);
  for (const py::handle& o : field<py::list>(d, "shared", py::list())) {
    const py::dict entry = o.cast<py::dict>();
    f.shared.push_back({field<std::string>(entry, "path", ""), field<std::string>(entry, "sha256", ""),
                        field<std::string>(entry, "source", "")});
  }
  f.reason = field<std::string>(d, "reason", "");
  return f;
}

BatchResult resultOf(const py::dict& d) {
  BatchResult r;
  for (const py::handle& f : field<py::list>(d, "files", py::list())) r.files.push_back(fileOf(f.cast<py::dict>()));
  for (const py::handle& f : field<py::list>(d, "skipped", py::list())) {
    const py::dict entry = f.cast<py::dict>();
    r.skipped.push_back({field<std::string>(entry, "folder", ""), field<std::string>(entry, "reason", "")});
  }
  r.interrupted = field<bool>(d, "interrupted", false);
  r.signal = field<int>(d, "signal", 0);
  r.seconds = field<double>(d, "seconds", 0);
  r.exitStatus = exitStatusOf(r);
  return r;
}

// zt2export inside the package (a wheel carries it there), as installed with
// the package (bin of the same prefix), or at the top of the build tree the
// extension was built in.
std::string defaultExporter() {
  Dl_info info{};
  if (!dladdr(reinterpret_cast<void*>(&defaultExporter), &info) || !info.dli_fname) return {};
  const fs::path here = fs::path(info.dli_fname).parent_path();
  std::error_code ec;
  for (const fs::path& candidate :
       {here / "zt2export", here / ZTX_PY_TO_INSTALLED_EXPORTER / "zt2export", here / ZTX_PY_TO_BUILT_MODULE / "zt2export"})
    if (fs::is_regular_file(candidate, ec)) return candidate.lexically_normal().string();
  return {};
}

// The output directory's lock, held by the Python object until release().
struct OutputLock {
  std::unique_ptr<RunLock> lock;
};

}  // namespace

void bindBatch(py::module_& parent) {
  py::module_ m = parent.def_submodule("_batch", "The batch library's per-file steps (ztexport.batch).");
  py::register_exception<BatchError>(m, "BatchError", PyExc_RuntimeError);

  m.def("default_exporter", &defaultExporter);
  m.def("find_inputs", [](const py::dict& request) { return findInputs(requestOf(request)); }, py::arg("request"));
  m.def("output_for", &outputFor, py::arg("source_dir"), py::arg("input"));
  m.def(
      "scan_inputs",
      [](const py::dict& request) {
        std::vector<SkippedFolder> skipped;
        const std::vector<std::string> inputs = findInputs(requestOf(request), &skipped);
        py::list folders;
        for (const SkippedFolder& folder : skipped) {
          py::dict entry;
          entry["folder"] = folder.path;
          entry["reason"] = folder.reason;
          folders.append(entry);
        }
        return py::make_tuple(inputs, folders);
      },
      py::arg("request"));
  m.def(
      "stale_reason",
      [](const py::dict& request, const std::string& input, const std::string& output, const std::string& version) {
        const BatchRequest r = requestOf(request);
        FileResult f;
        std::string reason;
        {
          py::gil_scoped_release released;
          HashCache hashes;
          reason = staleReason(r, input, output, version, hashes, &f);
        }
        return py::make_tuple(reason, reason.empty() ? py::object(recordOf(f)) : py::object(py::none()));
      },
      py::arg("request"), py::arg("input"), py::arg("output"), py::arg("version"));
  py::class_<OutputLock>(m, "OutputLock", "The output directory's lock: one batch at a time exports into it.")
      .def("release", [](OutputLock& l) { l.lock.reset(); });
  m.def(
      "lock_output",
      [](const py::dict& request) {
        const BatchRequest r = normalized(requestOf(request));
        auto held = std::make_unique<OutputLock>();
        held->lock = std::make_unique<RunLock>();
        Result<void> locked = held->lock->acquire(r.outputDir, false);
        auto busy = [&locked] { return !locked && locked.error().kind == ErrorKind::busy; };
        if (busy() && r.wait) {
          py::module_::import("sys").attr("stderr").attr("write")(
              "ztexport.batch: " + r.outputDir + ": another batch is exporting into it; waiting for it to end\n");
          // Tried again and again rather than waited on, so that a Ctrl-C ends the wait.
          while (busy()) {
            {
              py::gil_scoped_release released;
              ::usleep(200000);
              locked = held->lock->acquire(r.outputDir, false);
            }
            if (PyErr_CheckSignals() != 0) throw py::error_already_set();
          }
        }
        if (busy())
          throw BatchError(r.outputDir + ": another batch is exporting into this directory; run one at a time, or " +
                           "give --wait to wait for it");
        if (!locked) throw BatchError("cannot lock the output directory: " + locked.error().message);
        return held;
      },
      py::arg("request"), "Takes the lock of the request's output directory (waiting when it says wait); "
                          "BatchError when another batch holds it.");
  py::class_<WorkDirectory>(m, "WorkDirectory", "A folder private to one export, with the proof that it is ours.")
      .def(py::init([](const std::string& parent) {
             auto work = std::make_unique<WorkDirectory>();
             if (const Result<void> created = work->create(parent, workDirectoryPrefix()); !created)
               throw BatchError(parent + ": cannot create a work directory: " + created.error().message);
             return work;
           }),
           py::arg("parent"))
      .def_property_readonly("path", &WorkDirectory::path)
      .def("remove", &WorkDirectory::remove);
  m.def(
      "write_small_file",
      [](const std::string& path, const py::object& data) {
        // A str is written as UTF-8; anything else is read in place through
        // its buffer, so large arrays are not copied on their way out.
        Result<void> written;
        if (py::isinstance<py::str>(data)) {
          const std::string text = data.cast<std::string>();
          py::gil_scoped_release unlocked;
          written = writeSmallFile(path, text);
        } else {
          Py_buffer view;
          if (PyObject_GetBuffer(data.ptr(), &view, PyBUF_SIMPLE) != 0) throw py::error_already_set();
          {
            py::gil_scoped_release unlocked;
            written = writeSmallFile(
                path, std::string_view(static_cast<const char*>(view.buf), static_cast<std::size_t>(view.len)));
          }
          PyBuffer_Release(&view);
        }
        if (!written) throw BatchError(path + ": " + written.error().message);
      },
      py::arg("path"), py::arg("data"));
  m.def(
      "fail_shared_output_clashes",
      [](const py::dict& request, const py::dict& result) {
        const BatchRequest r = requestOf(request);
        BatchResult b = resultOf(result);
        const std::vector<std::size_t> failed = failSharedOutputClashes(r, b);
        py::list records;
        for (const FileResult& f : b.files) records.append(recordOf(f));
        return py::make_tuple(records, failed);
      },
      py::arg("request"), py::arg("result"));
  m.def("exporter_version", [](const py::dict& request) { return exporterVersion(requestOf(request)); },
        py::arg("request"));
  m.def("prepare_output", [](const py::dict& request) { prepareOutput(requestOf(request)); }, py::arg("request"));
  m.def(
      "settle_inputs",
      [](const py::dict& request, const std::vector<std::string>& inputs, const std::string& version) {
        const BatchRequest r = requestOf(request);
        BatchResult result;
        std::vector<std::size_t> pending;
        {
          py::gil_scoped_release released;
          HashCache hashes;
          pending = settleInputs(r, inputs, version, hashes, result);
        }
        py::list records;
        for (const FileResult& f : result.files) records.append(recordOf(f));
        return py::make_tuple(records, pending);
      },
      py::arg("request"), py::arg("inputs"), py::arg("version"));
  m.def(
      "export_one",
      [](const py::dict& request, const std::string& input, const std::string& output, const std::string& version,
         const std::string& work) {
        const BatchRequest r = requestOf(request);
        FileResult f;
        {
          py::gil_scoped_release released;
          HashCache hashes;
          f = exportOne(r, input, output, version, hashes, work);
        }
        return recordOf(f);
      },
      py::arg("request"), py::arg("input"), py::arg("output"), py::arg("version"), py::arg("work"));
  m.def("exit_status", [](const py::dict& result) { return exitStatusOf(resultOf(result)); }, py::arg("result"));
  m.def(
      "manifest_text",
      [](const py::dict& request, const std::string& version, const py::dict& result) {
        return manifestText(requestOf(request), version, resultOf(result));
      },
      py::arg("request"), py::arg("version"), py::arg("result"));
  m.def(
      "write_manifest",
      [](const py::dict& request, const std::string& version, const py::dict& result) {
        writeManifest(requestOf(request), version, resultOf(result));
      },
      py::arg("request"), py::arg("version"), py::arg("result"));
}
