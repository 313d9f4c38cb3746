// One HTTP connection from accept to close, or to its upgrade.
#pragma once

#include <memory>
#include <string>

#include "Platform/HTTP/Server/BodyTransfer.h"
#include "Platform/HTTP/Server/HTTPConnection.h"
#include "Platform/HTTP/Server/RequestReader.h"
#include "Platform/HTTP/Server/ServerContext.h"
#include "Platform/HTTP/Server/Session.h"

namespace ferrox {

class NetworkThread;
class SocketChannel;

/// Requests are answered strictly in their order; while an answer is on its way nothing more is read, so a
/// client that does not take its answers cannot make us keep any.
/// Thread: network
class ClientConnection final : public Session {
 public:
  ClientConnection(std::shared_ptr<ServerContext> context, std::shared_ptr<NetworkThread> thread,
                   int descriptor, std::shared_ptr<ConnectionCounts::Slot> slot);
  ~ClientConnection() override;

  void start();

  void didReceive(std::size_t bytes) override;
  void didBecomeWritable() override;
  void didFail() override;
  void sweep(Instant now) override;
  void abort() override;

 private:
  enum class Phase {
    Fresh,      ///< nothing received yet
    Idle,       ///< between requests
    Head,       ///< a request has begun
    Body,       ///< its body is being received
    Preparing,  ///< the disk pool works for us
    Sending,    ///< the socket takes no more for now
    Lingering,  ///< all said; waiting for the peer to see it
    Ended,
  };

  void run();
  /// Answers what has been read; false when more must be received first.
  bool readRequests();
  void receiveMore();
  bool headArrived();
  void answer();
  void prepare(std::shared_ptr<HTTPResponse> deferred);
  void respond(std::shared_ptr<HTTPResponse> response);
  void refuse(int status, const HTTPHeaders& headers = {});
  void upgrade();

  /// True when all output is gone.
  bool flush();
  bool sendOutput();
  bool stepBody();
  void fetchFromDisk();
  void runLater();

  void enter(Phase phase);
  void touch();
  void finish();
  void end();

  class Request;
  const std::shared_ptr<ServerContext> context_;
  const std::shared_ptr<NetworkThread> thread_;
  std::shared_ptr<ConnectionCounts::Slot> slot_;
  std::unique_ptr<SocketChannel> channel_;
  std::unique_ptr<HTTPConnection> handler_;
  RequestReader reader_;
  RequestReader::BodySink bodySink_;
  std::unique_ptr<Request> request_;
  std::string output_;
  std::size_t outputSent_ = 0;
  std::shared_ptr<BodyTransfer> body_;
  Phase phase_ = Phase::Fresh;
  Instant phaseSince_;
  bool closeAfterwards_ = false;
  bool linger_ = false;
  bool receiving_ = false;
  std::size_t lingered_ = 0;
};

}  // namespace ferrox
