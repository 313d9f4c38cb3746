// A whole project that one node of a demonstration copies from another.
#pragma once

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "Apps/ferrox/Demo/DemoFolder.h"
#include "Apps/ferrox/Demo/DemoStage.h"
#include "Apps/ferrox/Demo/Story.h"

namespace ferrox::command {

/// Thread: one
class DemoCopy {
 public:
  explicit DemoCopy(DemoStage& stage) : stage_(stage) {}
  DemoCopy(const DemoCopy&) = delete;
  DemoCopy& operator=(const DemoCopy&) = delete;

  /// `from` offers some hundred small files and a large one; `to` copies them, the large one in pieces.
  StepOutcome copy(DemoRole& from, DemoRole& to);
  /// Reads both folders and compares every file.
  StepOutcome compare() const;

 private:
  using Instant = DemoStage::Instant;

  bool makeProject();
  bool makeFile(const std::filesystem::path& relative, std::uint64_t size);
  std::string offer(DemoRole& from) const;

  DemoStage& stage_;
  DemoFolder folder_;
  std::mt19937_64 random_{std::random_device{}()};
  std::vector<std::filesystem::path> files_;
  std::uint64_t size_ = 0;
};

}  // namespace ferrox::command
