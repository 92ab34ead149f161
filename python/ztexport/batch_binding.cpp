// _ztexport._batch: the batch library's per-file steps for a scheduler
// written in Python (ztexport.batch). Requests and records cross as plain
// dicts so that they pickle to a cluster's workers; the stamps, the manifest
// and the exit status stay the C++ batch's own.
#include <dlfcn.h>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "batch/batch.h"

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
  return f;
}

BatchResult resultOf(const py::dict& d) {
  BatchResult r;
  for (const py::handle& f : field<py::list>(d, "files", py::list())) r.files.push_back(fileOf(f.cast<py::dict>()));
  r.interrupted = field<bool>(d, "interrupted", false);
  r.signal = field<int>(d, "signal", 0);
  r.seconds = field<double>(d, "seconds", 0);
  r.exitStatus = exitStatusOf(r);
  return r;
}

// zt2export as installed beside the package (bin of the same prefix) or at
// the top of the build tree the extension was built in.
std::string defaultExporter() {
  Dl_info info{};
  if (!dladdr(reinterpret_cast<void*>(&defaultExporter), &info) || !info.dli_fname) return {};
  const fs::path here = fs::path(info.dli_fname).parent_path();
  std::error_code ec;
  for (const fs::path& candidate :
       {here / ZTX_PY_TO_INSTALLED_EXPORTER / "zt2export", here / ZTX_PY_TO_BUILT_MODULE / "zt2export"})
    if (fs::is_regular_file(candidate, ec)) return candidate.lexically_normal().string();
  return {};
}

}  // namespace

void bindBatch(py::module_& parent) {
  py::module_ m = parent.def_submodule("_batch", "The batch library's per-file steps (ztexport.batch).");
  py::register_exception<BatchError>(m, "BatchError", PyExc_RuntimeError);

  m.def("default_exporter", &defaultExporter);
  m.def("find_inputs", [](const py::dict& request) { return findInputs(requestOf(request)); }, py::arg("request"));
  m.def("output_for", &outputFor, py::arg("source_dir"), py::arg("input"));
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
      [](const py::dict& request, const std::string& input, const std::string& version, const std::string& work) {
        const BatchRequest r = requestOf(request);
        FileResult f;
        {
          py::gil_scoped_release released;
          HashCache hashes;
          f = exportOne(r, input, version, hashes, work);
        }
        return recordOf(f);
      },
      py::arg("request"), py::arg("input"), py::arg("version"), py::arg("work"));
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
