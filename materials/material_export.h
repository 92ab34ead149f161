// The material pass: every material the node pre-pass collected, checked,
// converted and written as the scene file's material list, in index order.
#pragma once

#include <string>

class SceneExporter;

// Writes the MaterialListChunk (none when no material was collected) and
// copies the textures. Every problem is logged; the list is written even then.
void exportMaterials(SceneExporter& exporter);

// The directory the textures are copied to: the export's directory followed
// directly by the texture path up to its first ";".
std::string textureCopyDirectoryFor(const std::string& targetPath, const std::string& texturePath);

// True when the copy part of `texturePath` climbs above the directory it is
// joined to ("../maps", "a/../../b"); "/" and "\\" both separate.
bool texturePathLeavesDirectory(const std::string& texturePath);
