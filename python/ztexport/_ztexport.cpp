// _ztexport: the binding under the ztexport package. The reader's structs are
// handed out as they are; their arrays become numpy arrays that look straight
// into the reader's storage, each holding a share of it, so that nothing is
// copied and an array outlives the object it came from. The export drives
// the exporter module the way zt2export does (tools/zt2export/main.cpp).
#include <dlfcn.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <variant>
#include <vector>

#include "format/code_page.h"
#include "format/output_files.h"
#include "options/option_fields.h"
#include "options/dialog_template.h"
#include "options/number_text.h"
#include "driver/config_dir.h"
#include "driver/export_session.h"
#include "driver/exporter_module.h"
#include "gltf/gltf_export.h"
#include "images/image_decode.h"
#include "reader/tree/file_decoder.h"
#include "ztexport/diff.h"
#include "ztexport/reader.h"
#include "ztx_version.h"

namespace py = pybind11;

void bindBatch(py::module_& parent);  // batch_binding.cpp
namespace fs = std::filesystem;
using namespace ztexport;

namespace {

PyObject* formatErrorType = nullptr;
PyObject* unreadableFileErrorType = nullptr;
PyObject* missingFileErrorType = nullptr;
PyObject* corruptFileErrorType = nullptr;
PyObject* wrongKindErrorType = nullptr;
PyObject* exportErrorType = nullptr;

// ---------------------------------------------------------------- text

py::str owned(PyObject* text) {
  if (!text) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(text);
}

// Names are bytes in the host's code page: every byte string decodes, and
// the bytes stay at hand as the field's `_bytes` twin.
py::str nameText(const std::string& bytes) {
  const std::string text = codePageToUtf8(bytes);
  return owned(PyUnicode_DecodeUTF8(text.data(), static_cast<py::ssize_t>(text.size()), "strict"));
}

py::list nameTexts(const std::vector<std::string>& names) {
  py::list out;
  for (const std::string& n : names) out.append(nameText(n));
  return out;
}

py::list nameBytes(const std::vector<std::string>& names) {
  py::list out;
  for (const std::string& n : names) out.append(py::bytes(n));
  return out;
}

// A path as the system names it: str as os.fsdecode makes it.
py::str pathText(const std::string& path) {
  return owned(PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<py::ssize_t>(path.size())));
}

// Our messages mix names in the code page with paths of the file system
// (displayText), and a path that is not UTF-8 keeps its bytes as
// os.fsdecode keeps them.
py::str messageText(const std::string& message) {
  const std::string shown = displayText(message);
  return owned(PyUnicode_DecodeUTF8(shown.data(), static_cast<py::ssize_t>(shown.size()), "surrogateescape"));
}

// The system would read a NUL as the end of the name: another file than the one named.
void requirePath(const std::string& path, const char* argument) {
  if (path.find('\0') != std::string::npos)
    throw py::value_error(std::string(argument) + ": a path cannot hold a NUL character");
}

// A name given as bytes, or as text in the code page; false when no name can be that text.
bool nameArgument(const py::handle& given, std::string& bytes) {
  if (py::isinstance<py::bytes>(given)) {
    bytes = given.cast<std::string>();
    return true;
  }
  return codePageFromUtf8(given.cast<std::string>(), bytes);
}

// ---------------------------------------------------------------- arrays

