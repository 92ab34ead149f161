// Texture maps of the studio's texture class: the record of each map with the
// file name of every frame of its image, and the copy of those images beside
// the exported file.
#pragma once

#include <set>
#include <string>

class SceneExporter;
class Texmap;
struct TextureRecord;

// Destinations already handled in one export (exact strings): each image is
// copied at most once per destination.
using CopiedTextureSet = std::set<std::string>;

// Fills `record` from `map`, which must be of the studio's texture class, and
// copies the frames' images when the options ask for it. Problems go to the
// exporter's log.
void exportTexture(SceneExporter& exporter, TextureRecord& record, const Texmap& map);

// Copies `source` to `destination` inside the exporter's texture copy
// directory, creating that directory (one level) when missing. The copy is
// staged (exporter.staging) and appears only with the saved scene file; a
// failed export leaves neither it nor the directory made for it. An existing
// destination is never overwritten (an INFO line); any other failure is an
// ERROR with the system's text, and leaves no partial file behind.
void copyTexture(SceneExporter& exporter, const std::string& destination, const std::string& source);

// `directory` and `fileName` joined with "/"; an empty directory is the
// current one.
std::string texturePathJoin(const std::string& directory, const std::string& fileName);
