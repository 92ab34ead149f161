// Image files as the host model reads them. stb_image reads the common
// formats (PNG, JPEG, TGA, BMP, GIF, HDR, PSD, PNM); what it cannot read goes
// to OpenImageIO (DDS, TIFF, EXR, SGI, ...), which lives in a module of its
// own loaded on the first such file only: a run that meets none never loads
// it, so start-up and the common path stay as they were.
#pragma once

#include <string>
#include <vector>

namespace hostmodel {

struct ImagePixels {
  int width = 0, height = 0, channels = 0;  // 8 bits per channel, rows top first
  std::vector<unsigned char> bytes;
};

// The size from the file's header.
bool imageInfo(const std::string& path, int& width, int& height);

// Decodes the whole image, not just its header, so that a file cut short or
// damaged past its header fails here. On failure `why` completes a sentence
// about the file: "cannot be opened (the system's reason)" or "is no image
// that can be decoded (each decoder's reason)". `pixels` receives the image
// when given.
bool decodeImage(const std::string& path, int& width, int& height, std::string& why, ImagePixels* pixels = nullptr);

// The image as PNG bytes (deterministic: the same pixels give the same bytes).
bool encodePng(const ImagePixels& pixels, std::vector<unsigned char>& png);

// Whether the fallback decoder has been loaded in this process (tests check
// that the common formats never load it).
bool fallbackDecoderLoaded();

// Loads a module of this package that sits beside the exporter module
// (ZTExportImages.so, ZTExportModels.so): the first that exists of the folder
// a program named with setCompanionModuleDirectory, then where the program
// was built or installed. `path` is the file tried. Null when it would not
// load (`problem` says why) or none was found (`problem` left empty).
void* openCompanionModule(const std::string& fileName, std::string& path, std::string& problem);
void setCompanionModuleDirectory(const std::string& directory);

}  // namespace hostmodel
