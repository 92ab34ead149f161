// The entry points of the module that decodes the image formats stb_image
// does not read (image_decode_oiio.cpp, built as its own shared module).
#pragma once

inline constexpr const char* kImageModuleName = "ZTExportImages.so";

extern "C" {
// Reads `path`: its size and channel count, and with `pixels` given its
// pixels at 8 bits per channel (at most 4 channels, rows top first), to be
// released with ztx_images_free. `infoOnly` reads the header alone. Answers 0,
// or non-zero with the reason in `why` (`whyLength` bytes, terminated).
int ztx_images_read(const char* path, int infoOnly, int* width, int* height, int* channels, unsigned char** pixels,
                    char* why, int whyLength);
void ztx_images_free(unsigned char* pixels);
}
