// The page around the viewer script: layout, styles and the embedded scene.
#include "page.h"

#include "converter_module.h"
#include "viewer_script.h"

namespace zt2view {

namespace {

std::string base64(const std::vector<std::uint8_t>& bytes) {
  static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::uint32_t n = (std::uint32_t{bytes[i]} << 16) | (i + 1 < bytes.size() ? bytes[i + 1] << 8 : 0) |
                            (i + 2 < bytes.size() ? bytes[i + 2] : 0);
    out += kDigits[(n >> 18) & 63];
    out += kDigits[(n >> 12) & 63];
    out += i + 1 < bytes.size() ? kDigits[(n >> 6) & 63] : '=';
    out += i + 2 < bytes.size() ? kDigits[n & 63] : '=';
  }
  return out;
}

std::string escapeHtml(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

const char* const kStyle = R"(
html, body { margin: 0; height: 100%; font: 13px/1.35 system-ui, sans-serif; background: #1e2228; color: #dde; }
body { display: grid; grid-template-columns: 1fr clamp(280px, 38vw, 520px); grid-template-rows: 1fr auto; height: 100vh; }
body.collapsed { grid-template-columns: 1fr 0; }
body.collapsed #side { display: none; }
#view { grid-row: 1; grid-column: 1; position: relative; overflow: hidden; min-height: 0; }
#side { grid-row: 1 / span 2; grid-column: 2; overflow: auto; padding: 8px 12px; background: #262b33; }
#player { grid-row: 2; grid-column: 1; display: flex; flex-wrap: wrap; gap: 6px 10px; align-items: center; padding: 8px 12px; background: #262b33; }
#scrub { flex: 1 1 160px; }
h1 { font-size: 15px; margin: 4px 0 8px; overflow-wrap: anywhere; }
h2 { font-size: 13px; margin: 14px 0 4px; color: #9ab; text-transform: uppercase; letter-spacing: 0.05em; }
table { border-collapse: collapse; width: 100%; }
th, td { text-align: left; padding: 2px 6px 2px 0.3em; border-bottom: 1px solid #333a44; vertical-align: top; }
th { color: #9ab; font-weight: normal; }
td.name { font-weight: 600; overflow-wrap: break-word; }
td.props { color: #bcb; font-family: monospace; overflow-wrap: anywhere; }
td.keys, td.count { text-align: right; white-space: nowrap; }
p.legend { color: #9ab; margin: 4px 0 0; font-size: 12px; }
ul { margin: 0; padding-left: 0; list-style: none; }
li.material { padding: 2px 0; }
.swatch { display: inline-block; width: 12px; height: 12px; margin-right: 6px; border: 1px solid #889; vertical-align: -2px; }
button { min-width: 64px; }
#drop-hint { display: none; position: absolute; inset: 10px; border: 3px dashed #9ab; border-radius: 8px;
  background: rgba(30, 34, 40, 0.8); align-items: center; justify-content: center; text-align: center;
  font-size: 18px; pointer-events: none; }
body.dragging #drop-hint { display: flex; }
#message { position: absolute; top: 8px; left: 8px; right: 8px; padding: 6px 10px; border-radius: 4px;
  background: rgba(38, 43, 51, 0.92); white-space: pre-wrap; overflow-wrap: anywhere; cursor: pointer; }
#message.error { background: rgba(120, 30, 30, 0.92); color: #fff; }
#message[hidden] { display: none; }
#open { display: none; }
)";

}  // namespace

std::string previewPage(const std::string& title, const std::vector<std::uint8_t>& glb) {
  const std::string t = escapeHtml(title);
  std::string page;
  page += "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" + t + " - zt2view</title>\n";
  page += "<style>" + std::string(kStyle) + "</style>\n</head>\n<body>\n";
  page += "<div id=\"view\"><div id=\"drop-hint\"></div><div id=\"message\" role=\"status\" hidden "
          "title=\"Click to hide\"></div></div>\n";
  page += "<div id=\"player\"><button id=\"play\">Play</button><input id=\"scrub\" type=\"range\" min=\"0\" max=\"0\" "
          "step=\"0.001\" value=\"0\"><span id=\"time\"></span><label><input id=\"vertex-colours\" "
          "type=\"checkbox\"> Vertex colours</label><label><input id=\"wireframe\" type=\"checkbox\"> Wireframe</label>"
          "<label>View <select id=\"view-camera\"><option value=\"\">Orbit</option></select></label>"
          "<button id=\"frame\" title=\"Frame the meshes again\">Frame</button>"
          "<button id=\"panel\" title=\"Show or hide the side panel\">Panel</button>"
          "<button id=\"open-button\" title=\"Show another scene: a .zt2 with its .skd and images, or a .glb; "
          "files can also be dropped on the page\">Open&hellip;</button><input id=\"open\" type=\"file\" multiple></div>\n";
  page += "<div id=\"side\">\n<h1 id=\"title\">" + t + "</h1>\n<h2>Nodes</h2>\n<table>\n<thead><tr><th>Name</th><th>Type</th>"
          "<th>Parent</th><th>Properties</th><th title=\"transform keys / visibility keys\">Keys</th></tr></thead>\n"
          "<tbody id=\"node-tree\"></tbody>\n</table>\n<p class=\"legend\">Keys: transform keys / visibility keys the "
          "file holds for the node; - where it has none.</p>\n<h2>Meshes</h2>\n<table>\n<thead><tr><th>Node</th>"
          "<th>Vertices</th><th>Triangles</th><th>Materials</th></tr></thead>\n<tbody id=\"meshes\"></tbody>\n</table>\n"
          "<h2>Materials</h2>\n<ul id=\"materials\"></ul>\n</div>\n";
  page += "<script id=\"scene-data\" type=\"application/octet-stream\">" + base64(glb) + "</script>\n";
  if (*kConverterModule != '\0')
    page += "<script id=\"converter\" type=\"application/octet-stream\">" + std::string(kConverterModule) + "</script>\n";
  page += "<script>" + std::string(kViewerScript) + "</script>\n</body>\n</html>\n";
  return page;
}

}  // namespace zt2view
