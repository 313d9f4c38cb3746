#include "Classes/Copy/DownloadErrors.h"

#include "Platform/Host/Localization.h"

namespace ferrox {

std::string downloadErrorDomain(std::string_view className) {
  return "com.ferrox.download." + std::string(className) + ".ErrorDomain";
}

FRXError downloadError(std::string_view className, std::string_view message, int code) {
  return {downloadErrorDomain(className), code, Localization::localized(message)};
}

}  // namespace ferrox
