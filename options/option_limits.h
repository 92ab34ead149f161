// The limits and steps of the options dialog's spinners, shared by the dialog
// and by every front end that sets the same fields without it (--set).
#pragma once

// Rotation delta, position delta and rescale factor.
inline constexpr float kFloatSpinnerMin = 0.0f;
inline constexpr float kFloatSpinnerMax = 100.0f;
inline constexpr float kDeltaStep = 0.0001f;
inline constexpr float kRescaleStep = 0.001f;

// Frames per second. A rate of 0 would give the animation sampling a zero
// step and the host a frame rate it cannot divide by, so 1 is the smallest.
inline constexpr int kSampleRateMin = 1;
inline constexpr int kSampleRateMax = 500;
