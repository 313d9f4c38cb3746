// Delays of many millions of deliveries in little memory, to within one hundredth.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace ferrox::bench {

class DelayHistogram {
 public:
  DelayHistogram() : counts_(std::size_t{64} * parts) {}

  void add(std::uint64_t ns) {
    ++counts_[placeOf(ns)];
    ++total_;
  }
  std::uint64_t total() const { return total_; }
  /// In nanoseconds; `fraction` 0.99 is the p99.
  double quantile(double fraction) const {
    const double wanted = fraction * static_cast<double>(total_);
    double seen = 0;
    for (std::size_t place = 0; place < counts_.size(); ++place) {
      seen += static_cast<double>(counts_[place]);
      if (seen >= wanted && seen > 0) return valueOf(place);
    }
    return 0;
  }

 private:
  static constexpr unsigned bits = 7;
  static constexpr std::size_t parts = std::size_t{1} << bits;

  static std::size_t placeOf(std::uint64_t ns) {
    if (ns < parts) return static_cast<std::size_t>(ns);
    const auto shift = static_cast<unsigned>(std::bit_width(ns)) - 1 - bits;
    return (std::size_t{shift} + 1) * parts + static_cast<std::size_t>((ns >> shift) - parts);
  }
  static double valueOf(std::size_t place) {
    if (place < parts) return static_cast<double>(place);
    return static_cast<double>((place % parts + parts) << (place / parts - 1));
  }

  std::vector<std::uint64_t> counts_;
  std::uint64_t total_ = 0;
};

}  // namespace ferrox::bench