// A numpy view of `count` records of `T` in `array`, each record seen through
// `shape` and `strides` after the first axis; `offset` bytes into a record.
// The capsule holds a share of the storage.
template <typename Element, typename T>
py::array view(const Array<T>& array, std::vector<py::ssize_t> shape, std::vector<py::ssize_t> strides,
               std::size_t offset = 0) {
  shape.insert(shape.begin(), static_cast<py::ssize_t>(array.size()));
  strides.insert(strides.begin(), static_cast<py::ssize_t>(sizeof(T)));
  auto* share = new std::shared_ptr<T[]>(array.storage());
  py::capsule owner(share, [](void* p) { delete static_cast<std::shared_ptr<T[]>*>(p); });
  // numpy wants an address even for no elements; it is never read.
  static Element none{};
  const Element* data =
      array.empty() ? &none : reinterpret_cast<const Element*>(reinterpret_cast<const char*>(array.data()) + offset);
  py::array out(py::dtype::of<Element>(), shape, strides, data, owner);
  py::detail::array_proxy(out.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
  return out;
}

py::array vec3s(const Array<Vec3>& a) { return view<float>(a, {3}, {4}); }

py::array matrix(const Matrix4x3& m) {
  py::array_t<float> out({4, 3});
  std::memcpy(out.mutable_data(), m.m, sizeof m.m);
  return out;
}

template <typename T>
py::array small(const std::vector<T>& values) {
  py::array_t<T> out(static_cast<py::ssize_t>(values.size()));
  if (!values.empty()) std::memcpy(out.mutable_data(), values.data(), values.size() * sizeof(T));
  return out;
}

// The keys of one track: samples (n,) and values, both views of the same records.
struct Keys {
  py::array samples;
  py::array values;
};

Keys transformKeys(const Array<TransformKey>& k) {
  return {view<std::uint32_t>(k, {}, {}), view<float>(k, {4, 3}, {12, 4}, offsetof(TransformKey, transform))};
}
Keys floatKeys(const Array<FloatKey>& k) {
  return {view<std::uint32_t>(k, {}, {}), view<float>(k, {}, {}, offsetof(FloatKey, value))};
}
Keys colourKeys(const Array<ColourKey>& k) {
  return {view<std::uint32_t>(k, {}, {}), view<float>(k, {4}, {4}, offsetof(ColourKey, colour))};
}

// Elements of a vector member as Python objects that keep their parent alive.
template <typename Parent, typename T>
auto listOf(std::vector<T> Parent::*member) {
  return [member](py::object self) {
    const Parent& parent = self.cast<const Parent&>();
    py::list out;
    for (const T& item : parent.*member) out.append(py::cast(&item, py::return_value_policy::reference_internal, self));
    return out;
  };
}

const char* lightTypeName(LightType t) {
  switch (t) {
    case LightType::Omni: return "omni";
    case LightType::Directional: return "directional";
    case LightType::Spot: return "spot";
  }
  return "";
}

py::tuple rgba(const Rgba& c) { return py::make_tuple(c.r, c.g, c.b, c.a); }
py::tuple rgba8(const Rgba8& c) { return py::make_tuple(c.r, c.g, c.b, c.a); }

// A string field as text (`name`) and as the file's bytes (`name_bytes`).
template <typename Class, typename Get>
void textField(Class& cls, const char* name, Get get) {
  using T = typename Class::type;
  cls.def_property_readonly(name, [get](const T& o) { return nameText(get(o)); });
  cls.def_property_readonly((std::string(name) + "_bytes").c_str(), [get](const T& o) { return py::bytes(get(o)); });
}

// The same for a field that may be absent (`get` gives nullptr): None then.
template <typename Class, typename Get>
void optionalTextField(Class& cls, const char* name, Get get) {
  using T = typename Class::type;
  cls.def_property_readonly(name, [get](const T& o) -> py::object {
    const std::string* s = get(o);
    return s ? py::object(nameText(*s)) : py::object(py::none());
  });
  cls.def_property_readonly((std::string(name) + "_bytes").c_str(), [get](const T& o) -> py::object {
    const std::string* s = get(o);
    return s ? py::object(py::bytes(*s)) : py::object(py::none());
  });
}

template <typename Class, typename Get>
void textListField(Class& cls, const char* name, Get get) {
  using T = typename Class::type;
  cls.def_property_readonly(name, [get](const T& o) { return nameTexts(get(o)); });
  cls.def_property_readonly((std::string(name) + "_bytes").c_str(), [get](const T& o) { return nameBytes(get(o)); });
}

// ---------------------------------------------------------------- reading

// Every fault of a file is a FormatError, which is what a caller catches:
// should anything else come out of the reader, it is one too. A shortage of
// memory stays MemoryError (counts are checked before anything is allocated).
template <typename Read>
auto readingFile(const std::string& path, Read read) {
  requirePath(path, "path");
  py::gil_scoped_release unlocked;
  try {
    return read();
  } catch (const FormatError&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& e) {
    throw FormatError(FormatError::Kind::Corrupt, path, path + ": cannot be decoded: " + e.what());
  }
}

// The file is read once: its kind is told from the bytes that are then decoded.
py::object readAny(const std::string& path) {
  std::variant<Scene, SkinData, Options> decoded = readingFile(path, [&]() -> std::variant<Scene, SkinData, Options> {
    std::vector<std::uint8_t> bytes = readFileBytes(path);
    switch (detectFileKind(path, bytes)) {
      case FileKind::Scene: return decodeScene(path, std::move(bytes));
      case FileKind::VertexData: return decodeSkin(path, std::move(bytes));
      case FileKind::Options: break;
    }
    return decodeOptions(path, std::move(bytes));
  });
  return std::visit([](auto& value) { return py::cast(std::move(value)); }, decoded);
}

py::object optionValue(const OptionValue& v) {
  switch (v.type) {
    case OptionValue::Type::Int: return py::int_(v.intValue);
    case OptionValue::Type::Float: return py::float_(v.floatValue);
    case OptionValue::Type::Strings: return nameTexts(v.strings);
  }
  return py::none();
}

// A mesh's triangles with indices into its whole vertex arrays: each group's
// vertices follow the previous group's, so a triangle's local index plus its
// group's first vertex. Triangles past every group's count (a file no
// exporter writes) keep their indices as written.
py::array globalFaces(const Mesh& mesh) {
  py::array_t<std::uint32_t> out({static_cast<py::ssize_t>(mesh.triangles.size()), py::ssize_t{3}});
  std::uint32_t* to = out.mutable_data();
  std::size_t t = 0;
  const auto add = [&](std::size_t end, std::uint32_t first) {
    for (; t < end && t < mesh.triangles.size(); ++t) {
      const Triangle& tri = mesh.triangles[t];
      *to++ = first + tri.a;
      *to++ = first + tri.b;
      *to++ = first + tri.c;
    }
  };
  for (const MeshGroup& group : mesh.groups())
    add(std::size_t{group.firstTriangle} + group.triangleCount, group.firstVertex);
  add(mesh.triangles.size(), 0);
  return out;
}

// ---------------------------------------------------------------- option fields

// The dialog control that shows each field of the options table.
int controlOf(const std::string& field) {
  namespace id = control_id;
  static const std::map<std::string, int> controls = {
      {"exportGeometry", id::kGeometry}, {"exportSkinning", id::kSkinning},
      {"exportAnimation", id::kAnimation}, {"exportCameras", id::kCameras},
      {"exportLights", id::kLights}, {"exportMaterials", id::kMaterials},
      {"exportHelpers", id::kHelpers}, {"exportEnvironment", id::kEnvironment},
      {"removeFloatingVertices", id::kFloatingVertices}, {"removeHiddenObjects", id::kHiddenObjects},
      {"rescale", id::kRescale}, {"rescaleFactor", id::kRescaleEdit},
      {"texturePath", id::kTexturePath}, {"copyTextures", id::kCopyTextures},
      {"dumpInfo", id::kDumpInfo}, {"retainHierarchies", id::kRetainHierarchies},
      {"pivotAsMeshCenter", id::kPivotAsMeshCenter}, {"saveReferencesOnce", id::kSaveReferencesOnce},
      {"sampleRate", id::kSampleRateEdit}, {"positionDelta", id::kPositionDeltaEdit},
      {"rotationDelta", id::kRotationDeltaEdit}, {"frameToFrameInterpolation", id::kInterpolation},
      {"maintainMatrixScaling", id::kMaintainMatrixScaling}, {"loop", id::kLoop},
      {"loopInterpolation", id::kLoopInterpolation}, {"decreaseEndFrameByOne", id::kDecreaseEndFrameByOne},
      {"useGlobalAnimationRange", id::kUseGlobalAnimationRange}, {"startFrame", id::kStartFrameEdit},
      {"endFrame", id::kEndFrameEdit}, {"loopToFrame", id::kLoopToFrameEdit},
  };
  const auto at = controls.find(field);
  return at == controls.end() ? control_id::kNone : at->second;
}

std::string withoutMnemonic(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '&' && i + 1 < text.size() && text[i + 1] != '&') continue;
    out += text[i];
  }
  while (!out.empty() && out.back() == ':') out.pop_back();
  return out;
}

