// The fixed settings of the animation pass: not options, but values the
// driver resets for every export.
#pragma once

// Tolerances of the light parameter tracks, each in its parameter's unit.
struct LightParameterDeltas {
  float colour = 0.01f;            // a fraction of full scale: 2.55 on the 0..255 scale
  float intensity = 0.01f;         // multiplier
  float attenuationEnd = 0.01f;    // scene units after rescaling
  float attenuationStart = 0.01f;  // scene units after rescaling
  float falloff = 0.01f;           // radians
  float hotspot = 0.01f;           // radians
};

struct AnimationState {
  int sampleStepFrames = 1;       // frames at the sample rate between two samples
  float visibilityDelta = 0.01f;  // tolerance of the visibility track (0 hidden .. 1 visible)
  LightParameterDeltas parameterDeltas;
  // Keys that rebuild every sample within the tolerances
  // (reduceKeysWithinBound) instead of the rule's: the host's choice for
  // this run (Interface::KeyErrorBound), taken when the pass begins.
  bool keyErrorBound = false;
};
