// The statements of docs/delivery.md, one test each, over real sockets.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Classes/WebSockets/FRXWebsocket.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Tests/Classes/HTTPServer/HostFixture.h"
