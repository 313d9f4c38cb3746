// The fan-out benchmark's third alternative: a ZeroMQ publisher over TCP with one I/O thread. An XPUB socket
// is a PUB socket that shows who subscribes, which tells when all peers are there.

#include <zmq.h>

#include <cstdio>
#include <string>

#include "Benchmarks/FanOut/Flow.h"
#include "Benchmarks/Support/Stamp.h"

namespace {

using ferrox::bench::Flow;

bool setOption(void* socket, int option, int value) {
  return zmq_setsockopt(socket, option, &value, sizeof(value)) == 0;
}

/// Returns whether all peers have subscribed.
bool takeSubscriptions(void* socket, std::size_t& subscribed, std::size_t peers) {
  char byte = 0;
  while (zmq_recv(socket, &byte, 1, ZMQ_DONTWAIT) == 1) subscribed += byte == 1 ? 1 : 0;
  return subscribed == peers;
}

bool serve(void* socket, Flow& flow) {
  std::size_t subscribed = 0;
  bool started = false;
  while (!flow.isDone()) {
    zmq_pollitem_t items[] = {{nullptr, Flow::acknowledgements, ZMQ_POLLIN, 0}, {socket, 0, ZMQ_POLLIN, 0}};
    if (zmq_poll(items, started ? 1 : 2, -1) < 0) return false;
    if (items[0].revents != 0) flow.takeAcknowledgements();
    if (!started && takeSubscriptions(socket, subscribed, flow.peers())) {
      started = true;
      flow.start();
    }
    bool sent = true;
    flow.postDue([&](std::uint32_t number, bool last) {
      const std::string text = ferrox::bench::stampedText(number, last);
      sent = sent && zmq_send(socket, text.data(), text.size(), 0) >= 0;
    });
    if (!sent) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Flow flow(argc, argv);
  void* context = zmq_ctx_new();
  void* socket = zmq_socket(context, ZMQ_XPUB);
  const std::string address = "tcp://127.0.0.1:" + std::to_string(flow.port());
  // Every subscriber counts, though all subscribe to the same; nothing is dropped for a full queue.
  const bool served = setOption(socket, ZMQ_XPUB_VERBOSE, 1) && setOption(socket, ZMQ_SNDHWM, 0) &&
                      setOption(socket, ZMQ_LINGER, 0) && zmq_bind(socket, address.c_str()) == 0 &&
                      serve(socket, flow);
  if (!served) std::fprintf(stderr, "%s\n", zmq_strerror(zmq_errno()));
  if (served) flow.report();
  zmq_close(socket);
  zmq_ctx_term(context);
  return served ? 0 : 1;
}
