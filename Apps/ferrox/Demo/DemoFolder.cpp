#include "Apps/ferrox/Demo/DemoFolder.h"

#include <system_error>

#include "Platform/Host/Text.h"

namespace ferrox::command {

DemoFolder::~DemoFolder() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

bool DemoFolder::make() {
  std::error_code error;
  const auto folder = std::filesystem::temp_directory_path(error) / ("ferrox-demo-" + text::randomUUID());
  if (error || !std::filesystem::create_directory(folder, error)) return false;
  path_ = folder;
  return true;
}

}  // namespace ferrox::command
