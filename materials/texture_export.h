// Texture maps of the studio's texture class: the record of each map with the
// file name of every frame of its image, and the copy of those images beside
// the exported file.
#pragma once

#include <map>
#include <string>

class SceneExporter;
class Texmap;
struct TextureRecord;

// Destinations already handled in one export (exact strings), each with the
// image copied there: each image is copied at most once per destination, and
// a second, different image for the same destination is refused.
using CopiedTextureSet = std::map<std::string, std::string>;

// Fills `record` from `map`, which must be of the studio's texture class, and
// copies the frames' images when the options ask for it. Problems go to the
// exporter's log.
void exportTexture(SceneExporter& exporter, TextureRecord& record, const Texmap& map);

// Copies `source` to `destination` inside the exporter's texture copy
// directory, creating that directory (one level) when missing. The directory
// is resolved once from the exported file's own, and one that a link or ".."
// puts outside it is refused unless the host allows copies outside. The copy
// is staged (exporter.staging) and appears only with the saved scene file; a
// failed export leaves neither it nor the directory made for it. An existing
// destination is never overwritten (an INFO line), unless the host replaces
// changed copies: then it is replaced by a rename, never written through.
// Any other failure is an ERROR with the system's text, and leaves no
// partial file behind.
void copyTexture(SceneExporter& exporter, const std::string& destination, const std::string& source);

// The name a copy of the image `source` (named `fileName`) takes when copies
// are named by content: "wood.png" becomes "wood.<8 hex digits>.png", the
// digits from the image's bytes. `fileName` itself when it cannot be read.
std::string contentNamedCopy(const std::string& fileName, const std::string& source);

// `directory` and `fileName` joined with "/"; an empty directory is the
// current one.
std::string texturePathJoin(const std::string& directory, const std::string& fileName);