// The text the export dialog shows for a field: a check box's own, or the
// label beside (at most a row above) an edit or a list; none for the rescale
// factor, whose edit sits under its check box.
std::string dialogLabel(const std::string& field) {
  const DialogTemplate& dialog = exportDialogTemplate();
  const int id = controlOf(field);
  const auto control = std::find_if(dialog.controls.begin(), dialog.controls.end(),
                                    [id](const DialogControl& c) { return id != control_id::kNone && c.id == id; });
  if (control == dialog.controls.end()) return {};
  if (control->kind == ControlKind::CheckBox) return withoutMnemonic(control->text);
  const DialogControl* nearest = nullptr;
  long best = 0;
  for (const DialogControl& c : dialog.controls) {
    if (c.kind != ControlKind::Label || c.text.empty()) continue;
    const long dx = c.x - control->x, dy = c.y - control->y;
    if (dy < -16 || dy > 2 || (dx > 0 ? dx : -dx) > 60) continue;
    const long distance = dx * dx + dy * dy;
    if (!nearest || distance < best) nearest = &c, best = distance;
  }
  return nearest ? withoutMnemonic(nearest->text) : std::string();
}

py::list optionFields() {
  py::list out;
  for (const OptionFieldInfo& info : optionFieldInfos()) {
    const std::string kind = info.kind;
    py::object value;
    if (kind == "bool") value = py::bool_(info.defaultValue == "1");
    else if (kind == "int") value = py::int_(std::stoll(info.defaultValue));
    else if (kind == "float") value = py::float_(std::stod(info.defaultValue));
    else value = py::str(info.defaultValue);
    py::dict field;
    field["name"] = info.name;
    field["kind"] = kind;
    field["default"] = value;
    field["scene_default"] = info.sceneDefault[0] ? py::object(py::str(info.sceneDefault)) : py::object(py::none());
    const auto limit = [&](double v) -> py::object {
      if (!info.hasLimits) return py::none();
      if (kind == "int") return py::int_(static_cast<long long>(v));
      return py::float_(v);
    };
    field["min"] = limit(info.minimum);
    field["max"] = limit(info.maximum);
    field["limits_from_scene"] = info.limitsFromScene;
    // The step as the dialog shows it (0.0001), not the float's binary expansion.
    field["step"] = info.step > 0 ? py::object(py::float_(std::stod(formatFloat(static_cast<float>(info.step)))))
                                  : py::object(py::none());
    field["choices"] = py::tuple(py::cast(info.choices));
    const std::string label = dialogLabel(info.name);
    field["label"] = label.empty() ? py::object(py::none()) : py::object(py::str(label));
    out.append(field);
  }
  return out;
}

// ---------------------------------------------------------------- export

// ZTExport.dle: `given`, else beside this extension, else where an install
// puts it, else at the top of the build tree the extension was built in.
std::string modulePath(const std::string& given) {
  if (!given.empty()) return given;
  Dl_info info{};
  if (!dladdr(reinterpret_cast<void*>(&modulePath), &info) || !info.dli_fname) return "ZTExport.dle";
  const fs::path here = fs::path(info.dli_fname).parent_path();
  const fs::path candidates[] = {here / "ZTExport.dle", here / ZTX_PY_TO_INSTALLED_MODULE / "ZTExport.dle",
                                 here / ZTX_PY_TO_BUILT_MODULE / "ZTExport.dle"};
  std::error_code ec;
  for (const fs::path& candidate : candidates)
    if (fs::exists(candidate, ec)) return candidate.lexically_normal().string();
  return candidates[0].string();
}

// Loaded once per path: a module is never unloaded (exporter_module.h).
const ExporterModule& loadedModule(const std::string& path) {
  static std::mutex lock;
  static std::map<std::string, std::unique_ptr<ExporterModule>> modules;
  std::lock_guard<std::mutex> guard(lock);
  auto& slot = modules[path];
  if (!slot) slot = std::make_unique<ExporterModule>(path);
  return *slot;
}

[[noreturn]] void exportError(const std::string& message) {
  PyErr_SetObject(exportErrorType, messageText(message).ptr());
  throw py::error_already_set();
}

