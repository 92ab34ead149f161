#include "animation/track_rules.h"

#include <cstdio>
#include <cstdlib>

std::string numSamplesFault(std::int64_t numSamples) {
  if (numSamples >= 1) return {};
  return "numSamples " + std::to_string(numSamples) + " holds no sample";
}

std::string trackFault(const std::string& track, const std::vector<std::int64_t>& samples, std::int64_t numSamples) {
  if (samples.empty()) return track + " has no key";
  std::int64_t previous = -1;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const std::int64_t sample = samples[i];
    const std::string key = track + "[" + std::to_string(i) + "] is at sample " + std::to_string(sample);
    if (i == 0 && sample != 0) return key + ", not 0";
    if (sample <= previous) return key + ", not after the previous key's " + std::to_string(previous);
    if (sample >= numSamples) return key + ", outside the " + std::to_string(numSamples) + " samples";
    previous = sample;
  }
  return {};
}

void stopAtFaultyRecord(const std::string& node, const std::string& fault) {
  std::fprintf(stderr, "ztexport: internal fault: animation of \"%s\": %s\n", node.c_str(), fault.c_str());
  std::abort();
}
