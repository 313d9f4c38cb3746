// What went over the sockets between this instance and its peers, in numbers.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ferrox {

/// Texts of WebSocket messages, in bytes of their JSON. All only grow.
struct FRXMessageStatistics {
  /// Put into the send queue of an open connection, once for each peer. When a connection breaks, what its
  /// queue still held is lost.
  std::uint64_t sent = 0;
  std::uint64_t sentBytes = 0;
  /// Whole texts that arrived, those that are dropped below included.
  std::uint64_t received = 0;
  std::uint64_t receivedBytes = 0;

  // Not sent.
  /// For one peer that was not connected; a message for all while nobody was connected counts once.
  std::uint64_t notConnected = 0;
  std::uint64_t unwritable = 0;  ///< held what JSON cannot carry, or a text to forward was not UTF-8
  /// Connections that were cut because the peer did not read and its send queue was full.
  std::uint64_t overfullQueues = 0;

  // Received and dropped.
  std::uint64_t malformed = 0;         ///< no JSON, no message, or beyond what `FRXWebsocketMessage` reads
  std::uint64_t unknownTypes = 0;      ///< of a type that this version does not know
  std::uint64_t queriesWithoutId = 0;  ///< cannot be answered
  std::uint64_t unawaitedReplies = 0;  ///< nobody asked, was answered already, or has given up

  // Refused while they arrived, each with the end of its connection.
  std::uint64_t binary = 0;
  std::uint64_t tooLarge = 0;
  std::uint64_t notUtf8 = 0;
  std::uint64_t badFrames = 0;  ///< against the framing of RFC 6455
};

/// Connections that this instance opens to its peers. All only grow.
struct FRXConnectionStatistics {
  std::uint64_t attempts = 0;
  std::uint64_t opened = 0;
  /// Of those opened: to a peer that had been connected before. Beyond 4096 different peers, who was
  /// connected is forgotten.
  std::uint64_t reopened = 0;
  std::uint64_t failed = 0;  ///< attempts that ended in an error
  std::uint64_t lost = 0;    ///< open ones that broke: no answer to a ping, a reset, a full send queue
};

/// What an `FRXWebsocketConnectionManager` knows.
struct FRXOutboundStatistics {
  FRXConnectionStatistics connections;
  /// Over the sockets that this instance opened, both ways.
  FRXMessageStatistics messages;
  std::size_t openSockets = 0;     ///< now
  std::size_t unsentBytes = 0;     ///< now: in all send queues together
  std::size_t awaitedReplies = 0;  ///< now: requests whose reply has not come and was not given up
};

}  // namespace ferrox
