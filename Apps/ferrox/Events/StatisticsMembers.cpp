#include "Apps/ferrox/Events/StatisticsMembers.h"

#include "Classes/Statistics/FRXStatistics.h"

namespace ferrox::command {
namespace {

FRXValue describe(const FRXPeerStatistics& peers) {
  return FRXDictionary{{"known", peers.known},
                       {"responsive", peers.responsive},
                       {"connectedOutbound", peers.connectedOutbound},
                       {"connectedInbound", peers.connectedInbound},
                       {"refused", peers.refused}};
}

FRXValue describe(const FRXConnectionStatistics& connections) {
  return FRXDictionary{{"attempts", connections.attempts},
                       {"opened", connections.opened},
                       {"reopened", connections.reopened},
                       {"failed", connections.failed},
                       {"lost", connections.lost}};
}

FRXValue describe(const FRXMessageStatistics& messages) {
  return FRXDictionary{{"sent", messages.sent},
                       {"sentBytes", messages.sentBytes},
                       {"received", messages.received},
                       {"receivedBytes", messages.receivedBytes},
                       {"notSent", FRXDictionary{{"notConnected", messages.notConnected},
                                                 {"unwritable", messages.unwritable},
                                                 {"overfullQueues", messages.overfullQueues}}},
                       {"dropped", FRXDictionary{{"malformed", messages.malformed},
                                                 {"unknownTypes", messages.unknownTypes},
                                                 {"queriesWithoutId", messages.queriesWithoutId},
                                                 {"unawaitedReplies", messages.unawaitedReplies}}},
                       {"refused", FRXDictionary{{"binary", messages.binary},
                                                 {"tooLarge", messages.tooLarge},
                                                 {"notUtf8", messages.notUtf8},
                                                 {"badFrames", messages.badFrames}}}};
}

FRXValue describe(const FRXNotificationStatistics& notifications) {
  return FRXDictionary{{"posted", notifications.posted},
                       {"reposted", notifications.reposted},
                       {"received", notifications.received},
                       {"unwritable", notifications.unwritable}};
}

FRXValue describe(const HTTPServerStatistics& http) {
  return FRXDictionary{{"connectionsAccepted", http.connectionsAccepted},
                       {"connectionsRefused", http.connectionsRefused},
                       {"connectionsOpen", http.connectionsOpen},
                       {"requests", FRXDictionary{{"upgraded", http.upgrades},
                                                  {"succeeded", http.succeeded},
                                                  {"clientErrors", http.clientErrors},
                                                  {"serverErrors", http.serverErrors}}},
                       {"bytesSent", http.bytesSent},
                       {"fileBytesServed", http.fileBytesServed}};
}

FRXValue describe(const FRXCopyStatistics& copies) {
  return FRXDictionary{{"started", copies.started},     {"running", copies.running},
                       {"succeeded", copies.succeeded}, {"failed", copies.failed},
                       {"cancelled", copies.cancelled}, {"files", copies.files},
                       {"bytes", copies.bytes}};
}

FRXValue describe(const FRXQueueStatistics& queues) {
  return FRXDictionary{{"notificationsWaiting", queues.notificationsWaiting},
                       {"notificationsKept", queues.notificationsKept},
                       {"awaitedReplies", queues.awaitedReplies},
                       {"outboundBytes", queues.outboundBytes},
                       {"inboundBytes", queues.inboundBytes},
                       {"undeliveredBytes", queues.undeliveredBytes}};
}

}  // namespace

FRXDictionary describe(const FRXStatistics& statistics) {
  return {{"peers", describe(statistics.peers)},       {"connections", describe(statistics.connections)},
          {"messages", describe(statistics.messages)}, {"notifications", describe(statistics.notifications)},
          {"http", describe(statistics.http)},         {"copies", describe(statistics.copies)},
          {"queues", describe(statistics.queues)}};
}

}  // namespace ferrox::command
