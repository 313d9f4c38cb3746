#include "Classes/WebSockets/MessageCounters.h"

namespace ferrox {

// RFC 6455 section 7.4.1.
void MessageCounters::didRefuse(int closeCode) {
  switch (closeCode) {
    case 0:
      return;
    case 1003:
      return binary.add();
    case 1007:
      return notUtf8.add();
    case 1009:
      return tooLarge.add();
    default:
      return badFrames.add();
  }
}

FRXMessageStatistics MessageCounters::statistics() const {
  return {.sent = sent.value(),
          .sentBytes = sentBytes.value(),
          .received = received.value(),
          .receivedBytes = receivedBytes.value(),
          .notConnected = notConnected.value(),
          .unwritable = unwritable.value(),
          .overfullQueues = overfullQueues.value(),
          .malformed = malformed.value(),
          .unknownTypes = unknownTypes.value(),
          .queriesWithoutId = queriesWithoutId.value(),
          .unawaitedReplies = unawaitedReplies.value(),
          .binary = binary.value(),
          .tooLarge = tooLarge.value(),
          .notUtf8 = notUtf8.value(),
          .badFrames = badFrames.value()};
}

FRXMessageStatistics& operator+=(FRXMessageStatistics& sum, const FRXMessageStatistics& more) {
  sum.sent += more.sent;
  sum.sentBytes += more.sentBytes;
  sum.received += more.received;
  sum.receivedBytes += more.receivedBytes;
  sum.notConnected += more.notConnected;
  sum.unwritable += more.unwritable;
  sum.overfullQueues += more.overfullQueues;
  sum.malformed += more.malformed;
  sum.unknownTypes += more.unknownTypes;
  sum.queriesWithoutId += more.queriesWithoutId;
  sum.unawaitedReplies += more.unawaitedReplies;
  sum.binary += more.binary;
  sum.tooLarge += more.tooLarge;
  sum.notUtf8 += more.notUtf8;
  sum.badFrames += more.badFrames;
  return sum;
}

}  // namespace ferrox
