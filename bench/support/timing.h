#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace msp::bench {

/// What the work took, in milliseconds.
template <typename Work>
double millisecondsFor(const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

/// The same for the second of two runs in a row.
template <typename Work>
double secondTime(const Work& work) {
  work();
  return millisecondsFor(work);
}

/// The middle one, of at least one value.
inline double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace msp::bench
