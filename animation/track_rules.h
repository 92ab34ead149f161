// What every key track of an animation chunk keeps, the rules a reader of the
// file relies on: a sampled span of at least one sample, and in every track
// at least one key, the first at sample 0, the samples strictly increasing
// and below the span's sample count. The writers check their records against
// these rules before writing them (debug builds), and zt2dump --validate
// checks what it reads against the same words.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// "" when `numSamples` can hold a key; otherwise the fault.
std::string numSamplesFault(std::int64_t numSamples);

// "" when the track keeps the rules; otherwise the first fault, beginning
// with the track's name: "keys has no key", "keys[2] is at sample 4, not
// after the previous key's 4".
std::string trackFault(const std::string& track, const std::vector<std::int64_t>& samples, std::int64_t numSamples);

// A record that breaks the rules is a fault of the code that made it: debug
// builds stop where it is written, naming the node and the fault, rather than
// write a file that only a later dump shows to be wrong. Release builds skip
// the check. `Record` has `header.name` and `validate()` ("" when sound).
[[noreturn]] void stopAtFaultyRecord(const std::string& node, const std::string& fault);

template <typename Record>
void checkRecordBeforeWriting([[maybe_unused]] const Record& record) {
#ifndef NDEBUG
  if (const std::string fault = record.validate(); !fault.empty()) stopAtFaultyRecord(record.header.name, fault);
#endif
}
