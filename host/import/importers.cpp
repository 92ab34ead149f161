#include "host/import/importers.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <sys/resource.h>
#include <unistd.h>

namespace hostimport {

namespace fs = std::filesystem;

namespace {

std::string lowerExtension(const std::string& path) {
  std::string ext = fs::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ext;
}

std::string firstBytes(const std::string& path, std::size_t n) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes(n, '\0');
  in.read(bytes.data(), static_cast<std::streamsize>(n));
  bytes.resize(static_cast<std::size_t>(std::max<std::streamsize>(in.gcount(), 0)));
  return bytes;
}

// A 3DS file opens with the main chunk 0x4d4d and its length.
bool looks3ds(const std::string& head) {
  return head.size() >= 6 && static_cast<unsigned char>(head[0]) == 0x4d && static_cast<unsigned char>(head[1]) == 0x4d;
}

// The buffer beside a written scene: "car.scene.json" keeps "car.bin".
std::string bufferNameFor(const std::string& scenePath) {
  std::string name = fs::path(scenePath).filename().string();
  for (const char* suffix : {".json", ".scene"})
    if (name.size() > std::strlen(suffix) && name.ends_with(suffix)) name.resize(name.size() - std::strlen(suffix));
  return name + ".bin";
}

// A model file may declare more elements than it holds (a count of hundreds of
// billions in a header of a few bytes), and some readers then reserve and
// loop for as long as the count says. Capping the address space at the
// machine's memory makes such a reservation fail at once, as a refused file,
// while no honest model comes near it. Sanitizer builds reserve vast shadow
// ranges of their own and are left alone.
void limitMemoryToMachine() {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || pageSize <= 0) return;
  rlimit limit{};
  if (getrlimit(RLIMIT_AS, &limit) != 0) return;
  const auto machine = static_cast<rlim_t>(pages) * static_cast<rlim_t>(pageSize);
  if (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur > machine) {
    limit.rlim_cur = machine;
    setrlimit(RLIMIT_AS, &limit);
  }
#endif
}

}  // namespace

bool isSceneDescription(const std::string& path) {
  if (lowerExtension(path) == ".json") return true;
  const std::string head = firstBytes(path, 64);
  const std::size_t first = head.find_first_not_of(" \t\r\n");
  return first != std::string::npos && head[first] == '{' && lowerExtension(path) != ".gltf";
}

ImportedScene importModel(const ImportRequest& request) {
  std::error_code ec;
  if (!fs::is_regular_file(request.path, ec)) throw ImportError(request.path + ": cannot open the file");
  if (looks3ds(firstBytes(request.path, 6))) return import3ds(request);
  if (lowerExtension(request.path) == ".3ds")
    throw ImportError(request.path + ": not a 3DS file (it does not open with a 3DS main chunk)");
  return importAssimp(request);
}

std::unique_ptr<hostmodel::MemoryHost> openScene(const std::string& path, const std::string& writeScene,
                                                 const std::string& textureDir) {
  if (isSceneDescription(path)) {
    if (!writeScene.empty())
      throw ImportError(path + ": already a scene-description file; --write-scene writes imported models");
    return hostmodel::loadScene(path);
  }
  limitMemoryToMachine();
  ImportRequest request{path, bufferNameFor(writeScene.empty() ? path : writeScene), textureDir};
  ImportedScene scene = importModel(request);
  if (!writeScene.empty()) {
    writeSceneFiles(scene, writeScene);
    return hostmodel::loadScene(writeScene);
  }
  // Relative paths of an imported scene are the model's own.
  const std::string text = sceneText(scene);
  return hostmodel::loadSceneFromString(text, fs::path(path).parent_path().string(), path,
                                        {{scene.bufferName, std::move(scene.buffer)}});
}

}  // namespace hostimport
