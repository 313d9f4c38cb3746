// The errors that the transfer steps make themselves, all of one pattern.
#pragma once

#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"

namespace ferrox {

/// "com.ferrox.download." + class + ".ErrorDomain".
FRX_EXPORT std::string downloadErrorDomain(std::string_view className);

/// An error of that class whose description went through the host's table of translated texts.
/// Thread: any
FRX_EXPORT FRXError downloadError(std::string_view className, std::string_view message, int code = -1);

}  // namespace ferrox
