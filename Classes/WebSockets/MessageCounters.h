// The counts behind the statistics of messages.
#pragma once

#include <cstddef>

#include "Classes/WebSockets/FRXMessagingStatistics.h"
#include "Platform/Base/Counter.h"

namespace ferrox {

/// Of the sockets of one direction. Thread: any
struct alignas(64) MessageCounters {
  Counter sent;
  Counter sentBytes;
  Counter received;
  Counter receivedBytes;
  Counter notConnected;
  Counter unwritable;
  Counter overfullQueues;
  Counter malformed;
  Counter unknownTypes;
  Counter queriesWithoutId;
  Counter unawaitedReplies;
  Counter binary;
  Counter tooLarge;
  Counter notUtf8;
  Counter badFrames;

  void didSend(std::size_t count, std::size_t bytesOfEach) {
    sent.add(count);
    sentBytes.add(count * bytesOfEach);
  }
  void didReceive(std::size_t bytes) {
    received.add();
    receivedBytes.add(bytes);
  }
  /// A connection ended with this close code over what the peer sent; 0 is nothing of the kind.
  void didRefuse(int closeCode);

  FRXMessageStatistics statistics() const;
};

FRXMessageStatistics& operator+=(FRXMessageStatistics& sum, const FRXMessageStatistics& more);

}  // namespace ferrox
