// What a parsed head must satisfy before anything is believed of it.
#pragma once

#include "Platform/HTTP/Server/RequestHead.h"

namespace ferrox {

/// The status to refuse with, or 0. Fills `uri` and `authority` of `head`. Thread: any
int applyRequestRules(RequestHead& head);

}  // namespace ferrox
