// Reads a binary glTF file back with tinygltf, the independent reader the
// glTF tests check our output against.
#pragma once

#include <gtest/gtest.h>
#include <tiny_gltf.h>

#include <string>

#include "support/test_support.h"

namespace ztx_test {

// The model in `path`; a file tinygltf refuses fails the test, naming it.
inline tinygltf::Model readGlb(const std::string& path) {
  tinygltf::TinyGLTF loader;
  tinygltf::Model model;
  std::string err, warn;
  const auto bytes = readBytes(path);
  EXPECT_TRUE(loader.LoadBinaryFromMemory(&model, &err, &warn, bytes.data(), static_cast<unsigned>(bytes.size())))
      << path << ": " << err;
  return model;
}

}  // namespace ztx_test
