// The in-house graphics library's colour: four 8-bit channels.
#pragma once

#include <cstdint>

struct G_Color {
  std::uint8_t r = 0, g = 0, b = 0, a = 255;

  constexpr G_Color() = default;
  constexpr G_Color(std::uint8_t pr, std::uint8_t pg, std::uint8_t pb, std::uint8_t pa) : r(pr), g(pg), b(pb), a(pa) {}
  constexpr bool operator==(const G_Color&) const = default;
};
