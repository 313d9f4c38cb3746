#include "Classes/WebSockets/Messaging.h"

#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Classes/WebSockets/FRXWebsocket.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Platform/Base/Registration.h"
#include "Platform/PlatformServices.h"

namespace ferrox {

void installMessaging() {
  if (!PeerConnector::registered()) {
    PeerConnector::setRegistered(FRXWebsocketConnectionManager::sharedManager());
  }
  if (!Registration<MessageBroadcaster>::current()) {
    Registration<MessageBroadcaster>::set(FRXWebsocketConnectionManager::sharedManager());
  }
  if (!NotificationSink::registered()) NotificationSink::setRegistered(FRXNotificationCenter::sharedCenter());
  FRXWebsocket::acceptUpgrades(*PlatformServices::shared().mainLoop);
}

}  // namespace ferrox