// Option values as --set takes them: True is "true", numbers in Python's spelling.
std::string optionText(const py::handle& value) {
  if (py::isinstance<py::bool_>(value)) return value.cast<bool>() ? "true" : "false";
  if (py::isinstance<py::str>(value)) return value.cast<std::string>();
  if (py::isinstance<py::int_>(value) || py::isinstance<py::float_>(value)) return py::str(value).cast<std::string>();
  throw py::type_error("an option's value is a bool, a number or a str, not " +
                       py::str(py::type::of(value).attr("__name__")).cast<std::string>());
}

const char* messageKindName(ztdriver::MessageKind kind) {
  switch (kind) {
    case ztdriver::MessageKind::info: return "info";
    case ztdriver::MessageKind::warning: return "warning";
    case ztdriver::MessageKind::error: return "error";
    case ztdriver::MessageKind::text: return "text";
    case ztdriver::MessageKind::messageBox: return "message_box";
    case ztdriver::MessageKind::imageProblem: return "image_problem";
    case ztdriver::MessageKind::textureNote: return "note";
    case ztdriver::MessageKind::note: return "note";
    case ztdriver::MessageKind::sceneWarning: return "warning";
    case ztdriver::MessageKind::fileNotSaved: return "error";
  }
  return "text";
}

py::tuple exportScene(const std::string& scene, const std::string& output, const py::dict& options,
                      const std::string& configDir, bool dryRun, const std::string& module,
                      const std::vector<std::string>& texturePaths, bool copyTexturesOutside,
                      bool dropMissingTextures, bool replaceTextures, bool uniqueTextureNames, bool sync,
                      bool keyErrorBound, bool saveOptions) {
  requirePath(scene, "scene");
  requirePath(output, "out");
  requirePath(configDir, "config_dir");
  requirePath(module, "module");
  for (const std::string& path : texturePaths) requirePath(path, "texture_paths");
  if (const Result<void> named = ztdriver::checkOutputName(output); !named)
    throw py::value_error("out: " + named.error().message);
  ztdriver::ExportRequest request;
  request.scene = scene;
  request.output = output;
  request.configDir = configDir;
  request.configDirOption = "config_dir";
  for (const auto& [name, value] : options) request.sets.emplace_back(py::str(name).cast<std::string>(), optionText(value));
  request.texturePaths = texturePaths;
  request.dryRun = dryRun;
  request.everyMessage = true;  // every message is handed back, not only those of a failed export
  request.copyTexturesOutside = copyTexturesOutside;
  request.dropMissingTextures = dropMissingTextures;
  request.replaceTextures = replaceTextures;
  request.uniqueTextureNames = uniqueTextureNames;
  request.noSync = !sync;
  request.keyErrorBound = keyErrorBound;
  request.saveOptions = saveOptions;

  ztdriver::ExportOutcome outcome;
  std::string moduleFailure;
  {
    py::gil_scoped_release unlocked;
    try {
      const ExporterModule& exporterModule = loadedModule(modulePath(module));
      ztdriver::ExportObserver quiet;
      outcome = ztdriver::runExport(request, exporterModule, quiet);
    } catch (const ModuleError& e) {
      moduleFailure = e.what();
    }
  }
  if (!moduleFailure.empty()) exportError(moduleFailure);
  if (outcome.failureKind == ztdriver::FailureKind::badRequest) {
    // Option edits are refused as --set words them; here they are keyword arguments.
    std::string why = outcome.failure.substr(0, outcome.failure.find('\n'));
    throw py::value_error(why.rfind("--set ", 0) == 0 ? why.substr(6) : why);
  }
  if (outcome.failureKind == ztdriver::FailureKind::setup) exportError(outcome.failure);

  py::list messageList;
  for (const ztdriver::ExportMessage& m : outcome.messages)
    messageList.append(py::make_tuple(messageKindName(m.kind), messageText(m.text)));
  // A run that could not put its files in place says why among its messages.
  if (!outcome.failure.empty()) messageList.append(py::make_tuple("error", messageText(outcome.failure)));
  py::list files;
  for (const std::string& file : outcome.filesWritten) files.append(pathText(file));
  return py::make_tuple(static_cast<int>(outcome.status), messageList, files, pathText(outcome.output));
}

}  // namespace

