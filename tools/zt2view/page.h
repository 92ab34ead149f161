// The preview page: one HTML file holding the scene as binary glTF and the
// viewer script, so that it opens anywhere without a server or network.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zt2view {

// `title` is shown as the page's title (HTML-escaped here).
std::string previewPage(const std::string& title, const std::vector<std::uint8_t>& glb);

}  // namespace zt2view
