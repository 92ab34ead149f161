// The scene file's top level and its node tree; the other parts of the
// document are read by the loaders declared in scene_loader_parts.h.
#include <filesystem>
#include <set>

#include "format/code_page.h"
#include "host/memory/memory_derived_object.h"
#include "host/memory/regular_file.h"

#include "host/memory/scene_loader_parts.h"

namespace hostmodel {

std::string LoadContext::resolvePath(const std::string& path) const {
  if (path.empty() || baseDir.empty() || std::filesystem::path(path).is_absolute()) return path;
  return (std::filesystem::path(baseDir) / path).lexically_normal().string();
}

namespace {

constexpr int kFormatVersion = 1;
// Any other nesting (materials in materials, keys in tracks) stays far below
// this; past it a document is refused before anything is read from it.
constexpr std::size_t kMaxJsonDepth = 2 * kMaxNodeDepth + 100;

Object* readObjectReference(const JsonCursor& c, LoadContext& ctx) {
  if (c.isString()) {
    const std::string id = c.asString();
    const auto it = ctx.scene.objectsById.find(id);
    if (it == ctx.scene.objectsById.end()) c.fail("no object with id \"" + id + "\"");
    return it->second;
  }
  ctx.scene.objects.push_back(readObject(c, ctx, false));
  return ctx.scene.objects.back().get();
}

void readObjects(const JsonCursor& list, LoadContext& ctx) {
  for (const JsonCursor& c : list.elements()) {
    if (!c.isObject()) c.fail("expected an object definition");
    const JsonCursor idMember = c["id"];
    const std::string id = idMember.asString();
    if (id.empty()) idMember.fail("an id cannot be empty");
    if (ctx.scene.objectsById.count(id)) idMember.fail("an object with id \"" + id + "\" is declared already");
    ctx.scene.objects.push_back(readObject(c, ctx, true));
    ctx.scene.objectsById[id] = ctx.scene.objects.back().get();
  }
}

void readNode(const JsonCursor& c, MemoryNode& parent, LoadContext& ctx, int depth) {
  if (depth > kMaxNodeDepth) c.fail("nodes nest deeper than " + std::to_string(kMaxNodeDepth) + " levels");
  c.expectMembers({"name", "id", "object", "material", "hidden", "groupMember", "groupHead", "openGroupMember",
                   "openGroupHead", "userProperties", "transform", "objectOffset", "visibility", "inheritVisibility",
                   "modifiers", "sharedModifiers", "children"});
  // The host holds names in its code page; the scene file's text is UTF-8.
  // References name the node as the scene file spells it.
  const std::string spelled = c["name"].asString();
  MemoryNode& node = parent.addChild(codePageFromUtf8Lossy(spelled));
  std::string id = spelled;
  if (const auto m = c.find("id")) {
    id = m->asString();
    if (id.empty()) m->fail("an id cannot be empty");
    ctx.scene.nodeIds[&node] = id;
  } else if (id != node.GetName()) {
    ctx.scene.nodeIds[&node] = id;
  }
  ctx.nodesById.emplace(id, &node);

  Object* object = nullptr;
  if (const auto m = c.find("object")) object = readObjectReference(*m, ctx);
  node.setObject(object);
  if (const auto m = c.find("material")) node.setMaterial(readMaterialReference(*m, ctx));

  NodeFlags flags;
  flags.hidden = c.boolOr("hidden", false);
  flags.groupMember = c.boolOr("groupMember", false);
  flags.groupHead = c.boolOr("groupHead", false);
  flags.openGroupMember = c.boolOr("openGroupMember", false);
  flags.openGroupHead = c.boolOr("openGroupHead", false);
  node.setFlags(flags);
  node.setUserProperties(c.stringOr("userProperties", ""));
  if (const auto m = c.find("transform")) node.setTransform(readTransform(*m, ctx));
  if (const auto m = c.find("objectOffset")) node.setObjectOffset(readObjectOffset(*m));
  if (const auto m = c.find("visibility")) node.setVisibility(readFloatTrack(*m, ctx));
  node.setInheritVisibility(c.boolOr("inheritVisibility", true));
  // Shared modifiers form a derived object of their own below the node's
  // stack, as an instance's modifiers do in the host.
  std::unique_ptr<MemoryDerivedObject> shared;
  if (const auto m = c.find("sharedModifiers")) shared = readModifiers(*m, ctx, node, object);
  std::unique_ptr<MemoryDerivedObject> own;
  if (const auto m = c.find("modifiers")) own = readModifiers(*m, ctx, node, shared ? shared.get() : object);
  if (own && shared) ctx.scene.objects.push_back(std::move(shared));  // the scene owns it; `own` stands on it
  node.setModifiers(own ? std::move(own) : std::move(shared));

  if (const auto children = c.find("children"))
    for (const JsonCursor& child : children->elements()) readNode(child, node, ctx, depth + 1);
}

void resolveBones(LoadContext& ctx) {
  for (const PendingBone& p : ctx.pendingBones) {
    const auto [first, last] = ctx.nodesById.equal_range(p.nodeId);
    if (first == last)
      throw SceneLoadError(placeMessage(ctx.scene.sourceName, p.path, "no node with id \"" + p.nodeId + "\""));
    if (std::next(first) != last)
      throw SceneLoadError(placeMessage(ctx.scene.sourceName, p.path,
                                        "several nodes go by \"" + p.nodeId + "\"; give them distinct \"id\" members"));
    p.context->bones()[p.index] = first->second;
  }
}

void readDocument(const JsonCursor& doc, LoadContext& ctx) {
  doc.expectMembers({"version", "frameRate", "animationRange", "ambientColor", "backgroundColor", "configDir",
                     "texturePaths", "sourceFrameRate", "rootTransform", "texmaps", "materials", "objects", "nodes"});
  if (const auto v = doc.find("version")) {
    if (v->asInt() != kFormatVersion) v->fail("unsupported version; this host reads version 1");
  }
  MemoryHost::Impl& scene = ctx.scene;
  scene.bitmapManager.setBaseDir(ctx.baseDir);
  if (const auto m = doc.find("frameRate")) scene.frameRate = static_cast<int>(m->asInteger(1, TIME_TICKSPERSEC));
  ctx.ticksPerFrame = TIME_TICKSPERSEC / scene.frameRate;
  if (const auto m = doc.find("sourceFrameRate"))
    scene.sourceFrameRate = static_cast<int>(m->asInteger(1, TIME_TICKSPERSEC));

  int startFrame = 0, endFrame = 100;
  if (const auto m = doc.find("animationRange")) {
    if (!m->isArray() || m->size() != 2) m->fail("expected [start frame, end frame]");
    const auto ends = m->elements();
    const long long limit = TIME_PosInfinity / ctx.ticksPerFrame - 1;
    startFrame = static_cast<int>(ends[0].asInteger(-limit, limit));
    endFrame = static_cast<int>(ends[1].asInteger(-limit, limit));
    if (endFrame < startFrame) m->fail("the end frame lies before the start frame");
  }
  scene.animRange = {startFrame * ctx.ticksPerFrame, endFrame * ctx.ticksPerFrame};

  if (const auto m = doc.find("ambientColor")) scene.ambient = readColorTrack(*m, ctx);
  if (const auto m = doc.find("backgroundColor")) scene.background = readColorTrack(*m, ctx);
  if (const auto m = doc.find("configDir")) scene.configDir = ctx.resolvePath(m->asString());
  if (const auto m = doc.find("texturePaths")) {
    std::vector<std::string> dirs;
    for (const JsonCursor& dir : m->elements()) {
      if (dir.asString().empty()) dir.fail("a folder cannot be empty");
      dirs.push_back(ctx.resolvePath(dir.asString()));
    }
    scene.bitmapManager.setSearchDirs(std::move(dirs));
  }
  if (const auto m = doc.find("rootTransform")) scene.root.setTransform(readTransform(*m, ctx));

  if (const auto m = doc.find("texmaps")) readTexmaps(*m, ctx);
  if (const auto m = doc.find("materials")) readMaterials(*m, ctx);
  if (const auto m = doc.find("objects")) readObjects(*m, ctx);
  if (const auto m = doc.find("nodes"))
    for (const JsonCursor& node : m->elements()) readNode(node, scene.root, ctx, 1);
  resolveBones(ctx);
}

// "[json.exception.parse_error.101] parse error at line 2, column 3: ..." ->
// "at line 2, column 3: ...".
std::string parseErrorDetail(const std::string& what) {
  const std::size_t at = what.find("parse error");
  if (at == std::string::npos) return what;
  std::string detail = what.substr(at + std::string("parse error").size());
  while (!detail.empty() && detail.front() == ' ') detail.erase(detail.begin());
  return detail;
}

// "[json.exception.out_of_range.406] number overflow parsing '1e999'" -> "number overflow parsing '1e999'".
std::string libraryMessage(const std::string& what) {
  const std::size_t end = what.find("] ");
  return what.rfind("[json.exception.", 0) == 0 && end != std::string::npos ? what.substr(end + 2) : what;
}

// Builds the document as the library's own parser does, watching for a
// member given twice in one object, which the library would quietly resolve
// to the last one (a pasted line must not override its neighbour unnoticed),
// and for nesting past the bound. The library's callback parser would do the
// watching too, but it scans a whole array at the end of each of its objects,
// which makes a list of many nodes cost the square of its length.
class CheckedDocumentParser {
 public:
  using Json = nlohmann::json;