PYBIND11_MODULE(_ztexport, m) {
  m.doc() = "The binding under the ztexport package; use ztexport itself.";
  m.attr("__version__") = ztexport::kVersion;
  // The image and models modules lie beside the exporter module, wherever
  // the package was installed from.
  hostmodel::setCompanionModuleDirectory(fs::path(modulePath("")).parent_path().string());

  // Every failure to read is a FormatError. One that is the system's (the
  // file cannot be read at all) is an OSError as well, and a missing file a
  // FileNotFoundError, as Python code expects of a file that is not there.
  formatErrorType = PyErr_NewException("ztexport.FormatError", PyExc_Exception, nullptr);
  unreadableFileErrorType = PyErr_NewException(
      "ztexport.UnreadableFileError", py::make_tuple(py::handle(formatErrorType), py::handle(PyExc_OSError)).ptr(),
      nullptr);
  missingFileErrorType = PyErr_NewException(
      "ztexport.MissingFileError",
      py::make_tuple(py::handle(unreadableFileErrorType), py::handle(PyExc_FileNotFoundError)).ptr(), nullptr);
  // Bytes that do not follow the format, or a good file of another kind, are
  // bad values as json's and zipfile's faults are: ValueError.
  corruptFileErrorType = PyErr_NewException(
      "ztexport.CorruptFileError", py::make_tuple(py::handle(formatErrorType), py::handle(PyExc_ValueError)).ptr(),
      nullptr);
  wrongKindErrorType = PyErr_NewException(
      "ztexport.WrongKindError", py::make_tuple(py::handle(formatErrorType), py::handle(PyExc_ValueError)).ptr(),
      nullptr);
  exportErrorType = PyErr_NewException("ztexport.ExportError", PyExc_RuntimeError, nullptr);
  // The reader's line, not OSError's "[Errno 2] ...: 'path'", which would say the path twice.
  py::reinterpret_borrow<py::object>(unreadableFileErrorType).attr("__str__") =
      py::cpp_function([](py::object self) { return py::str(self.attr("strerror")); },
                       py::is_method(py::handle(unreadableFileErrorType)));
  m.add_object("FormatError", py::handle(formatErrorType));
  m.add_object("UnreadableFileError", py::handle(unreadableFileErrorType));
  m.add_object("MissingFileError", py::handle(missingFileErrorType));
  m.add_object("CorruptFileError", py::handle(corruptFileErrorType));
  m.add_object("WrongKindError", py::handle(wrongKindErrorType));
  m.add_object("ExportError", py::handle(exportErrorType));
  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const FormatError& e) {
      const py::str message = messageText(e.what());
      PyObject* type = formatErrorType;
      py::object error;
      if (e.kind() == FormatError::Kind::Unreadable) {
        type = e.systemError() == ENOENT ? missingFileErrorType : unreadableFileErrorType;
        error = e.systemError() != 0
                    ? py::reinterpret_borrow<py::object>(type)(e.systemError(), message, pathText(e.path()))
                    : py::reinterpret_borrow<py::object>(type)(message);
        if (e.systemError() == 0) {
          error.attr("strerror") = message;
          error.attr("filename") = pathText(e.path());
        }
      } else {
        type = e.kind() == FormatError::Kind::Corrupt ? corruptFileErrorType : wrongKindErrorType;
        error = py::reinterpret_borrow<py::object>(type)(message);
      }
      error.attr("path") = pathText(e.path());
      error.attr("offset") = e.offset();
      error.attr("chunk") = messageText(e.chunkPath());
      error.attr("kind") = e.kind() == FormatError::Kind::Unreadable ? "unreadable"
                           : e.kind() == FormatError::Kind::Corrupt  ? "corrupt"
                                                                     : "wrong_kind";
      PyErr_SetObject(type, error.ptr());
    }
  });

  py::class_<Keys>(m, "Keys", "The keys of one track: samples (n,) uint32 and values, views of the same records.")
      .def_readonly("samples", &Keys::samples)
      .def_readonly("values", &Keys::values)
      .def("__len__", [](const Keys& k) { return k.samples.shape(0); });

  py::class_<Node> node(m, "Node", "A scene object's base data: name, parent (None at the root), transform (4, 3), user_properties; names decoded from the host's code page, their bytes as name_bytes, parent_bytes, user_properties_bytes.");
  textField(node, "name", [](const Node& n) -> const std::string& { return n.name; });
  optionalTextField(node, "parent", [](const Node& n) { return n.hasParent ? &n.parentName : nullptr; });
  textField(node, "user_properties", [](const Node& n) -> const std::string& { return n.userProperties; });
  node.def_property_readonly("transform", [](const Node& n) { return matrix(n.transform); })
      .def_readonly("offset", &Node::offset)
      .def_readonly("order", &Node::order)
      .def("__repr__", [](const Node& n) { return "<ztexport.Node " + py::repr(nameText(n.name)).cast<std::string>() + ">"; });

  py::class_<MapChannel>(m, "MapChannel", "Texture coordinates or vertex colors of one of the host's channels: coordinates (n, 3) float32 (u, -v, 0), group_counts.")
      .def_readonly("channel", &MapChannel::channel)
      .def_property_readonly("coordinates", [](const MapChannel& c) { return vec3s(c.coordinates); })
      .def_property_readonly("group_counts", [](const MapChannel& c) { return small(c.groupCounts); });

  py::class_<MeshGroup> group(m, "MeshGroup", "One material group of a mesh: material, first_vertex and vertex_count in the mesh's vertex arrays, first_triangle and triangle_count in its triangles and faces.");
  textField(group, "material", [](const MeshGroup& g) -> const std::string& { return g.material; });
  group.def_readonly("first_vertex", &MeshGroup::firstVertex)
      .def_readonly("vertex_count", &MeshGroup::vertexCount)
      .def_readonly("first_triangle", &MeshGroup::firstTriangle)
      .def_readonly("triangle_count", &MeshGroup::triangleCount);

  // Node fields repeated on each object, so that mesh.name reads as it should.
  auto nodeFields = [](auto& cls, auto member) {
    using T = typename std::remove_reference_t<decltype(cls)>::type;
    cls.def_property_readonly("node", [member](py::object self) {
         return py::cast(&(self.cast<const T&>().*member), py::return_value_policy::reference_internal, self);
       })
        .def_property_readonly("transform", [member](const T& o) { return matrix((o.*member).transform); });
    textField(cls, "name", [member](const T& o) -> const std::string& { return (o.*member).name; });
    optionalTextField(cls, "parent", [member](const T& o) {
      return (o.*member).hasParent ? &(o.*member).parentName : nullptr;
    });
  };

  py::class_<Mesh> mesh(m, "Mesh", "A mesh: positions and normals float32 (n, 3) and triangles uint16 (m, 3) local to their group (groups()), read-only views of the reader's storage; faces uint32 (m, 3) into positions; map_channels.");
  nodeFields(mesh, &Mesh::node);
  mesh.def_property_readonly("positions", [](const Mesh& o) { return vec3s(o.positions); })
      .def_property_readonly("normals", [](const Mesh& o) { return vec3s(o.normals); })
      .def_property_readonly("triangles", [](const Mesh& o) { return view<std::uint16_t>(o.triangles, {3}, {2}); })
      .def_property_readonly("faces", &globalFaces)
      .def_property_readonly("group_vertex_counts", [](const Mesh& o) { return small(o.groupVertexCounts); })
      .def_property_readonly("group_triangle_counts", [](const Mesh& o) { return small(o.groupTriangleCounts); })
      .def_property_readonly("map_channels", listOf(&Mesh::mapChannels))
      .def("groups", &Mesh::groups)
      .def("__repr__", [](const Mesh& o) {
        return "<ztexport.Mesh " + py::repr(nameText(o.node.name)).cast<std::string>() + ": " +
               std::to_string(o.positions.size()) + " vertices, " + std::to_string(o.triangles.size()) + " triangles>";
      });

  textListField(mesh, "material_names", [](const Mesh& o) -> const std::vector<std::string>& { return o.materialNames; });
  optionalTextField(mesh, "reference_name", [](const Mesh& o) { return o.referenceName ? &*o.referenceName : nullptr; });

  py::class_<Camera> camera(m, "Camera", "A camera: fov (radians), near and far; the node's name, parent and transform.");
  nodeFields(camera, &Camera::node);
  camera.def_readonly("fov", &Camera::fov).def_readonly("near", &Camera::nearPlane).def_readonly("far", &Camera::farPlane);

  py::class_<Light> light(m, "Light", "A light: type (omni, directional, spot), color (0..255 each), intensity, attenuation, hotspot and falloff.");
  nodeFields(light, &Light::node);
  light.def_property_readonly("type", [](const Light& l) { return lightTypeName(l.type); })
      .def_property_readonly("color", [](const Light& l) { return rgba(l.colour); })
      .def_readonly("intensity", &Light::intensity)
      .def_readonly("attenuation_start", &Light::attenuationStart)
      .def_readonly("attenuation_end", &Light::attenuationEnd)
      .def_readonly("hotspot", &Light::hotspot)
      .def_readonly("falloff", &Light::falloff);

  py::class_<Helper> helper(m, "Helper", "A helper object, with the host's class_name.");
  nodeFields(helper, &Helper::node);
  textField(helper, "class_name", [](const Helper& h) -> const std::string& { return h.className; });

  py::class_<Environment>(m, "Environment", "The scene's ambient and background colors, 0..255 each.")
      .def_property_readonly("ambient", [](const Environment& e) { return rgba8(e.ambientColour); })
      .def_property_readonly("background", [](const Environment& e) { return rgba8(e.backgroundColour); });

  py::class_<Texture> texture(m, "Texture", "A material's texture layer: name, value, mode and file_names.");
  textField(texture, "name", [](const Texture& t) -> const std::string& { return t.name; });
  textListField(texture, "file_names", [](const Texture& t) -> const std::vector<std::string>& { return t.fileNames; });
  texture.def_readonly("value", &Texture::textureValue).def_readonly("mode", &Texture::textureMode);

  py::class_<Material> material(m, "Material", "A material: ambient, diffuse and specular colors and layers 1 to 5 (None where empty).");
  textField(material, "name", [](const Material& x) -> const std::string& { return x.name; });
  material.def_property_readonly("ambient", [](const Material& x) { return rgba(x.ambient); })
      .def_property_readonly("diffuse", [](const Material& x) { return rgba(x.diffuse); })
      .def_property_readonly("specular", [](const Material& x) { return rgba(x.specular); })
      .def_property_readonly("layers", [](py::object self) {
        const Material& x = self.cast<const Material&>();
        py::list out;
        for (const auto& layer : x.layers)
          out.append(layer ? py::cast(&*layer, py::return_value_policy::reference_internal, self) : py::none());
        return out;
      });

  py::class_<MaterialList> materialList(m, "MaterialList", "The scene's materials and the texture_path they were written with.");
  textField(materialList, "texture_path", [](const MaterialList& l) -> const std::string& { return l.texturePath; });
  materialList.def_property_readonly("materials", listOf(&MaterialList::materials));

  py::class_<TransformAnimation> transformAnimation(m, "TransformAnimation", "A node's animation: keys (transforms (n, 4, 3)) and visibility_keys, as Keys.");
  textField(transformAnimation, "name", [](const TransformAnimation& a) -> const std::string& { return a.header.name; });
  textField(transformAnimation, "parent_name", [](const TransformAnimation& a) -> const std::string& { return a.parentName; });
  transformAnimation.def_property_readonly("sample_rate", [](const TransformAnimation& a) { return a.header.sampleRate; })
      .def_property_readonly("loop", [](const TransformAnimation& a) { return a.header.loop; })
      .def_readonly("num_samples", &TransformAnimation::numSamples)
      .def_readonly("loop_to_frame", &TransformAnimation::loopToFrame)
      .def_property_readonly("keys", [](const TransformAnimation& a) { return transformKeys(a.keys); })
      .def_property_readonly("visibility_keys", [](const TransformAnimation& a) { return floatKeys(a.visibilityKeys); })
      .def_readonly("order", &TransformAnimation::order);

  py::class_<LightAnimation> lightAnimation(m, "LightAnimation", "A light's animation: color_keys, intensity_keys, attenuation and cone keys, as Keys.");
  textField(lightAnimation, "name", [](const LightAnimation& a) -> const std::string& { return a.header.name; });
  lightAnimation.def_property_readonly("type", [](const LightAnimation& a) { return lightTypeName(a.type); })
      .def_property_readonly("sample_rate", [](const LightAnimation& a) { return a.header.sampleRate; })
      .def_readonly("num_samples", &LightAnimation::numSamples)
      .def_property_readonly("color_keys", [](const LightAnimation& a) { return colourKeys(a.colourKeys); })
      .def_property_readonly("intensity_keys", [](const LightAnimation& a) { return floatKeys(a.intensityKeys); })
      .def_property_readonly("attenuation_start_keys", [](const LightAnimation& a) { return floatKeys(a.attenuationStartKeys); })
      .def_property_readonly("attenuation_end_keys", [](const LightAnimation& a) { return floatKeys(a.attenuationEndKeys); })
      .def_property_readonly("hotspot_keys", [](const LightAnimation& a) { return floatKeys(a.hotspotKeys); })
      .def_property_readonly("falloff_keys", [](const LightAnimation& a) { return floatKeys(a.falloffKeys); })
      .def_readonly("order", &LightAnimation::order);

  py::class_<SkippedChunk>(m, "SkippedChunk", "A chunk the reader does not know, skipped whole: id, version, offset, name.")
      .def_readonly("id", &SkippedChunk::id)
      .def_readonly("version", &SkippedChunk::version)
      .def_readonly("offset", &SkippedChunk::offset)
      .def_readonly("name", &SkippedChunk::name);

  py::class_<Scene>(m, "Scene", "A decoded .zt2 file: meshes, cameras, lights, helpers, environment, materials, transform_animations, light_animations; nodes() in file order.")
      .def_property_readonly("path", [](const Scene& s) { return pathText(s.path); })
      .def_readonly("size", &Scene::size)
      .def_property_readonly("meshes", listOf(&Scene::meshes))
      .def_property_readonly("cameras", listOf(&Scene::cameras))
      .def_property_readonly("lights", listOf(&Scene::lights))
      .def_property_readonly("helpers", listOf(&Scene::helpers))
      .def_property_readonly("environment", [](py::object self) -> py::object {
        const Scene& s = self.cast<const Scene&>();
        return s.environment ? py::cast(&*s.environment, py::return_value_policy::reference_internal, self) : py::none();
      })
      .def_property_readonly("materials", [](py::object self) -> py::object {
        const Scene& s = self.cast<const Scene&>();
        return s.materials ? py::cast(&*s.materials, py::return_value_policy::reference_internal, self) : py::none();
      })
      .def_property_readonly("transform_animations", listOf(&Scene::transformAnimations))
      .def_property_readonly("light_animations", listOf(&Scene::lightAnimations))
      .def_property_readonly("skipped", listOf(&Scene::skipped))
      .def("find_node", [](py::object self, py::object name) -> py::object {
        if (!py::isinstance<py::str>(name) && !py::isinstance<py::bytes>(name))
          throw py::type_error("find_node takes a name as str or bytes");
        std::string bytes;
        if (!nameArgument(name, bytes)) return py::none();  // no name in the code page reads so
        const Node* n = self.cast<const Scene&>().findNode(bytes);
        return n ? py::cast(n, py::return_value_policy::reference_internal, self) : py::none();
      }, py::arg("name"), "The node named `name` (its text, or its bytes in the file), or None.")
      .def("nodes", [](py::object self) {
        py::list out;
        for (const Node* n : self.cast<const Scene&>().nodes())
          out.append(py::cast(n, py::return_value_policy::reference_internal, self));
        return out;
      })
      .def("__repr__", [](const Scene& s) {
        return "<ztexport.Scene " + py::repr(pathText(s.path)).cast<std::string>() + ": " +
               std::to_string(s.nodes().size()) + " nodes>";
      });

  py::class_<SkinData> skin(m, "SkinData", "A decoded .skd file: vertex v has influence_count[v] influences from influence_start[v] on in influence_bone and influence_weight.");
  textListField(skin, "node_names", [](const SkinData& s) -> const std::vector<std::string>& { return s.nodeNames; });
  textListField(skin, "bone_names", [](const SkinData& s) -> const std::vector<std::string>& { return s.boneNames; });
  skin.def_property_readonly("path", [](const SkinData& s) { return pathText(s.path); })
      .def_property_readonly("influence_start", [](const SkinData& s) { return view<std::int32_t>(s.influenceStart, {}, {}); })
      .def_property_readonly("influence_count", [](const SkinData& s) { return view<std::int32_t>(s.influenceCount, {}, {}); })
      .def_property_readonly("influence_bone", [](const SkinData& s) { return view<std::int32_t>(s.influenceBone, {}, {}); })
      .def_property_readonly("influence_weight", [](const SkinData& s) { return view<float>(s.influenceWeight, {}, {}); })
      .def_property_readonly("group_vertex_count", [](const SkinData& s) { return small(s.groupVertexCount); })
      .def_property_readonly("group_vertex_start", [](const SkinData& s) { return small(s.groupVertexStart); })
      .def("__repr__", [](const SkinData& s) { return "<ztexport.SkinData " + py::repr(pathText(s.path)).cast<std::string>() + ">"; });

  py::class_<Options>(m, "Options", "A decoded ZTExport.cfg: options[\"sampleRate\"], \"name\" in options, as_dict().")
      .def_property_readonly("path", [](const Options& o) { return pathText(o.path); })
      .def_readonly("version", &Options::version)
      .def_readonly("newer_version", &Options::newerVersion)
      .def("as_dict", [](const Options& o) {
        py::dict out;
        for (const OptionValue& v : o.values) out[py::str(v.name)] = optionValue(v);
        return out;
      })
      .def("__getitem__", [](const Options& o, const std::string& name) {
        const OptionValue* v = o.find(name);
        if (!v) throw py::key_error(name);
        return optionValue(*v);
      })
      .def("__contains__", [](const Options& o, const std::string& name) { return o.find(name) != nullptr; })
      .def("__len__", [](const Options& o) { return o.values.size(); })
      .def("__repr__", [](const Options& o) { return "<ztexport.Options " + py::repr(pathText(o.path)).cast<std::string>() + ">"; });

  py::class_<Difference>(m, "Difference", "One difference: kind (added, removed, changed, moved), path, old_value and new_value as JSON text; for arrays differing, largest_difference, first_indices.")
      .def_property_readonly("kind", [](const Difference& d) { return differenceKindName(d.kind); })
      .def_property_readonly("path", [](const Difference& d) { return messageText(d.path); })
      .def_property_readonly("old_value", [](const Difference& d) { return messageText(d.oldValue); })
      .def_property_readonly("new_value", [](const Difference& d) { return messageText(d.newValue); })
      .def_readonly("array", &Difference::array)
      .def_readonly("old_length", &Difference::oldLength)
      .def_readonly("new_length", &Difference::newLength)
      .def_readonly("differing", &Difference::differing)
      .def_readonly("largest_difference", &Difference::largestDifference)
      .def_readonly("first_indices", &Difference::firstIndices)
      .def_readonly("old_position", &Difference::oldPosition)
      .def_readonly("new_position", &Difference::newPosition)
      .def("__repr__", [](const Difference& d) {
        return messageText(std::string("<ztexport.Difference ") + differenceKindName(d.kind) + " " + d.path + ">");
      });

  py::class_<Diff>(m, "Diff", "The difference between two files: equal, differences, text (zt2dump --diff's lines), to_json().")
      .def_property_readonly("old_path", [](const Diff& d) { return pathText(d.oldPath); })
      .def_property_readonly("new_path", [](const Diff& d) { return pathText(d.newPath); })
      .def_property_readonly("equal", &Diff::equal)
      .def_property_readonly("differences", listOf(&Diff::differences))
      .def_property_readonly("text", [](const Diff& d) { return messageText(diffText(d)); })
      .def("to_json", [](const Diff& d) { return messageText(diffJson(d)); })
      .def("__len__", [](const Diff& d) { return d.differences.size(); })
      .def("__repr__", [](const Diff& d) {
        return "<ztexport.Diff " + std::to_string(d.differences.size()) + " differences>";
      });

  m.def("read", &readAny, py::arg("path"));
  m.def("read_scene", [](const std::string& path) { return readingFile(path, [&] { return readScene(path); }); },
        py::arg("path"));
  m.def("read_skin", [](const std::string& path) { return readingFile(path, [&] { return readSkin(path); }); },
        py::arg("path"));
  m.def("read_options", [](const std::string& path) { return readingFile(path, [&] { return readOptions(path); }); },
        py::arg("path"));
  // A scene file (with its .skd) as binary glTF, as zt2dump --gltf writes it.
  m.def("to_gltf", [](const std::string& path, const std::string& out) {
        requirePath(out, "out");
        const std::string skd = fs::path(path).replace_extension(".skd").string();
        if (const std::string input = overwrittenInput(out, {path, skd}); !input.empty())
          throw py::value_error("out: " + out + ": the output would overwrite " + input + ", which it is made from");
        std::vector<std::string> warnings;
        std::string unwritable;
        readingFile(path, [&] {
          const tinygltf::Model model = zt2dump::buildGltf(zt2dump::loadGltfSource(path), warnings);
          try {
            zt2dump::writeFileWhole(out, zt2dump::glbBytes(model));
          } catch (const zt2dump::UnwritableFile& e) {
            unwritable = e.what();
          }
          return 0;
        });
        if (!unwritable.empty()) {
          PyErr_SetString(PyExc_OSError, unwritable.c_str());
          throw py::error_already_set();
        }
        py::list lines;
        for (const std::string& warning : warnings) lines.append(messageText(warning));
        return lines;
      });
  m.def("diff", [](const std::string& a, const std::string& b, double tolerance) {
        requirePath(a, "a");
        requirePath(b, "b");
        if (!(tolerance >= 0)) throw py::value_error("tolerance must be 0 or more");
        DiffOptions options;
        options.tolerance = tolerance;
        py::gil_scoped_release unlocked;
        return diffFiles(a, b, options);
      }, py::arg("a"), py::arg("b"), py::arg("tolerance") = 0.0);
  m.def("export_scene", &exportScene, py::arg("scene"), py::arg("out"), py::arg("options"), py::arg("config_dir"),
        py::arg("dry_run"), py::arg("module"), py::arg("texture_paths"), py::arg("copy_textures_outside"),
        py::arg("drop_missing_textures") = false, py::arg("replace_textures") = false,
        py::arg("unique_texture_names") = false, py::arg("sync") = true, py::arg("key_error_bound") = false,
        py::arg("save_options") = false);
  m.def("config_dir", [] { return zt2export::defaultConfigDir(); });
  m.def("option_names", &optionFieldNames);
  m.def("option_fields", &optionFields);
  m.def("module_path", [](const std::string& given) {
    requirePath(given, "module");
    return pathText(modulePath(given));
  }, py::arg("given") = "");
  bindBatch(m);
}
