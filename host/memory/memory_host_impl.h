// What a MemoryHost holds: the scene (node tree, objects, materials, texture
// maps, settings) and the record of the user-interface calls. Shared by the
// host and its loader only.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/memory/animated_value.h"
#include "host/memory/memory_bitmaps.h"
#include "host/memory/memory_host.h"
#include "host/memory/memory_materials.h"
#include "host/memory/memory_node.h"

namespace hostmodel {

struct MemoryHost::Impl {
  std::string sourceName;

  // --- scene settings ---
  int frameRate = 30;
  int sourceFrameRate = 0;  // the imported model's own frames a second; 0 when unknown
  Interval animRange{0, 100 * 160};
  AnimatedValue<Color> ambient;
  AnimatedValue<Color> background;
  std::string configDir;
  MemoryBitmapManager bitmapManager;  // looks images up in the scene's directory

  // --- scene contents, owned here; nodes own their children ---
  MemoryNode root;
  std::vector<std::unique_ptr<Object>> objects;
  std::vector<std::unique_ptr<MemoryMtl>> materials;
  std::vector<std::unique_ptr<MemoryTexmap>> texmaps;
  std::map<std::string, Object*> objectsById;
  std::map<std::string, MemoryMtl*> materialsById;
  std::map<std::string, MemoryTexmap*> texmapsById;
  std::vector<MemoryPhysiqueContext*> physiqueContexts;
  // Ids of the nodes the scene gave one; the others go by their name.
  std::map<const INode*, std::string> nodeIds;

  // --- recorded user-interface calls ---
  std::vector<ProgressCall> progressCalls;
  std::vector<std::string> messageBoxes;
  std::vector<std::string> exportInfoTexts;
  std::vector<std::string> filesNotSaved;
  std::function<void(const ProgressCall&)> progressObserver;
  std::function<void(OptionsDialog&)> optionsEditor;
  std::function<void(const std::string&)> verboseSink;
  bool writesSuppressed = false;
  bool textureCopiesOutsideAllowed = false;
  bool changedTextureCopiesReplaced = false;
  bool textureCopiesNamedByContent = false;
  bool keyErrorBound = false;
  bool flushesDeferred = false;
  std::function<void(const char*)> stageObserver;
  int cancelFromCall = 0;
  int cancelQueries = 0;
};

}  // namespace hostmodel