  CheckedDocumentParser(Json& result, const std::string& sourceName) : dom_(result, true), source_(sourceName) {}

  bool null() { return value(dom_.null()); }
  bool boolean(bool v) { return value(dom_.boolean(v)); }
  bool number_integer(Json::number_integer_t v) { return value(dom_.number_integer(v)); }
  bool number_unsigned(Json::number_unsigned_t v) { return value(dom_.number_unsigned(v)); }
  bool number_float(Json::number_float_t v, const Json::string_t& text) { return value(dom_.number_float(v, text)); }
  bool string(Json::string_t& v) { return value(dom_.string(v)); }
  bool binary(Json::binary_t& v) { return value(dom_.binary(v)); }
  bool start_object(std::size_t n) {
    enter(true);
    return dom_.start_object(n);
  }
  bool key(Json::string_t& k) {
    frames_.back().key = k;
    if (!frames_.back().keys.insert(k).second) throw SceneLoadError(placeMessage(source_, path(), "member given twice"));
    return dom_.key(k);
  }
  bool end_object() { return leave(dom_.end_object()); }
  bool start_array(std::size_t n) {
    enter(false);
    return dom_.start_array(n);
  }
  bool end_array() { return leave(dom_.end_array()); }
  template <typename Exception>
  bool parse_error(std::size_t position, const std::string& token, const Exception& e) {
    return dom_.parse_error(position, token, e);  // throws `e` as the type it has
  }

