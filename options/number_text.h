// Strict conversions between numbers and their text, shared by the script
// parser and the option fields. Locale-independent: the decimal point is
// always '.'.
#pragma once

#include <cstdint>
#include <string>

// Decimal digits with an optional sign, the whole text, within 32 bits.
bool parseInt32(const std::string& text, std::int32_t& out);
// A finite decimal number with an optional sign and exponent, the whole text.
bool parseFiniteFloat(const std::string& text, float& out);
// The shortest text that reads back as exactly `value`.
std::string formatFloat(float value);
