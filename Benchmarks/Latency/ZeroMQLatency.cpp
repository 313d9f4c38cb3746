// The latency benchmark's first alternative: ZeroMQ PUB/SUB over TCP. The subscriber binds, so that its port
// is known first; the publisher waits for the subscription (XPUB: a PUB socket that shows it).

#include <zmq.h>

#include <array>
#include <thread>

#include "Benchmarks/Latency/Course.h"

namespace {

using namespace ferrox::bench;

int observe(void* socket, const Course& course) {
  std::array<char, 64> endpoint{};
  std::size_t size = endpoint.size();
  if (zmq_setsockopt(socket, ZMQ_SUBSCRIBE, "", 0) != 0 || zmq_bind(socket, "tcp://127.0.0.1:*") != 0 ||
      zmq_getsockopt(socket, ZMQ_LAST_ENDPOINT, endpoint.data(), &size) != 0) {
    return 1;
  }
  const std::string address(endpoint.data());
  announcePort(static_cast<unsigned>(std::atoi(address.c_str() + address.rfind(':') + 1)));
  Arrivals arrivals(course.count);
  std::array<char, 2 * textSize> text{};
  while (!arrivals.isDone()) {
    const int received = zmq_recv(socket, text.data(), text.size(), 0);
    if (received < 0) return 1;
    arrivals.take({text.data(), static_cast<std::size_t>(received)});
  }
  arrivals.report();
  awaitEnd();
  return 0;
}

int post(void* socket, const Course& course) {
  const std::string address = "tcp://127.0.0.1:" + std::to_string(course.port);
  char subscription = 0;
  if (zmq_connect(socket, address.c_str()) != 0 || zmq_recv(socket, &subscription, 1, 0) != 1) return 1;
  for (std::uint32_t number = 0; number < course.count; ++number) {
    std::this_thread::sleep_for(course.pause);
    const std::string text = stampedText(number, false);
    if (zmq_send(socket, text.data(), text.size(), 0) < 0) return 1;
  }
  awaitEnd();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const Course course(argc, argv);
  void* context = zmq_ctx_new();
  void* socket = zmq_socket(context, course.isObserver ? ZMQ_SUB : ZMQ_XPUB);
  const int status = course.isObserver ? observe(socket, course) : post(socket, course);
  if (status != 0) std::fprintf(stderr, "%s\n", zmq_strerror(zmq_errno()));
  zmq_close(socket);
  zmq_ctx_term(context);
  return status;
}
