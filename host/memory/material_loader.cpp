#include "format/code_page.h"
#include "host/memory/scene_loader_parts.h"

namespace hostmodel {
namespace {

void readParams(const JsonCursor& c, ParamTable& table) {
  if (!c.isObject()) c.fail("expected an object of named parameters");
  for (const auto& [name, value] : c.json().items()) {
    const JsonCursor p = c[name.c_str()];
    ParamValue v;
    if (value.is_boolean()) {
      v.kind = ParamValue::Kind::Int;
      v.i = value.get<bool>() ? 1 : 0;
    } else if (value.is_number_integer() || value.is_number_unsigned()) {
      v.kind = ParamValue::Kind::Int;
      v.i = p.asInt();
    } else if (value.is_number_float()) {
      v.kind = ParamValue::Kind::Float;
      v.f = p.asFloat();
    } else if (value.is_string()) {
      v.kind = ParamValue::Kind::String;
      v.s = p.asString();  // file names among them
    } else {
      p.fail("expected an integer, a number, a string or a boolean");
    }
    table.set(name, std::move(v));
  }
}

// --- texture maps ---

std::unique_ptr<MemoryTexmap> readTexmap(const JsonCursor& c, LoadContext&, bool declared) {
  if (!c.isObject()) c.fail("expected a texture map definition (or a texture map id)");
  const std::string type = c["type"].asString();
  if (declared)
    c.expectMembers({"id", "type", "name", "classId", "params"});
  else
    c.expectMembers({"type", "name", "classId", "params"});
  Class_ID classId;
  if (type == "ztTexture" || type == "bitmap") {
    if (const auto id = c.find("classId")) id->fail("only a texture map of type \"other\" takes a class id");
    classId = type == "ztTexture" ? ZTTEXTURE_CLASS_ID : Class_ID(0x240, 0);
  } else if (type == "other") {
    classId = c["classId"].asClassId();
  } else {
    c["type"].fail("unknown texture map type \"" + type + "\" (expected ztTexture, bitmap or other)");
  }
  const std::string name =
      codePageFromUtf8Lossy(declared ? c.stringOr("name", c["id"].asString()) : c["name"].asString());
  auto map = std::make_unique<MemoryTexmap>(name, classId);
  if (const auto params = c.find("params")) readParams(*params, map->params());
  return map;
}

Texmap* readTexmapReference(const JsonCursor& c, LoadContext& ctx) {
  if (c.isNull()) return nullptr;
  if (c.isString()) {
    const std::string id = c.asString();
    const auto it = ctx.scene.texmapsById.find(id);
    if (it == ctx.scene.texmapsById.end()) c.fail("no texture map with id \"" + id + "\"");
    return it->second;
  }
  ctx.scene.texmaps.push_back(readTexmap(c, ctx, false));
  return ctx.scene.texmaps.back().get();
}

// --- materials ---

// The part of a material known before other materials are: its class and name.
std::unique_ptr<MemoryMtl> createMaterial(const JsonCursor& c, bool declared) {
  if (!c.isObject()) c.fail("expected a material definition (or a material id)");
  const std::string type = c["type"].asString();
  Class_ID classId;
  if (type == "standard") {
    classId = DMTL_CLASS_ID;
  } else if (type == "multi") {
    classId = MULTI_CLASS_ID;
  } else if (type == "ztMaterial") {
    classId = ZTMATERIAL_CLASS_ID;
  } else if (type == "other") {
    classId = c["classId"].asClassId();
  } else {
    c["type"].fail("unknown material type \"" + type + "\" (expected standard, multi, ztMaterial or other)");
  }
  if (type != "other" && c.has("classId")) c["classId"].fail("only a material of type \"other\" takes a class id");
  const std::string name =
      codePageFromUtf8Lossy(declared ? c.stringOr("name", c["id"].asString()) : c["name"].asString());
  return std::make_unique<MemoryMtl>(name, classId);
}

void fillMaterial(const JsonCursor& c, MemoryMtl& mtl, LoadContext& ctx, bool declared) {
  if (declared)
    c.expectMembers({"id", "type", "name", "classId", "ambient", "diffuse", "specular", "subMaterials", "texmaps",
                     "params"});
  else
    c.expectMembers({"type", "name", "classId", "ambient", "diffuse", "specular", "subMaterials", "texmaps", "params"});
  MaterialColors colors;
  if (const auto m = c.find("ambient")) colors.ambient = m->asColor();
  if (const auto m = c.find("diffuse")) colors.diffuse = m->asColor();
  if (const auto m = c.find("specular")) colors.specular = m->asColor();
  mtl.setColors(colors);
  if (const auto subs = c.find("subMaterials")) {
    const std::string type = c["type"].asString();
    if (type != "multi" && type != "other") subs->fail("only materials of type multi or other have sub-materials");
    std::vector<Mtl*> slots;
    for (const JsonCursor& s : subs->elements()) slots.push_back(s.isNull() ? nullptr : readMaterialReference(s, ctx));
    mtl.setSubMaterials(std::move(slots));
  }
  if (const auto maps = c.find("texmaps")) {
    std::vector<Texmap*> slots;
    for (const JsonCursor& m : maps->elements()) slots.push_back(readTexmapReference(m, ctx));
    mtl.setSubTexmaps(std::move(slots));
  }
  if (const auto params = c.find("params")) readParams(*params, mtl.params());
}

std::string declaredId(const JsonCursor& c, const char* kind) {
  if (!c.isObject()) c.fail(std::string("expected a ") + kind + " definition");
  const JsonCursor id = c["id"];
  const std::string s = id.asString();
  if (s.empty()) id.fail("an id cannot be empty");
  return s;
}

}  // namespace

void readTexmaps(const JsonCursor& list, LoadContext& ctx) {
  for (const JsonCursor& c : list.elements()) {
    const std::string id = declaredId(c, "texture map");
    if (ctx.scene.texmapsById.count(id)) c["id"].fail("a texture map with id \"" + id + "\" is declared already");
    ctx.scene.texmaps.push_back(readTexmap(c, ctx, true));
    ctx.scene.texmapsById[id] = ctx.scene.texmaps.back().get();
  }
}

void readMaterials(const JsonCursor& list, LoadContext& ctx) {
  // Materials may name each other as sub-materials in any order: create them
  // all first, then fill them in.
  const std::vector<JsonCursor> entries = list.elements();
  std::vector<MemoryMtl*> created;
  for (const JsonCursor& c : entries) {
    const std::string id = declaredId(c, "material");
    if (ctx.scene.materialsById.count(id)) c["id"].fail("a material with id \"" + id + "\" is declared already");
    ctx.scene.materials.push_back(createMaterial(c, true));
    created.push_back(ctx.scene.materials.back().get());
    ctx.scene.materialsById[id] = created.back();
  }
  for (std::size_t i = 0; i < entries.size(); ++i) fillMaterial(entries[i], *created[i], ctx, true);
}

Mtl* readMaterialReference(const JsonCursor& c, LoadContext& ctx) {
  if (c.isString()) {
    const std::string id = c.asString();
    const auto it = ctx.scene.materialsById.find(id);
    if (it == ctx.scene.materialsById.end()) c.fail("no material with id \"" + id + "\"");
    return it->second;
  }
  auto mtl = createMaterial(c, false);
  MemoryMtl* raw = mtl.get();
  ctx.scene.materials.push_back(std::move(mtl));
  fillMaterial(c, *raw, ctx, false);
  return raw;
}

}  // namespace hostmodel
