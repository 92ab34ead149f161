// Transform keys as one glTF animation: linear samplers at the sample rate,
// and visibility as a scale of 0 where the node is hidden.
#include <algorithm>
#include <cmath>

#include "gltf/gltf_builder.h"

namespace zt2dump::gltf {

namespace {

// A hidden span is written sample by sample; past this many samples (over
// nine hours at 30 per second) the file is taken to be damaged.
constexpr std::uint64_t kMostDenseSamples = 1'000'000;

struct Key {
  std::uint32_t sample;
  Trs trs;
};

// A value at a sample between keys: linear, held after the last key.
double between(const std::vector<std::pair<std::uint32_t, double>>& keys, double sample) {
  if (sample <= keys.front().first) return keys.front().second;
  for (std::size_t i = 1; i < keys.size(); ++i)
    if (sample <= keys[i].first) {
      const double a = keys[i - 1].first, f = (sample - a) / (keys[i].first - a);
      return keys[i - 1].second + f * (keys[i].second - keys[i - 1].second);
    }
  return keys.back().second;
}

std::array<double, 3> scaleAt(const std::vector<Key>& keys, double sample) {
  std::array<double, 3> r{};
  for (int k = 0; k < 3; ++k) {
    std::vector<std::pair<std::uint32_t, double>> track;
    for (const Key& key : keys) track.emplace_back(key.sample, key.trs.scale[static_cast<std::size_t>(k)]);
    r[static_cast<std::size_t>(k)] = between(track, sample);
  }
  return r;
}

bool increasing(const Json& keys) {
  for (std::size_t i = 1; i < keys.size(); ++i)
    if (keys[i].at("sample").get<std::uint32_t>() <= keys[i - 1].at("sample").get<std::uint32_t>()) return false;
  return true;
}

}  // namespace

void addAnimations(Builder& b, const DecodedFile& scene) {
  tinygltf::Animation anim;
  anim.name = "Take";
  auto addChannel = [&](int node, const char* path, const std::vector<float>& times, const std::vector<float>& values,
                        int components) {
    tinygltf::AnimationSampler sampler;
    sampler.input = b.addFloatAccessor(times, 1, 0, true);
    sampler.output = b.addFloatAccessor(values, components, 0, false);
    sampler.interpolation = "LINEAR";
    anim.samplers.push_back(std::move(sampler));
    tinygltf::AnimationChannel channel;
    channel.sampler = static_cast<int>(anim.samplers.size() - 1);
    channel.target_node = node;
    channel.target_path = path;
    anim.channels.push_back(std::move(channel));
  };

  for (const DecodedChunk& c : scene.chunks) {
    if (!isKind(c, chunk_kind::kTransformAnimation)) continue;
    const DecodedChunk* header = childOfKind(c, chunk_kind::kAnimationHeader);
    if (!header) continue;
    const std::string name = header->at("name").get<std::string>();
    const std::string where = "animation of \"" + codePageToUtf8(name) + "\" at offset " + std::to_string(c.offset);
    const auto node = b.nodeByName.find(name);
    const double rate = header->at("sampleRate").get<double>();
    const Json& keysJson = c.at("keys");
    const Json& visJson = c.at("visibilityKeys");
    if (!(rate > 0) || keysJson.empty() || !increasing(keysJson) || !increasing(visJson)) {
      b.warn(where + ": no sample rate, no keys or keys out of order; left out");
      continue;
    }
    std::vector<Key> keys;
    for (const Json& k : keysJson)
      keys.push_back({k.at("sample").get<std::uint32_t>(), decompose(fileMatrixToGltf(k.at("transform")))});
    if (node == b.nodeByName.end()) continue;  // addNodes made one for every track with keys
    std::vector<std::pair<std::uint32_t, double>> visibility;
    bool hides = false;
    for (const Json& k : visJson) {
      visibility.emplace_back(k.at("sample").get<std::uint32_t>(), number(k.at("value")));
      hides = hides || number(k.at("value")) <= 0.0;
    }
    // Counts for viewers, whether or not the keys move anything.
    tinygltf::Value::Object& extras = b.model.nodes[static_cast<std::size_t>(node->second)].extras.Get<tinygltf::Value::Object>();
    extras["transformKeyCount"] = tinygltf::Value(static_cast<int>(keys.size()));
    extras["visibilityKeyCount"] = tinygltf::Value(static_cast<int>(visibility.size()));
    if (keys.size() < 2 && !hides) continue;

    std::vector<float> times, translations, rotations, scales;
    std::array<double, 4> previous{0, 0, 0, 1};
    for (const Key& k : keys) {
      times.push_back(float(k.sample / rate));
      for (double v : k.trs.translation) translations.push_back(float(v));
      // Neighbouring quaternions on one side, so that the blend takes the short way.
      std::array<double, 4> q = k.trs.rotation;
      const double dot = q[0] * previous[0] + q[1] * previous[1] + q[2] * previous[2] + q[3] * previous[3];
      if (dot < 0)
        for (double& v : q) v = -v;
      previous = q;
      for (double v : q) rotations.push_back(float(v));
      for (double v : k.trs.scale) scales.push_back(float(v));
    }
    addChannel(node->second, "translation", times, translations, 3);
    addChannel(node->second, "rotation", times, rotations, 4);
    if (!hides) {
      addChannel(node->second, "scale", times, scales, 3);
      continue;
    }
    // Hidden spans: the scale at every sample, 0 wherever visibility is 0 or less.
    const std::uint64_t last = std::uint64_t{std::max(keys.back().sample, visibility.back().first)} + 1;
    if (last > kMostDenseSamples) {
      b.warn(where + ": keys reach sample " + std::to_string(last - 1) + "; visibility left out");
      addChannel(node->second, "scale", times, scales, 3);
      continue;
    }
    std::vector<float> denseTimes, denseScales;
    for (std::uint32_t s = 0; s < last; ++s) {
      denseTimes.push_back(float(s / rate));
      const bool hidden = between(visibility, s) <= 0.0;
      for (double v : scaleAt(keys, s)) denseScales.push_back(hidden ? 0.0f : float(v));
    }
    addChannel(node->second, "scale", denseTimes, denseScales, 3);
  }
  if (!anim.channels.empty()) b.model.animations.push_back(std::move(anim));
}

}  // namespace zt2dump::gltf