 private:
  struct Frame {
    bool object;
    std::string key;
    std::size_t index;
    std::set<std::string> keys;
  };

  void enter(bool object) {
    if (frames_.size() >= kMaxJsonDepth)
      throw SceneLoadError(placeMessage(source_, path(), "nested deeper than " + std::to_string(kMaxJsonDepth) + " levels"));
    frames_.push_back({object, {}, 0, {}});
  }
  bool value(bool result) {
    if (!frames_.empty() && !frames_.back().object) ++frames_.back().index;
    return result;
  }
  bool leave(bool result) {
    frames_.pop_back();
    return value(result);
  }
  // Told by its ends past a few dozen levels, as JsonCursor::path does: the
  // middle of a place thousands of levels down helps nobody find it.
  std::string path() const {
    constexpr std::size_t kShownAtEachEnd = 12;
    const std::size_t elided = frames_.size() > 3 * kShownAtEachEnd ? frames_.size() - 2 * kShownAtEachEnd : 0;
    std::string p;
    bool afterGap = false;
    for (std::size_t i = 0; i < frames_.size(); ++i) {
      if (elided && i >= kShownAtEachEnd && i < kShownAtEachEnd + elided) {
        if (i == kShownAtEachEnd) p += "...(" + std::to_string(elided) + " steps)...";
        afterGap = true;
        continue;
      }
      const Frame& f = frames_[i];
      if (f.object)
        p += (p.empty() || afterGap ? "" : ".") + f.key;
      else
        p += "[" + std::to_string(f.index) + "]";
      afterGap = false;
    }
    return p;
  }

  nlohmann::detail::json_sax_dom_parser<Json> dom_;
  const std::string& source_;
  std::vector<Frame> frames_;
};

}  // namespace

std::unique_ptr<MemoryHost> loadSceneFromString(const std::string& json, const std::string& baseDir,
                                                const std::string& sourceName) {
  return loadSceneFromString(std::string_view(json), baseDir, sourceName, {});
}

std::unique_ptr<MemoryHost> loadSceneFromString(std::string_view json, const std::string& baseDir,
                                                const std::string& sourceName, const BufferViews& buffers) {
  nlohmann::json document;
  try {
    CheckedDocumentParser parser(document, sourceName);
    nlohmann::json::sax_parse(json.begin(), json.end(), &parser);
  } catch (const nlohmann::json::parse_error& e) {
    throw SceneLoadError(sourceName + ": malformed JSON " + parseErrorDetail(e.what()));
  } catch (const nlohmann::json::exception& e) {
    // A number past the range of a double ("1e999") is no parse error to the
    // library, and its message carries no place: the token has to do.
    throw SceneLoadError(sourceName + ": malformed JSON: " + libraryMessage(e.what()));
  }
  auto impl = std::make_unique<MemoryHost::Impl>();
  impl->sourceName = sourceName;
  LoadContext ctx(*impl, baseDir);
  for (const auto& [name, bytes] : buffers) ctx.buffers.supply(name, bytes);
  readDocument(JsonCursor(document, "", sourceName), ctx);
  return std::make_unique<MemoryHost>(std::move(impl));
}

std::unique_ptr<MemoryHost> loadScene(const std::string& path) {
  const auto text = readRegularFile<std::string>(path, "scene file", [&](const std::string& message) {
    throw SceneLoadError(path + ": " + message);
  });
  try {
    return loadSceneFromString(text, std::filesystem::path(path).parent_path().string(), path);
  } catch (const std::bad_alloc&) {
    throw SceneLoadError(path + ": out of memory while loading the scene");
  }
}

}  // namespace hostmodel
